// SPDX-License-Identifier: Apache-2.0
//
// Collecting failures, and the replies that tell them.
#include "standard/failures.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "standard/answer.h"
#include "standard/number_text.h"
#include "support/failure_report.h"
#include "support/memory.h"
#include "support/reply.h"

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
    void* const memory = pITalpl->TalxAllocPagedMemory(UINT32{sizeof(Entry)} + path->Length);
    if (!memory) { // what stands in the way would be told in part
        ReportFailure(TAL_STATUS_INSUFFICIENT_RESOURCES);
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    }
    auto* const text = reinterpret_cast<WCHAR*>(static_cast<char*>(memory) + sizeof(Entry));
    if (path->Length != 0)
        std::memcpy(text, path->Buffer, path->Length);
    auto* const entry = new (memory) Entry{nullptr, failure, {path->Length, path->Length, text}};
    *end_ = entry;
    end_ = &entry->next;
    ++count_;
    return TAL_STATUS_SUCCESS;
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

// Writes the path of an object as clients ask for it. One that cannot be written is left empty.
void PutHref(IKestIO_5* io, UNICODE_STRING path)
{
    constexpr size_t kMostEscaped = 9; // of a code unit: three bytes
    constexpr size_t kMostBytes = 0xFFFE;
    const size_t room = std::min(path.Length / sizeof(WCHAR) * kMostEscaped + 1, kMostBytes);
    const Paged<char> buffer = AllocPaged<char>(room);
    STRING text = {0, static_cast<UINT16>(room), buffer.get()};
    Put(io, "<D:href>");
    if (buffer && !Failed(g_pIKestUtil->EscapeUnicodeUri(&path, 0, &text))) {
        PutBytes(io, g_MonikerS.Buffer, g_MonikerS.Length);
        PutBytes(io, text.Buffer, text.Length);
    }
    Put(io, "</D:href>");
}

constexpr char kXmlHead[] = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";

void SendXmlHead(IKestIO_5* io, HTTPSTATUS http)
{
    SetHeader(io, "Content-Type", "application/xml; charset=\"utf-8\"");
    SetHeader(io, "Content-Length", "");
    (void)io->SendHeader(http);
    Put(io, kXmlHead);
}

// RFC 4918 section 16, lock-token-submitted: names the locks' roots, and one path at least. Where
// the provider has named none, it is the request's own that needs a token.
TALSTATUS AnswerLocked(IKestIO_5* io, TALSTATUS status, const Failures& failures,
                       const UNICODE_STRING& path)
{
    SendXmlHead(io, 423);
    Put(io, "<D:error xmlns:D=\"DAV:\"><D:lock-token-submitted>");
    if (!failures.First())
        PutHref(io, path);
    for (const Failures::Entry* each = failures.First(); each; each = each->next)
        PutHref(io, each->path);
    Put(io, "</D:lock-token-submitted></D:error>\n");
    return status;
}

void PutTokenMissing(IKestIO_5* io, const UNICODE_STRING& path)
{
    Put(io, "<D:error><D:lock-token-submitted>");
    PutHref(io, path);
    Put(io, "</D:lock-token-submitted></D:error>");
}

TALSTATUS AnswerMembers(IKestIO_5* io, TALSTATUS status, const Failures& failures)
{
    SendXmlHead(io, 207);
    Put(io, "<D:multistatus xmlns:D=\"DAV:\">");
    for (const Failures::Entry* each = failures.First(); each; each = each->next) {
        Put(io, "<D:response>");
        PutHref(io, each->path);
        Put(io, "<D:status>HTTP/1.1 ");
        const HTTPSTATUS http = HttpStatusOf(each->status);
        Put(io, Decimal(static_cast<UINT64>(http)).Text());
        Put(io, http == 423 ? " Locked</D:status>" : " Failed</D:status>");
        if (http == 423)
            PutTokenMissing(io, each->path);
        Put(io, "</D:response>");
    }
    Put(io, "</D:multistatus>\n");
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
    return Code(status) == kCodeLocked ? AnswerLocked(io, status, failures, path)
                                       : RefuseMapped(io, status);
}

} // namespace standard
