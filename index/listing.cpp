// SPDX-License-Identifier: Apache-2.0
//
// The listing of a collection.
#include "index/listing.h"

#include <algorithm>
#include <cstring>

#include "index/error_page.h"
#include "index/filter.h"
#include "index/nodes.h"
#include "index/store_uri.h"
#include "support/provider.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace {

// A collection's children, one record at a time, through a buffer of the caller's.
class Children {
  public:
    Children(DavCollection& collection, char* buffer) : collection_(collection), buffer_(buffer) {}

    // The next child, whose name is cut where the buffer ends; null at the end or at a failure.
    const DAV_COMMON_ENUM* Next()
    {
        auto* record = reinterpret_cast<DAV_COMMON_ENUM*>(buffer_);
        UINT32 size = kIndexBuffer;
        const TALSTATUS status = first_ ? collection_.GetFirstChild(&size, record)
                                        : collection_.GetNextChild(&size, record);
        first_ = false;
        return Failed(status) ? nullptr : Bounded(record, buffer_);
    }

    static const DAV_COMMON_ENUM* Bounded(DAV_COMMON_ENUM* record, const char* buffer)
    {
        const auto nameAt =
            static_cast<UINT32>(reinterpret_cast<const char*>(record->DisplayName) - buffer);
        record->DisplayNameLength =
            std::min(record->DisplayNameLength, kIndexBuffer - nameAt) & ~1U;
        return record;
    }

  private:
    DavCollection& collection_;
    char* buffer_;
    bool first_ = true;
};

// The deleted children that a provider still keeps, in the same way.
class DeletedChildren {
  public:
    DeletedChildren(IKestDAVCollection2* collection, SCHANDLE session, char* buffer)
        : collection_(collection), session_(session), buffer_(buffer)
    {
    }

    const DAV_DELETED_ENTRY* Next()
    {
        UINT32 size = kIndexBuffer;
        const TALSTATUS status =
            collection_->IoctlRequest(session_, code_, 0, nullptr, &size, buffer_);
        code_ = kIoctlNextDeletedChild;
        if (Failed(status))
            return nullptr;
        auto* record = reinterpret_cast<DAV_DELETED_ENTRY*>(buffer_);
        Children::Bounded(&record->Enum, buffer_);
        return record;
    }

  private:
    IKestDAVCollection2* collection_;
    SCHANDLE session_;
    char* buffer_;
    UINT32 code_ = kIoctlFirstDeletedChild;
};

// Everything that one listing gathers. Each group is sorted for itself.
class Listing {
  public:
    Listing(NodeContext* context, char* buffer)
        : context_(context), buffer_(buffer), folders_(LastShown(*context), context->flags),
          files_(LastShown(*context), context->flags), deleted_(LastShown(*context), context->flags)
    {
    }

    void GatherRoots();
    TALSTATUS GatherCollection();
    void Write();
    UINT32 Count() const { return count_; }

  private:
    void AddLive(const DAV_COMMON_ENUM& record, bool isRoot)
    {
        Add(record, 0, isRoot, record.Type == Collection ? folders_ : files_);
    }
    // The number of the last entry that can be on the page: an entry with a higher place in its own
    // group (folders, files, deleted ones) cannot.
    static UINT64 LastShown(const NodeContext& context)
    {
        return UINT64{context.dHead->firstFile} + context.dHead->maxFiles;
    }
    void Add(const DAV_COMMON_ENUM& record, UINT64 deleted, bool isRoot, FirstNodes& group);
    void GatherDeleted(IKestDAVCollection2* collection);

    NodeContext* context_;
    char* buffer_;
    FirstNodes folders_;
    FirstNodes files_;
    FirstNodes deleted_;
    UINT32 count_ = 0;
};

void Listing::Add(const DAV_COMMON_ENUM& record, UINT64 deleted, bool isRoot, FirstNodes& group)
{
    if (fileMatchesFilter(context_->dHead->filter, record) == 0)
        return;
    ++count_;
    if (!group.Wants(record)) {
        group.Skip();
        return;
    }
    SortNode* node = nullptr;
    if (Failed(newSortNode(context_, record, deleted, isRoot, &node)))
        return; // left out, but counted
    group.Append(node);
}

// The roots of all providers. One that cannot be opened is skipped.
void Listing::GatherRoots()
{
    WCHAR slash[] = u"/";
    UNICODE_STRING root = {sizeof(WCHAR), sizeof(slash), slash};
    for (LIST_ENTRY* link = g_HandlerList.Flink; link != &g_HandlerList; link = link->Flink) {
        const auto* handler = reinterpret_cast<const KESTDAV_HANDLER*>(
            reinterpret_cast<const char*>(link) - offsetof(KESTDAV_HANDLER, ListLink));
        if (handler->pIKestDav2 == nullptr)
            continue;
        DavCollection collection;
        if (Failed(collection.Open(*handler)) ||
            Failed(collection.Associate(context_->hSession, &root, nullptr)))
            continue;
        Children children(collection, buffer_);
        while (const DAV_COMMON_ENUM* record = children.Next())
            AddLive(*record, true);
    }
}

TALSTATUS Listing::GatherCollection()
{
    StoreUri uri;
    if (const TALSTATUS status = uri.Convert(context_->pKestIo, context_->indexXml);
        Code(status) != 0)
        return status;
    DAV_TYPE type = Collection;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status =
            ResolveUriToHandler(context_->hSession, uri.Get(), &type, &handler);
        Failed(status))
        return status;
    DavCollection collection;
    if (const TALSTATUS status = collection.Open(*handler); Failed(status))
        return status;
    if (const TALSTATUS status = collection.Associate(context_->hSession, uri.Get(), nullptr);
        Failed(status))
        return status;

    Children children(collection, buffer_);
    while (const DAV_COMMON_ENUM* record = children.Next())
        AddLive(*record, false);
    if (collection.Second() != nullptr && (context_->flags & kShowDeleted) != 0)
        GatherDeleted(collection.Second());
    return TAL_STATUS_SUCCESS;
}

void Listing::GatherDeleted(IKestDAVCollection2* collection)
{
    DeletedChildren children(collection, context_->hSession, buffer_);
    while (const DAV_DELETED_ENTRY* record = children.Next())
        Add(record->Enum, record->FileID, false, deleted_);
}

// Folders come first in an ascending list and last in a descending one.
void Listing::Write()
{
    FirstNodes* groups[] = {&folders_, &files_, &deleted_};
    if ((context_->flags & kSortDescending) != 0)
        std::swap(groups[0], groups[2]);
    context_->fileSeq = 0;
    for (FirstNodes* group : groups) {
        const UINT32 before = context_->fileSeq;
        writeNodesHTML(group->Take());
        context_->fileSeq = before + static_cast<UINT32>(group->Count());
    }
}

} // namespace

TALSTATUS HTMLIndexListFiles(NodeContext* nodeContext, const UNICODE_STRING* pUrl)
{
    const Paged<char> buffer = AllocPaged<char>(kIndexBuffer);
    if (!buffer)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;

    Listing listing(nodeContext, buffer.get());
    TALSTATUS status = TAL_STATUS_SUCCESS;
    {
        const ProviderGuard providers; // not held while the page is written
        if (IsMonikerRoot(*pUrl))
            listing.GatherRoots();
        else
            status = listing.GatherCollection();
    }
    if (Failed(status))
        (void)returnErrorHTML(nodeContext->pKestIo, status); // without its template: nothing
    listing.Write();
    nodeContext->dHead->numberOfFiles = listing.Count();
    return status;
}
