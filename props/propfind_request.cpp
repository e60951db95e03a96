// SPDX-License-Identifier: Apache-2.0
//
// Reading the body of PROPFIND.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "props/propfind.h"
#include "support/list.h"
#include "support/memory.h"
#include "support/propfind_body_cache.h"
#include "support/xml_body.h"

const LIVE_PROPERTY g_LiveProperties[] = {
    {"name", kLiveName},
    {"displayname", kLiveDisplayName},
    {"parentname", kLiveParentName},
    {"href", kLiveHRef},
    {"ishidden", kLiveIsHidden},
    {"isreadonly", kLiveIsReadOnly},
    {"iscollection", kLiveIsCollection},
    {"isroot", kLiveIsRoot},
    {"getcontenttype", kLiveContentType},
    {"contentclass", kLiveContentClass},
    {"getcontentlanguage", kLiveContentLanguage},
    {"getcontentlength", kLiveContentLength},
    {"creationdate", kLiveCreationDate},
    {"getlastmodified", kLiveLastModified},
    {"lastaccessed", kLiveLastAccessed},
    {"resourcetype", kLiveResourceType},
    {"isstructureddocument", kLiveIsStructuredDocument},
    {"defaultdocument", kLiveDefaultDocument},
    {"getetag", kLiveETag},
    {"lockdiscovery", kLiveLockDiscovery},
    {nullptr, 0},
};

static const char g_szAllProp[] = "allprop";

static UINT32 ReadDepth(IKestIO_5* io)
{
    char text[17]; // the offered room and a terminator
    UINT32 length = sizeof(text) - 1;
    char name[] = "Depth";
    if (Code(io->GetRequestHeader(name, &length, text)) != kCodeSuccess)
        return 0;
    text[std::min<UINT32>(length, sizeof(text) - 1)] = 0;
    // Kept: "infinity" has no digits and reads as 0. No listing ever recurses. A number beyond 32
    // bits is none the less not 0.
    constexpr long kMost = std::numeric_limits<UINT32>::max();
    return static_cast<UINT32>(std::min(std::strtol(text, nullptr, 10), kMost));
}

static UINT32 FindLiveProperty(const char* name)
{
    // The first letter, small as all are in the table, rules out most rows at once.
    const char first = static_cast<char>(*name | 0x20);
    for (const LIVE_PROPERTY* row = g_LiveProperties; row->pName; ++row)
        if (*row->pName == first && SameName(row->pName, name))
            return row->Property;
    return 0;
}

void AddDeadProperty(PROPFIND_REQ* pRequest, const char* pName)
{
    const size_t length = std::strlen(pName);
    if (length + kElementCost > pRequest->NameBudget)
        return;
    Paged<UINT8> memory = AllocPaged<UINT8>(sizeof(DAV_PROP) + length);
    if (!memory) {
        pRequest->bNameDropped = TRUE;
        return;
    }
    pRequest->NameBudget -= length + kElementCost;

    auto* property = reinterpret_cast<DAV_PROP*>(memory.release());
    property->Flags = 0;
    std::memcpy(property->szName, pName, length + 1);
    pITalpl->TalxInsertTailList(&pRequest->lDeadProperties, &property->ListLink);
}

void PFStartTagHandler(void* pUserData, const char* pTagName, const char** /*ppAttr*/)
{
    auto* request = static_cast<PROPFIND_REQ*>(pUserData);
    const char* name = LocalName(pTagName);

    if (!(request->Flags & kPropFindSeen)) {
        if (SameName(name, "propfind"))
            request->Flags |= kPropFindSeen;
    } else if (request->Flags & kAllProperties) {
        return;
    } else if (SameName(name, g_szAllProp)) {
        // Kept: also inside prop, where it turns the whole request into this one.
        request->Flags |= kAllProperties;
        request->LiveProperties |= kLiveDefault;
    } else if (SameName(name, "propname")) {
        request->Flags |= kAllProperties | kNamesOnly;
        request->LiveProperties |= kLiveDefault;
    } else if (request->Flags & kPropSeen) {
        if (const UINT32 property = FindLiveProperty(name))
            request->LiveProperties |= property;
        else
            AddDeadProperty(request, name);
    } else if (SameName(name, "prop")) {
        request->Flags |= kPropSeen;
    }
}

// Kept: an end tag clears nothing, so elements behind </prop> are still asked for.
void PFEndTagHandler(void* /*pUserData*/, const char* /*pTagName*/) {}

static constinit PropFindBodyCache g_bodyCache;

// Fills a record that has its NameBudget as reading `body` would. False when it is not known.
static bool Recall(std::string_view body, PROPFIND_REQ* request)
{
    CachedPropFind known;
    if (!g_bodyCache.Recall(body, known))
        return false;
    request->Flags = known.flags;
    request->LiveProperties = known.liveProperties;
    for (const char* name = known.names; name != known.names + known.nameBytes;
         name += std::strlen(name) + 1)
        AddDeadProperty(request, name);
    return true;
}

// Keeps a body that has been read to its end, unless it names more than is kept.
static void Remember(std::string_view body, const PROPFIND_REQ& request)
{
    if (request.bNameDropped)
        return;
    CachedPropFind known;
    for (const LIST_ENTRY* link = request.lDeadProperties.Flink; link != &request.lDeadProperties;
         link = link->Flink) {
        const char* const name = reinterpret_cast<const DAV_PROP*>(link)->szName;
        const size_t bytes = std::strlen(name) + 1;
        if (bytes > kCachedNameBytes - known.nameBytes)
            return;
        std::memcpy(known.names + known.nameBytes, name, bytes);
        known.nameBytes += static_cast<UINT32>(bytes);
    }
    known.flags = request.Flags;
    known.liveProperties = request.LiveProperties;
    g_bodyCache.Remember(body, known);
}

TALSTATUS PropFindParseRequest(IKestIO_5* pKestIo, PROPFIND_REQ* pRequest)
{
    pRequest->Depth = ReadDepth(pKestIo);

    UINT32 available = 0;
    const TALSTATUS announced = pKestIo->IsClientPayloadAvailable(&available);
    if (Code(announced) != kCodeSuccess || available == 0) {
        pRequest->LiveProperties = kLiveDefault;
        return TAL_STATUS_SUCCESS;
    }
    const Paged<char> body = AllocPaged<char>(size_t{available} + 1);
    if (!body)
        return announced;

    UINT32 read = 0;
    if (const TALSTATUS status =
            pKestIo->ReadClientPayload(available, reinterpret_cast<UINT8*>(body.get()), &read);
        Code(status) != kCodeSuccess) {
        pRequest->LiveProperties = kLiveFallback;
        return status;
    }
    read = std::min(read, available);
    pRequest->NameBudget = NameBudget(read);
    const std::string_view text(body.get(), read);
    if (Recall(text, pRequest))
        return TAL_STATUS_SUCCESS;
    switch (ParseXmlBody(body.get(), read, pRequest, PFStartTagHandler, PFEndTagHandler, nullptr)) {
    case XmlBody::NoParser:
        pRequest->LiveProperties = kLiveFallback;
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    case XmlBody::Whole:
        Remember(text, *pRequest);
        break;
    case XmlBody::NoMemory: // the next one may read more of it
    case XmlBody::Broken:
        break;
    }
    return TAL_STATUS_SUCCESS;
}

PROPFIND_REQ* AllocPropfindRequest()
{
    Paged<PROPFIND_REQ> memory = AllocPaged<PROPFIND_REQ>(1);
    if (!memory)
        return nullptr;
    PROPFIND_REQ* request = memory.release();
    std::memset(request, 0, sizeof(*request));
    request->Signature = kPropFindSignature;
    request->HRefU = {0, sizeof(request->wRef), request->wRef};
    pITalpl->TalxInitializeListHead(&request->lDeadProperties);
    pITalpl->TalxInitializeListHead(&request->lLocks);
    return request;
}

void FreePropfindRequest(PROPFIND_REQ* pRequest)
{
    for (LIST_ENTRY* list : {&pRequest->lDeadProperties, &pRequest->lLocks})
        while (!pITalpl->TalxIsListEmpty(list))
            FreeListEntry(list->Flink);
    pITalpl->TalxFreeMemory(pRequest);
}
