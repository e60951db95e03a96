// SPDX-License-Identifier: Apache-2.0
//
// How a lock is told.
#include "standard/lock_element.h"

#include "standard/tree_path.h"
#include "standard/xml_elements.h"
#include "support/failure_report.h"
#include "support/globals.h"
#include "support/time_units.h"

namespace standard {

namespace {

// Hears that a text is well-formed.
class AnyElements final : public XmlHandler {
  public:
    bool OnStart(XmlReader&, const XmlName&, unsigned) override { return true; }
    bool OnEnd(XmlReader&, const XmlName&, unsigned) override { return true; }
};

bool IsMarkup(std::string_view text)
{
    GrowingText document;
    if (!document.Put("<o xmlns:D=\"DAV:\">") || !document.Put(text) || !document.Put("</o>"))
        return false;
    AnyElements handler;
    return XmlReader(handler).Read(document.Text()) == XmlResult::Whole;
}

// The owner as it was sent. What another dialect or another program has left there may be text that
// only looks like markup.
void PutOwner(ReplyWriter& out, std::string_view owner, std::string_view markup)
{
    if (owner.empty())
        return;
    out.Put("<D:owner>");
    if (owner == markup || owner.find_first_of("<&>\r\xEF") == std::string_view::npos ||
        IsMarkup(owner))
        out.Put(owner);
    else
        out.PutText(owner);
    out.Put("</D:owner>");
}

void PutTimeout(ReplyWriter& out, INT64 timeout)
{
    if (timeout == -1) {
        out.Put("Infinite");
        return;
    }
    // To the nearest second: a lock that has just been granted for an hour says so.
    constexpr INT64 kHalf = kUnitsPerSecond / 2;
    const INT64 seconds = timeout / kUnitsPerSecond + (timeout % kUnitsPerSecond >= kHalf ? 1 : 0);
    out.Put("Second-");
    out.PutNumber(static_cast<UINT64>(timeout < 0 ? 0 : seconds));
}

} // namespace

void PutHref(ReplyWriter& out, std::string_view path, bool isCollection)
{
    const STRING moniker = g_MonikerS; // once: an event may change it meanwhile
    out.PutPath({moniker.Buffer, moniker.Length});
    if (path != "/")
        out.PutPath(path);
    if (isCollection)
        out.Put("/");
}

void PutHrefElement(ReplyWriter& out, const UNICODE_STRING& path, bool isCollection)
{
    TreePath text;
    out.Put("<D:href>");
    if (!Failed(text.Set(path)))
        PutHref(out, text.Text(), isCollection);
    out.Put("</D:href>");
}

void PutLock(ReplyWriter& out, const DAV_LOCK_INFO_3& lock, std::string_view path,
             bool isCollection, std::string_view markup)
{
    const char* const text = VariableText(lock, offsetof(DAV_LOCK_INFO_3, Text));
    const std::string_view token(text, lock.TokenLength);
    const std::string_view owner(text + lock.TokenLength, lock.OwnerLength);
    const std::string_view root(text + lock.TokenLength + lock.OwnerLength, lock.RootLength);
    out.Put("<D:activelock><D:locktype>");
    out.Put(lock.Type == Write ? "<D:write/>" : "<D:read/>");
    out.Put("</D:locktype><D:lockscope>");
    out.Put(lock.Scope == Shared ? "<D:shared/>" : "<D:exclusive/>");
    out.Put("</D:lockscope><D:depth>");
    out.Put(lock.Depth == 0 ? "0" : "infinity");
    out.Put("</D:depth>");
    PutOwner(out, owner, markup);
    out.Put("<D:timeout>");
    PutTimeout(out, lock.Timeout);
    out.Put("</D:timeout><D:locktoken><D:href>opaquelocktoken:");
    out.PutText(token);
    out.Put("</D:href></D:locktoken><D:lockroot><D:href>");
    PutHref(out, root, isCollection || root.size() < path.size());
    out.Put("</D:href></D:lockroot></D:activelock>");
}

void PutLocks(ReplyWriter& out, IKestDAV3& provider, SCHANDLE session, UNICODE_STRING* wide,
              std::string_view path, bool isCollection)
{
    RecordBuffer buffer;
    UINT64 place = 0;
    const TALSTATUS status = ForEachRecord<DAV_LOCK_INFO_3>(
        buffer,
        [&](UINT32* size, DAV_LOCK_INFO_3* records) {
            return provider.GetLocks(session, wide, &place, size, records);
        },
        [&](const DAV_LOCK_INFO_3& lock, UINT32 room) {
            if (IsWhole(lock, room))
                PutLock(out, lock, path, isCollection);
            return !out.HasFailed();
        });
    if (Failed(status))
        ReportFailure(status);
}

} // namespace standard
