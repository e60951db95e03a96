// SPDX-License-Identifier: Apache-2.0
//
// GET and HEAD: content by ranges and under conditions (RFC 9110 sections 9.3.1, 13 and 14).
#include <cstring>

#include "standard/allow.h"
#include "standard/answer.h"
#include "standard/byteranges.h"
#include "standard/handlers.h"
#include "standard/if_header.h"
#include "standard/number_text.h"
#include "standard/object.h"
#include "standard/preconditions.h"
#include "standard/request_headers.h"
#include "standard/upload_requests.h"
#include "support/handlers.h"
#include "support/memory.h"
#include "support/provider.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace standard {

namespace {

// Who reads: POST of a form shows what a GET would.
enum class Reading { Get, Head, Post };

// What a GET or HEAD is about.
struct Opened {
    KESTDAV_HANDLER* handler = nullptr;
    Ref<IKestDAVResource3> resource;
    DAV_OBJECT_INFO info = EmptyInfo();
};

// True when the request is for the ".index_xml" document of whatever stands before it.
bool NamesIndex(const UNICODE_STRING& url)
{
    static constexpr WCHAR kSuffix[] = u".index_xml";
    constexpr size_t kSuffixBytes = sizeof kSuffix - sizeof(WCHAR);
    return url.Length >= kSuffixBytes &&
           std::memcmp(url.Buffer + (url.Length - kSuffixBytes) / sizeof(WCHAR), kSuffix,
                       kSuffixBytes) == 0;
}

// Opens what is asked for, by a HEAD as by a GET: it says what a GET would, also of a file that
// cannot be read, and opening costs less than asking for all that a listing shows.
TALSTATUS Open(SCHANDLE session, UNICODE_STRING* path, Opened& opened)
{
    if (const TALSTATUS status = DavUriToHandler(session, path, &opened.handler); Failed(status))
        return status;
    if (!opened.handler->pIKestDav3)
        return TAL_STATUS_SUCCESS; // the caller sees to it
    if (const TALSTATUS status = CreateResource(*opened.handler, opened.resource); Failed(status))
        return status;
    return opened.resource->Open(session, path, kOpenRead, -1, nullptr, nullptr, &opened.info);
}

// Judges the "If" header, which a reading request may have, too (RFC 4918 section 10.4). Requests
// without one ask nobody.
TALSTATUS JudgeIf(SCHANDLE session, UNICODE_STRING* path, IKestIO_5* io, const Opened& opened)
{
    DAV_PRECONDITIONS preconditions{};
    preconditions.Size = sizeof preconditions;
    if (const TALSTATUS status = ReadIf(io, preconditions); Failed(status))
        return status;
    if (preconditions.IfCount == 0)
        return TAL_STATUS_SUCCESS;
    return opened.handler->pIKestDav3->Judge(session, path, &preconditions);
}

// Without templates a collection has no page to show, as on a server that lists none.
TALSTATUS RefuseIndex(IKestIO_5* io)
{
    return Refuse(io, 403, TAL_STATUS_ACCESS_DENIED);
}

// A collection's page, made from the templates. It fails only before it has sent something.
TALSTATUS AnswerIndex(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    SetHeader(io, "Cache-Control", "no-store");
    const bool isXml = NamesIndex(*url); // which the page takes off
    const TALSTATUS status = HTMLIndexRequest(io, session, url);
    if (!Failed(status))
        return status;
    return HasIndexTemplate(io, isXml) ? RefuseMapped(io, status) : RefuseIndex(io);
}

// What GET of a collection would say of its page, which is not made for that.
TALSTATUS AnswerIndexHead(const UNICODE_STRING& url, IKestIO_5* io)
{
    SetHeader(io, "Cache-Control", "no-store");
    if (!HasIndexTemplate(io, NamesIndex(url)))
        return RefuseIndex(io);
    SetHeader(io, "Content-Type", "text/html; charset=\"utf-8\"");
    return Reply(io, 200, TAL_STATUS_SUCCESS);
}

// A collection's page differs from user to user: it has no tag, and is never "not modified". What a
// client says must hold of the collection has to hold all the same (RFC 9110 section 13.2.2).
TALSTATUS AnswerCollection(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io,
                           const Opened& opened, bool isGet)
{
    Conditions conditions;
    if (const TALSTATUS status = ReadConditions(io, true, conditions); Failed(status))
        return RefuseMapped(io, status);
    conditions.noneMatch = {};
    if (Judge(conditions, CurrentOf(opened.info), true) == Verdict::Failed)
        return Refuse(io, 412, TAL_STATUS_SUCCESS);
    return isGet ? AnswerIndex(session, url, io) : AnswerIndexHead(*url, io);
}

const char* MediaType(UNICODE_STRING* path)
{
    char* type = nullptr;
    return !Failed(g_pIKestUtil->GetMimeTypeFromUnicodeObject(path, &type)) && type
               ? type
               : "application/octet-stream";
}

// Which parts of the content are wanted. `set` is filled for Parts.
TALSTATUS ChooseRanges(IKestIO_5* io, const DAV_OBJECT_INFO& info, RangeVerdict& verdict,
                       RangeSet& set)
{
    verdict = RangeVerdict::Whole;
    std::string_view range;
    std::string_view ifRange;
    if (const TALSTATUS status = ReadHeader(io, "Range", range); Failed(status) || !range.data())
        return status;
    if (const TALSTATUS status = ReadHeader(io, "If-Range", ifRange); Failed(status))
        return status;
    if (!ifRange.data() || HoldsIfRange(ifRange, ReadDate(ifRange), CurrentOf(info)))
        verdict = ReadRanges(range, info.ResourceSize, set);
    return TAL_STATUS_SUCCESS;
}

void SendHeadOfWhole(IKestIO_5* io, const Opened& opened, const char* type)
{
    SetHeaderText(io, "Content-Type", type);
    SetHeaderText(io, "Content-Length", Decimal(opened.info.ResourceSize).Text());
    (void)io->SendHeader(200);
}

TALSTATUS SendFile(IKestIO_5* io, Opened& opened, UNICODE_STRING* path)
{
    RangeVerdict verdict = RangeVerdict::Whole;
    RangeSet set;
    if (const TALSTATUS status = ChooseRanges(io, opened.info, verdict, set); Failed(status))
        return RefuseMapped(io, status);
    const UINT64 size = opened.info.ResourceSize;
    const char* const type = MediaType(path);
    if (verdict == RangeVerdict::None) {
        SetUnsatisfied(io, size);
        return Refuse(io, 416, TAL_STATUS_SUCCESS);
    }
    if (verdict == RangeVerdict::Whole) {
        SendHeadOfWhole(io, opened, type);
        return SendBytes(io, *opened.resource.Get(), {0, size});
    }
    SetHeaderText(io, "Content-Type", type);
    if (set.count == 1)
        return SendPart(io, *opened.resource.Get(), set.parts[0], size);
    return SendParts(io, *opened.resource.Get(), set, size, type);
}

// Answers for a file. RFC 9110: ranges are for GET alone (section 14.2), "not modified" for GET and
// HEAD (section 13.1.2), and neither for the page behind a form.
TALSTATUS AnswerFile(IKestIO_5* io, Opened& opened, UNICODE_STRING* path, Reading reading)
{
    Conditions conditions;
    const bool isReading = reading != Reading::Post;
    if (const TALSTATUS status = ReadConditions(io, isReading, conditions); Failed(status))
        return RefuseMapped(io, status);
    const Verdict verdict = Judge(conditions, CurrentOf(opened.info), isReading);
    if (verdict == Verdict::Failed)
        return Refuse(io, 412, TAL_STATUS_SUCCESS);
    SetValidators(io, opened.info);
    // Stored content may be kept, but not shown again without asking, nor by shared caches: it may
    // be for one user only.
    SetHeader(io, "Cache-Control", "private, no-cache");
    SetHeader(io, "Accept-Ranges", "bytes");
    if (verdict == Verdict::NotModified)
        return Reply(io, 304, TAL_STATUS_SUCCESS);
    if (reading == Reading::Get)
        return SendFile(io, opened, path);
    SendHeadOfWhole(io, opened, MediaType(path));
    return reading == Reading::Head
               ? TAL_STATUS_SUCCESS
               : SendBytes(io, *opened.resource.Get(), {0, opened.info.ResourceSize});
}

// What a provider of an older generation serves: its page is told of like any other.
TALSTATUS ReadOlder(SCHANDLE session, UNICODE_STRING* url, UNICODE_STRING* path, IKestIO_5* io,
                    const KESTDAV_HANDLER& handler, ProviderGuard& providers, bool isGet)
{
    DAV_TYPE type = Resource;
    const bool isCollection =
        !Failed(DavNamespace(handler).GetType(session, path, &type)) && type == Collection;
    if (isGet && (isCollection || NamesIndex(*url)))
        return AnswerIndex(session, url, io);
    if (!isGet && (NamesIndex(*url) || (isCollection && !HasIndexTemplate(io, false))))
        return AnswerIndexHead(*url, io);
    providers.Release();
    return isGet ? KestDavGet(session, url, io) : KestDavHead(session, url, io);
}

TALSTATUS ReadRoot(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io, bool isGet)
{
    if (const TALSTATUS status = JudgeRoot(session, io, true); Failed(status))
        return RefuseMapped(io, status);
    return isGet ? AnswerIndex(session, url, io) : AnswerIndexHead(*url, io);
}

TALSTATUS Read(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io, Reading reading)
{
    const bool isGet = reading != Reading::Head;
    ProviderGuard providers; // to the last byte of the reply
    if (IsMonikerRoot(*url))
        return ReadRoot(session, url, io, isGet);
    UNICODE_STRING path = ProviderPath(*url);
    Opened opened;
    const TALSTATUS status = Open(session, &path, opened);
    if (opened.handler && !opened.handler->pIKestDav3)
        return ReadOlder(session, url, &path, io, *opened.handler, providers, isGet);
    if (Code(status) == kCodeNotFound && NamesIndex(*url))
        return isGet ? AnswerIndex(session, url, io) : AnswerIndexHead(*url, io);
    if (Failed(status))
        return RefuseMapped(io, status);
    if (const TALSTATUS judged = JudgeIf(session, &path, io, opened); Failed(judged))
        return RefuseMapped(io, judged);
    if (opened.info.Type == Collection)
        return AnswerCollection(session, url, io, opened, isGet);
    return AnswerFile(io, opened, &path, reading);
}

} // namespace

TALSTATUS Get(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    return Read(session, url, io, Reading::Get);
}

TALSTATUS ShowBehindForm(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    return Read(session, url, io, Reading::Post);
}

TALSTATUS Head(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (UploadResource resource; NamesUpload(session, *url, resource))
        return HeadUpload(session, resource, io);
    return Read(session, url, io, Reading::Head);
}

} // namespace standard
