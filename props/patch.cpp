// SPDX-License-Identifier: Apache-2.0
//
// The PROPPATCH handler: hands each property to the provider as a named one, and answers with one
// block for each.
#include "props/patch.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "support/memory.h"
#include "support/multistatus.h"
#include "support/provider.h"
#include "support/reply.h"
#include "support/xml_body.h"

namespace {

constexpr UINT32 kNameBytes = 520;    // of a property's name in UTF-16
constexpr UINT32 kResultBytes = 1000; // of what the provider says about a property

struct FreePatch {
    void operator()(PATCH_REQ* request) const noexcept { FreePatchRequest(request); }
};

// The opened object: exactly one of the two is set.
struct Target {
    Ref<IKestDAVResource2> resource;
    Ref<IKestDAVCollection2> collection;

    [[nodiscard]] TALSTATUS Open(SCHANDLE session, const KESTDAV_HANDLER& handler, DAV_TYPE type,
                                 UNICODE_STRING* path)
    {
        if (type == Collection) {
            const TALSTATUS status = Create(handler.ClassId, collection);
            return Failed(status) ? status : collection->Associate(session, path, nullptr);
        }
        const TALSTATUS status = Create(handler.ClassId, resource);
        return Failed(status) ? status
                              : resource->Associate(session, FALSE, kAccessAttributesOnly, 3, 0,
                                                    path, nullptr);
    }
    TALSTATUS Set(UNICODE_STRING* name, UINT32 length, char* value, UINT32* resultLength,
                  char* result) const
    {
        return resource
                   ? resource->SetNamedPropertyEnh(name, length, value, resultLength, result)
                   : collection->SetNamedPropertyEnh(name, length, value, resultLength, result);
    }
};

// Made when the first property needs it; a property that finds it incomplete is left out.
struct PatchBuffers {
    Paged<char> name;
    Paged<char> result;

    bool Ready()
    {
        if (!name)
            name = AllocPaged<char>(kNameBytes);
        if (!result)
            result = AllocPaged<char>(kResultBytes);
        return name && result;
    }
};

// The attribute word as decimal digits; anything else reads as what stands before it.
UINT32 AttributeWord(const PATCH_PROP& property)
{
    char digits[32] = {};
    if (property.pValue)
        std::memcpy(digits, property.pValue,
                    std::min<size_t>(property.ValueLength, sizeof(digits) - 1));
    return static_cast<UINT32>(std::strtol(digits, nullptr, 10));
}

TALSTATUS SendRefused(IKestIO_5* io, const char* name, TALSTATUS status)
{
    Put(io, "<a:status>HTTP/1.1 417 Expectation Failed</a:status>\n<a:prop><");
    Put(io, name);
    Put(io, "/></a:prop></a:propstat>");
    return status;
}

TALSTATUS SendDone(IKestIO_5* io, const char* name, const char* result, UINT32 length,
                   TALSTATUS status)
{
    Put(io, "<a:status>HTTP/1.1 200 OK</a:status>\n<a:prop><");
    Put(io, name);
    Put(io, ">");
    PutBytes(io, result, length);
    Put(io, "</");
    Put(io, name);
    Put(io, "></a:prop></a:propstat>");
    return status;
}

// Hands one property to the provider and writes its block.
TALSTATUS PatchNamed(IKestIO_5* io, const Target& target, const PATCH_PROP& property,
                     PatchBuffers& buffers)
{
    if (!buffers.Ready())
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    auto* const wide = reinterpret_cast<WCHAR*>(buffers.name.get());
    UINT32 units = kNameBytes / sizeof(WCHAR);
    if (const TALSTATUS status = pITalpl->TalxMultiByteToWideChar(
            kCodePageUtf8Alt, property.pName, pITalpl->TalxStrlen(property.pName), wide, &units);
        Code(status) != kCodeSuccess)
        return status;
    UNICODE_STRING name = {static_cast<UINT16>(units * sizeof(WCHAR)), kNameBytes, wide};

    char* const result = buffers.result.get();
    std::memset(result, 0, kResultBytes); // what the provider leaves alone must not show old bytes
    UINT32 length = kResultBytes;
    TALSTATUS status = TAL_STATUS_SUCCESS;
    Put(io, "<a:propstat>");
    if (property.Action == kPatchSet) {
        char empty[] = ""; // a property without a value is set to nothing; null would remove it
        char* const value = property.pValue ? property.pValue : empty;
        status = target.Set(&name, property.ValueLength, value, &length, result);
    } else if (property.Action == kPatchRemove) {
        status = target.Set(&name, 0, nullptr, &length, result);
    }
    // Kept: a property outside set and remove is not handed over, and its block is the whole
    // buffer.
    if (Failed(status))
        return SendRefused(io, property.pName, status);
    return SendDone(io, property.pName, result, std::min(length, kResultBytes), status);
}

TALSTATUS PatchAll(IKestIO_5* io, const KESTDAV_HANDLER& handler, const Target& target,
                   PATCH_REQ* request)
{
    PatchBuffers buffers;
    TALSTATUS status = TAL_STATUS_SUCCESS;
    LIST_ENTRY* const head = &request->lProperties;
    for (LIST_ENTRY* entry = head->Flink; entry != head; entry = entry->Flink) {
        const auto& property = *reinterpret_cast<const PATCH_PROP*>(entry);
        if (target.resource && SameName(property.pName, "Win32FileAttributes")) {
            if (property.Action == kPatchSet) // kept: without a block, whatever comes of it
                (void)target.resource->SetLiveAttributes(AttributeWord(property));
            continue;
        }
        if (handler.Caps & kCapsNamedProperties)
            status = PatchNamed(io, target, property, buffers);
    }
    return status;
}

TALSTATUS PatchPath(SCHANDLE session, UNICODE_STRING* path, PATCH_REQ* request, IKestIO_5* io)
{
    const ProviderGuard providers;
    DAV_TYPE type = Resource;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = ResolveUriToHandler(session, path, &type, &handler);
        Failed(status))
        return Reply(io, 404, status); // kept: without a length, as the next one
    if (!handler->pIKestDav2)
        return Reply(io, 405, TAL_STATUS_NOT_SUPPORTED);

    SendMultiStatusHead(io);
    Put(io, "<a:multistatus xmlns:b=\"urn:uuid:c2f41010-65b3-11d1-a29f-00aa00c14882/\" "
            "xmlns:a=\"DAV:\" xmlns:c=\"xml:\"><a:response>");
    Target target;
    TALSTATUS status = target.Open(session, *handler, type, path);
    if (Failed(status))
        Put(io, "<a:propstat><a:status>HTTP/1.1 404 Not Found</a:status>\n</a:propstat>");
    else
        status = PatchAll(io, *handler, target, request);
    Put(io, "</a:response></a:multistatus>\n");
    return status;
}

} // namespace

TALSTATUS KestDavPropPatch(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    const std::unique_ptr<PATCH_REQ, FreePatch> request(AllocPatchRequest());
    if (!request)
        return ReplyEmpty(pKestIo, 507, TAL_STATUS_INSUFFICIENT_RESOURCES);
    if (const TALSTATUS status = ParsePropPatchRequest(pKestIo, request.get());
        Code(status) != kCodeSuccess)
        return ReplyEmptyMapped(pKestIo, status);
    if (pITalpl->TalxIsListEmpty(&request->lProperties))
        return ReplyEmpty(pKestIo, 400, TAL_STATUS_UNSUCCESSFUL);

    WCHAR root[2];
    UNICODE_STRING path = RequestPath(*pUrl, root);
    return PatchPath(hSession, &path, request.get(), pKestIo);
}
