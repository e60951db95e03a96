// SPDX-License-Identifier: Apache-2.0
//
// What the operations of the third generation have in common: preconditions that are handed over,
// refusals that are told, and what there is to say about an object.
#pragma once

#include <utility>

#include <kest/dav.h>

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"
#include "providers/filestore/tear_off.h"

namespace filestore {

// Everything that costs no further look. The creation date is `info`'s if `hasCreated`; `now` says
// whether the tag is strong.
[[nodiscard]] DAV_OBJECT_INFO DescribeObject(UINT64 now, const Volume* volume, const FileInfo& info,
                                             bool hasCreated);
// The same for a path, with the kept creation date and the hidden mark, as far as a record of
// `size` bytes holds them: each costs a look of its own. Opens the object; the request's next
// operation on the path finds it open.
TALSTATUS DescribePath(const Store& store, Target* target, DAV_OBJECT_INFO* out,
                       UINT32 size = sizeof(DAV_OBJECT_INFO));
// The root, which is nobody's file.
[[nodiscard]] DAV_OBJECT_INFO DescribeRoot(const Store& store);

// Opens what is at `target`, or takes over what the request has just found there. `file` can be
// none where that was only looked at.
TALSTATUS OpenFound(const Store& store, Target* target, OpenFile* file, FileInfo* info);

// Writes the answer of a change.
void TellChange(bool hasReplaced, const DAV_OBJECT_INFO& info, DAV_CHANGE* out);
// Names the roots of the locks that refused a change, if that is why it failed.
void TellRefusals(const Guard& guard, TALSTATUS status, IKestDAVFailures3* failures);

// A text of a caller.
[[nodiscard]] inline std::string_view TextOf(const DAV_TEXT& text)
{
    return text.Length ? std::string_view(text.Text, text.Length) : std::string_view();
}
// Whether the texts and arrays of preconditions can be read.
[[nodiscard]] bool AreReadable(const DAV_PRECONDITIONS& preconditions);

// Runs a change of what is at `own` under the preconditions that it was given.
template <class F>
TALSTATUS RunGuarded(const Store& store, SCHANDLE session, const Target& own,
                     const DAV_PRECONDITIONS* preconditions, IKestDAVFailures3* failures,
                     F&& change)
{
    DAV_PRECONDITIONS given;
    if (!ReadRecord(preconditions, &given) || !AreReadable(given))
        return Failure(kCodeInvalidParameter);
    const Guard guard(store, session, own, given);
    const TALSTATUS status = std::forward<F>(change)(guard);
    TellRefusals(guard, status, failures);
    return status;
}

} // namespace filestore
