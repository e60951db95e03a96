// SPDX-License-Identifier: Apache-2.0
//
// The three resources of the listener for metrics.
#include "host/metrics/scrape.h"

#include <algorithm>

#include "base/ascii.h"
#include "host/http/quality.h"
#include "host/http/request_head.h"
#include "host/http/status_text.h"

namespace kestd {

namespace {

constexpr std::string_view kPlain = "text/plain; charset=utf-8";
constexpr std::string_view kPrometheus = "text/plain; version=0.0.4; charset=utf-8";
constexpr std::string_view kOpenMetrics =
    "application/openmetrics-text; version=1.0.0; charset=utf-8";

std::string Framed(int status, std::string_view type, std::string_view body, bool isHead)
{
    std::string reply = "HTTP/1.1 " + std::to_string(status) + " ";
    reply.append(ReasonPhrase(status)).append("\r\nContent-Type: ").append(type);
    reply.append("\r\nContent-Length: ").append(std::to_string(body.size()));
    if (status == 405)
        reply.append("\r\nAllow: GET, HEAD");
    reply.append("\r\nVary: Accept\r\nCache-Control: no-store\r\nConnection: close\r\n\r\n");
    return isHead ? reply : reply.append(body);
}

std::string AnswerState(const std::string& wrong, bool isHead)
{
    return Framed(wrong.empty() ? 200 : 503, kPlain, (wrong.empty() ? "ok" : wrong) + "\n", isHead);
}

} // namespace

MetricsFormat FormatFor(std::string_view accept) noexcept
{
    unsigned open = 0;
    unsigned plain = 0;
    WeightedElement element;
    while (NextWeighted(accept, element))
        if (base::EqualsIgnoringCase(element.value, "application/openmetrics-text"))
            open = std::max(open, element.weight);
        else if (base::EqualsIgnoringCase(element.value, "text/plain"))
            plain = std::max(plain, element.weight);
    return open > plain ? MetricsFormat::OpenMetrics : MetricsFormat::Prometheus;
}

std::string ShortScrapeReply(int status)
{
    std::string text = std::to_string(status) + " ";
    return Framed(status, kPlain, text.append(ReasonPhrase(status)).append("\n"), false);
}

std::string AnswerScrape(std::string_view text, MetricsSource& source)
{
    RequestHead head;
    if (const int status = ParseHead(text, head))
        return ShortScrapeReply(status);
    const bool isHead = head.method == "HEAD";
    if (!isHead && head.method != "GET")
        return ShortScrapeReply(405);
    const std::string_view path = head.target.substr(0, head.target.find('?'));
    if (path == "/health")
        return AnswerState(source.WhatIsWrong(), isHead);
    if (path == "/ready")
        return AnswerState(source.WhatIsNotReady(), isHead);
    if (path != "/metrics")
        return ShortScrapeReply(404);
    const Field* const accept = head.Find("Accept");
    const MetricsFormat format = FormatFor(accept ? accept->value : std::string_view());
    return Framed(200, format == MetricsFormat::OpenMetrics ? kOpenMetrics : kPrometheus,
                  source.Metrics(format), isHead);
}

} // namespace kestd
