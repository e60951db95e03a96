// SPDX-License-Identifier: Apache-2.0
//
// Reading what a PROPFIND asks for.
#include "standard/propfind_request.h"

#include <algorithm>

#include "standard/request_headers.h"
#include "standard/scan.h"

namespace standard {

namespace {

constexpr std::string_view kMicrosoft = "urn:schemas-microsoft-com:";

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
    bool HasFailed() const { return request_.dead.HasFailed() || request_.names.HasFailed(); }

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
        const PropFindRequest::Name kept = {static_cast<UINT32>(request_.names.size()),
                                            static_cast<UINT32>(name.space.size()),
                                            static_cast<UINT32>(name.local.size())};
        return request_.names.Put(name.space) && request_.names.Put(name.local) &&
               request_.dead.Append(kept);
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

// "return=minimal" and "depth-noroot" (RFC 7240, RFC 8144), and what Microsoft's clients send for
// the first.
TALSTATUS ReadPreferences(IKestIO_5* io, PropFindRequest& request)
{
    std::string_view prefer;
    if (const TALSTATUS status = ReadHeader(io, "Prefer", prefer); Failed(status))
        return status;
    while (!prefer.empty()) {
        const std::string_view element = TakeElement(prefer);
        const std::string_view preference = Trimmed(element.substr(0, element.find(';')));
        if (EqualsIgnoringCase(preference, "return=minimal"))
            request.isMinimal = true;
        else if (EqualsIgnoringCase(preference, "depth-noroot"))
            request.withoutRoot = true;
    }
    std::string_view brief;
    const TALSTATUS status = ReadHeader(io, "Brief", brief);
    if (EqualsIgnoringCase(Trimmed(brief), "t"))
        request.isMinimal = true;
    return status;
}

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
    if (Code(io->IsClientPayloadAvailable(&available)) != kCodeSuccess || available == 0)
        return TAL_STATUS_SUCCESS;
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

TALSTATUS ReadPropFind(IKestIO_5* io, PropFindRequest& request)
{
    if (const TALSTATUS status = ReadPreferences(io, request); Failed(status))
        return status;
    if (const TALSTATUS status = ReadDepth(io, request.depth, request.withoutRoot); Failed(status))
        return status;
    XmlBodyText body;
    if (const TALSTATUS status = ReadBody(io, body); Failed(status))
        return status;
    if (body.size != 0) {
        PropFindReader handler(request);
        XmlReader reader(handler);
        const XmlResult result = reader.Read(body.Text());
        if (handler.HasFailed())
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
        if (result != XmlResult::Whole)
            return StatusOf(result);
    }
    if (request.kind != PropFindRequest::Kind::Named)
        request.live |= kLiveAll;
    return TAL_STATUS_SUCCESS;
}

} // namespace standard
