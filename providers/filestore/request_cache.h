// SPDX-License-Identifier: Apache-2.0
//
// The file that the running request's GetType opened last. The module asks for a path's type and
// then opens it, in one request and with nothing in between; handing the open file over saves the
// second walk down the path, which is a good part of what a small GET costs.
//
// The hand-over is good for the request's very next operation, and for the same path; every other
// operation drops it. It belongs to the request (RequestState) and dies with it, so nothing is
// served from it that was not opened by the running request itself.
//
// Where the look itself failed it is that failure: the path may well exist, and what is opened next
// fails the same way, so that nobody is told that it is gone, or is something else.
//
// Before a MOVE or a DELETE it is the directory that holds the name, and what the name was seen to
// be: that is what those work with. For a HEAD it is only what the file was seen to be.
#pragma once

#include <kest/io.h>

#include "providers/filestore/store.h"

namespace filestore::request_cache {

// Keeps the open file for the running request; closes it when no request runs.
void SaveOpened(const Target& target, OpenFile file, const FileInfo& info);
// Takes the file over if it is the one that was kept for the running request. Drops it otherwise.
[[nodiscard]] bool TakeOpened(const Target& target, OpenFile* file, FileInfo* info);
// The same for a file that was looked at and not opened. TakeOpened then leaves `file` without one.
void SaveInfo(const Target& target, const FileInfo& info);
// The same for the directory that holds the path's leaf, and what the leaf is.
void SaveParent(const Target& target, DirectoryRef directory, const FileInfo& info);
[[nodiscard]] bool TakeParent(const Target& target, DirectoryRef* directory, FileInfo* info);
// The same for a failure. False when no request runs.
[[nodiscard]] bool SaveFailure(const Target& target, TALSTATUS status);
// The failure that was kept for the path, or success. To be asked before the other two.
[[nodiscard]] TALSTATUS TakeFailure(const Target& target);
// Every operation but those above begins with this.
void Drop();

} // namespace filestore::request_cache
