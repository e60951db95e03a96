// SPDX-License-Identifier: Apache-2.0
//
// Texts for refusals.
#include "host/pipeline/error_page.h"

#include <string>

#include "base/ascii.h"
#include <kest/sdk/refusal.h>

namespace kestd {

namespace {

constexpr std::string_view kHtml = "text/html";

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

void ShowPage(Response& response)
{
    const HTTPSTATUS status = response.Status();
    std::string page;
    kest::PutRefusalPage(status, std::to_string(status).c_str(),
                         [&page](const char* text) { page.append(text); });
    if (!response.ReplaceBody(kest::kRefusalPageType, page))
        return;
    response.AddLateHeader("Cache-Control", "no-store");
    response.AddLateHeader("X-Content-Type-Options", "nosniff");
    response.AddLateHeader("Content-Security-Policy", "default-src 'none'; frame-ancestors 'self'");
}

void TellProgram(Response& response)
{
    const HTTPSTATUS status = response.Status();
    if (!response.IsBodyEmpty() || !kest::HasRefusalLine(status))
        return;
    std::string line;
    kest::PutRefusalLine(status, [&line](const char* text) { line.append(text); });
    (void)response.ReplaceBody(kest::kRefusalLineType, line);
}

} // namespace

void ShowErrorPage(Exchange& exchange)
{
    Response& response = exchange.response;
    if (response.Status() < 400 || response.HeadersSent())
        return;
    if (!IsSeen(exchange)) {
        if (exchange.request.method != KestMethodHead)
            TellProgram(response);
    } else if (!HasPage(exchange)) {
        ShowPage(response);
    }
}

} // namespace kestd
