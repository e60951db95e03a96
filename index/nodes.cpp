// SPDX-License-Identifier: Apache-2.0
//
// The entries of one listing.
#include "index/nodes.h"

#include <algorithm>
#include <cstring>

#include "index/entry.h"
#include "support/memory.h"

namespace {

using Comparison = INT32 (*)(const DAV_COMMON_ENUM& entry1, const DAV_COMMON_ENUM& entry2);

template <class T> INT32 CompareNumbers(T a, T b)
{
    return a < b ? -1 : a > b ? 1 : 0;
}

INT32 CompareTime(const DAV_COMMON_ENUM& entry1, const DAV_COMMON_ENUM& entry2)
{
    return CompareNumbers(entry1.ModificationDate, entry2.ModificationDate);
}

INT32 CompareSize(const DAV_COMMON_ENUM& entry1, const DAV_COMMON_ENUM& entry2)
{
    return CompareNumbers(entry1.ResourceSize, entry2.ResourceSize);
}

// What decides, in turn, for each key.
struct Chain {
    Comparison step[4];
};
constexpr Chain kByName = {{compareName, CompareTime, CompareSize, nullptr}};
constexpr Chain kBySize = {{CompareSize, compareName, CompareTime, nullptr}};
constexpr Chain kByTime = {{CompareTime, compareName, CompareSize, nullptr}};
constexpr Chain kByType = {{compareType, compareName, CompareTime, CompareSize}};

const Chain& ChainOf(UINT32 flags)
{
    // Bit 7 stands for no key of its own: the values with it set sort by name.
    switch (flags & kSortKeyMask) {
    case kSortBySize:
        return kBySize;
    case kSortByTime:
        return kByTime;
    case kSortByType:
        return kByType;
    default:
        return kByName;
    }
}

class Order {
  public:
    explicit Order(UINT32 flags) : chain_(ChainOf(flags)), descending_(flags & kSortDescending) {}

    // True when `later`, which comes after `earlier`, has to move before it.
    bool Inverted(const SortNode& earlier, const SortNode& later) const
    {
        return Inverted(earlier.resInfo, later.resInfo);
    }
    bool Inverted(const DAV_COMMON_ENUM& earlier, const DAV_COMMON_ENUM& later) const
    {
        INT32 result = 0;
        for (const Comparison compare : chain_.step) {
            if (compare == nullptr || result != 0)
                break;
            result = compare(earlier, later);
        }
        return descending_ ? result < 0 : result > 0;
    }

  private:
    const Chain& chain_;
    bool descending_;
};

// Cuts the longest run that is in order, or strictly in reverse order, off the front of `rest` and
// returns it in order.
SortNode* TakeRun(SortNode*& rest, const Order& order)
{
    SortNode* first = rest;
    SortNode* last = first;
    rest = first->next;
    if (rest != nullptr && order.Inverted(*last, *rest)) {
        // Only strictly reversed neighbours are turned around: equal ones must keep their order.
        last->next = nullptr;
        while (rest != nullptr && order.Inverted(*first, *rest)) {
            SortNode* next = rest->next;
            rest->next = first;
            first = rest;
            rest = next;
        }
        return first;
    }
    while (rest != nullptr && !order.Inverted(*last, *rest)) {
        last = rest;
        rest = rest->next;
    }
    last->next = nullptr;
    return first;
}

// `left` came before `right`; of equal entries the left one goes first.
SortNode* Merge(SortNode* left, SortNode* right, const Order& order)
{
    SortNode* merged = nullptr;
    SortNode** tail = &merged;
    while (left != nullptr && right != nullptr) {
        SortNode*& from = order.Inverted(*left, *right) ? right : left;
        *tail = from;
        tail = &from->next;
        from = from->next;
    }
    *tail = left != nullptr ? left : right;
    return merged;
}

UNICODE_STRING NameOf(const DAV_COMMON_ENUM& entry)
{
    const auto length = static_cast<UINT16>(entry.DisplayNameLength);
    return {length, length, const_cast<WCHAR*>(entry.DisplayName)};
}

void FreeNodes(SortNode* node)
{
    while (node != nullptr) {
        SortNode* next = node->next;
        FreeNode(node);
        node = next;
    }
}

} // namespace

NodeList::~NodeList()
{
    FreeNodes(first_);
}

void NodeList::Append(SortNode* node)
{
    node->next = nullptr;
    (last_ != nullptr ? last_->next : first_) = node;
    last_ = node;
}

SortNode* NodeList::Take()
{
    SortNode* nodes = first_;
    first_ = last_ = nullptr;
    return nodes;
}

TALSTATUS newSortNode(NodeContext* context, const DAV_COMMON_ENUM& resInfo, UINT64 deleted,
                      bool root, SortNode** newNode)
{
    constexpr size_t kNameAt = offsetof(SortNode, resInfo) + offsetof(DAV_COMMON_ENUM, DisplayName);
    const bool hasUri = resInfo.State != 0 && resInfo.pURI != nullptr;
    const size_t nameBytes = resInfo.DisplayNameLength;
    const size_t uriBytes = hasUri ? resInfo.URILength : 0;
    const size_t uriAt = (kNameAt + nameBytes + 1) & ~size_t{1};
    // The terminator behind the URI lets it be read as a byte string, up to its first zero byte.
    const size_t whole = uriAt + uriBytes + 2 * sizeof(WCHAR);

    Paged<char> block = AllocPaged<char>(whole < sizeof(SortNode) ? sizeof(SortNode) : whole);
    if (!block)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;

    auto* node = reinterpret_cast<SortNode*>(block.release());
    node->context = context;
    node->next = nullptr;
    node->deleted = deleted;
    node->isRoot = root;
    std::memcpy(&node->resInfo, &resInfo, offsetof(DAV_COMMON_ENUM, DisplayName));
    char* bytes = reinterpret_cast<char*>(node);
    std::memcpy(bytes + kNameAt, resInfo.DisplayName, nameBytes);
    node->resInfo.pURI = nullptr;
    if (hasUri) {
        std::memcpy(bytes + uriAt, resInfo.pURI, uriBytes);
        std::memset(bytes + uriAt + uriBytes, 0, 2 * sizeof(WCHAR));
        node->resInfo.pURI = reinterpret_cast<WCHAR*>(bytes + uriAt);
    }
    *newNode = node;
    return TAL_STATUS_SUCCESS;
}

void FreeNode(SortNode* node)
{
    pITalpl->TalxFreeMemory(node);
}

INT32 compareName(const DAV_COMMON_ENUM& entry1, const DAV_COMMON_ENUM& entry2)
{
    const UNICODE_STRING name1 = NameOf(entry1);
    const UNICODE_STRING name2 = NameOf(entry2);
    return pITalpl->TalxCompareUnicodeString(&name1, &name2, TRUE);
}

INT32 compareType(const DAV_COMMON_ENUM& entry1, const DAV_COMMON_ENUM& entry2)
{
    return compareName(entry1, entry2);
}

SortNode* SortNodes(SortNode* nodes, UINT32 flags)
{
    // Slot k holds a sorted list made of 2^k runs, or none; lists in higher slots came first.
    constexpr size_t kSlots = 48;
    SortNode* slots[kSlots] = {};
    const Order order(flags);

    while (nodes != nullptr) {
        SortNode* run = TakeRun(nodes, order);
        size_t slot = 0;
        for (; slots[slot] != nullptr; ++slot) {
            run = Merge(slots[slot], run, order);
            slots[slot] = nullptr;
        }
        slots[slot] = run;
    }

    SortNode* sorted = nullptr;
    for (SortNode* earlier : slots)
        if (earlier != nullptr)
            sorted = Merge(earlier, sorted, order);
    return sorted;
}

bool FirstNodes::Wants(const DAV_COMMON_ENUM& entry) const
{
    if (wanted_ == 0)
        return false;
    return last_ == nullptr || Order(flags_).Inverted(last_->resInfo, entry);
}

void FirstNodes::Append(SortNode* node)
{
    ++count_;
    batch_.Append(node);
    if (++batched_ >= std::max(wanted_, kLeastBatch))
        Settle();
}

// Sorts what came since in among the first ones, and lets go of those behind them.
void FirstNodes::Settle()
{
    const Order order(flags_);
    SortNode* node = Merge(sorted_.Take(), SortNodes(batch_.Take(), flags_), order);
    batched_ = 0;
    UINT64 kept = 0;
    while (node != nullptr && kept < wanted_) {
        SortNode* next = node->next;
        sorted_.Append(node);
        last_ = ++kept == wanted_ ? node : nullptr;
        node = next;
    }
    FreeNodes(node);
}

SortNode* FirstNodes::Take()
{
    Settle();
    last_ = nullptr;
    return sorted_.Take();
}

void writeNodesHTML(SortNode* topnode)
{
    while (topnode != nullptr) {
        NodeContext& context = *topnode->context;
        const UINT64 first = context.dHead->firstFile;
        const UINT64 end = first + context.dHead->maxFiles;
        if (context.fileSeq >= first && context.fileSeq < end)
            (void)writeObjectHTML(topnode); // an entry without its template is left out
        ++context.fileSeq;
        SortNode* next = topnode->next;
        FreeNode(topnode);
        topnode = next;
    }
}
