// SPDX-License-Identifier: Apache-2.0
//
// The list of results that the walks of COPY, MOVE and DELETE are handed.
#pragma once

#include "support/globals.h"

// One object's result.
struct DAV_STATUS_ENTRY {
    LIST_ENTRY ListLink;
    TALSTATUS Status;
    UINT32 ObjectLength; // bytes
    WCHAR Object[1];     // variable
};

// Frees the entries of a list of results. Always succeeds.
TALSTATUS KestDavDeleteMultiStatusList(LIST_ENTRY* pMultiStatus);

// An empty list that gives back what a walk has put into it.
class StatusList {
  public:
    StatusList() { pITalpl->TalxInitializeListHead(&head_); }
    ~StatusList() { KestDavDeleteMultiStatusList(&head_); }
    StatusList(const StatusList&) = delete;
    StatusList& operator=(const StatusList&) = delete;

    LIST_ENTRY* Head() { return &head_; }

  private:
    LIST_ENTRY head_{};
};
