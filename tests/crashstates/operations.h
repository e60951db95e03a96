// SPDX-License-Identifier: Apache-2.0
//
// The operations whose sequences are cut off, and the tree that they begin with.
#pragma once

#include <string>
#include <vector>

#include "tests/unit/providers/filestore/scratch.h"

namespace crashstates {

struct Operation {
    const char* name;
    TALSTATUS (*run)(filestore::Store& store, filestore::Client& client);
    bool usesOther = false; // the second volume
    // What may be there of it when it was not answered, besides what was there before.
    const char* halfway = nullptr;
    // It changes what the file system keeps and what the metadata keeps, and means nothing by both
    // together: the one may be there without the other.
    bool isInTwoPlaces = false;
};

// The volumes are "v" and "w".
extern const std::vector<Operation> kOperations;

// Files, folders, properties, a lock and a deleted entry for them to work on.
void MakeFirstTree(filestore::Client& client, bool keepsDeleted);

// What clients would find, and what a stranger would find wrong, line by line and sorted. `exact`:
// with permissions and dates.
std::vector<std::string> Describe(const class Machine& machine, const filestore::Store& store,
                                  bool exact);

} // namespace crashstates
