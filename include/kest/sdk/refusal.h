// SPDX-License-Identifier: Apache-2.0
//
// What a failure is in HTTP, and what stands in the body of a refusal that has nothing of its own
// to say: a sentence for programs and their logs, a page with a way back for people. Both are
// bounded, and nothing in them comes from the request: nothing has to be escaped.
#pragma once

#include <kest/status.h>
#include <kest/types.h>

namespace kest {

inline constexpr char kRefusalLineType[] = "text/plain; charset=utf-8";
inline constexpr char kRefusalPageType[] = "text/html; charset=utf-8";

// The HTTP status of a failure of a component, 400 or above. Unlike MapTalStatusToHttpStatus, which
// the classic dialect answers with: what is the system's fault and not the request's is 500 and no
// 417, which clients take for their own mistake; what may be over soon (memory, descriptors, a
// database in use) is 503; 507 is a full disk alone. What is no failure at all is 500, too: nothing
// may be told as a success here.
constexpr HTTPSTATUS HttpStatusOfFailure(TALSTATUS failure) noexcept
{
    switch (Code(failure)) {
    case kCodeInsufficientResources:
    case kCodeTimeout:
        return 503;
    default:
        break;
    }
    constexpr HTTPSTATUS kUnspecific = 417; // what the general mapping says of everything else
    const auto http = static_cast<HTTPSTATUS>(MapTalStatusToHttpStatus(failure));
    return http < 400 || http == kUnspecific ? 500 : http;
}

// One sentence for an HTTP status of 400 and above.
constexpr const char* RefusalSentence(HTTPSTATUS http) noexcept
{
    switch (http) {
    case 400:
        return "The request was not understood.";
    case 401:
        return "You have to sign in to see this.";
    case 403:
        return "You may not do this here.";
    case 404:
        return "There is nothing under this name.";
    case 405:
        return "This cannot be done with what is here.";
    case 408:
        return "What was sent did not arrive in time. Try again.";
    case 409:
        return "It does not fit what is here: a folder is missing, or something stands in the way.";
    case 412:
        return "It has been changed meanwhile, or a condition of the request does not hold.";
    case 413:
        return "What was sent is too large for this server.";
    case 414:
        return "The name is too long.";
    case 415:
        return "What was sent is of a kind that is not taken here.";
    case 416:
        return "The file does not reach that far.";
    case 421:
        return "This server does not answer for that host.";
    case 423:
        return "It is locked.";
    case 429:
        return "There were too many attempts. Try again later.";
    case 501:
        return "The server does not do this.";
    case 502:
        return "The destination is not on this server.";
    case 503:
        return "The server is busy. Try again in a moment.";
    case 507:
        return "There is no space left.";
    default:
        return http >= 500 ? "The server could not do this." : "The request was refused.";
    }
}

// Not with 416: some clients that go on with a download write what comes behind what they have.
constexpr bool HasRefusalLine(HTTPSTATUS http) noexcept
{
    return http >= 400 && http != 416;
}

// Hands the line to `put(const char*)`, piece by piece.
template <class Put> void PutRefusalLine(HTTPSTATUS http, Put put)
{
    put(RefusalSentence(http));
    put("\n");
}

// Hands the page to `put(const char*)`. `code` is the status as text. The links are relative, so
// that they hold behind any proxy.
template <class Put> void PutRefusalPage(HTTPSTATUS http, const char* code, Put put)
{
    put("<!DOCTYPE html>\n<html lang=\"en\">\n<head><meta charset=\"utf-8\"><title>");
    put(code);
    put("</title></head>\n<body>\n<h1>");
    put(RefusalSentence(http));
    put("</h1>\n<p>Status ");
    put(code);
    put(". <a href=\".\">Back to the folder</a> <a href=\"..\">One folder up</a></p>\n"
        "</body>\n</html>\n");
}

} // namespace kest
