// SPDX-License-Identifier: Apache-2.0
//
// Frees a list of results.
#include "methods/statuslist.h"

#include "support/list.h"

TALSTATUS KestDavDeleteMultiStatusList(LIST_ENTRY* pMultiStatus)
{
    static_assert(offsetof(DAV_STATUS_ENTRY, ListLink) == 0);
    while (!pITalpl->TalxIsListEmpty(pMultiStatus))
        FreeListEntry(pMultiStatus->Flink);
    return TAL_STATUS_SUCCESS;
}
