// SPDX-License-Identifier: Apache-2.0
//
// Which replies are coded, and for whom.
#include "host/pipeline/compression.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "base/ascii.h"
#include "host/config/settings_holder.h"
#include "host/http/content_coding.h"

namespace kestd {

namespace {

// Besides text/… and …+xml.
constexpr std::string_view kTypes[] = {"application/xml", "application/json",
                                       "application/javascript"};

bool IsText(std::string_view type) noexcept
{
    type = base::Trimmed(type.substr(0, type.find(';')));
    constexpr std::string_view kText = "text/";
    if (type.size() > kText.size() && base::EqualsIgnoringCase(type.substr(0, kText.size()), kText))
        return true;
    return type.ends_with("+xml") ||
           std::any_of(std::begin(kTypes), std::end(kTypes),
                       [&](std::string_view each) { return base::EqualsIgnoringCase(type, each); });
}

// A page of another site could choose what is asked for and look at the size of the reply: text of
// its choosing beside a secret would tell the secret, letter by letter.
bool IsAskedByOtherSite(Request& request)
{
    const std::string_view* const site = request.FindHeader("Sec-Fetch-Site");
    return site && *site != "same-origin" && *site != "none";
}

} // namespace

void OfferCompression(Exchange& exchange)
{
    Response& response = exchange.response;
    const std::string_view* const type = response.FindHeader("Content-Type");
    if (!exchange.settings->server.compression || !type || !IsText(*type) ||
        response.FindHeader("Content-Encoding") || response.FindHeader("Content-Range"))
        return;
    Request& request = exchange.request;
    const std::string_view* const accepted = request.FindHeader("Accept-Encoding");
    ContentCoding coding = accepted ? ChooseCoding(*accepted) : ContentCoding::Identity;
    if (coding != ContentCoding::Identity && IsAskedByOtherSite(request))
        coding = ContentCoding::Identity;
    // A cache keeps replies to these two only.
    const bool isKept = request.method == KestMethodGet || request.method == KestMethodHead;
    if (isKept || coding != ContentCoding::Identity) {
        const std::string_view* const vary = response.FindHeader("Vary");
        response.SetHeader("Vary", vary ? std::string(*vary) + ", Accept-Encoding"
                                        : std::string("Accept-Encoding"));
    }
    response.SetCoding(coding);
}

void Compression::OnReplyHead(Exchange& exchange, int status) const
{
    const Response& response = exchange.response;
    if (status == 206 || status == 304 || status == 416 || response.FindHeader("ETag"))
        return;
    OfferCompression(exchange);
}

} // namespace kestd
