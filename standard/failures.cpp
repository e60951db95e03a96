// SPDX-License-Identifier: Apache-2.0
//
// Collecting failures, and the replies that tell them.
#include "standard/failures.h"

#include <cstring>
#include <new>

#include "standard/answer.h"
#include "standard/lock_element.h"
#include "support/failure_report.h"
#include "support/memory.h"
#include "support/provider.h"
#include "support/reply.h"
#include "support/resolution.h"
#include <kest/sdk/refusal.h>

namespace standard {

Failures::~Failures()
{
    while (Entry* const entry = first_) {
        first_ = entry->next;
        pITalpl->TalxFreeMemory(entry);
    }
}

TALSTATUS Failures::QueryInterface(const GUID* iid, void** out)
{
    if (!iid || !out)
        return TAL_STATUS_INVALID_PARAMETER;
    const bool isKnown = *iid == IID_IUnknown || *iid == IidOf<IKestDAVFailures3>::value;
    *out = isKnown ? static_cast<IKestDAVFailures3*>(this) : nullptr;
    return isKnown ? TAL_STATUS_SUCCESS : TAL_STATUS_NO_INTERFACE;
}

TALSTATUS Failures::OnFailure(UNICODE_STRING* path, TALSTATUS failure)
{
    if (!path || (path->Length != 0 && !path->Buffer))
        return TAL_STATUS_INVALID_PARAMETER;
    if (count_ == kMost)
        return TAL_STATUS_SUCCESS;
    constexpr UINT32 kFixed = sizeof(Entry) + sizeof(WCHAR); // the terminator's
    void* const memory = pITalpl->TalxAllocPagedMemory(kFixed + path->Length);
    if (!memory) { // what stands in the way would be told in part
        ReportFailure(TAL_STATUS_INSUFFICIENT_RESOURCES);
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    }
    auto* const text = reinterpret_cast<WCHAR*>(static_cast<char*>(memory) + sizeof(Entry));
    if (path->Length != 0)
        std::memcpy(text, path->Buffer, path->Length);
    text[path->Length / sizeof(WCHAR)] = 0;
    auto* const entry =
        new (memory) Entry{nullptr, failure, {path->Length, path->Length, text}, false};
    *end_ = entry;
    end_ = &entry->next;
    ++count_;
    return TAL_STATUS_SUCCESS;
}

void Failures::Describe(SCHANDLE session)
{
    for (Entry* each = first_; each; each = each->next) {
        KESTDAV_HANDLER* handler = nullptr;
        DAV_TYPE type = Resource;
        each->isCollection = !Failed(DavUriToHandler(session, &each->path, &handler)) &&
                             !Failed(DavNamespace(*handler).GetType(session, &each->path, &type)) &&
                             type == Collection;
    }
}

TALSTATUS Failures::Described(SCHANDLE session, UNICODE_STRING path, TALSTATUS status)
{
    if (Code(status) == kCodeLocked && !first_)
        (void)OnFailure(&path, status);
    Describe(session);
    return status;
}

namespace {

// A path without the "/" at its end, in bytes.
UINT16 LengthOf(const UNICODE_STRING& path)
{
    const size_t units = path.Length / sizeof(WCHAR);
    const bool ends = units != 0 && path.Buffer[units - 1] == u'/';
    return static_cast<UINT16>((units - (ends ? 1 : 0)) * sizeof(WCHAR));
}

// Whether `path` lies below `tree`.
bool IsBelow(const UNICODE_STRING& path, const UNICODE_STRING& tree)
{
    const UINT16 length = LengthOf(tree);
    return LengthOf(path) > length &&
           (length == 0 || std::memcmp(path.Buffer, tree.Buffer, length) == 0) &&
           path.Buffer[length / sizeof(WCHAR)] == u'/';
}

void SendHead(IKestIO_5* io, HTTPSTATUS http)
{
    SetHeader(io, "Content-Type", "application/xml; charset=\"utf-8\"");
    SetHeader(io, "Content-Length", "");
    (void)io->SendHeader(http);
}

constexpr std::string_view kXml = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

// RFC 4918 section 16, lock-token-submitted: names the locks' roots.
TALSTATUS AnswerLocked(IKestIO_5* io, TALSTATUS status, const Failures& failures)
{
    SendHead(io, 423);
    ReplyWriter out(io);
    out.Put(kXml);
    out.Put("<D:error xmlns:D=\"DAV:\"><D:lock-token-submitted>");
    for (const Failures::Entry* each = failures.First(); each; each = each->next)
        PutHrefElement(out, each->path, each->isCollection);
    out.Put("</D:lock-token-submitted></D:error>\n");
    return status;
}

void PutTokenMissing(ReplyWriter& out, const Failures::Entry& member)
{
    out.Put("<D:error><D:lock-token-submitted>");
    PutHrefElement(out, member.path, member.isCollection);
    out.Put("</D:lock-token-submitted></D:error>");
}

TALSTATUS AnswerMembers(IKestIO_5* io, TALSTATUS status, const Failures& failures)
{
    SendHead(io, 207);
    ReplyWriter out(io);
    out.Put(kXml);
    out.Put("<D:multistatus xmlns:D=\"DAV:\">");
    for (const Failures::Entry* each = failures.First(); each; each = each->next) {
        out.Put("<D:response>");
        PutHrefElement(out, each->path, each->isCollection);
        out.Put("<D:status>HTTP/1.1 ");
        const HTTPSTATUS http = kest::HttpStatusOfFailure(each->status);
        out.PutNumber(static_cast<UINT64>(http));
        out.Put(http == 423 ? " Locked</D:status>" : " Failed</D:status>");
        if (http == 423)
            PutTokenMissing(out, *each);
        out.Put("</D:response>");
    }
    out.Put("</D:multistatus>\n");
    return status;
}

} // namespace

TALSTATUS AnswerFailure(IKestIO_5* io, TALSTATUS status, const Failures& failures,
                        const UNICODE_STRING& path, const UNICODE_STRING* destination)
{
    bool isBelow = false;
    for (const Failures::Entry* each = failures.First(); each; each = each->next)
        isBelow = isBelow || IsBelow(each->path, path) ||
                  (destination && IsBelow(each->path, *destination));
    if (isBelow)
        return AnswerMembers(io, status, failures);
    return Code(status) == kCodeLocked ? AnswerLocked(io, status, failures)
                                       : RefuseMapped(io, status);
}

} // namespace standard
