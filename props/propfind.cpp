// SPDX-License-Identifier: Apache-2.0
//
// The PROPFIND handler: finds the object, and drives one response element for it and, when asked,
// one for each of its direct members. Elements leave as they are made; nothing grows with the
// number of members.
#include "props/propfind.h"

#include <algorithm>
#include <memory>

#include "support/memory.h"
#include "support/multistatus.h"
#include "support/reply.h"

namespace {

struct FreePropfind {
    void operator()(PROPFIND_REQ* request) const noexcept { FreePropfindRequest(request); }
};

constexpr DAV_SHARE_MODE kShareReading = 3;
constexpr DAV_SHARE_MODE kShareReadingFirst = 1; // what first-generation providers are told

// What every step of one request needs.
struct Call {
    SCHANDLE session;
    BufferedIo* io;
    PROPFIND_REQ* request;
    UINT32 mask; // the live properties that the request asked for
};

void EndWithSlash(UNICODE_STRING& path)
{
    const UINT32 units = path.Length / UINT32{sizeof(WCHAR)};
    if (units == 0 || path.Buffer[units - 1] != u'/')
        (void)pITalpl->TalxAppendUnicodeToString(&path, u"/"); // a full buffer stays as it is
}

// Calls `write` for each child, with its vitals in the request and the live properties asked for
// anew: the writers use them up.
template <class Write> void ForEachChild(const Call& call, DavCollection& collection, Write write)
{
    PROPFIND_REQ* const request = call.request;
    for (bool first = true;; first = false) {
        request->Enum.Attributes = 0;
        UINT32 size = kChildRecordBytes;
        const TALSTATUS status = first ? collection.GetFirstChild(&size, &request->Enum)
                                       : collection.GetNextChild(&size, &request->Enum);
        if (Failed(status) || Code(status) == kCodeNoMoreEntries)
            return;
        constexpr UINT32 kRoom = kChildRecordBytes - offsetof(DAV_COMMON_ENUM, DisplayName);
        const auto bytes = static_cast<UINT16>(std::min(request->Enum.DisplayNameLength, kRoom));
        UNICODE_STRING name = {bytes, bytes, request->Enum.DisplayName};
        request->LiveProperties = call.mask;
        write(name);
    }
}

TALSTATUS SendChild(const Call& call)
{
    if (call.request->Enum.Type != Collection)
        return PropFindSendResource(call.io, call.request);
    EndWithSlash(call.request->HRefU);
    return PropFindSendCollection(call.io, call.request);
}

// The members of the root are those of every provider's root. One that cannot be opened is left
// out.
void SendRootMembers(const Call& call, UNICODE_STRING* root)
{
    const ProviderGuard providers;
    for (LIST_ENTRY* link = g_HandlerList.Flink; link != &g_HandlerList; link = link->Flink) {
        const auto* handler = reinterpret_cast<const KESTDAV_HANDLER*>(link);
        DavCollection collection;
        if (Failed(collection.Open(*handler)) ||
            Failed(collection.Associate(call.session, root, nullptr)))
            continue;
        ForEachChild(call, collection, [&](UNICODE_STRING& name) {
            (void)pITalpl->TalxCopyUnicodeString(&call.request->HRefU, &name);
            (void)SendChild(call); // a member that fails does not end the listing
        });
    }
}

void SendMembers(const Call& call, DavCollection& collection)
{
    UNICODE_STRING& href = call.request->HRefU;
    EndWithSlash(href);
    const UINT16 own = href.Length;
    ForEachChild(call, collection, [&](UNICODE_STRING& name) {
        (void)pITalpl->TalxAppendUnicodeStringToString(&href, &name);
        (void)SendChild(call);
        href.Length = own;
    });
}

template <class Object> void ReadVitals(Object& object, DAV_COMMON_ENUM& vitals)
{
    UNICODE_STRING name = {0, kDisplayNameBytes, vitals.DisplayName};
    (void)object.GetDisplayName(&name); // what a provider cannot tell stays zero
    vitals.DisplayNameLength = std::min<UINT32>(name.Length, kDisplayNameBytes);
    (void)object.GetCreationDate(&vitals.CreationDate);
    (void)object.GetModificationDate(&vitals.ModificationDate);
}

bool KeepsDeadProperties(const KESTDAV_HANDLER& handler)
{
    return (handler.Caps & kCapsNamedProperties) != 0;
}

// False when the resource cannot be opened; nothing was written then.
bool SendResource(const Call& call, const KESTDAV_HANDLER& handler, UNICODE_STRING* path,
                  TALSTATUS& status)
{
    DavResource resource;
    if (status = resource.Open(handler); Failed(status))
        return false;
    const DAV_SHARE_MODE share = resource.Second() ? kShareReading : kShareReadingFirst;
    status = resource.Associate(call.session, FALSE, kAccessRead, share, path, nullptr);
    if (Failed(status))
        return false;

    PROPFIND_REQ* const request = call.request;
    ReadVitals(resource, request->Enum);
    (void)resource.GetResourceSize(&request->Enum.ResourceSize);
    (void)resource.GetLiveAttributes(&request->Enum.Attributes);
    request->Enum.Type = Resource;
    if (IKestDAVResource2* second = resource.Second()) {
        // What could not be collected is missing from the reply, and nothing else is.
        if (request->LiveProperties & kLiveLockDiscovery)
            (void)PropFindGetLocks(second, request);
        if (KeepsDeadProperties(handler))
            (void)(request->Flags & kAllProperties ? PropFindGetRDeadProps(second, request)
                                                   : PropFindGetResProps(second, request));
    }
    status = PropFindSendResource(call.io, request);
    return true;
}

bool SendCollection(const Call& call, const KESTDAV_HANDLER& handler, UNICODE_STRING* path,
                    TALSTATUS& status)
{
    DavCollection collection;
    if (status = collection.Open(handler); Failed(status))
        return false;
    if (status = collection.Associate(call.session, path, nullptr); Failed(status))
        return false;

    PROPFIND_REQ* const request = call.request;
    ReadVitals(collection, request->Enum);
    (void)collection.GetLiveAttributes(&request->Enum.Attributes);
    request->Enum.Type = Collection;
    if (IKestDAVCollection2* second = collection.Second(); second && KeepsDeadProperties(handler))
        (void)(request->Flags & kAllProperties ? PropFindGetCDeadProps(second, request)
                                               : PropFindGetColProps(second, request));
    EndWithSlash(request->HRefU);
    status = PropFindSendCollection(call.io, request);
    if (request->Depth != 0)
        SendMembers(call, collection);
    return true;
}

void SendHead(BufferedIo* io)
{
    SendMultiStatusHead(io->Host());
    Put(io, "<a:multistatus xmlns:b=\"urn:uuid:c2f41010-65b3-11d1-a29f-00aa00c14882/\" "
            "xmlns:a=\"DAV:\" xmlns:c=\"xml:\">");
}

TALSTATUS AnswerRoot(const Call& call, UNICODE_STRING* root)
{
    SendHead(call.io);
    const TALSTATUS status = SendRootCollection(call.io, call.request);
    if (call.request->Depth != 0)
        SendRootMembers(call, root);
    Put(call.io, "</a:multistatus>\n");
    return status;
}

TALSTATUS AnswerObject(const Call& call, UNICODE_STRING* path)
{
    TALSTATUS status;
    bool found;
    {
        const ProviderGuard providers;
        DAV_TYPE type = Resource;
        KESTDAV_HANDLER* handler = nullptr;
        if (Failed(ResolveUriToHandler(call.session, path, &type, &handler)))
            return ReplyEmpty(call.io->Host(), 404, TAL_STATUS_SUCCESS);
        SendHead(call.io);
        (void)pITalpl->TalxCopyUnicodeString(&call.request->HRefU, path);
        found = type == Collection ? SendCollection(call, *handler, path, status)
                                   : SendResource(call, *handler, path, status);
    }
    if (!found)
        status = PropFindSendObjectNotFound(call.io, path);
    Put(call.io, "</a:multistatus>\n");
    return status;
}

} // namespace

TALSTATUS KestDavPropFind(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    const std::unique_ptr<PROPFIND_REQ, FreePropfind> request(AllocPropfindRequest());
    if (!request)
        return ReplyEmptyMapped(pKestIo, TAL_STATUS_INSUFFICIENT_RESOURCES);
    (void)PropFindParseRequest(pKestIo, request.get()); // the reply goes on with what was read

    WCHAR root[2];
    UNICODE_STRING path = RequestPath(*pUrl, root);
    BufferedIo io(pKestIo);
    const Call call = {hSession, &io, request.get(), request->LiveProperties};
    const bool isRoot = path.Length == sizeof(WCHAR) && path.Buffer[0] == u'/';
    return isRoot ? AnswerRoot(call, &path) : AnswerObject(call, &path);
}
