// SPDX-License-Identifier: Apache-2.0
//
// Reading the body of LOCK.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "lock/lock.h"
#include "support/lock_token.h"
#include "support/memory.h"
#include "support/xml_body.h"

namespace {

constexpr INT32 kDefaultSeconds = 300;
constexpr INT32 kLongestSeconds = 3600;

UINT32 ReadDepth(IKestIO_5* io)
{
    char text[33];
    UINT32 length = sizeof(text) - 1;
    char name[] = "Depth";
    if (Code(io->GetRequestHeader(name, &length, text)) != kCodeSuccess)
        return 0;
    text[std::min<UINT32>(length, sizeof(text) - 1)] = 0;
    return static_cast<UINT32>(std::strtol(text, nullptr, 10)); // "infinity" is 0
}

// Seconds from the "Timeout" header (RFC 4918 section 10.7).
INT32 ReadTimeout(IKestIO_5* io)
{
    char text[129];
    UINT32 length = sizeof(text) - 1;
    char name[] = "Timeout";
    if (Code(io->GetRequestHeader(name, &length, text)) != kCodeSuccess)
        return kDefaultSeconds;
    text[std::min<UINT32>(length, sizeof(text) - 1)] = 0;

    if (std::strstr(text, "Infinite"))
        return kLongestSeconds;
    const char* const dash = std::strchr(text, '-');
    const long seconds = dash ? std::strtol(dash + 1, nullptr, 10) : 0;
    if (seconds <= 0)
        return kDefaultSeconds;
    return static_cast<INT32>(std::min<long>(seconds, kLongestSeconds));
}

// Appends to the owner's text as far as it has room.
void AppendOwner(LOCK_REQ* request, const char* text, size_t length)
{
    const size_t used = std::strlen(request->szOwner);
    const size_t added = std::min(length, sizeof(request->szOwner) - 1 - used);
    std::memcpy(request->szOwner + used, text, added);
    request->szOwner[used + added] = 0;
}

} // namespace

void LRStartTagHandler(void* pUserData, const char* pTagName, const char** /*ppAttr*/)
{
    auto* request = static_cast<LOCK_REQ*>(pUserData);
    const char* const name = LocalName(pTagName);
    if (!(request->Flags & kLockInfoSeen)) {
        if (SameName(name, "lockinfo"))
            request->Flags |= kLockInfoSeen;
    } else if (SameName(name, "read")) {
        request->Type = Read;
    } else if (SameName(name, "write")) {
        request->Type = Write;
    } else if (SameName(name, "exclusive")) {
        request->Scope = Exclusive;
    } else if (SameName(name, "shared")) {
        request->Scope = Shared;
    } else if (SameName(name, "owner")) {
        request->Flags |= kInsideOwner;
    } else if (SameName(name, "href") && (request->Flags & kInsideOwner)) {
        AppendOwner(request, "<href>", 6);
    }
}

void LREndTagHandler(void* pUserData, const char* pTagName)
{
    auto* request = static_cast<LOCK_REQ*>(pUserData);
    const char* const name = LocalName(pTagName);
    if (SameName(name, "owner")) {
        request->Flags &= ~kInsideOwner;
    } else if (SameName(name, "href") && (request->Flags & kInsideOwner)) {
        AppendOwner(request, "</href>", 7);
        request->Flags &= ~kInsideOwner; // kept: what follows an href is dropped
    }
}

void LRDataHandler(void* pUserData, const char* pData, int Length)
{
    auto* request = static_cast<LOCK_REQ*>(pUserData);
    const auto isBlank = [](char c) { return static_cast<UINT8>(c) < '!'; };
    if (!(request->Flags & kInsideOwner) || Length <= 0 ||
        std::all_of(pData, pData + Length, isBlank))
        return;
    AppendOwner(request, pData, static_cast<size_t>(Length));
}

TALSTATUS ParseDavLockRequest(IKestIO_5* pKestIo, LOCK_REQ* pRequest)
{
    char header[kTokenHeaderBytes + 1];
    UINT32 length = 0;
    if (ReadTokenHeader(pKestIo, "If", header) &&
        CopyToken(header, pRequest->cToken, sizeof(pRequest->cToken), &length)) {
        pRequest->TokenS.Length = static_cast<UINT16>(length);
        pRequest->Flags |= kLockRefresh;
    }
    pRequest->Depth = ReadDepth(pKestIo);
    pRequest->Timeout = ReadTimeout(pKestIo);

    UINT32 available = 0;
    if (Code(pKestIo->IsClientPayloadAvailable(&available)) != kCodeSuccess || available == 0)
        return TAL_STATUS_SUCCESS;
    const Paged<char> body = AllocPaged<char>(size_t{available} + 1);
    if (!body)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    UINT32 read = 0;
    if (Code(pKestIo->ReadClientPayload(available, reinterpret_cast<UINT8*>(body.get()), &read)) !=
        kCodeSuccess)
        return TAL_STATUS_SUCCESS;
    pRequest->Flags &= ~kLockRefresh; // a request with a body asks for a new lock
    return WasShortOfMemory(ParseXmlBody(body.get(), std::min(read, available), pRequest,
                                         LRStartTagHandler, LREndTagHandler, LRDataHandler))
               ? TAL_STATUS_INSUFFICIENT_RESOURCES
               : TAL_STATUS_SUCCESS;
}

LOCK_REQ* AllocLockRequest()
{
    Paged<LOCK_REQ> memory = AllocPaged<LOCK_REQ>(1);
    if (!memory)
        return nullptr;
    LOCK_REQ* request = memory.release();
    std::memset(request, 0, sizeof(*request));
    request->Signature = kLockSignature;
    request->TokenS = {0, sizeof(request->cToken), request->cToken};
    return request;
}

void FreeLockRequest(LOCK_REQ* pRequest)
{
    pITalpl->TalxFreeMemory(pRequest);
}
