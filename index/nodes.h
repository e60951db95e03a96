// SPDX-License-Identifier: Apache-2.0
//
// The entries of one listing: made from enumeration records, kept as far as they can be on the
// page, sorted, written and freed.
#pragma once

#include "index/context.h"

// A list of nodes that owns them. Entries come in at the tail.
class NodeList {
  public:
    NodeList() = default;
    NodeList(const NodeList&) = delete;
    NodeList& operator=(const NodeList&) = delete;
    ~NodeList();

    void Append(SortNode* node);
    // Gives all nodes to the caller, linked by `next`; the list is empty then.
    SortNode* Take();

  private:
    SortNode* first_ = nullptr;
    SortNode* last_ = nullptr;
};

// Makes a node from a record whose lengths are within its buffer. Fails with code 5.
[[nodiscard]] TALSTATUS newSortNode(NodeContext* context, const DAV_COMMON_ENUM& resInfo,
                                    UINT64 deleted, bool root, SortNode** newNode);
void FreeNode(SortNode* node);

// Negative, 0 or positive as entry1 sorts before, with or after entry2. Types have no order of
// their own: sorting by type is sorting by name.
INT32 compareName(const DAV_COMMON_ENUM& entry1, const DAV_COMMON_ENUM& entry2);
INT32 compareType(const DAV_COMMON_ENUM& entry1, const DAV_COMMON_ENUM& entry2);

// Sorts by the key and in the direction of the context's preferences. Entries that compare equal
// keep their order in BOTH directions. n log n comparisons at most, n when the entries come in
// order or in the reverse order; no memory.
SortNode* SortNodes(SortNode* nodes, UINT32 flags);

// The first entries of one group in its order, out of any number that come in one by one. Holds at
// most twice as many as are wanted, or kLeastBatch more where that is more, and compares about
// three times per entry where entries come in order or in the reverse order.
class FirstNodes {
  public:
    FirstNodes(UINT64 wanted, UINT32 flags) : wanted_(wanted), flags_(flags) {}
    FirstNodes(const FirstNodes&) = delete;
    FirstNodes& operator=(const FirstNodes&) = delete;

    // Whether the next entry can still be among the first ones; where not, it needs no node.
    bool Wants(const DAV_COMMON_ENUM& entry) const;
    void Append(SortNode* node);
    // Counts an entry for which Wants was false.
    void Skip() { ++count_; }
    // The number of all entries, those that were skipped included.
    UINT64 Count() const { return count_; }
    // Gives the first ones to the caller, in order, linked by `next`.
    SortNode* Take();

    static constexpr UINT64 kLeastBatch = 1024;

  private:
    void Settle();

    const UINT64 wanted_;
    const UINT32 flags_;
    UINT64 count_ = 0;
    NodeList sorted_;                // at most wanted_
    const SortNode* last_ = nullptr; // of sorted_, once it holds wanted_
    NodeList batch_;                 // appended since sorted_ was sorted
    UINT64 batched_ = 0;
};

// Writes those of the nodes that are on the page, counting all of them in fileSeq, and frees them.
void writeNodesHTML(SortNode* topnode);
