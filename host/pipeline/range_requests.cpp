// SPDX-License-Identifier: Apache-2.0
//
// Applies a range to the module's reply.
#include "host/pipeline/range_requests.h"

namespace kestd {

namespace {

// Lets the handler find what it is asked for.
void TellHandler(Exchange& exchange)
{
    const std::string_view asked = exchange.range.ForModule();
    if (asked.empty())
        exchange.request.HideHeader("Range");
    else
        exchange.request.SetHeader("Range", asked);
}

} // namespace

Decision RangeRequests::OnRequest(Exchange& exchange) const
{
    Request& request = exchange.request;
    if (request.method == KestMethodPut)
        return request.head.Find("Content-Range") ? Decision::Refuse(400) : Decision::GoOn();
    if (const std::string_view* found = request.FindHeader("Range")) {
        const std::string_view range = *found; // the next look-up may move what was found
        exchange.range.Read(range, request.FindHeader("If-Range"));
        TellHandler(exchange);
    }
    return Decision::GoOn();
}

bool RangeRequests::OnReplyHead(Exchange& exchange, int& status) const
{
    RangeRequest& range = exchange.range;
    Response& response = exchange.response;
    const auto told = [&response](std::string_view name) {
        const std::string_view* value = response.FindHeader(name);
        return value ? *value : std::string_view();
    };
    constexpr size_t kMostDigitsOf32Bits = 9; // fewer than 2^32 bytes in any case
    const std::string_view length = told("Content-Length");
    if (range.IsWhole() && length.size() <= kMostDigitsOf32Bits)
        return true;
    switch (range.Evaluate({status, length, told("Content-Range"), told("Last-Modified")})) {
    case RangeRequest::Action::Send:
        break;
    case RangeRequest::Action::SendPart:
        response.SetHeader("Content-Length", range.ContentLength());
        response.SetHeader("Content-Range", range.ContentRange());
        break;
    case RangeRequest::Action::SendWhole:
        response.RemoveHeader("Content-Range");
        status = 200;
        break;
    case RangeRequest::Action::Unsatisfiable:
        response.SetHeader("Content-Length", "0");
        response.SetHeader("Content-Range", range.ContentRange());
        status = 416;
        break;
    case RangeRequest::Action::Retry:
        response.RemoveHeader("Content-Length");
        response.RemoveHeader("Content-Range");
        TellHandler(exchange);
        return false;
    }
    return true;
}

std::string_view RangeRequests::OnReplyBody(Exchange& exchange, std::string_view piece,
                                            bool& isOver) const
{
    return exchange.range.Cut(piece, isOver);
}

} // namespace kestd
