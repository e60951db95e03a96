// SPDX-License-Identifier: Apache-2.0
#include "host/http/forwarded.h"

#include <string>

#include <gtest/gtest.h>

namespace kestd {
namespace {

// "for|host|proto" of each hop.
std::string Hops(const std::string& value)
{
    std::vector<ForwardedHop> hops;
    if (!ParseForwarded(value, hops))
        return "malformed";
    std::string text;
    for (const ForwardedHop& hop : hops)
        text += (text.empty() ? "" : " ") + (hop.client ? FormatIpAddress(*hop.client) : "-") +
                "|" + hop.host + "|" + hop.scheme;
    return text;
}

TEST(Forwarded, IsTakenApart)
{
    const struct {
        const char* value;
        const char* hops;
    } kRows[] = {
        // RFC 7239 sections 4, 5.2 and 7.1
        {"for=\"_gazonk\"", "-||"},
        {"For=\"[2001:db8:cafe::17]:4711\"", "2001:db8:cafe::17||"},
        {"for=192.0.2.60;proto=http;by=203.0.113.43", "192.0.2.60||http"},
        {"for=192.0.2.43, for=198.51.100.17", "192.0.2.43|| 198.51.100.17||"},
        {"for=_hidden, for=_SEVKISEK", "-|| -||"},
        {"for=192.0.2.43,for=\"[2001:db8:cafe::17]\",for=unknown",
         "192.0.2.43|| 2001:db8:cafe::17|| -||"},
        // the grammar's corners
        {"for=\"192.0.2.1:80\"", "192.0.2.1||"},
        {"for=\"192.0.2.1:_port\"", "192.0.2.1||"},
        {"for=\"unknown:80\";by=_x", "-||"},
        {"FOR=UNKNOWN;PROTO=HTTPS;HOST=Example.Org", "-|Example.Org|HTTPS"},
        {"host=\"example.org:8443\";proto=https", "-|example.org:8443|https"},
        {"host=\"[::1]:80\"", "-|[::1]:80|"},
        {"for=\"1\\92.0.2.\\1\"", "192.0.2.1||"},
        {"secret=\"a,b;for=9.9.9.9\\\"\";for=192.0.2.1", "192.0.2.1||"},
        {"secret=\"\";for=192.0.2.1;", "192.0.2.1||"},
        {";;for=192.0.2.1;;proto=http", "192.0.2.1||http"},
        {" , for=192.0.2.1\t , ,", "192.0.2.1||"},
        {";", "-||"},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(Hops(row.value), row.hops) << row.value;
}

TEST(Forwarded, WhatIsMalformedIsNoneAtAll)
{
    for (const char* value :
         {"",
          " ",
          ",",
          "for",
          "for=",
          "=1.2.3.4",
          "for =1.2.3.4",
          "for= 1.2.3.4",
          "for=1.2.3.4 ;proto=http",
          "for=1.2.3.4; proto=http",
          "for=1.2.3.4 proto=http",
          "for=1.2.3.4;for=1.2.3.4",
          "for=1.2.3.4;By=_a;by=_b",
          "a=1;A=2",
          "for=1.2.3.4:80",
          "for=[::1]",
          "for=\"::1\"",
          "for=\"[::1\"",
          "for=\"[::1]x\"",
          "for=\"[::1]:\"",
          "for=\"[1.2.3.4]\"",
          "for=\"[]\"",
          "for=\"[\"",
          "for=\"1.2.3.4:\"",
          "for=\"1.2.3.4:99999\"",
          "for=\"1.2.3.4:_\"",
          "for=\"1.2.3.4:8x\"",
          "for=\"\"",
          "for=1.2.3",
          "for=name",
          "for=_",
          "for=\"_a b\"",
          "by=name",
          "host=\"a b\"",
          "host=\"\"",
          "host=\"a:b\"",
          "proto=\"ht tp\"",
          "proto=1http",
          "proto=\"\"",
          "for=\"1.2.3.4",
          "for=\"1.2.3.4\\",
          "for=\"1.2.3.4\"x",
          "secret=\"\x01\"",
          "secret=\"a\x7f\"",
          "for=1.2.3.4,for",
          "a=1;b=1;c=1;d=1;e=1;f=1;g=1;h=1;i=1;j=1;k=1;l=1;m=1;n=1;o=1;p=1;q=1"})
        EXPECT_EQ(Hops(value), "malformed") << value;
}

TEST(Forwarded, EveryBeginningIsReadWithoutHarm)
{
    const std::string whole =
        "for=\"[2001:db8::17]:4711\";by=_a;host=\"a\\b.c\";proto=https, for=unknown;x=\"\\\"\"";
    EXPECT_EQ(Hops(whole), "2001:db8::17|ab.c|https -||");
    for (size_t size = 0; size < whole.size(); ++size)
        (void)Hops(std::string(whole.data(), size)); // of its own, so that a sanitizer sees its end
}

TEST(ForwardedAddresses, OfXForwardedFor)
{
    const struct {
        const char* text;
        const char* address;
    } kRows[] = {
        {"192.0.2.1", "192.0.2.1"},
        {"192.0.2.1:4711", "192.0.2.1"},
        {"2001:db8::1", "2001:db8::1"},
        {"[2001:db8::1]", "2001:db8::1"},
        {"[2001:db8::1]:80", "2001:db8::1"},
        {"::ffff:192.0.2.1", "192.0.2.1"},
        {"unknown", "-"},
        {"_hidden", "-"},
        {"", "-"},
        {"\"192.0.2.1\"", "-"},
        {"192.0.2.1:", "-"},
        {"example.org", "-"},
        {"[::1", "-"},
    };
    for (const auto& row : kRows) {
        const auto address = ParseForwardedAddress(row.text);
        EXPECT_EQ(address ? FormatIpAddress(*address) : "-", row.address) << row.text;
    }
}

} // namespace
} // namespace kestd
