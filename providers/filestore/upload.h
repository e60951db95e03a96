// SPDX-License-Identifier: Apache-2.0
//
// New content on its way in: a file beside the volume's tree that takes its place under its name in
// one step, when all of it has arrived, or goes without a trace. The step is a rename or, for a
// free name where nothing is synced, the first link to a file that had no name.
#pragma once

#include <optional>
#include <string>

#include <kest/dav.h>

#include "providers/filestore/conditions.h"
#include "providers/filestore/nearby.h"
#include "providers/filestore/store.h"

namespace filestore {

class Upload {
  public:
    Upload(const Store& store, Volume& volume) : store_(store), volume_(volume) {}
    ~Upload() { Discard(); }
    Upload(const Upload&) = delete;
    Upload& operator=(const Upload&) = delete;

    // Before Begin: what must hold for the name when the content is put under it, else code 40.
    void SetConditions(const Conditions& conditions) { conditions_ = conditions; }
    // Before Begin: the name must be free then, too.
    void SetMustBeFree() { mustBeFree_ = true; }

    // Whether content could be published at `path` just now. Codes as Begin.
    TALSTATUS Look(std::string_view path);
    // Prepares to write the file at `path`. Code 33 when its parent is missing, 39 when it is a
    // collection, 6 when it is read-only or the volume is. `seemsFree`: the caller has just looked
    // for the name in vain; what does bear it is then met in Publish.
    TALSTATUS Begin(std::string_view path, bool seemsFree);
    // The same for content that lies in a private directory already, under `name`: Publish takes it
    // from there, and until then it stays, whatever becomes of this object.
    TALSTATUS BeginWithFile(std::string_view path, FileHandle directory, std::string name);
    // The same as the first, and fills the file with what is there under the name now.
    TALSTATUS BeginWithContent(std::string_view path, FileHandle content, UINT64 size);
    TALSTATUS Write(UINT64 offset, const void* data, UINT32 size);
    TALSTATUS SetLength(UINT64 length);
    // The content is whole: gives it what it is to have, and syncs it as the volume wants. The
    // first write that failed is reported again.
    TALSTATUS Finish();
    // Puts the content under its name. After a failure nothing has changed. Codes as Begin.
    TALSTATUS Publish();
    void Discard();

    bool IsReplacing() const { return replaces_; }
    FileHandle File() const { return file_.Get(); }
    // Before Finish: the caller wants to know what the file is then. Costs a look.
    void SetDescribed() { isToBeDescribed_ = true; }
    // After Publish: the file as it was put in place, without a look at what others have done to it
    // since. Only after SetDescribed.
    const FileInfo& Made() const { return made_; }
    // The file that bore the name when it was looked at last; null when none did.
    const FileInfo* Old() const { return old_ ? &*old_ : nullptr; }
    // What the file is to have once it is in place; until set, what a replaced file had.
    void SetModified(UINT64 date) { modified_ = date; }
    void SetCreated(UINT64 date) { created_ = date; }
    void SetReadOnly(bool on) { readOnly_ = on; }
    std::optional<UINT64> Created() const { return created_; }

  private:
    TALSTATUS LookAtParent(std::string_view path);
    TALSTATUS JudgeRights(bool isThere) const;
    TALSTATUS LookAtName();
    // Where the file has its name until it is in place.
    FileHandle Origin() const
    {
        if (nearby_.IsEntered())
            return nearby_.Get();
        return origin_ == kNoFile ? volume_.Tmp() : origin_;
    }
    int CrossOver();
    int CopyNearby(const std::string& name);
    void RemoveLeft(bool isPublished);
    int LinkOrRename();
    int MakeUnnamed();
    TALSTATUS TakeName();
    TALSTATUS TakeJudgedName();
    TALSTATUS ReplaceJudged(const FileInfo& there);
    TALSTATUS StatusOfTaking(int error) const;
    TALSTATUS Replace();
    TALSTATUS NameInTmp();
    const char* Leaf() const { return path_.c_str() + (path_.size() - LeafOf(path_).size()); }
    bool HasFile() const { return isUnnamed_ || !tmpName_.empty(); }
    int ApplyAttributes();
    int TakeOverCreated();
    int ApplyRights();
    bool ShowsByItself(UINT64 created) const;

    const Store& store_;
    Volume& volume_;
    DirectoryRef parent_;
    OpenFile file_;
    FileHandle origin_ = kNoFile; // the caller's directory that the file lies in; none: Tmp()
    Nearby nearby_;               // where it lies after CrossOver,
    std::string left_;            // and the name of what it was copied from
    std::string tmpName_;         // empty: nothing to put in place or to remove, or
    bool isUnnamed_ = false;      // a file that goes by itself
    std::string path_;
    Conditions conditions_;
    bool mustBeFree_ = false;
    bool replaces_ = false;       // something bears the name now
    bool mayCreate_ = true;       // what the user may do with the name while it is free
    bool mayChange_ = true;       // and while a file bears it
    std::optional<FileInfo> old_; // a file does
    std::optional<UINT64> modified_;
    std::optional<UINT64> created_;
    std::optional<bool> readOnly_;
    bool isToBeDescribed_ = false;
    FileInfo made_;                         // once it was looked at
    TALSTATUS failed_ = TAL_STATUS_SUCCESS; // of the first write that failed
};

// The permission bits for a file that is, or is not, read-only.
[[nodiscard]] UINT32 WithReadOnly(UINT32 mode, bool on);
[[nodiscard]] inline bool IsReadOnly(const FileInfo& info)
{
    return (info.mode & 0222) == 0;
}

} // namespace filestore
