// SPDX-License-Identifier: Apache-2.0
//
// The server-side location of a folder, as its provider reports it.
#include <cstdio>
#include <cstring>

#include "index/context.h"
#include "index/identity.h"
#include "index/store_uri.h"
#include "index/text.h"
#include "support/memory.h"
#include "support/provider.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"
#include "support/utf8.h"

namespace {

constexpr size_t kAddressAt = offsetof(DAV_REVERSE_LOOKUP, Sockaddr) + 4; // IPv4
constexpr size_t kPathAt = offsetof(DAV_REVERSE_LOOKUP, DirPath);

// VOL1\users\bob becomes VOL1:users/bob, a leading separator a leading colon.
void ToVolumeForm(char* path)
{
    for (char* c = path; *c != '\0'; ++c)
        if (*c == '\\')
            *c = '/';
    if (char* first = std::strchr(path, '/'))
        *first = ':';
}

// `record` is a whole result buffer, and `text` another one for work.
void PutLocation(IKestIO_5* io, const char* record, char* text)
{
    const auto* address = reinterpret_cast<const UINT8*>(record + kAddressAt);
    char server[20];
    (void)std::snprintf(server, sizeof(server), "%u.%u.%u.%u:", address[0], address[1], address[2],
                        address[3]);
    Put(io, server);

    // The path ends at its terminator, at the latest with the buffer.
    constexpr size_t kMostUnits = (kIndexBuffer - kPathAt) / sizeof(WCHAR);
    const auto* path = reinterpret_cast<const WCHAR*>(record + kPathAt);
    size_t units = 0;
    while (units < kMostUnits && path[units] != 0)
        ++units;
    WideToUtf8Cut(path, units, text, kIndexBuffer);
    ToVolumeForm(text);
    Put(io, text);
}

// The caller holds g_hHandlerLock.
TALSTATUS PutLocationOf(IKestIO_5* io, SCHANDLE session, UNICODE_STRING* uri)
{
    const Paged<char> record = AllocPaged<char>(kIndexBuffer);
    const Paged<char> text = AllocPaged<char>(kIndexBuffer);
    if (!record || !text)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;

    DAV_TYPE type = Collection;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = ResolveUriToHandler(session, uri, &type, &handler); Failed(status))
        return status;
    if (handler->pIKestDav2 == nullptr)
        return TAL_STATUS_NOT_SUPPORTED;
    DavCollection collection;
    if (const TALSTATUS status = collection.Open(*handler); Failed(status))
        return status;
    if (const TALSTATUS status = collection.Associate(session, uri, nullptr); Failed(status))
        return status;

    // What a short answer leaves open reads as zero.
    std::memset(record.get(), 0, kIndexBuffer);
    UINT32 size = kIndexBuffer;
    const TALSTATUS status = collection.Second()->IoctlRequest(session, kIoctlReverseLookup, 0,
                                                               nullptr, &size, record.get());
    if (Failed(status))
        return status;
    PutLocation(io, record.get(), text.get());
    return status;
}

} // namespace

TALSTATUS ReverseLookup(IKestIO_5* pKestIo, SCHANDLE hSession, bool indexXml)
{
    const ProviderGuard providers;
    StoreUri uri;
    if (const TALSTATUS status = uri.Convert(pKestIo, indexXml); Code(status) != 0)
        return status;
    return PutLocationOf(pKestIo, hSession, uri.Get());
}

TALSTATUS ReverseLookupProvider(IKestIO_5* pKestIo, SCHANDLE hSession,
                                const DAV_COMMON_ENUM& resInfo)
{
    const ProviderGuard providers;
    WCHAR buffer[1 + kIndexBuffer / sizeof(WCHAR)]; // a listed name is shorter than its record
    buffer[0] = u'/';
    std::memcpy(buffer + 1, resInfo.DisplayName, resInfo.DisplayNameLength);
    const auto length = static_cast<UINT16>(sizeof(WCHAR) + resInfo.DisplayNameLength);
    UNICODE_STRING uri = {length, length, buffer};
    return PutLocationOf(pKestIo, hSession, &uri);
}
