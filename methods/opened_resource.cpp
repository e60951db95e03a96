// SPDX-License-Identifier: Apache-2.0
//
// Opening a resource or a collection to read it.
#include "methods/opened_resource.h"

#include "support/escape.h"
#include "support/reply.h"

namespace {

constexpr DAV_SHARE_MODE kShareFirst = 1;
constexpr DAV_SHARE_MODE kShareSecond = 3;

} // namespace

// Opens a resource for reading and reads its size and date.
TALSTATUS OpenDavResource(SCHANDLE session, UNICODE_STRING* path, const KESTDAV_HANDLER& handler,
                          DAV_LOCK_TOKEN* token, OpenedResource& opened)
{
    if (const TALSTATUS status = opened.object.Open(handler); Failed(status))
        return status;
    // Kept: the generations share differently.
    const DAV_SHARE_MODE share = opened.object.Second() ? kShareSecond : kShareFirst;
    if (const TALSTATUS status =
            opened.object.Associate(session, FALSE, kAccessReadContent, share, path, token);
        Failed(status))
        return status;
    if (const TALSTATUS status = opened.object.GetResourceSize(&opened.size); Failed(status))
        return status;
    return opened.object.GetModificationDate(&opened.modified);
}

void SetContentType(IKestIO_5* io, UNICODE_STRING* path)
{
    char* type = nullptr;
    if (!Failed(g_pIKestUtil->GetMimeTypeFromUnicodeObject(path, &type)) && type)
        SetHeaderText(io, "Content-Type", type);
}

void SetContentLength(IKestIO_5* io, UINT64 bytes)
{
    char digits[kU64Digits];
    (void)U64ToAscii(bytes, 10, digits);
    SetHeaderText(io, "Content-Length", digits);
}

TALSTATUS GetCollectionVitals(SCHANDLE hSc, UNICODE_STRING* pUri, const KESTDAV_HANDLER* pHandler,
                              UINT32* pAttributes, DAV_DATETIME* pCreationDate,
                              DAV_DATETIME* pModificationDate)
{
    DavCollection collection;
    if (const TALSTATUS status = collection.Open(*pHandler); Failed(status))
        return status;
    const TALSTATUS status = collection.Associate(hSc, pUri, nullptr);
    if (Failed(status))
        return status;
    if (pAttributes)
        (void)collection.GetLiveAttributes(pAttributes);
    if (pCreationDate)
        (void)collection.GetCreationDate(pCreationDate);
    if (pModificationDate)
        (void)collection.GetModificationDate(pModificationDate);
    return status;
}
