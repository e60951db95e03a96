// SPDX-License-Identifier: Apache-2.0
//
// Reading what a LOCK asks for.
#include "standard/lock_request.h"

#include <algorithm>

#include "standard/propfind_request.h"
#include "standard/request_headers.h"
#include "standard/scan.h"
#include "support/time_units.h"

namespace standard {

namespace {

class LockInfoReader final : public XmlHandler {
  public:
    explicit LockInfoReader(LockRequest& request) : request_(request) {}

    bool OnStart(XmlReader& reader, const XmlName& name, unsigned depth) override
    {
        if (depth == 0)
            return name.IsDav("lockinfo");
        if (depth == 1) {
            isScope_ = name.IsDav("lockscope");
            isType_ = name.IsDav("locktype");
            isOwner_ = name.IsDav("owner");
            if (isOwner_)
                reader.Take(Capture::Content);
        } else if (depth == 2 && isScope_) {
            return OnScope(name);
        } else if (depth == 2 && isType_) {
            hasType_ = name.IsDav("write"); // the only type that there is
            return hasType_;
        }
        return true;
    }
    bool OnEnd(XmlReader& reader, const XmlName&, unsigned depth) override
    {
        if (depth == 1 && isOwner_) {
            request_.owner.Cut(0);
            return reader.Taken().size() <= kMostOwnerBytes && request_.owner.Put(reader.Taken());
        }
        return depth != 0 || (hasScope_ && hasType_);
    }

  private:
    bool OnScope(const XmlName& name)
    {
        if (!name.IsDav("exclusive") && !name.IsDav("shared"))
            return false;
        request_.wanted.Scope = name.IsDav("shared") ? Shared : Exclusive;
        hasScope_ = true;
        return true;
    }

    LockRequest& request_;
    bool isScope_ = false;
    bool isType_ = false;
    bool isOwner_ = false;
    bool hasScope_ = false;
    bool hasType_ = false;
};

} // namespace

INT64 ReadTimeout(std::string_view header) noexcept
{
    while (!header.empty()) {
        std::string_view form = TakeElement(header);
        if (EqualsIgnoringCase(form, "Infinite"))
            return kLongestLockSeconds;
        UINT64 seconds = 0;
        if (Take(form, "Second-") && TakeNumber(form, seconds) && form.empty() && seconds != 0)
            return static_cast<INT64>(std::min(seconds, static_cast<UINT64>(kLongestLockSeconds)));
    }
    return kDefaultLockSeconds;
}

TALSTATUS ReadLock(IKestIO_5* io, LockRequest& request)
{
    Depth depth = Depth::Infinity;
    bool ignored = false;
    if (const TALSTATUS status = ReadDepth(io, depth, ignored); Failed(status))
        return status;
    if (depth == Depth::One) // RFC 4918 section 9.10.3
        return TAL_STATUS_INVALID_REQUEST;
    std::string_view timeout;
    if (const TALSTATUS status = ReadHeader(io, "Timeout", timeout); Failed(status))
        return status;
    request.wanted.Size = sizeof request.wanted;
    request.wanted.Type = Write;
    request.wanted.Depth = depth == Depth::Zero ? 0 : -1;
    request.wanted.Timeout = ReadTimeout(timeout) * kUnitsPerSecond;

    XmlBodyText body;
    if (const TALSTATUS status = ReadBody(io, body); Failed(status))
        return status;
    request.isRefresh = body.size == 0;
    if (request.isRefresh)
        return TAL_STATUS_SUCCESS;
    LockInfoReader handler(request);
    XmlReader reader(handler);
    const XmlResult result = reader.Read(body.Text());
    if (request.owner.HasFailed())
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    request.wanted.Owner = {request.owner.data(), static_cast<UINT32>(request.owner.size())};
    return StatusOf(result);
}

} // namespace standard
