// SPDX-License-Identifier: Apache-2.0
//
// A storage provider over an in-memory tree, of either generation. All its calls go through the
// recorder as "NAME.Op" (namespace), "NAME.res.Op" (opened resource), "NAME.col.Op" (opened
// collection).
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "recorder.h"
#include <kest/com.h>
#include <kest/dav.h>
#include <kest/dav/uploads_3.h>

namespace harness {

struct LockRecord {
    DAV_LOCK_TYPE type = Write;
    DAV_LOCK_SCOPE scope = Exclusive;
    INT32 depth = -1;
    INT64 timeout = -1; // 100 ns units
    std::string owner{};
    std::string token{};
    bool claimsMore = false; // the lengths that are told reach far beyond the record
};

// A dead property of the third generation; `value` is its whole element.
struct DeadProperty {
    std::string space;
    std::string local;
    std::string value;
};

struct Node {
    DAV_TYPE type = Resource;
    std::string content;
    std::string tag;    // of the third generation, as it is sent; made of `version` when empty
    UINT32 version = 1; // counts its contents
    UINT32 attributes = 0;
    DAV_DATETIME created = 0;
    DAV_DATETIME modified = 0;
    DAV_ETAG etag{};
    UINT64 sizeShown =
        0; // GetResourceSize and listings show it in place of the content's, if not 0
    std::vector<std::pair<std::u16string, std::string>> properties;
    std::vector<DeadProperty> dead;
    std::vector<LockRecord> locks;
    DAV_PROVIDER_STATE state = 0; // of its entry in a listing
    std::u16string uri;           // of its entry in a listing, when state is not 0
    std::u16string displayName;   // the last path segment when empty
    UINT32 nameBytesShown = 0;    // listings tell it as the name's length, if not 0
};

// An upload that goes on in other requests.
struct PendingUpload {
    std::u16string target;
    std::string name;
    std::string content;
    UINT64 length = 0; // of the whole in bytes, or kUploadLengthUnknown
    std::string terms;
    bool isComplete = false;
};

// What a test says about a provider before the module starts.
struct ProviderSpec {
    std::string name;    // "gen2"; it serves "/NAME" and below
    int generations = 2; // 1, 2, or 3 for a class that offers both; 6: the second and the third;
                         // 14: with uploads that can be resumed
    UINT32 caps = 0;
    bool served = true;     // false: the class is configured but unknown to the component manager
    bool servesNew = false; // GetType answers Resource for what does not exist below "/NAME"
};

class Provider {
  public:
    Provider(Recorder& recorder, ProviderSpec spec);
    ~Provider();
    Provider(const Provider&) = delete;
    Provider& operator=(const Provider&) = delete;

    // The tree. Paths are UTF-8 provider paths ("/gen2/a"). Parents are made as needed; "/NAME"
    // exists from the start. Dates start at 2026-01-31T12:00:00Z.
    Node& AddFile(const std::string& path, std::string content = {});
    Node& AddCollection(const std::string& path);
    Node* Find(const std::string& path);
    bool Has(const std::string& path) { return Find(path) != nullptr; }
    std::string Content(const std::string& path); // "(missing)" when there is none
    std::vector<std::string> Paths() const;       // all, sorted, collections with a trailing "/"

    // Names in a listing come in name order; this overrides it for one collection.
    void SetOrder(const std::string& collection, std::vector<std::string> names);

    // Knobs.
    bool moveSupported = true;   // else Move answers code 13
    bool serveRoot = false;      // GetType also knows "" and "/", and "/" can be listed
    size_t recordsPerCall = 1;   // locks and properties packed into one answer
    UINT32 readLimit = 0;        // Read gives at most that many bytes at once, if not 0
    UINT32 writeLimit = 0;       // Write takes at most that many bytes at once, if not 0
    size_t membersPerCall = 3;   // GetMembers gives at most that many at once
    std::string refusedProperty; // PatchProperties fails this one's change with code 6
    UINT64 quotaUsed = 0;        // GetQuota tells both, if the second is not 0
    UINT64 quotaAvailable = 0;
    std::vector<PendingUpload> uploads; // begun and not forgotten, the first is named "u1"
    UINT64 mostUploadBytes = 1000;
    std::string enhResult;       // what SetNamedPropertyEnh writes as its result text
    bool listsAttributes = true; // else listings leave the field as it was
    std::string nextToken = "00000000-0000-4000-8000-000000000001";
    // IoctlRequest of the namespace ("/", no path) and of opened objects (their path).
    std::function<TALSTATUS(const std::string& path, UINT32 code, UINT32* size, void* output)>
        onIoctl;
    // Called at every Read with the offset; may change the tree or block.
    std::function<void(const std::string& path, UINT64 offset)> onRead;

    const ProviderSpec& Spec() const { return spec_; }
    Recorder& Log() { return recorder_; }
    std::string Name(const char* operation) const { return spec_.name + "." + operation; }
    int LiveObjects() const { return liveObjects_; } // opened objects not yet released
    int NamespaceReferences() const { return references_; }
    void Count(int change) { liveObjects_ += change; }

    // What the component manager asks for. Code 2 for another interface.
    TALSTATUS CreateObject(const GUID& iid, void** out);

    // The operations' bodies, shared by both generations.
    bool Serves(const std::u16string& path) const;
    Node* Find(const std::u16string& path);
    TALSTATUS MakeCollection(const std::u16string& path);
    TALSTATUS Remove(const std::u16string& path);
    TALSTATUS MoveTree(bool overwrite, const std::u16string& from, const std::u16string& to);
    TALSTATUS CopyTree(bool overwrite, const std::u16string& from, const std::u16string& to);
    TALSTATUS GetType(const std::u16string& path, DAV_TYPE* type);
    TALSTATUS AddLock(const std::u16string& path, LockRecord lock, DAV_LOCK_TOKEN* token);
    LockRecord* FindLock(const std::u16string& path, const DAV_LOCK_TOKEN* token);
    TALSTATUS RemoveLock(const std::u16string& path, const DAV_LOCK_TOKEN* token);
    std::vector<std::u16string> Children(const std::u16string& path) const;
    void EraseTree(const std::u16string& path);
    template <class F> void EachNode(F use)
    {
        for (auto& [path, node] : nodes_)
            use(path, node);
    }
    bool HasThird() const { return (spec_.generations & 4) != 0; }
    bool HasUploads() const { return (spec_.generations & 8) != 0; }
    std::recursive_mutex& Mutex() { return mutex_; }

    TALSTATUS QueryUploads(void** out);

    int references_ = 0;

  private:
    Recorder& recorder_;
    ProviderSpec spec_;
    std::map<std::u16string, Node> nodes_;
    std::map<std::u16string, std::vector<std::u16string>> orders_;
    int liveObjects_ = 0;
    std::recursive_mutex mutex_;
    struct First;
    struct Second;
    std::unique_ptr<First> first_;
    std::unique_ptr<Second> second_;
    std::shared_ptr<IKestDAV3> third_;
    std::shared_ptr<IKestDAVUploads3> uploadsFace_;
};

// The status of a provider that fails with `code`.
constexpr TALSTATUS ProviderFailure(UINT16 code)
{
    return MakeStatus(0xC7AD, code);
}

// The last path segment.
std::u16string_view LastSegment(std::u16string_view path);

// Packs one lock into the room of *size bytes. Code 7 when it does not fit.
TALSTATUS PackLock(const LockRecord& lock, UINT32* size, DAV_LOCK_2* buffer);

} // namespace harness
