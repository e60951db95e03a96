// SPDX-License-Identifier: Apache-2.0
//
// Reading what a PROPFIND asks for.
#include "standard/propfind_request.h"

#include <algorithm>
#include <cstring>

#include "standard/request_headers.h"
#include "standard/scan.h"
#include "support/propfind_body_cache.h"

namespace standard {

namespace {

constexpr std::string_view kMicrosoft = "urn:schemas-microsoft-com:";

bool Keep(PropFindRequest& request, const XmlName& name)
{
    const PropFindRequest::Name kept = {static_cast<UINT32>(request.names.size()),
                                        static_cast<UINT32>(name.space.size()),
                                        static_cast<UINT32>(name.local.size())};
    return request.names.Put(name.space) && request.names.Put(name.local) &&
           request.dead.Append(kept);
}

class PropFindReader final : public XmlHandler {
  public:
    explicit PropFindReader(PropFindRequest& request) : request_(request) {}

    bool OnStart(XmlReader&, const XmlName& name, unsigned depth) override
    {
        if (depth == 0)
            return name.IsDav("propfind");
        if (depth == 1)
            return OnForm(name);
        if (depth == 2 && takesNames_)
            return OnProperty(name);
        return true;
    }
    bool OnEnd(XmlReader&, const XmlName&, unsigned depth) override
    {
        if (depth == 1)
            takesNames_ = false;
        return depth != 0 || IsWhole();
    }

  private:
    // What stands in the propfind element. Anything unknown is an extension and is passed over
    // (RFC 4918 section 17).
    bool OnForm(const XmlName& name)
    {
        if (name.IsDav("include")) {
            takesNames_ = true;
            isInclude_ = true;
            return true;
        }
        if (name.IsDav("prop")) {
            takesNames_ = true;
            request_.kind = PropFindRequest::Kind::Named;
        } else if (name.IsDav("allprop")) {
            request_.kind = PropFindRequest::Kind::All;
        } else if (name.IsDav("propname")) {
            request_.kind = PropFindRequest::Kind::Names;
        } else {
            return true;
        }
        return ++forms_ == 1;
    }

    bool OnProperty(const XmlName& name)
    {
        if (const UINT32 live = FindLiveProperty(name)) {
            request_.live |= live;
            return true;
        }
        if (IsAsked(name))
            return true;
        if (request_.dead.size() == kMostAskedProperties)
            return false;
        return Keep(request_, name);
    }

    bool IsAsked(const XmlName& name) const
    {
        return std::any_of(request_.dead.begin(), request_.dead.end(), [&](const auto& each) {
            const XmlName asked = request_.NameOf(each);
            return asked.local == name.local && asked.space == name.space;
        });
    }

    bool IsWhole() const
    {
        return forms_ == 1 && (!isInclude_ || request_.kind == PropFindRequest::Kind::All);
    }

    PropFindRequest& request_;
    int forms_ = 0;
    bool isInclude_ = false;
    bool takesNames_ = false;
};

} // namespace

const LiveName kLiveNames[kLiveCount] = {
    {kDav, "creationdate"},
    {kDav, "displayname"},
    {kDav, "getcontentlength"},
    {kDav, "getcontenttype"},
    {kDav, "getetag"},
    {kDav, "getlastmodified"},
    {kDav, "resourcetype"},
    {kDav, "lockdiscovery"},
    {kDav, "supportedlock"},
    {kDav, "quota-available-bytes"},
    {kDav, "quota-used-bytes"},
    {kDav, "current-user-privilege-set"},
    {kMicrosoft, "Win32CreationTime"},
    {kMicrosoft, "Win32LastModifiedTime"},
    {kMicrosoft, "Win32FileAttributes"},
    {"http://owncloud.org/ns", "permissions"},
};

UINT32 FindLiveProperty(const XmlName& name) noexcept
{
    for (UINT32 i = 0; i < kLiveCount; ++i)
        if (kLiveNames[i].local == name.local && kLiveNames[i].space == name.space)
            return 1U << i;
    return 0;
}

TALSTATUS ReadBody(IKestIO_5* io, XmlBodyText& body)
{
    UINT32 available = 0;
    // What cannot be told must not pass for none: that would be another request.
    if (const TALSTATUS status = io->IsClientPayloadAvailable(&available);
        Failed(status) || available == 0)
        return status;
    body.memory = AllocPaged<char>(available);
    if (!body.memory)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    while (body.size < available) {
        UINT32 read = 0;
        const TALSTATUS status = io->ReadClientPayload(
            available - body.size, reinterpret_cast<UINT8*>(body.memory.get()) + body.size, &read);
        if (Code(status) != kCodeSuccess || read == 0 || read > available - body.size)
            return TAL_STATUS_INVALID_REQUEST;
        body.size += read;
    }
    return TAL_STATUS_SUCCESS;
}

TALSTATUS StatusOf(XmlResult result) noexcept
{
    switch (result) {
    case XmlResult::Whole:
        return TAL_STATUS_SUCCESS;
    case XmlResult::NoMemory:
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    case XmlResult::Malformed:
        break;
    }
    return TAL_STATUS_INVALID_REQUEST;
}

TALSTATUS ReadDepth(IKestIO_5* io, Depth& depth, bool& withoutRoot)
{
    std::string_view text;
    if (const TALSTATUS status = ReadHeader(io, "Depth", text); Failed(status))
        return status;
    depth = Depth::Infinity;
    if (!text.data())
        return TAL_STATUS_SUCCESS;
    const std::string_view value = TakeElement(text);
    if (value == "0")
        depth = Depth::Zero;
    else if (value == "1")
        depth = Depth::One;
    else if (!EqualsIgnoringCase(value, "infinity"))
        return TAL_STATUS_INVALID_REQUEST;
    if (EqualsIgnoringCase(Trimmed(text), "noroot"))
        withoutRoot = true;
    return TAL_STATUS_SUCCESS;
}

namespace {

constinit PropFindBodyCache g_bodyCache;

// Takes over what a known body asks for: names stand as namespace and local name, each with a
// terminator. False when it is not known, or memory is short.
bool Recall(std::string_view body, PropFindRequest& request)
{
    CachedPropFind known;
    if (!g_bodyCache.Recall(body, known))
        return false;
    request.kind = static_cast<PropFindRequest::Kind>(known.flags);
    request.live = known.liveProperties;
    for (const char* text = known.names; text != known.names + known.nameBytes;) {
        const std::string_view space(text);
        const std::string_view local(text + space.size() + 1);
        if (!Keep(request, {space, local}))
            return false;
        text = local.data() + local.size() + 1;
    }
    return true;
}

// Keeps a body that has been read, unless it names more than is kept.
void Remember(std::string_view body, const PropFindRequest& request)
{
    CachedPropFind known;
    known.flags = static_cast<UINT32>(request.kind);
    known.liveProperties = request.live;
    for (const PropFindRequest::Name& each : request.dead) {
        const XmlName name = request.NameOf(each);
        for (const std::string_view text : {name.space, name.local}) {
            if (text.size() + 1 > kCachedNameBytes - known.nameBytes)
                return;
            std::memcpy(known.names + known.nameBytes, text.data(), text.size());
            known.names[known.nameBytes + text.size()] = '\0';
            known.nameBytes += static_cast<UINT32>(text.size() + 1);
        }
    }
    g_bodyCache.Remember(body, known);
}

// Reads the body, or knows it.
TALSTATUS ReadPropFindBody(std::string_view body, PropFindRequest& request)
{
    if (Recall(body, request))
        return TAL_STATUS_SUCCESS;
    PropFindReader handler(request);
    const XmlResult result = XmlReader(handler).Read(body);
    if (request.dead.HasFailed() || request.names.HasFailed())
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    if (result == XmlResult::Whole)
        Remember(body, request);
    return StatusOf(result);
}

} // namespace

TALSTATUS ReadPropFind(IKestIO_5* io, PropFindRequest& request)
{
    if (const TALSTATUS status = ReadPreferences(io, request.preferences); Failed(status))
        return status;
    if (const TALSTATUS status = ReadDepth(io, request.depth, request.preferences.withoutRoot);
        Failed(status))
        return status;
    XmlBodyText body;
    if (const TALSTATUS status = ReadBody(io, body); Failed(status))
        return status;
    if (body.size != 0)
        if (const TALSTATUS status = ReadPropFindBody(body.Text(), request); Failed(status))
            return status;
    if (request.kind != PropFindRequest::Kind::Named)
        request.live |= kLiveAll;
    // RFC 4331 section 2 keeps the quota out of "allprop", for what it may cost. Clients that send
    // no body at all, to learn of one folder, know no other way to ask how much room there is.
    if (body.size == 0 && request.depth == Depth::Zero)
        request.live |= kLiveQuotaAvailable | kLiveQuotaUsed;
    return TAL_STATUS_SUCCESS;
}

} // namespace standard
