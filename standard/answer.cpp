// SPDX-License-Identifier: Apache-2.0
//
// Refusals: "DAV:error" or a line for programs, a page for people.
#include "standard/answer.h"

#include "standard/number_text.h"
#include "support/reply.h"
#include <kest/host/methods.h>
#include <kest/sdk/refusal.h>

namespace standard {

namespace {

bool IsBrowser(IKestIO_5* io)
{
    UINT32 kind = 0;
    return !Failed(io->GetUserAgent(&kind)) && kind == 1;
}

bool IsHead(IKestIO_5* io)
{
    UINT32 method = 0;
    return !Failed(io->GetRequestMethod(&method)) && method == KestMethodHead;
}

// A body that the host cannot take is its to tell of: it cuts the reply, or refuses in its own
// words.
void SendPage(IKestIO_5* io, HTTPSTATUS http)
{
    SetHeader(io, "Content-Type", kest::kRefusalPageType);
    SetHeader(io, "Cache-Control", "no-store");
    SetHeader(io, "Content-Length", "");
    (void)io->SendHeader(http);
    if (!IsHead(io))
        kest::PutRefusalPage(http, Decimal(static_cast<UINT64>(http)).Text(),
                             [io](const char* text) { Put(io, text); });
}

void SendLine(IKestIO_5* io, HTTPSTATUS http)
{
    SetHeader(io, "Content-Type", kest::kRefusalLineType);
    SetHeader(io, "Content-Length", "");
    (void)io->SendHeader(http);
    if (!IsHead(io))
        kest::PutRefusalLine(http, [io](const char* text) { Put(io, text); });
}

void SendElement(IKestIO_5* io, HTTPSTATUS http, const char* precondition)
{
    SetHeader(io, "Content-Type", "application/xml; charset=\"utf-8\"");
    SetHeader(io, "Content-Length", "");
    (void)io->SendHeader(http);
    Put(io, "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n<D:error xmlns:D=\"DAV:\"><D:");
    Put(io, precondition);
    Put(io, "/></D:error>\n");
}

} // namespace

TALSTATUS Refuse(IKestIO_5* io, HTTPSTATUS http, TALSTATUS status, const char* precondition)
{
    if (http == 405)
        SetAllowOfRefusal(io);
    if (precondition)
        SendElement(io, http, precondition);
    else if (IsBrowser(io))
        SendPage(io, http);
    else if (kest::HasRefusalLine(http))
        SendLine(io, http);
    else
        return ReplyEmpty(io, http, status);
    return status;
}

TALSTATUS RefuseMapped(IKestIO_5* io, TALSTATUS status)
{
    return Refuse(io, kest::HttpStatusOfFailure(status), status);
}

} // namespace standard
