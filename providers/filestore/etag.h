// SPDX-License-Identifier: Apache-2.0
//
// Entity tags of files, and the dates from which they follow.
//
// A tag is made of the file's date (100 ns), its number and its size. So that it changes with every
// change of content, also within one tick of the system's clock and under a date that a client
// sets, the store gives all content that it publishes a stamped date of its own: the wanted second,
// and in it a fraction that no content before has had, the last three digits of which are a check
// on the others. The second is what clients see. A copy keeps its source's date along with its
// content, a file that is moved or restored keeps both.
//
// Other programs write to files in place, and their dates are the system's ticks. A file with such
// a date has a strong tag once the date is older than any change can be that would not show in it.
#pragma once

#include <string>

#include <kest/dav.h>

#include "providers/filestore/filesystem.h"

namespace filestore {

// A date in the second of `wanted` that no call has returned before; for `wanted` now and without
// `isGiven` it goes up with the clock. Any thread.
[[nodiscard]] UINT64 StampedDate(UINT64 wanted, bool isGiven);
[[nodiscard]] bool IsStamped(UINT64 date);

// Changes when the content does, and with every replacement.
[[nodiscard]] DAV_ETAG ETagOf(const FileInfo& info);

// An object's entity tag as it stands in headers, quotes included.
[[nodiscard]] std::string ETagText(const DAV_ETAG& etag);

// Whether the file's tag is good for all that it can ever have held under it.
[[nodiscard]] bool HasStrongTag(const FileInfo& info, UINT64 now);
// As headers spell it.
[[nodiscard]] std::string TagText(const FileInfo& info, UINT64 now);
void PutTag(const FileInfo& info, UINT64 now, DAV_TAG* out);

} // namespace filestore
