// SPDX-License-Identifier: Apache-2.0
//
// The end of entries that stand on a list and were made with TalxAllocPagedMemory.
#pragma once

#include "support/globals.h"

// Takes an entry, whose link stands first, off its list (if it is in one) and gives its memory
// back. Its links are marked before: one that is followed after this crashes at an address that
// says why.
inline void FreeListEntry(LIST_ENTRY* entry)
{
    pITalpl->TalxRemoveEntryList(entry);
    entry->Flink = entry->Blink = reinterpret_cast<LIST_ENTRY*>(UINT64{0xBAADF00D});
    pITalpl->TalxFreeMemory(entry);
}
