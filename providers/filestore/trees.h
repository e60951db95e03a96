// SPDX-License-Identifier: Apache-2.0
//
// Operations on whole trees: delete, move and copy. Each is one rename in the end, so that it has
// happened or not; metadata follows in a transaction, and a rename whose process died before that
// is recovered by the next start (RenameIntent).
#pragma once

#include "providers/filestore/guard.h"
#include "providers/filestore/store.h"
#include "providers/filestore/treecopy.h"

namespace filestore {

// Puts the object away: it is kept in the list of deleted entries for the configured time. A
// deleted entry that is deleted goes for good.
TALSTATUS DeleteTree(Store& store, const Guard& guard, const Target& target);

// Between volumes, too. Code 22 when the destination exists and `overwrite` is clear, 33 when its
// parent is missing, 6 when one lies in the other. What is replaced is kept like a deleted entry if
// it is, or gives way to, a collection. Moving a deleted entry restores it.
// `replaced`, if given, is whether something bore the destination's name.
TALSTATUS MoveTree(Store& store, const Guard& guard, bool overwrite, const Target& from,
                   const Target& to, bool* replaced = nullptr);

// Codes as MoveTree; works between volumes, too.
TALSTATUS CopyTree(Store& store, const Guard& guard, bool overwrite, const CopyExtent& extent,
                   const Target& from, const Target& to, bool* replaced = nullptr);

} // namespace filestore
