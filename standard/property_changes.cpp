// SPDX-License-Identifier: Apache-2.0
//
// Reading what a request wants of properties, and telling what came of it.
#include "standard/property_changes.h"

#include <algorithm>

#include "standard/property_value.h"
#include "standard/propfind_response.h"
#include <kest/sdk/refusal.h>

namespace standard {

namespace {

constexpr TALSTATUS kTooMany = MakeStatus(kFacilityModule, kCodeStorageFull);

} // namespace

// Hears of what a resource type holds, and accepts one plain collection.
class PlainCollection final : public XmlHandler {
  public:
    bool OnStart(XmlReader&, const XmlName& name, unsigned depth) override
    {
        return depth == 0 && name.IsDav("collection");
    }
    bool OnEnd(XmlReader&, const XmlName&, unsigned) override { return true; }
};

class PropertyChangesReader final : public XmlHandler {
  public:
    PropertyChangesReader(PropertyChanges& changes, std::string_view root)
        : changes_(changes), root_(root)
    {
    }

    bool OnStart(XmlReader& reader, const XmlName& name, unsigned depth) override
    {
        if (depth == 0)
            return name.IsDav(root_);
        if (depth == 1) {
            isSet_ = name.IsDav("set");
            isRemove_ = name.IsDav("remove"); // anything else is an extension
        } else if (depth == 2) {
            isProp_ = (isSet_ || isRemove_) && name.IsDav("prop");
        } else if (depth == 3 && isProp_) {
            reader.Take(IsLive(name) ? Capture::Content : Capture::Element);
        }
        return true;
    }
    bool OnEnd(XmlReader& reader, const XmlName& name, unsigned depth) override
    {
        return depth != 3 || !isProp_ || Add(name, reader.Taken());
    }

    bool hasTooMany = false;
    bool hasNoMemory = false;

  private:
    bool IsNewType(const XmlName& name) const
    {
        return root_ == "mkcol" && isSet_ && name.IsDav("resourcetype");
    }
    // Whether this says of a new collection what it is in any case (RFC 5689 section 3).
    bool IsItsType(const XmlName& name, std::string_view value)
    {
        if (!IsNewType(name))
            return false;
        PlainCollection handler;
        const XmlResult result = XmlReader(handler).Read(value);
        hasNoMemory = result == XmlResult::NoMemory;
        return result == XmlResult::Whole;
    }
    bool Add(const XmlName& name, std::string_view value)
    {
        if (IsItsType(name, value))
            return true;
        if (hasNoMemory)
            return false;
        if (changes_.items_.size() == kMostPropertyChanges) {
            hasTooMany = true;
            return false;
        }
        PropertyChanges::Item item{};
        item.kind = isSet_ ? kPropertySet : kPropertyRemove;
        if (const LiveChange live = ReadLiveChange(name, value); live.isLive) {
            item.status = IsNewType(name) ? TAL_STATUS_NOT_SUPPORTED
                          : isSet_        ? live.status
                                          : TAL_STATUS_ACCESS_DENIED;
            item.kind = live.kind;
            item.number = live.number;
            value = {};
        } else if (isRemove_) {
            value = {};
        }
        item.at = changes_.texts_.size();
        item.spaceLength = static_cast<UINT32>(name.space.size());
        item.localLength = static_cast<UINT32>(name.local.size());
        item.valueLength = static_cast<UINT32>(value.size());
        return changes_.texts_.Put(name.space) && changes_.texts_.Put(name.local) &&
               changes_.texts_.Put(value) && changes_.items_.Append(item);
    }

    PropertyChanges& changes_;
    const std::string_view root_;
    bool isSet_ = false;
    bool isRemove_ = false;
    bool isProp_ = false;
};

TALSTATUS PropertyChanges::Read(std::string_view body, std::string_view root)
{
    PropertyChangesReader handler(*this, root);
    XmlReader reader(handler);
    const XmlResult result = reader.Read(body);
    if (handler.hasTooMany)
        return kTooMany;
    if (handler.hasNoMemory || texts_.HasFailed() || items_.HasFailed())
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    if (result != XmlResult::Whole)
        return StatusOf(result);
    return MakeRecords() && FindRepeated() ? TAL_STATUS_SUCCESS : TAL_STATUS_INSUFFICIENT_RESOURCES;
}

// The texts move while they are read, and not any more.
bool PropertyChanges::MakeRecords()
{
    for (const Item& item : items_) {
        const char* const text = texts_.data() + item.at;
        DAV_PROPERTY_CHANGE record{};
        record.Size = sizeof record;
        record.Kind = item.kind;
        record.Namespace = {text, item.spaceLength};
        record.Name = {text + item.spaceLength, item.localLength};
        record.Value = {text + item.spaceLength + item.localLength, item.valueLength};
        record.Number = item.number;
        record.Status = item.status;
        if (!records_.Append(record))
            return false;
    }
    return true;
}

namespace {

XmlName NameOf(const DAV_PROPERTY_CHANGE& record)
{
    return {{record.Namespace.Text, record.Namespace.Length},
            {record.Name.Text, record.Name.Length}};
}

} // namespace

// Sorts the records by name, so that a body of many costs no more than it must.
bool PropertyChanges::FindRepeated()
{
    GrowingArray<UINT32> order;
    for (UINT32 i = 0; i < Count(); ++i)
        if (!order.Append(i) || !first_.Append(i) || !told_.Append(i))
            return false;
    const auto compare = [&](UINT32 a, UINT32 b) {
        const XmlName left = NameOf(records_[a]);
        const XmlName right = NameOf(records_[b]);
        const int local = left.local.compare(right.local);
        return local != 0 ? local : left.space.compare(right.space);
    };
    std::sort(order.begin(), order.end(), [&](UINT32 a, UINT32 b) {
        const int sign = compare(a, b);
        return sign != 0 ? sign < 0 : a < b;
    });
    for (size_t i = 1; i < order.size(); ++i)
        if (compare(order[i - 1], order[i]) == 0)
            first_[order[i]] = first_[order[i - 1]];
    return true;
}

void PropertyChanges::ChooseTold()
{
    for (UINT32 i = 0; i < Count(); ++i)
        if (UINT32& told = told_[first_[i]];
            Failed(records_[i].Status) && !Failed(records_[told].Status))
            told = i;
}

bool PropertyChanges::HasFailures() const
{
    return std::any_of(records_.begin(), records_.end(),
                       [](const auto& record) { return Failed(record.Status); });
}

namespace {

// What a change's own failure is in HTTP (RFC 4918 section 9.2.1).
HTTPSTATUS HttpOf(TALSTATUS status)
{
    switch (Code(status)) {
    case kCodeInvalidParameter:
        return 409;
    case kCodeNotImplemented:
    case kCodeNotSupported:
        return 403;
    default:
        return kest::HttpStatusOfFailure(status);
    }
}

std::string_view StatusLine(HTTPSTATUS http)
{
    switch (http) {
    case 200:
        return "HTTP/1.1 200 OK";
    case 403:
        return "HTTP/1.1 403 Forbidden";
    case 409:
        return "HTTP/1.1 409 Conflict";
    case 423:
        return "HTTP/1.1 423 Locked";
    case 424:
        return "HTTP/1.1 424 Failed Dependency";
    case 503:
        return "HTTP/1.1 503 Service Unavailable";
    case 507:
        return "HTTP/1.1 507 Insufficient Storage";
    default:
        return "HTTP/1.1 500 Internal Server Error";
    }
}

} // namespace

void PropertyChanges::PutPropStat(ReplyWriter& out, HTTPSTATUS http, TALSTATUS status,
                                  bool ofSuccess) const
{
    out.Put("<D:propstat><D:prop>");
    for (size_t i = 0; i < records_.size(); ++i) {
        const TALSTATUS own = records_[i].Status;
        if (IsTold(i) && (ofSuccess ? !Failed(own) : Failed(own) && Code(own) == Code(status)))
            PutPropertyName(out, NameOf(records_[i]));
    }
    out.Put("</D:prop><D:status>");
    out.Put(StatusLine(http));
    out.Put("</D:status>");
    if (Code(status) == kCodeNotSupported) // RFC 5689 section 3.3
        out.Put("<D:error><D:valid-resourcetype/></D:error>");
    else if (http == 403)
        out.Put("<D:error><D:cannot-modify-protected-property/></D:error>");
    out.Put("</D:propstat>");
}

void PropertyChanges::PutOutcome(ReplyWriter& out, HTTPSTATUS otherwise)
{
    ChooseTold();
    bool hasOthers = false;
    UINT64 codes = 0; // those told of, below 64; there are no others
    for (size_t i = 0; i < records_.size(); ++i) {
        if (!IsTold(i))
            continue;
        const DAV_PROPERTY_CHANGE& record = records_[i];
        hasOthers = hasOthers || !Failed(record.Status);
        const UINT64 bit = UINT64{1} << (Code(record.Status) & 63);
        if (!Failed(record.Status) || (codes & bit) != 0)
            continue;
        codes |= bit;
        PutPropStat(out, HttpOf(record.Status), record.Status, false);
    }
    if (hasOthers)
        PutPropStat(out, otherwise, TAL_STATUS_SUCCESS, true);
}

} // namespace standard
