// SPDX-License-Identifier: Apache-2.0
//
// The entries of one listing: made from enumeration records, kept in the order they came, sorted
// once, written and freed.
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

// Negative, 0 or positive as node1 sorts before, with or after node2. Types have no order of their
// own: sorting by type is sorting by name.
INT32 compareName(const SortNode& node1, const SortNode& node2);
INT32 compareType(const SortNode& node1, const SortNode& node2);

// Sorts by the key and in the direction of the context's preferences. Entries that compare equal
// keep their order in BOTH directions. n log n comparisons at most, n when the entries come in
// order or in the reverse order; no memory.
SortNode* SortNodes(SortNode* nodes, UINT32 flags);

// Writes those of the nodes that are on the page, counting all of them in fileSeq, and frees them.
void writeNodesHTML(SortNode* topnode);
