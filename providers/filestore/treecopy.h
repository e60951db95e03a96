// SPDX-License-Identifier: Apache-2.0
//
// A copy of a file or a tree, made beside the destination's volume and renamed into place whole.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "providers/filestore/fingerprint.h"
#include "providers/filestore/guard.h"
#include "providers/filestore/rename.h"
#include "providers/filestore/store.h"

namespace filestore {

// What a copy takes along besides content, permissions, both dates and hidden marks.
struct CopyExtent {
    bool members = true;    // of a collection
    bool properties = true; // the dead ones
    // Also what is not served: nested private directories, links that lead nowhere or to
    // directories; and the owner, where that is allowed. For a move, after which the source is
    // gone.
    bool unserved = false;
};

class TreeCopy {
  public:
    TreeCopy(Store& store, Volume& from, Volume& to) : store_(store), from_(from), to_(to) {}
    // Removes what was not published.
    ~TreeCopy();
    TreeCopy(const TreeCopy&) = delete;
    TreeCopy& operator=(const TreeCopy&) = delete;

    // Copies the object at `source`, for `destination`. Whole or not at all: a member that cannot
    // be read or made ends the copy with the reason; one that has gone by the time its turn comes
    // is no member any more. Links to files are followed; what is neither file nor directory is
    // left out, or with `unserved` ends the copy with code 6. On the disk when it returns, as far
    // as the destination's volume wants it. Ends with code 1 when the request has been cancelled.
    TALSTATUS Make(const Target& source, std::string_view destination, const CopyExtent& extent);
    bool IsDirectory() const { return info_.isDirectory; }
    const FileInfo& SourceInfo() const { return info_; }
    // Of what has been copied.
    const Fingerprint& Source() const { return source_; }
    // The copy in its place beside the volume's tree, from where a rename publishes it. Its
    // properties stand under that place's path, and follow the rename.
    DirectoryEntry Made() const;
    bool HasProperties() const { return hasRows_; } // or a hidden mark, in it or on it
    // It has been renamed: nothing is removed any more.
    void Keep() { tmpName_.clear(); }

  private:
    // A collection whose members are being copied. Trees are worked through with a list of these:
    // they can be deeper than a stack.
    struct Level {
        OpenFile source;
        FileInfo info;
        const Directory* into = nullptr; // that the copy was made in
        Directory made;
        std::vector<std::string> names;
        size_t next = 0;
        size_t pathBytes = 0; // of the collection's own
    };

    TALSTATUS CopyAll(OpenFile source);
    TALSTATUS Copy(OpenFile source, const FileInfo& info, const Directory& into,
                   const std::string& leaf);
    TALSTATUS CopyFile(FileHandle source, const FileInfo& info, const Directory& into,
                       const std::string& leaf);
    TALSTATUS Enter(OpenFile source, const FileInfo& info, const Directory& into,
                    const std::string& leaf);
    TALSTATUS Leave(const Level& level);
    TALSTATUS CopyNext(Level* level);
    TALSTATUS CopyMember(FileHandle directory, const std::string& name, const Directory& into);
    TALSTATUS CopyLink(FileHandle directory, const std::string& name, const Directory& into);
    TALSTATUS CopyDates(FileHandle source, const FileInfo& info, FileHandle copy,
                        const Directory& directory);
    TALSTATUS CopyRows();
    void KeepOwner(const FileInfo& info, FileHandle copy) const;
    bool HasRoomFor(const std::string& name) const;
    std::string TmpPath() const;

    Store& store_;
    Volume& from_;
    Volume& to_;
    CopyExtent extent_;
    std::string sourcePath_;
    size_t destinationBytes_ = 0; // of the path that the copy is for
    std::string path_;            // of the source object that is being copied
    std::vector<std::unique_ptr<Level>> levels_;
    std::vector<std::string>
        trees_;     // the source, or its members where it is the volume's root directory
    FileInfo info_; // of the source, and of the copy
    FileInfo made_;
    Fingerprint source_;
    std::string tmpName_;
    DirectoryRef tmp_;
    bool hasRows_ = false; // there is metadata under the path of the tmp name
};

} // namespace filestore
