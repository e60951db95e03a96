// SPDX-License-Identifier: Apache-2.0
//
// COPY and MOVE as a whole, while the module takes them apart into steps.
//
// The module copies object by object, leaves out a member whose step failed, deletes a destination
// that it began and, in a MOVE, the source in the end. It answers a success all the same. What a
// client was told to be copied or moved has to be, so the store keeps account for the running
// request: a step that failed is reported, nothing is published and nothing deleted after it.
#pragma once

#include <optional>

#include <kest/status.h>

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"

namespace filestore::relocation {

// Whether the running request is a COPY or a MOVE. None of the rest does anything otherwise.
[[nodiscard]] bool IsRunning();

// Takes note of how a step ended and hands `status` back. Every failure is one of the whole, but
// for "not found" and the end of a list where something is looked up or listed.
TALSTATUS Step(TALSTATUS status);      // looks up, makes, lists, deletes
TALSTATUS InnerStep(TALSTATUS status); // works on what is open
[[nodiscard]] bool HasFailed();

// The content for `path` has been dropped without being published.
void NoteDropped(const Volume& volume, std::string_view path);
// What Delete has to answer without deleting anything: success for what was dropped just before,
// code 6 once a step has failed. Nothing when it may go on.
[[nodiscard]] std::optional<TALSTATUS> JudgeDelete(const Target& target);

// The module of a COPY makes its destination's collection at `target`, which comes before the
// members are copied into it: the whole tree is copied here, in place of that. Nothing when this is
// no such call, or when the source is not the store's.
[[nodiscard]] std::optional<TALSTATUS> CopyInstead(Store& store, const Guard& guard,
                                                   const Target& target);
// The tree has been copied, or there is nothing to copy: the module finds no members any more, and
// what it sets on the destination is set.
[[nodiscard]] bool IsCopied();

} // namespace filestore::relocation
