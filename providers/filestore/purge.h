// SPDX-License-Identifier: Apache-2.0
//
// Removes in the background what need not be kept: deleted entries whose time is over, trees that
// are on their way out, expired locks.
#pragma once

#include <functional>
#include <vector>

#include "providers/filestore/store.h"

namespace filestore {

// `pause` is called after every so many removals, so that a big tree does not
// keep the disk from everybody else; returning false ends the work for now.
using PurgePause = std::function<bool()>;
void RetireDeleted(const Store& store, Volume& volume);   // entries older than they are kept
bool EmptyPurge(Volume& volume, const PurgePause& pause); // whether anything was removed
void DropExpiredLocks(const Store& store, Volume& volume);
// Removes properties, marks and locks of what has been removed and is not there, and entries whose
// files have gone from the list. What fails is tried the next time.
TALSTATUS WritePending(Volume& volume);

// Takes deleted entries out of the list and puts them on their way out. Fails only where files
// cannot be moved, or have been restored and their properties cannot follow yet.
TALSTATUS RetireEntries(Volume& volume, MetadataSession& session, const std::vector<INT64>& ids);

} // namespace filestore
