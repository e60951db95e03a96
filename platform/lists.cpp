// SPDX-License-Identifier: Apache-2.0
//
// Circular doubly linked lists. An entry that leaves its list gets both links set to itself, so
// that removing it once more is harmless.
#include "platform/internal.h"
#include "platform/talpl.h"

namespace tolm {
namespace {

void Link(LIST_ENTRY* before, LIST_ENTRY* entry, LIST_ENTRY* after) noexcept
{
    entry->Blink = before;
    entry->Flink = after;
    before->Flink = entry;
    after->Blink = entry;
}

void Unlink(LIST_ENTRY* entry) noexcept
{
    entry->Blink->Flink = entry->Flink;
    entry->Flink->Blink = entry->Blink;
    entry->Flink = entry;
    entry->Blink = entry;
}

} // namespace

TALSTATUS Talpl::TalxInitializeListHead(LIST_ENTRY* head)
{
    if (!head)
        return Fail(kCodeInvalidParameter);
    head->Flink = head;
    head->Blink = head;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxInsertEntryAfter(LIST_ENTRY* where, LIST_ENTRY* entry)
{
    if (!where || !entry)
        return Fail(kCodeInvalidParameter);
    Link(where, entry, where->Flink);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxInsertEntryBefore(LIST_ENTRY* where, LIST_ENTRY* entry)
{
    if (!where || !entry)
        return Fail(kCodeInvalidParameter);
    Link(where->Blink, entry, where);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxInsertHeadList(LIST_ENTRY* head, LIST_ENTRY* entry)
{
    return TalxInsertEntryAfter(head, entry);
}

TALSTATUS Talpl::TalxInsertTailList(LIST_ENTRY* head, LIST_ENTRY* entry)
{
    return TalxInsertEntryBefore(head, entry);
}

BOOLEAN Talpl::TalxIsListEmpty(LIST_ENTRY* head)
{
    return !head || head->Flink == head ? TRUE : FALSE;
}

TALSTATUS Talpl::TalxRemoveEntryList(LIST_ENTRY* entry)
{
    if (!entry)
        return Fail(kCodeInvalidParameter);
    Unlink(entry);
    return TAL_STATUS_SUCCESS;
}

LIST_ENTRY* Talpl::TalxRemoveHeadList(LIST_ENTRY* head)
{
    if (TalxIsListEmpty(head))
        return nullptr;
    LIST_ENTRY* entry = head->Flink;
    Unlink(entry);
    return entry;
}

LIST_ENTRY* Talpl::TalxRemoveTailList(LIST_ENTRY* head)
{
    if (TalxIsListEmpty(head))
        return nullptr;
    LIST_ENTRY* entry = head->Blink;
    Unlink(entry);
    return entry;
}

} // namespace tolm
