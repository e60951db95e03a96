// SPDX-License-Identifier: Apache-2.0
//
// The properties that the module computes from an object's vitals. Their order is the order of the
// reply.
#include <algorithm>
#include <cstring>

#include "props/propfind.h"
#include "support/escape.h"
#include "support/reply.h"

namespace {

constexpr UINT32 kDateBytes = 512;
constexpr UINT32 kLongestNameBytes = kChildRecordBytes - offsetof(DAV_COMMON_ENUM, DisplayName);

// Whether a property is asked for; it counts as answered then.
bool Take(PROPFIND_REQ* request, UINT32 property)
{
    const bool asked = (request->LiveProperties & property) != 0;
    request->LiveProperties &= ~property;
    return asked;
}

bool NamesOnly(const PROPFIND_REQ* request)
{
    return (request->Flags & kNamesOnly) != 0;
}

void SendContentLength(BufferedIo* io, PROPFIND_REQ* request)
{
    if (!Take(request, kLiveContentLength))
        return;
    if (NamesOnly(request)) {
        Put(io, "<a:getcontentlength/>\n");
    } else if (request->Enum.ResourceSize == 0) {
        // Kept: only the zero carries its type.
        Put(io, "<a:getcontentlength b:dt=\"integer\">0</a:getcontentlength>\n");
    } else {
        char digits[kU64Digits];
        const INT32 length = U64ToAscii(request->Enum.ResourceSize, 10, digits);
        Put(io, "<a:getcontentlength>");
        PutBytes(io, digits, static_cast<UINT32>(length));
        Put(io, "</a:getcontentlength>\n");
    }
}

// Writes "&" as its reference while the converted name's buffer would have room for it; what does
// not fit becomes "_". Kept: nothing else is escaped.
void PutEscapedName(BufferedIo* io, const char* name, UINT32 length, UINT32 capacity)
{
    UINT32 free = capacity - length;
    const char* const end = name + length;
    while (const char* amp =
               static_cast<const char*>(std::memchr(name, '&', static_cast<size_t>(end - name)))) {
        PutBytes(io, name, static_cast<UINT32>(amp - name));
        if (free >= 4) {
            Put(io, "&amp;");
            free -= 4;
        } else {
            Put(io, "_");
        }
        name = amp + 1;
    }
    PutBytes(io, name, static_cast<UINT32>(end - name));
}

void SendDisplayName(BufferedIo* io, PROPFIND_REQ* request)
{
    const UINT32 wideBytes = std::min(request->Enum.DisplayNameLength, kLongestNameBytes);
    if (wideBytes == 0 || !Take(request, kLiveDisplayName))
        return; // an object without a name leaves the property unanswered
    if (NamesOnly(request)) {
        Put(io, "<a:displayname/>\n");
        return;
    }
    char name[kLongestNameBytes + kLongestNameBytes / 2 + 2];
    const UINT32 capacity = wideBytes + wideBytes / 2 + 2;
    UINT32 length = capacity;
    if (Code(pITalpl->TalxWideCharToMultiByte(kCodePageUtf8Alt, request->Enum.DisplayName,
                                              wideBytes / UINT32{sizeof(WCHAR)}, name, &length)) !=
        kCodeSuccess)
        return;
    Put(io, "<a:displayname>");
    PutEscapedName(io, name, std::min(length, capacity), capacity);
    Put(io, "</a:displayname>\n");
}

void SendETag(BufferedIo* io, PROPFIND_REQ* request)
{
    if (Take(request, kLiveETag))
        Put(io, "<a:getetag/>\n"); // kept: never a value
}

void SendResourceType(BufferedIo* io, PROPFIND_REQ* request)
{
    if (!Take(request, kLiveResourceType))
        return;
    if (NamesOnly(request))
        Put(io, "<a:resourcetype/>\n");
    else if (request->Enum.Type == Collection)
        Put(io, "<a:resourcetype><a:collection/></a:resourcetype>\n");
    else
        Put(io, "<a:resourcetype><a:resource/></a:resourcetype>\n");
}

void SendIsHidden(BufferedIo* io, PROPFIND_REQ* request)
{
    if (!Take(request, kLiveIsHidden))
        return;
    if (NamesOnly(request))
        Put(io, "<a:ishidden/>\n");
    else if (request->Enum.Attributes & kAttributeHidden)
        Put(io, "<a:ishidden b:dt=\"boolean\">1</a:ishidden>\n");
    else
        Put(io, "<a:ishidden b:dt=\"boolean\">0</a:ishidden>\n");
}

void SendIsReadOnly(BufferedIo* io, PROPFIND_REQ* request)
{
    if (!Take(request, kLiveIsReadOnly))
        return;
    if (NamesOnly(request))
        Put(io, "<a:isreadonly/>\n");
    else if (request->Enum.Attributes & kAttributeReadOnly)
        Put(io, "<a:isreadonly b:dt=\"boolean\">1</a:isreadonly>\n");
    else
        Put(io, "<a:isreadonly b:dt=\"boolean\">0</a:isreadonly>\n");
}

void SendIsCollection(BufferedIo* io, PROPFIND_REQ* request)
{
    if (!Take(request, kLiveIsCollection))
        return;
    if (NamesOnly(request))
        Put(io, "<a:iscollection/>\n");
    else if (request->Enum.Type == Collection)
        Put(io, "<a:iscollection b:dt=\"boolean\">1</a:iscollection>\n");
    else
        Put(io, "<a:iscollection b:dt=\"boolean\">0</a:iscollection>\n");
}

// Everything but the root leaves the property out, and answered.
void SendIsRoot(BufferedIo* io, PROPFIND_REQ* request)
{
    if (!Take(request, kLiveIsRoot) || !request->bRoot)
        return;
    if (NamesOnly(request))
        Put(io, "<a:isroot/>\n");
    else
        Put(io, "<a:isroot b:dt=\"boolean\">1</a:isroot>\n");
}

} // namespace

TALSTATUS PropFindSendCreationDate(BufferedIo* pKestIo, PROPFIND_REQ* pRequest)
{
    if (!Take(pRequest, kLiveCreationDate))
        return TAL_STATUS_SUCCESS;
    if (NamesOnly(pRequest)) {
        Put(pKestIo, "<a:creationdate/>\n");
        return TAL_STATUS_SUCCESS;
    }
    char text[kDateBytes];
    STRING date = {0, sizeof(text), text};
    if (const TALSTATUS status =
            g_pIKestUtil->SystemTimeTo8601Time(&pRequest->Enum.CreationDate, &date);
        Code(status) != kCodeSuccess)
        return status; // a date that cannot be told is left out
    Put(pKestIo, "<a:creationdate b:dt=\"dateTime.tz\">");
    PutBytes(pKestIo, text, std::min<UINT32>(date.Length, sizeof(text)));
    Put(pKestIo, "</a:creationdate>\n");
    return TAL_STATUS_SUCCESS;
}

TALSTATUS PropFindSendModifiedDate(BufferedIo* pKestIo, PROPFIND_REQ* pRequest)
{
    if (!Take(pRequest, kLiveLastModified))
        return TAL_STATUS_SUCCESS;
    if (NamesOnly(pRequest)) {
        Put(pKestIo, "<a:getlastmodified/>\n");
        return TAL_STATUS_SUCCESS;
    }
    char text[kDateBytes];
    STRING date = {0, sizeof(text), text};
    if (const TALSTATUS status =
            g_pIKestUtil->SystemTimeToHttpTime(&pRequest->Enum.ModificationDate, &date);
        Code(status) != kCodeSuccess)
        return status;
    Put(pKestIo, "<a:getlastmodified b:dt=\"dateTime.rfc1123\">");
    PutBytes(pKestIo, text, std::min<UINT32>(date.Length, sizeof(text)));
    Put(pKestIo, "</a:getlastmodified>\n");
    return TAL_STATUS_SUCCESS;
}

TALSTATUS PropFindSendLiveProperties(BufferedIo* pKestIo, PROPFIND_REQ* pRequest)
{
    SendContentLength(pKestIo, pRequest);
    (void)PropFindSendCreationDate(pKestIo, pRequest); // a missing date costs that property only
    SendDisplayName(pKestIo, pRequest);
    SendETag(pKestIo, pRequest);
    (void)PropFindSendModifiedDate(pKestIo, pRequest);
    SendResourceType(pKestIo, pRequest);
    SendIsHidden(pKestIo, pRequest);
    SendIsReadOnly(pKestIo, pRequest);
    SendIsCollection(pKestIo, pRequest);
    SendIsRoot(pKestIo, pRequest);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS SendUnreturnedProperties(BufferedIo* pKestIo, UINT32 uProperties)
{
    static constexpr struct {
        UINT32 property;
        std::string_view element;
    } kElements[] = {
        {kLiveName, "<a:name/>\n"},
        {kLiveParentName, "<a:parentname/>\n"},
        {kLiveIsHidden, "<a:ishidden/>\n"},
        {kLiveIsCollection, "<a:iscollection/>\n"},
        {kLiveIsReadOnly, "<a:isreadonly/>\n"},
        {kLiveContentClass, "<a:contentclass/>\n"},
        {kLiveContentLanguage, "<a:getcontentlanguage/>\n"},
        {kLiveLastAccessed, "<a:getlastaccessed/>\n"}, // kept: not the name that was asked for
        {kLiveContentLength, "<a:getcontentlength/>\n"},
        {kLiveIsStructuredDocument, "<a:isstructureddocument/>\n"},
        {kLiveDefaultDocument, "<a:defaultdocument/>\n"},
        {kLiveDisplayName, "<a:displayname/>\n"},
        {kLiveIsRoot, "<a:isroot/>\n"},
        {kLiveETag, "<a:getetag/>\n"},
        {kLiveLockDiscovery, "<a:lockdiscovery/>\n"},
        {kLiveContentType, "<a:getcontenttype/>\n"},
    };
    Put(pKestIo, "<a:propstat><a:status>HTTP/1.1 404 Not Found</a:status>\n<a:prop>");
    for (const auto& entry : kElements)
        if (uProperties & entry.property)
            PutText(pKestIo, entry.element);
    Put(pKestIo, "</a:prop></a:propstat>");
    return TAL_STATUS_SUCCESS;
}
