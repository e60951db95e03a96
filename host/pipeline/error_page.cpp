// SPDX-License-Identifier: Apache-2.0
//
// Pages for refusals.
#include "host/pipeline/error_page.h"

#include <string>

#include "base/ascii.h"
#include "host/http/status_text.h"

namespace kestd {

namespace {

constexpr std::string_view kHtml = "text/html";

struct Sentence {
    int status;
    std::string_view text;
};
constexpr Sentence kSentences[] = {
    {400, "The request was not understood."},
    {401, "You have to sign in to see this."},
    {403, "You may not do this here."},
    {404, "There is nothing under this name."},
    {405, "This cannot be done with what is here."},
    {408, "The upload took too long. Try again."},
    {409, "The folder that this belongs to does not exist."},
    {412, "It has been changed meanwhile. Load the folder again."},
    {413, "The file is too large for this server."},
    {415, "This kind of form is not taken here."},
    {416, "The file does not reach that far."},
    {423, "It is locked."},
    {429, "There were too many attempts. Try again later."},
    {501, "The server does not do this."},
    {502, "The destination is not on this server."},
    {503, "The server is busy. Try again in a moment."},
    {507, "There is no space left."},
};

std::string_view SentenceOf(int status) noexcept
{
    for (const Sentence& each : kSentences)
        if (each.status == status)
            return each.text;
    return status >= 500 ? "The server could not do this." : "The request was refused.";
}

// Nothing in it comes from the request: nothing has to be escaped. The links are relative, so that
// they hold behind any proxy.
std::string PageOf(int status)
{
    const std::string code = std::to_string(status);
    std::string page = "<!DOCTYPE html>\n<html lang=\"en\">\n<head><meta charset=\"utf-8\"><title>";
    page.append(code).append(" ").append(ReasonPhrase(status));
    page.append("</title></head>\n<body>\n<h1>").append(SentenceOf(status));
    page.append("</h1>\n<p>Status ").append(code);
    page.append(". <a href=\".\">Back to the folder</a> <a href=\"..\">One folder up</a></p>\n"
                "</body>\n</html>\n");
    return page;
}

bool IsSeen(Exchange& exchange)
{
    const UINT32 method = exchange.request.method;
    return (method == KestMethodGet || method == KestMethodHead || method == KestMethodPost) &&
           exchange.request.Header("Accept").find(kHtml) != std::string_view::npos;
}

// A reply to HEAD has no body to tell by.
bool HasPage(Exchange& exchange)
{
    const std::string_view* type = exchange.response.FindHeader("Content-Type");
    const bool hasBody =
        exchange.request.method == KestMethodHead || !exchange.response.IsBodyEmpty();
    return type && hasBody && base::EqualsIgnoringCase(type->substr(0, kHtml.size()), kHtml);
}

} // namespace

void ShowErrorPage(Exchange& exchange)
{
    Response& response = exchange.response;
    const int status = response.Status();
    if (status < 400 || response.HeadersSent() || !IsSeen(exchange) || HasPage(exchange))
        return;
    if (!response.ReplaceBody("text/html; charset=utf-8", PageOf(status)))
        return;
    response.AddLateHeader("Cache-Control", "no-store");
    response.AddLateHeader("X-Content-Type-Options", "nosniff");
    response.AddLateHeader("Content-Security-Policy", "default-src 'none'; frame-ancestors 'self'");
}

} // namespace kestd
