// SPDX-License-Identifier: Apache-2.0
//
// Changes of an object's dead and live properties that happen together.
#pragma once

#include <span>

#include <kest/dav.h>

#include "providers/filestore/volume.h"

namespace filestore {

// Looks whether each change could be made, and writes each one's status. The first failure.
TALSTATUS JudgeChanges(std::span<DAV_PROPERTY_CHANGE> changes);

// Of changes that have been judged. A power cut between the change of the file and the end of the
// transaction leaves the file's alone.
class PropertyPatch {
  public:
    PropertyPatch(Volume& volume, std::string_view path, std::span<DAV_PROPERTY_CHANGE> changes)
        : volume_(volume), path_(path), changes_(changes)
    {
    }

    // The rows, in the changes' order, within a transaction of the caller's.
    TALSTATUS ChangeRows(MetadataSession& session);
    // Dates and permissions of the object that is open as `file`. After a failure they are as they
    // were, as far as the file system lets them.
    TALSTATUS ChangeFile(FileHandle file, const FileInfo& info);
    // Puts them back after ChangeFile has succeeded and the whole has not.
    void Undo(FileHandle file);

  private:
    TALSTATUS ChangeRow(MetadataSession& session, const DAV_PROPERTY_CHANGE& change);
    TALSTATUS ChangeOfFile(FileHandle file, const DAV_PROPERTY_CHANGE& change);

    Volume& volume_;
    const std::string_view path_;
    const std::span<DAV_PROPERTY_CHANGE> changes_;
    FileInfo before_; // with the creation date that is told
    bool hasNewDate_ = false, hasNewMode_ = false, hasNewCreation_ = false;
};

} // namespace filestore
