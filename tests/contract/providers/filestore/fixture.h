// SPDX-License-Identifier: Apache-2.0
//
// The store as the module sees it: filestore.so through its entry point, over volumes in a
// temporary directory, with a request that the test scripts.
#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <kest/com.h>
#include <kest/dav.h>
#include <kest/host.h>

namespace filestore_test {

std::u16string Wide(std::string_view text);
std::string Narrow(const WCHAR* text, size_t units);

// A counted string over text that it owns.
class Wstr {
  public:
    explicit Wstr(std::string_view text) : text_(Wide(text))
    {
        value_.Length = static_cast<UINT16>(text_.size() * 2);
        value_.MaximumLength = value_.Length;
        value_.Buffer = text_.data();
    }
    UNICODE_STRING* operator&() { return &value_; }

  private:
    std::u16string text_;
    UNICODE_STRING value_;
};

// What the scripted host says about the running request.
struct ScriptedRequest {
    UINT32 method = KestMethodGet;
    std::string path;        // with the location
    std::string destination; // of COPY and MOVE
    std::map<std::string, std::string> headers;
    bool bodyComplete = true;
    UINT32 bodyLeft = 0;
    std::vector<TALSTATUS> failures; // reported by components
    std::string match, noneMatch;    // conditions, empty: none
    UINT64 unmodifiedSince = 0;
    bool mayReplace = false;
    std::string user = "local";
    std::function<bool()> isCancelled; // none: never
    Ref<IUnknown> attachment;          // tied to it by the store
};

// Makes `request` the one that runs on this thread; what the store tied to it goes at the end.
class RunningRequest {
  public:
    explicit RunningRequest(ScriptedRequest& request);
    ~RunningRequest();
};

struct Child {
    std::string name;
    DAV_TYPE type;
    UINT32 attributes;
    UINT64 size;
    UINT64 created;
    UINT64 modified;
};

class FileStoreTest : public testing::Test {
  protected:
    static void SetUpTestSuite();
    void SetUp() override;

    // The volume "docs" (and "other", empty) on disk; emptied before each test.
    static std::filesystem::path Docs();
    static std::filesystem::path Other();

    Ref<IKestDAV2> Namespace();
    Ref<IKestDAVResource2> NewResource();
    Ref<IKestDAVCollection2> NewCollection();

    TALSTATUS Type(std::string_view path, DAV_TYPE* type);
    TALSTATUS MkCol(std::string_view path);
    // Writes content as PUT does. The commit's failure is what the host is told.
    TALSTATUS Put(std::string_view path, std::string_view content);
    std::optional<std::string> Get(std::string_view path);
    Ref<IKestDAVResource2> Opened(std::string_view path, DAV_OPEN_ACCESS access = kAccessRead);
    Ref<IKestDAVCollection2> OpenedCollection(std::string_view path);
    std::vector<Child> Children(std::string_view path);
    std::vector<std::string> Names(std::string_view path);

    SCHANDLE session_{nullptr, nullptr};
};

void WriteFile(const std::filesystem::path& path, std::string_view content);
std::string ReadFile(const std::filesystem::path& path);
// Names of a directory, sorted; without the store's own lock files.
std::vector<std::string> Entries(const std::filesystem::path& path);

} // namespace filestore_test
