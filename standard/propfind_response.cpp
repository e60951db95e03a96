// SPDX-License-Identifier: Apache-2.0
//
// Writing the responses of a PROPFIND.
#include "standard/propfind_response.h"

#include <algorithm>
#include <cstdio>

#include "support/failure_report.h"
#include "support/globals.h"

namespace standard {

namespace {

constexpr UINT32 kWin32 = kLiveWin32Created | kLiveWin32Modified | kLiveWin32Attributes;

// Attributes as Windows numbers them.
constexpr UINT32 kWin32Directory = 0x10;
constexpr UINT32 kWin32Archive = 0x20;

std::string_view TagOf(const DAV_OBJECT_INFO& info)
{
    return {info.Tag.Text, std::min(info.Tag.Length, kTagBytes)};
}

} // namespace

void PutPropertyName(ReplyWriter& out, const XmlName& name)
{
    if (name.space == kDav)
        out.Put("<D:");
    else
        out.Put(name.space.empty() ? "<" : "<n:");
    out.Put(name.local);
    if (name.space != kDav && !name.space.empty()) {
        out.Put(" xmlns:n=\"");
        out.PutAttribute(name.space);
        out.Put("\"");
    }
    out.Put("/>");
}

TALSTATUS PropFindResponses::Put(const PropFindObject& object)
{
    while (isFound_.size() < request_.dead.size())
        if (!isFound_.Append(0))
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
    std::fill(isFound_.begin(), isFound_.end(), UINT8{0});
    missing_ = 0;
    isOpen_ = false;
    hasAskedQuota_ = false;

    out_.PutMarkup("<D:response><D:href>");
    if (object.nameAt != 0)
        PutMemberHref(object);
    else
        PutHref(out_, object.path, object.IsCollection());
    out_.PutMarkup("</D:href>");
    PutFound(object);
    const bool hasMissing =
        request_.kind == PropFindRequest::Kind::Named && !request_.preferences.isMinimal &&
        (missing_ != 0 || std::find(isFound_.begin(), isFound_.end(), 0) != isFound_.end());
    EndFound(hasMissing);
    if (hasMissing)
        PutMissing();
    out_.PutMarkup("</D:response>\n");
    return TAL_STATUS_SUCCESS;
}

// What the hrefs of all members of a collection begin with is escaped once.
void PropFindResponses::PutMemberHref(const PropFindObject& object)
{
    const std::string_view parent = object.path.substr(0, object.nameAt);
    if (parent != parent_.Text() && !EscapeParent(parent))
        return PutHref(out_, object.path, object.IsCollection()); // without memory for it
    out_.Put(parentHref_.Text());
    out_.PutPath(object.path.substr(object.nameAt));
    if (object.IsCollection())
        out_.PutMarkup("/");
}

bool PropFindResponses::EscapeParent(std::string_view parent)
{
    const auto take = [this](std::string_view piece) { return parentHref_.Put(piece); };
    const STRING moniker = g_MonikerS; // once: an event may change it meanwhile
    parent_.Cut(0);
    parentHref_.Cut(0);
    return EscapePath({moniker.Buffer, moniker.Length}, take) && EscapePath(parent, take) &&
           parent_.Put(parent);
}

void PropFindResponses::BeginFound()
{
    if (!isOpen_)
        out_.PutMarkup("<D:propstat><D:prop>");
    isOpen_ = true;
}

// A response holds one propstat at least, if need be an empty one.
void PropFindResponses::EndFound(bool isEmptyAllowed)
{
    if (!isOpen_ && isEmptyAllowed)
        return;
    BeginFound();
    out_.PutMarkup("</D:prop><D:status>HTTP/1.1 200 OK</D:status></D:propstat>");
}

void PropFindResponses::PutFound(const PropFindObject& object)
{
    UINT32 live = request_.live;
    if (request_.kind == PropFindRequest::Kind::Names) // also what "allprop" leaves out
        live = kLiveEvery;
    else if (request_.kind == PropFindRequest::Kind::All && object.info.Attributes != 0)
        live |= kLiveWin32Attributes; // the usual ones are not worth their bytes
    for (UINT32 bits = live; bits != 0; bits &= bits - 1) {
        const UINT32 property = bits & -bits;
        if (!PutLive(object, property))
            missing_ |= property;
    }
    if (request_.WantsDead() && object.provider && (object.info.Flags & kObjectHasProperties))
        PutDead(object);
}

UNICODE_STRING* PropFindResponses::WidePath(const PropFindObject& object)
{
    UNICODE_STRING* const path = object.tree->Wide();
    if (!path)
        ReportFailure(TAL_STATUS_NAME_TOO_LONG);
    return path;
}

bool PropFindResponses::PutText(const char* before, std::string_view text, const char* behind)
{
    if (text.empty())
        return false;
    BeginFound();
    out_.Put(before);
    out_.PutText(text);
    out_.Put(behind);
    return true;
}

// -- Live properties.

namespace {

// Whether an object has a property at all: what "propname" tells.
bool Has(const PropFindObject& object, UINT32 property)
{
    switch (property) {
    case kLiveContentLength:
        return !object.IsCollection();
    case kLiveTag:
        return object.info.Tag.Length != 0;
    default:
        return true;
    }
}

} // namespace

bool PropFindResponses::PutLive(const PropFindObject& object, UINT32 property)
{
    if (!Has(object, property))
        return false;
    if (property == kLiveContentType)
        return PutContentType(object);
    if (property & (kLiveQuotaAvailable | kLiveQuotaUsed))
        return PutQuota(object, property);
    BeginFound();
    if (request_.kind == PropFindRequest::Kind::Names) {
        PutLiveNames(property);
        return true;
    }
    switch (property) {
    case kLiveCreationDate:
        out_.PutMarkup("<D:creationdate>");
        out_.PutIsoDate(object.info.CreationDate);
        out_.PutMarkup("</D:creationdate>");
        return true;
    case kLiveDisplayName:
        out_.PutMarkup("<D:displayname>");
        out_.PutText(object.name);
        out_.PutMarkup("</D:displayname>");
        return true;
    case kLiveContentLength:
        out_.PutMarkup("<D:getcontentlength>");
        out_.PutNumber(object.info.ResourceSize);
        out_.PutMarkup("</D:getcontentlength>");
        return true;
    case kLiveTag:
        return PutText("<D:getetag>", TagOf(object.info), "</D:getetag>");
    case kLiveLastModified:
        out_.PutMarkup("<D:getlastmodified>");
        out_.PutHttpDate(object.info.ModificationDate);
        out_.PutMarkup("</D:getlastmodified>");
        return true;
    default:
        return PutLiveElement(object, property);
    }
}

bool PropFindResponses::PutLiveElement(const PropFindObject& object, UINT32 property)
{
    switch (property) {
    case kLiveResourceType:
        if (object.IsCollection())
            out_.PutMarkup("<D:resourcetype><D:collection/></D:resourcetype>");
        else
            out_.PutMarkup("<D:resourcetype/>");
        return true;
    case kLiveLockDiscovery:
        out_.PutMarkup("<D:lockdiscovery>");
        if (object.info.Flags & kObjectHasLocks)
            if (UNICODE_STRING* const path = WidePath(object))
                PutLocks(out_, *object.provider, session_, path, object.path,
                         object.IsCollection());
        out_.PutMarkup("</D:lockdiscovery>");
        return true;
    case kLiveSupportedLock:
        if (!object.provider) { // what no provider serves cannot be locked
            out_.PutMarkup("<D:supportedlock/>");
            return true;
        }
        out_.PutMarkup("<D:supportedlock>"
                       "<D:lockentry><D:lockscope><D:exclusive/></D:lockscope>"
                       "<D:locktype><D:write/></D:locktype></D:lockentry>"
                       "<D:lockentry><D:lockscope><D:shared/></D:lockscope>"
                       "<D:locktype><D:write/></D:locktype></D:lockentry>"
                       "</D:supportedlock>");
        return true;
    case kLivePrivileges:
        PutPrivilegeSet(out_, PrivilegesOn(object));
        return true;
    case kLivePermissions:
        PutPermissions(out_, PrivilegesOn(object));
        return true;
    default:
        return PutWin32(object, property);
    }
}

void PropFindResponses::PutLiveNames(UINT32 live)
{
    for (UINT32 i = 0; i < kLiveCount; ++i)
        if (live & 1U << i)
            PutPropertyName(out_, {kLiveNames[i].space, kLiveNames[i].local});
}

bool PropFindResponses::PutContentType(const PropFindObject& object)
{
    if (object.IsCollection())
        return false;
    BeginFound();
    if (request_.kind == PropFindRequest::Kind::Names) {
        out_.Put("<D:getcontenttype/>");
        return true;
    }
    STRING name = {static_cast<UINT16>(object.name.size()), static_cast<UINT16>(object.name.size()),
                   const_cast<char*>(object.name.data())}; // only read
    char* type = nullptr;
    const bool isKnown = !Failed(g_pIKestUtil->GetMimeTypeFromUTF8Object(&name, &type)) && type;
    return PutText("<D:getcontenttype>", isKnown ? type : "application/octet-stream",
                   "</D:getcontenttype>");
}

// Null when it is not known. Both properties are of one look.
const DAV_QUOTA* PropFindResponses::QuotaOf(const PropFindObject& object)
{
    if (!hasAskedQuota_) {
        hasAskedQuota_ = true;
        quota_ = {};
        quota_.Size = sizeof quota_;
        UNICODE_STRING* const path =
            object.provider && object.IsCollection() ? WidePath(object) : nullptr;
        hasQuota_ = path && !Failed(object.provider->GetQuota(session_, path, &quota_));
    }
    return hasQuota_ ? &quota_ : nullptr;
}

// RFC 4331. Asked for by name only.
bool PropFindResponses::PutQuota(const PropFindObject& object, UINT32 property)
{
    const DAV_QUOTA* const quota = QuotaOf(object);
    if (!quota)
        return false;
    BeginFound();
    if (request_.kind == PropFindRequest::Kind::Names) {
        PutLiveNames(property);
        return true;
    }
    const bool isUsed = property == kLiveQuotaUsed;
    out_.Put(isUsed ? "<D:quota-used-bytes>" : "<D:quota-available-bytes>");
    out_.PutNumber(isUsed ? quota->Used : quota->Available);
    out_.Put(isUsed ? "</D:quota-used-bytes>" : "</D:quota-available-bytes>");
    return true;
}

// What no provider of the third generation serves is read-only: the root above all of them.
Privileges PropFindResponses::PrivilegesOn(const PropFindObject& object)
{
    const bool isReadOnly = !object.provider || (object.info.Attributes & kAttributeReadOnly);
    return privileges_.Of(object.path, object.IsCollection(), isReadOnly);
}

bool PropFindResponses::PutWin32(const PropFindObject& object, UINT32 property)
{
    const char* const name = kLiveNames[__builtin_ctz(property & kWin32)].local.data();
    out_.Put("<Z:");
    out_.Put(name);
    out_.Put(" xmlns:Z=\"urn:schemas-microsoft-com:\">");
    if (property == kLiveWin32Attributes) {
        char text[16];
        const UINT32 kind = object.IsCollection() ? kWin32Directory : kWin32Archive;
        (void)std::snprintf(text, sizeof text, "%08X", object.info.Attributes | kind);
        out_.Put(text);
    } else {
        out_.PutHttpDate(property == kLiveWin32Created ? object.info.CreationDate
                                                       : object.info.ModificationDate);
    }
    out_.Put("</Z:");
    out_.Put(name);
    out_.Put(">");
    return true;
}

// -- Dead properties.

void PropFindResponses::PutDead(const PropFindObject& object)
{
    UNICODE_STRING* const path = WidePath(object);
    if (!path)
        return;
    UINT64 place = 0;
    const TALSTATUS status = ForEachRecord<DAV_PROPERTY>(
        records_,
        [&](UINT32* size, DAV_PROPERTY* records) {
            return object.provider->GetProperties(session_, path, &place, size, records);
        },
        [&](const DAV_PROPERTY& property, UINT32 room) {
            const UINT64 text =
                UINT64{property.NamespaceLength} + property.NameLength + property.ValueLength;
            if (text <= room - offsetof(DAV_PROPERTY, Text))
                PutDeadProperty(property);
            return !out_.HasFailed();
        });
    if (Failed(status) && Code(status) != kCodeNotFound) // gone meanwhile: it has none
        ReportFailure(status);
}

void PropFindResponses::PutDeadProperty(const DAV_PROPERTY& property)
{
    const char* const text = VariableText(property, offsetof(DAV_PROPERTY, Text));
    const XmlName name = {{text, property.NamespaceLength},
                          {text + property.NamespaceLength, property.NameLength}};
    const std::string_view value(text + property.NamespaceLength + property.NameLength,
                                 property.ValueLength);
    if (FindLiveProperty(name) != 0)
        return; // kept by another dialect: the live one has been told
    if (request_.kind == PropFindRequest::Kind::Names) {
        BeginFound();
        PutPropertyName(out_, name);
        return;
    }
    for (size_t i = 0; i < request_.dead.size(); ++i) {
        const XmlName asked = request_.NameOf(request_.dead[i]);
        if (asked.local != name.local || asked.space != name.space)
            continue;
        isFound_[i] = 1;
        BeginFound();
        out_.Put(value);
        return;
    }
    if (request_.kind == PropFindRequest::Kind::All) {
        BeginFound();
        out_.Put(value);
    }
}

void PropFindResponses::PutMissing()
{
    out_.Put("<D:propstat><D:prop>");
    PutLiveNames(missing_);
    for (size_t i = 0; i < request_.dead.size(); ++i)
        if (!isFound_[i])
            PutPropertyName(out_, request_.NameOf(request_.dead[i]));
    out_.Put("</D:prop><D:status>HTTP/1.1 404 Not Found</D:status></D:propstat>");
}

} // namespace standard
