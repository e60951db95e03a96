// SPDX-License-Identifier: Apache-2.0
//
// What the running module never does: emptying the provider list.
#include <gtest/gtest.h>

#include "core/memory.h"
#include "core/session.h"
#include <kest/com.h>

namespace {

TEST(KestDavReleaseHandlers, GivesEveryEntryBack)
{
    Ref<ITalpl> platform;
    ASSERT_EQ(Create(CLSID_HadranTalpl, platform), TAL_STATUS_SUCCESS);
    pITalpl = platform.Get();
    ASSERT_EQ(pITalpl->TalxAllocReadWriteLock(&g_hHandlerLock), TAL_STATUS_SUCCESS);
    pITalpl->TalxInitializeListHead(&g_HandlerList);
    TALPL_STATISTICS before{};
    pITalpl->TalxGetGeneralTalplStatistics(&before);

    for (int i = 0; i < 3; ++i) {
        auto* entry =
            static_cast<KESTDAV_HANDLER*>(pITalpl->TalxAllocPagedMemory(sizeof(KESTDAV_HANDLER)));
        ASSERT_TRUE(entry);
        *entry = {};
        pITalpl->TalxInsertTailList(&g_HandlerList, &entry->ListLink);
    }
    KestDavReleaseHandlers();
    EXPECT_TRUE(pITalpl->TalxIsListEmpty(&g_HandlerList));
    TALPL_STATISTICS after{};
    pITalpl->TalxGetGeneralTalplStatistics(&after);
    EXPECT_EQ(after.LiveAllocations, before.LiveAllocations);
    EXPECT_EQ(pITalpl->TalxAcquireLockForWriteAccess(g_hHandlerLock, FALSE), TAL_STATUS_SUCCESS)
        << "the lock is free";
    pITalpl->TalxReleaseReadWriteLock(g_hHandlerLock);
    pITalpl->TalxDestroyReadWriteLock(g_hHandlerLock);
}

} // namespace
