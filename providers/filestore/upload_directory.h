// SPDX-License-Identifier: Apache-2.0
//
// The uploads of a volume as a whole: how many and how much there may be, new ones, and those whose
// time is over.
//
// In a volume one user has at most 64 uploads and all have 1024; of one user the longest untouched
// give way to a new one, those that are complete before all others. Together they take up to half
// of the disk: with their announced lengths, or else with what has arrived.
#pragma once

#include "providers/filestore/pending_upload.h"

namespace filestore {

// Bytes that all uploads but `except` leave for one more. 0 when nothing is left.
TALSTATUS SpaceForUpload(Volume& volume, std::string_view except, UINT64* bytes);

// Makes the two files of an upload, on the disk as the volume wants it, picks its name and says how
// long it may get. The record's inode and date are filled in. Code 35 when there is no room for its
// length, code 10 when there are too many.
TALSTATUS MakeUpload(const Store& store, Volume& volume, UploadRecord record, std::string* name,
                     UINT64* space);

// Removes those to which nothing has come for too long, and what is left of others.
void DropExpiredUploads(const Store& store, Volume& volume);

} // namespace filestore
