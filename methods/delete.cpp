// SPDX-License-Identifier: Apache-2.0
//
// DELETE, and the walk that deletes a tree for providers that cannot.
#include "methods/delete.h"
#include "methods/statuslist.h"
#include "methods/treepath.h"
#include "support/handlers.h"
#include "support/lock_header.h"
#include "support/memory.h"
#include "support/provider.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace {

constexpr UINT32 kPathBytes = 4096;
constexpr UINT32 kNameBytes = 1024;
constexpr UINT32 kEnumBytes = 4096 + 1088;

// Room behind the longest path for the last "/" and the terminator, which the path's bound does not
// count.
constexpr UINT32 kPathSlackUnits = 2;

// One walk: what stays the same on all its levels. The path is extended and cut back in place, and
// all levels share the enumeration buffer: a child's record is used up before the walk goes down.
class DeleteWalk {
  public:
    DeleteWalk(const KESTDAV_HANDLER& handler, SCHANDLE session, DAV_LOCK_TOKEN* token,
               UNICODE_STRING* path, DAV_COMMON_ENUM* child)
        : handler_(handler), session_(session), token_(token), path_(path), child_(child)
    {
    }

    // Deletes what the path's collection holds, and then the collection.
    TALSTATUS DeleteCollection()
    {
        {
            DavCollection collection;
            if (const TALSTATUS status = collection.Open(handler_); Failed(status))
                return status;
            if (const TALSTATUS status = collection.Associate(session_, path_, token_);
                Failed(status))
                return status;
            UINT32 attributes = 0;
            (void)collection.GetLiveAttributes(&attributes); // unknown ones count as writable
            const UINT16 length = path_->Length;
            const TALSTATUS status = DeleteChildren(collection);
            CutPath(*path_, length);
            if (Code(status) != kCodeNoMoreEntries)
                return status;
            if (attributes & kAttributeReadOnly)
                (void)collection.SetLiveAttributes(attributes & ~kAttributeReadOnly);
        }
        return DavNamespace(handler_).Delete(session_, path_, token_);
    }

  private:
    // Code 9 when all children are gone, else what stopped the walk.
    TALSTATUS DeleteChildren(DavCollection& collection)
    {
        const UINT16 length = path_->Length;
        UINT32 size = kEnumBytes;
        TALSTATUS status = collection.GetFirstChild(&size, child_);
        while (!Failed(status)) {
            if (child_->DisplayNameLength > kNameBytes ||
                length + child_->DisplayNameLength > kPathBytes)
                return TAL_STATUS_NAME_TOO_LONG;
            CutPath(*path_, length);
            AppendChild(*path_, child_->DisplayName, child_->DisplayNameLength);
            status = child_->Type == Collection ? DeleteCollection() : DeleteResource();
            if (Failed(status))
                return status;
            size = kEnumBytes;
            status = collection.GetNextChild(&size, child_);
        }
        return status;
    }

    TALSTATUS DeleteResource()
    {
        if (child_->Attributes & kAttributeReadOnly)
            MakeWritable();
        return DavNamespace(handler_).Delete(session_, path_, token_);
    }

    // A bit that cannot be cleared does not stop the attempt to delete.
    void MakeWritable()
    {
        DavResource resource;
        if (Failed(resource.Open(handler_)) ||
            Failed(resource.Associate(session_, FALSE, kAccessWrite, 1, path_, token_)))
            return;
        (void)resource.SetLiveAttributes(child_->Attributes & ~kAttributeReadOnly);
    }

    const KESTDAV_HANDLER& handler_;
    SCHANDLE session_;
    DAV_LOCK_TOKEN* token_;
    UNICODE_STRING* path_;
    DAV_COMMON_ENUM* child_;
};

// Resolves the path and deletes what is there.
TALSTATUS DeletePath(SCHANDLE session, UNICODE_STRING* path, IKestIO_5* io)
{
    const ProviderGuard providers;
    DAV_TYPE type = Resource;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = ResolveUriToHandler(session, path, &type, &handler);
        Failed(status))
        return status;
    if (type == Collection && !(handler->Caps & kCapsDeletesTrees)) {
        StatusList results;
        return KestDavDeleteCollection(handler, session, kDeleteAllFlags, nullptr, path,
                                       results.Head());
    }
    if (!handler->pIKestDav2)
        return DavNamespace(*handler).Delete(session, path, nullptr);
    RequestToken token(io);
    return DavNamespace(*handler).Delete(session, path, token.GetNonEmpty());
}

} // namespace

TALSTATUS KestDavDelete(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    UNICODE_STRING path = ProviderPath(*pUrl);
    return ReplyEmptyMapped(pKestIo, DeletePath(hSession, &path, pKestIo));
}

TALSTATUS KestDavDeleteCollection(KESTDAV_HANDLER* pHandler, SCHANDLE hSession, UINT32,
                                  DAV_LOCK_TOKEN* pToken, UNICODE_STRING* pUri, LIST_ENTRY*)
{
    if (pUri->Length > kPathBytes) // a cut path would name another collection
        return TAL_STATUS_NAME_TOO_LONG;
    const Paged<WCHAR> buffer(static_cast<WCHAR*>(pITalpl->TalxAllocNonPagedMemory(
        kPathBytes + kPathSlackUnits * static_cast<UINT32>(sizeof(WCHAR)))));
    if (!buffer)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    UNICODE_STRING path = {0, kPathBytes, buffer.get()};
    pITalpl->TalxCopyUnicodeString(&path, pUri);
    CutPath(path, path.Length);
    const Paged<char> child = AllocPaged<char>(kEnumBytes);
    if (!child)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    return DeleteWalk(*pHandler, hSession, pToken, &path,
                      reinterpret_cast<DAV_COMMON_ENUM*>(child.get()))
        .DeleteCollection();
}
