// SPDX-License-Identifier: Apache-2.0
//
// One check for each method.
#include "host/pipeline/access.h"

#include "base/percent.h"
#include "host/config/settings_holder.h"
#include "host/http/error_status.h"
#include "host/http/short_reply.h"
#include <kest/sdk/refusal.h>

namespace kestd {

namespace {

constexpr std::string_view kXml = "application/xml; charset=\"utf-8\"";
constexpr Rights kKnown = kRightList | kRightRead; // one of these: it exists for the user
constexpr Rights kWriting = kRightCreate | kRightChange;

// Which rights a request lacks on a path. None: it may go on.
struct Lack {
    Rights rights = 0;
    std::string_view path;
    // Refuse with 403 also where the user does not know whether something is there: as is said of
    // what would be new.
    bool isNew = false;
};

// "/VOLUME/.kest/deleted/…": what has been deleted has the rights of where it was, which the
// provider knows.
bool IsDeleted(std::string_view path)
{
    std::string_view name;
    return TakeComponent(path, name) && TakeComponent(path, name) && name == ".kest" &&
           TakeComponent(path, name) && name == "deleted";
}

// "TARGET/.kest/upload/…" is content on its way to the target, and these are about it.
bool IsOfUpload(UINT32 method)
{
    return method == KestMethodHead || method == KestMethodPatch || method == KestMethodDelete;
}

class AccessCheck {
  public:
    AccessCheck(Exchange& exchange, std::string_view path, std::string_view destination)
        : request_(exchange.request), access_(exchange.access), path_(path),
          destination_(destination), isShallow_(exchange.copyMove.depth == 0)
    {
    }

    Lack Of(UINT32 method)
    {
        if (IsOfUpload(method))
            if (const size_t end = path_.find("/.kest/upload/"); end != std::string_view::npos)
                return AnyOf(kWriting, path_.substr(0, end));
        switch (method) {
        case KestMethodOptions:
            return {};
        case KestMethodPut:
        case KestMethodPatch:
            return AnyOf(kWriting, path_);
        case KestMethodMkCol:
            return AnyOf(kRightCreate, path_);
        case KestMethodLock:
            return OfLock();
        case KestMethodPost:
            return OfPost();
        case KestMethodPropPatch:
            return All(kRightChange, access_.At(path_));
        case KestMethodDelete:
            return All(kRightDelete, access_.At(path_) & access_.Below(path_));
        case KestMethodCopy:
            return OfCopy(kRightRead);
        case KestMethodMove:
            return OfCopy(kRightRead | kRightDelete);
        case KestMethodUnlock:
            return AnyOf(kWriting, path_).rights ? All(kRightChange, access_.At(path_)) : Lack{};
        default:
            return access_.At(path_) & kKnown ? Lack{} : Lack{kRightRead, path_};
        }
    }

  private:
    Lack All(Rights needed, Rights held) const { return {needed & ~held, path_}; }
    // For what may come into being.
    Lack AnyOf(Rights sufficient, std::string_view path) const
    {
        if (access_.At(path) & sufficient)
            return {};
        return {sufficient & (~sufficient + 1), path, true}; // the first of them
    }
    // Whether a rule below `path` takes `right` from what could be made or changed there.
    bool IsTakenBelow(Rights right, std::string_view path) const
    {
        bool isUniform = true;
        return (access_.OfMembers(path, isUniform) & right) && !(access_.Below(path) & right);
    }
    Lack OfLock() const
    {
        const std::string_view* depth = request_.FindHeader("Depth");
        if (const Lack lack = AnyOf(kWriting, path_); lack.rights)
            return lack;
        if (!(depth && *depth == "0") && IsTakenBelow(kRightChange, path_))
            return {kRightChange, path_};
        return {};
    }
    // A form makes members; other bodies ask for a page.
    Lack OfPost() const
    {
        bool isUniform = true;
        const Rights members = access_.OfMembers(path_, isUniform);
        const bool mayMake = (members & kWriting) || !isUniform;
        if (!(access_.At(path_) & kKnown) && !mayMake)
            return {kRightRead, path_};
        const std::string_view* type = request_.FindHeader("Content-Type");
        const bool isForm = type && type->starts_with("multipart/");
        return isForm && !mayMake ? Lack{kRightCreate, path_} : Lack{};
    }
    // A deleted source has been judged where it was, by the provider.
    Lack OfCopy(Rights source) const
    {
        if (!IsDeleted(path_)) {
            Rights held = access_.At(path_);
            if (!isShallow_)
                held &= access_.Below(path_);
            if (const Lack lack = All(source, held); lack.rights)
                return lack;
        }
        if (const Lack lack = AnyOf(kWriting, destination_); lack.rights)
            return lack;
        if (!isShallow_ && IsTakenBelow(kRightCreate, destination_))
            return {kRightCreate, destination_, true};
        return {};
    }

    Request& request_;
    RequestAccess& access_;
    const std::string_view path_;
    const std::string_view destination_;
    const bool isShallow_;
};

// The privilege of RFC 3744 section 3 that stands for the first of the rights.
std::string_view PrivilegeOf(Rights rights)
{
    if (rights & (kRightList | kRightRead))
        return "read";
    if (rights & kRightCreate)
        return "bind";
    return rights & kRightChange ? "write-content" : "unbind";
}

} // namespace

std::string_view Access::ProviderPath(std::string_view path) const noexcept
{
    path.remove_prefix(std::min(location_.size(), path.size()));
    return path;
}

Decision Access::OnRequest(Exchange& exchange) const
{
    const AccessRules* const rules = exchange.settings->server.access.get();
    const AccessRules* const limits = exchange.auth.limits.get();
    if (!rules && !limits)
        return Decision::GoOn();
    RequestAccess& access = exchange.access;
    access.Begin(rules, exchange.auth.user, exchange.auth.groups.get(), limits,
                 exchange.settings->version);
    homes_.Provide(exchange);

    const UINT32 method = exchange.request.method;
    std::string_view path = ProviderPath(exchange.request.target.path);
    constexpr std::string_view kIndexSuffix = "/.index_xml"; // another form of a folder's page
    if (path.ends_with(kIndexSuffix))
        path.remove_suffix(kIndexSuffix.size());
    const bool isCopyOrMove = method == KestMethodCopy || method == KestMethodMove;
    const bool isReserved = path.find("/.kest/") != std::string_view::npos;
    if (isReserved && IsDeleted(path) && !isCopyOrMove)
        return Decision::GoOn(); // the provider judges
    const std::string_view destination =
        isCopyOrMove ? ProviderPath(exchange.copyMove.path) : std::string_view();
    const Lack lack = AccessCheck(exchange, path, destination).Of(method);
    if (!lack.rights)
        return Decision::GoOn();
    if (!lack.isNew && !(access.At(lack.path) & kKnown))
        return Decision::Refuse(404);
    if (method == KestMethodGet || method == KestMethodHead)
        return Decision::Refuse(403);
    access.Deny(lack.path, lack.rights);
    SendText(exchange.response, 403, kXml, DenialOf(exchange));
    return Decision::Replied();
}

std::string Access::DenialOf(const Exchange& exchange) const
{
    const RequestAccess& access = exchange.access;
    std::string text = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<D:error xmlns:D=\"DAV:\">"
                       "<D:need-privileges><D:resource><D:href>";
    text.append(base::PercentEncode(location_ + access.DeniedPath()))
        .append("</D:href><D:privilege><D:")
        .append(PrivilegeOf(access.Denied()))
        .append("/></D:privilege></D:resource></D:need-privileges></D:error>\n");
    return text;
}

// In place of nothing, or of the sentence with which the standard dialect refuses.
void Access::OnReplyEnd(Exchange& exchange) const
{
    Response& response = exchange.response;
    if (!exchange.access.Denied() || response.Status() != 403 || response.HeadersSent())
        return;
    const std::string_view* const type = response.FindHeader("Content-Type");
    const bool isSentence = exchange.settings->server.dialect == Dialect::Standard && type &&
                            *type == kest::kRefusalLineType;
    if (response.IsBodyEmpty() || isSentence)
        response.Replace(403, kXml, DenialOf(exchange));
}

} // namespace kestd
