// SPDX-License-Identifier: Apache-2.0
//
// The order of a listing, compared with the binary tree that defines it.
#include "index/nodes.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Entry {
    std::u16string name;
    UINT64 size = 0;
    DAV_DATETIME time = 0;
    bool folder = false;
};

SortNode* MakeNode(NodeContext* context, const Entry& entry, UINT64 number)
{
    std::vector<UINT64> block(sizeof(DAV_COMMON_ENUM) / 8 + entry.name.size() / 4 + 2);
    auto& record = *reinterpret_cast<DAV_COMMON_ENUM*>(block.data());
    record.Type = entry.folder ? Collection : Resource;
    record.ResourceSize = entry.size;
    record.ModificationDate = entry.time;
    record.DisplayNameLength = static_cast<UINT32>(entry.name.size() * sizeof(WCHAR));
    std::memcpy(reinterpret_cast<char*>(block.data()) + offsetof(DAV_COMMON_ENUM, DisplayName),
                entry.name.data(), record.DisplayNameLength);
    SortNode* node = nullptr;
    EXPECT_EQ(newSortNode(context, record, number + 1, false, &node), TAL_STATUS_SUCCESS);
    return node;
}

// The positions of the entries after sorting.
std::vector<UINT64> SortedOrder(const std::vector<Entry>& entries, UINT32 flags)
{
    NodeContext context{};
    NodeList list;
    for (size_t i = 0; i < entries.size(); ++i)
        list.Append(MakeNode(&context, entries[i], i));
    std::vector<UINT64> order;
    for (SortNode* node = SortNodes(list.Take(), flags); node != nullptr;) {
        order.push_back(node->deleted - 1);
        SortNode* next = node->next;
        FreeNode(node);
        node = next;
    }
    return order;
}

template <class T> int Compare(const T& a, const T& b)
{
    return a < b ? -1 : b < a ? 1 : 0;
}

// Names in these cases are upper-case letters, so that plain comparison is the platform's.
int CompareByKey(const Entry& a, const Entry& b, UINT32 flags)
{
    const int name = Compare(a.name, b.name);
    const int size = Compare(a.size, b.size);
    const int time = Compare(a.time, b.time);
    const auto first = [](std::initializer_list<int> steps) {
        for (const int step : steps)
            if (step != 0)
                return step;
        return 0;
    };
    switch (flags & 0xE0) {
    case 0x20:
        return first({size, name, time});
    case 0x40:
        return first({time, name, size});
    case 0x60:
        return first({name, name, time, size});
    default:
        return first({name, time, size});
    }
}

// The tree with its fast path, node by node.
class Tree {
  public:
    Tree(const std::vector<Entry>& entries, UINT32 flags) : entries_(entries), flags_(flags) {}

    std::vector<UINT64> Order()
    {
        for (size_t i = 0; i < entries_.size(); ++i)
            Insert(i);
        std::vector<UINT64> order;
        Visit(root_, order);
        return order;
    }

  private:
    struct Node {
        size_t entry;
        int prev = -1, next = -1;
    };

    void Insert(size_t entry)
    {
        nodes_.push_back({entry});
        const int added = static_cast<int>(nodes_.size()) - 1;
        const UINT32 key = flags_ & 0xF0;
        if (root_ < 0) {
            root_ = last_ = added;
            return;
        }
        if ((key == 0x00 || key == 0x10) && presorted_) {
            const Entry& last = entries_[nodes_[static_cast<size_t>(last_)].entry];
            if (Compare(last.name, entries_[entry].name) == -1) {
                Node& node = nodes_[static_cast<size_t>(last_)];
                (key == 0x00 ? node.next : node.prev) = added;
                last_ = added;
                return;
            }
            presorted_ = false;
        }
        for (int at = root_;;) {
            Node& node = nodes_[static_cast<size_t>(at)];
            int r = CompareByKey(entries_[node.entry], entries_[entry], flags_);
            if ((flags_ & 0x10) != 0)
                r = -r;
            int& side = r < 1 ? node.next : node.prev;
            if (side < 0) {
                side = last_ = added;
                return;
            }
            at = side;
        }
    }

    void Visit(int at, std::vector<UINT64>& order) const
    {
        if (at < 0)
            return;
        const Node& node = nodes_[static_cast<size_t>(at)];
        Visit(node.prev, order);
        order.push_back(node.entry);
        Visit(node.next, order);
    }

    const std::vector<Entry>& entries_;
    UINT32 flags_;
    std::vector<Node> nodes_;
    int root_ = -1;
    int last_ = -1;
    bool presorted_ = true;
};

} // namespace

TEST(Sorting, EveryKeyAndDirection_GivesTheTreesOrder)
{
    std::mt19937 random(20261120);
    for (int round = 0; round < 4000; ++round) {
        std::vector<Entry> entries(random() % 12);
        const unsigned long letters = 1 + random() % 6;
        for (Entry& entry : entries) {
            entry.name = std::u16string(1, static_cast<char16_t>(u'A' + random() % letters));
            entry.size = random() % 3;
            entry.time = random() % 3;
        }
        if (round % 3 == 0)
            std::ranges::stable_sort(entries, {}, &Entry::name);
        for (UINT32 flags = 0; flags <= 0xF0; flags += 0x10)
            ASSERT_EQ(SortedOrder(entries, flags), Tree(entries, flags).Order())
                << "round " << round << " flags " << flags;
    }
}

TEST(Sorting, EqualEntries_KeepTheirOrderInBothDirections)
{
    const std::vector<Entry> entries = {{u"A", 5, 7}, {u"A", 5, 7}, {u"A", 5, 7}};
    for (UINT32 flags = 0; flags <= 0xF0; flags += 0x10)
        EXPECT_EQ(SortedOrder(entries, flags), (std::vector<UINT64>{0, 1, 2})) << flags;
}

TEST(Sorting, Names_CompareWithoutCase)
{
    const std::vector<Entry> entries = {{u"b"}, {u"A"}, {u"C"}, {u"a"}};
    EXPECT_EQ(SortedOrder(entries, kSortByName), (std::vector<UINT64>{1, 3, 0, 2}));
    EXPECT_EQ(SortedOrder(entries, kSortByType), (std::vector<UINT64>{1, 3, 0, 2}));
    EXPECT_EQ(SortedOrder(entries, kSortByName | kSortDescending),
              (std::vector<UINT64>{2, 0, 1, 3}));
}

TEST(Sorting, LargeSizes_CompareAsUnsigned)
{
    const std::vector<Entry> entries = {{u"A", ~UINT64{0}}, {u"B", 1}, {u"C", UINT64{1} << 63}};
    EXPECT_EQ(SortedOrder(entries, kSortBySize), (std::vector<UINT64>{1, 2, 0}));
}

TEST(Sorting, HundredThousandEntries_InAnyOrder_NeedFewComparisons)
{
    constexpr size_t kCount = 100000;
    std::vector<Entry> entries(kCount);
    for (size_t i = 0; i < kCount; ++i)
        entries[i] = {u"N", i, 0};
    std::mt19937 random(1);
    const char* const shapes[] = {"ascending", "descending", "shuffled", "organ pipe"};
    for (const char* shape : shapes) {
        if (shape == shapes[1])
            std::ranges::reverse(entries);
        else if (shape == shapes[2])
            std::ranges::shuffle(entries, random);
        else if (shape == shapes[3])
            std::ranges::sort(entries, {}, [](const Entry& e) {
                return e.size % 2 == 0 ? e.size : 2 * kCount - e.size;
            });
        const auto begin = std::chrono::steady_clock::now();
        const std::vector<UINT64> order = SortedOrder(entries, kSortBySize);
        // A walk that restarts, or a tree that degenerates, takes minutes here.
        EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20)) << shape;
        ASSERT_EQ(order.size(), kCount);
        for (size_t i = 0; i < kCount; ++i)
            ASSERT_EQ(entries[order[i]].size, i) << shape;
    }
}

TEST(Sorting, ListWithEntries_FreesThemWhenItGoes)
{
    TALPL_STATISTICS before{};
    pITalpl->TalxGetGeneralTalplStatistics(&before);
    {
        NodeContext context{};
        NodeList list;
        for (UINT64 i = 0; i < 10; ++i)
            list.Append(MakeNode(&context, {u"N"}, i));
    }
    TALPL_STATISTICS after{};
    pITalpl->TalxGetGeneralTalplStatistics(&after);
    EXPECT_EQ(before.LiveAllocations, after.LiveAllocations);
}
