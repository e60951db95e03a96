// SPDX-License-Identifier: Apache-2.0
//
// Refusals: "DAV:error" for programs, a page for people.
#include "standard/answer.h"

#include <cstring>

#include "standard/number_text.h"
#include "support/reply.h"

namespace standard {

namespace {

constexpr HTTPSTATUS kUnspecific = 417; // what the general mapping says of everything else

struct Sentence {
    HTTPSTATUS http;
    const char* text;
};
constexpr Sentence kSentences[] = {
    {400, "The request was not understood."},
    {403, "You may not do this here."},
    {404, "There is nothing under this name."},
    {405, "This cannot be done with what is here."},
    {409, "The folder that this belongs to does not exist."},
    {412, "It has been changed meanwhile, or a condition of the request does not hold."},
    {413, "The request's body is too long."},
    {414, "The name is too long."},
    {415, "The request's body is of a kind that is not taken here."},
    {416, "The file does not reach that far."},
    {423, "It is locked."},
    {501, "The server does not do this."},
    {502, "The destination is not on this server."},
    {503, "The server is busy. Try again in a moment."},
    {507, "There is no space left."},
};

const char* SentenceOf(HTTPSTATUS http) noexcept
{
    for (const Sentence& each : kSentences)
        if (each.http == http)
            return each.text;
    return http >= 500 ? "The server could not do this." : "The request was refused.";
}

bool IsBrowser(IKestIO_5* io)
{
    UINT32 kind = 0;
    return !Failed(io->GetUserAgent(&kind)) && kind == 1;
}

// The page says nothing that comes from the request: nothing in it has to be escaped.
void SendPage(IKestIO_5* io, HTTPSTATUS http)
{
    SetHeader(io, "Content-Type", "text/html; charset=utf-8");
    SetHeader(io, "Cache-Control", "no-store");
    SetHeader(io, "Content-Length", "");
    (void)io->SendHeader(http);
    Put(io, "<!DOCTYPE html>\n<html lang=\"en\">\n<head><meta charset=\"utf-8\"><title>");
    Put(io, Decimal(static_cast<UINT64>(http)).Text());
    Put(io, "</title></head>\n<body>\n<h1>");
    Put(io, SentenceOf(http));
    Put(io, "</h1>\n<p>Status ");
    Put(io, Decimal(static_cast<UINT64>(http)).Text());
    Put(io, ". <a href=\".\">Back to the folder</a> <a href=\"..\">One folder up</a></p>\n"
            "</body>\n</html>\n");
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

HTTPSTATUS HttpStatusOf(TALSTATUS status) noexcept
{
    switch (Code(status)) {
    case kCodeInsufficientResources:
    case kCodeTimeout:
        return 503;
    case kCodeUnsuccessful:
        return 500;
    default:
        break;
    }
    const auto http = static_cast<HTTPSTATUS>(MapTalStatusToHttpStatus(status));
    return http < 400 || http == kUnspecific ? 500 : http;
}

TALSTATUS Refuse(IKestIO_5* io, HTTPSTATUS http, TALSTATUS status, const char* precondition)
{
    if (precondition)
        SendElement(io, http, precondition);
    else if (IsBrowser(io))
        SendPage(io, http);
    else
        return ReplyEmpty(io, http, status);
    return status;
}

TALSTATUS RefuseMapped(IKestIO_5* io, TALSTATUS status)
{
    return Refuse(io, HttpStatusOf(status), status);
}

} // namespace standard
