// SPDX-License-Identifier: Apache-2.0
//
// What the methods never do with their lists of results: put something in.
#include <gtest/gtest.h>

#include "methods/statuslist.h"
#include "support/memory.h"

namespace {

TEST(StatusList, GivesEveryEntryBack)
{
    Ref<ITalpl> platform;
    ASSERT_EQ(Create(CLSID_HadranTalpl, platform), TAL_STATUS_SUCCESS);
    pITalpl = platform.Get();
    TALPL_STATISTICS before{};
    pITalpl->TalxGetGeneralTalplStatistics(&before);
    const auto fill = [](LIST_ENTRY* head) {
        for (int i = 0; i < 3; ++i) {
            auto* entry = static_cast<DAV_STATUS_ENTRY*>(
                pITalpl->TalxAllocPagedMemory(sizeof(DAV_STATUS_ENTRY)));
            ASSERT_TRUE(entry);
            *entry = {};
            pITalpl->TalxInsertTailList(head, &entry->ListLink);
        }
    };
    {
        StatusList results;
        fill(results.Head());
        EXPECT_EQ(KestDavDeleteMultiStatusList(results.Head()), TAL_STATUS_SUCCESS);
        EXPECT_TRUE(pITalpl->TalxIsListEmpty(results.Head()));
        fill(results.Head()); // for the end of the scope
    }
    TALPL_STATISTICS after{};
    pITalpl->TalxGetGeneralTalplStatistics(&after);
    EXPECT_EQ(after.LiveAllocations, before.LiveAllocations);
}

} // namespace
