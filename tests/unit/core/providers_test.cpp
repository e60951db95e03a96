// SPDX-License-Identifier: Apache-2.0
//
// What the running module never does: emptying the provider list and lists of results.
#include "core/session.h"
#include "frame.h"
#include "methods/statuslist.h"
#include "support/list.h"
#include "support/memory.h"

namespace {

// The links of a freed entry.
std::pair<UINT64, UINT64> Links(const std::string& block)
{
    std::pair<UINT64, UINT64> links;
    std::memcpy(&links.first, block.data(), 8);
    std::memcpy(&links.second, block.data() + 8, 8);
    return links;
}
constexpr std::pair<UINT64, UINT64> kMarked = {0xBAADF00D, 0xBAADF00D};

struct Entry {
    LIST_ENTRY ListLink;
    char text[8];
};

class Lists : public Frame {
  protected:
    template <class T> T* Add(LIST_ENTRY* head)
    {
        auto* entry = static_cast<T*>(pITalpl->TalxAllocPagedMemory(sizeof(T)));
        EXPECT_TRUE(entry);
        *entry = {};
        pITalpl->TalxInsertTailList(head, &entry->ListLink);
        return entry;
    }
};

TEST_F(Lists, ReleasedProviders_AreGivenBackMarkedAndFreed)
{
    harness::Provider second(recorder, {.name = "two"});
    harness::Provider first(recorder, {.name = "one", .generations = 1});
    void* out = nullptr;
    ASSERT_EQ(second.CreateObject(IID_KestDAV_2, &out), TAL_STATUS_SUCCESS);
    Add<KESTDAV_HANDLER>(&g_HandlerList)->pIKestDav2 = static_cast<IKestDAV2*>(out);
    ASSERT_EQ(first.CreateObject(IID_KestDAV_1, &out), TAL_STATUS_SUCCESS);
    Add<KESTDAV_HANDLER>(&g_HandlerList)->pIKestDav = static_cast<IKestDAV*>(out);
    Add<KESTDAV_HANDLER>(&g_HandlerList); // with neither

    KestDavReleaseHandlers();
    EXPECT_TRUE(pITalpl->TalxIsListEmpty(&g_HandlerList));
    EXPECT_EQ(second.NamespaceReferences(), 0);
    EXPECT_EQ(first.NamespaceReferences(), 0);
    ASSERT_EQ(platform->freed.size(), 3U);
    for (const std::string& block : platform->freed)
        EXPECT_EQ(Links(block), kMarked);
}

TEST_F(Lists, FreedEntry_LeavesItsListWhole)
{
    LIST_ENTRY head;
    pITalpl->TalxInitializeListHead(&head);
    Entry* a = Add<Entry>(&head);
    Entry* b = Add<Entry>(&head);
    FreeListEntry(&a->ListLink);
    EXPECT_EQ(head.Flink, &b->ListLink);
    EXPECT_EQ(b->ListLink.Blink, &head);
    ASSERT_EQ(platform->freed.size(), 1U);
    EXPECT_EQ(Links(platform->freed[0]), kMarked);
    FreeListEntry(&b->ListLink);
    EXPECT_TRUE(pITalpl->TalxIsListEmpty(&head));
}

TEST_F(Lists, FreedResults_LeaveAnEmptyList)
{
    LIST_ENTRY head;
    pITalpl->TalxInitializeListHead(&head);
    Add<Entry>(&head);
    Add<Entry>(&head);
    EXPECT_EQ(KestDavDeleteMultiStatusList(&head), TAL_STATUS_SUCCESS);
    EXPECT_TRUE(pITalpl->TalxIsListEmpty(&head));
    ASSERT_EQ(platform->freed.size(), 2U);
    for (const std::string& block : platform->freed)
        EXPECT_EQ(Links(block), kMarked);
}

} // namespace
