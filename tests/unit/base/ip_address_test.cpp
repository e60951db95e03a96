// SPDX-License-Identifier: Apache-2.0
#include "base/ip_address.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include <string>

#include <gtest/gtest.h>

namespace base {
namespace {

IpAddress Address(const char* text)
{
    IpAddress address;
    EXPECT_TRUE(ParseIpAddress(text, address)) << text;
    return address;
}

TEST(IpAddresses, AreReadAndWritten)
{
    for (const char* text : {"192.0.2.1", "0.0.0.0", "2001:db8::1", "::", "::1", "fe80::1:2:3:4"})
        EXPECT_EQ(FormatIpAddress(Address(text)), text);
    EXPECT_EQ(FormatIpAddress(Address("::ffff:192.0.2.1")), "192.0.2.1") << "one that is mapped";
    EXPECT_EQ(Address("::ffff:192.0.2.1"), Address("192.0.2.1"));
    EXPECT_FALSE(Address("::1").IsIpv4());
    EXPECT_TRUE(Address("1.2.3.4").IsIpv4());
}

TEST(IpAddresses, NothingElseIsOne)
{
    for (const std::string text :
         {"", "1.2.3", "1.2.3.4.5", "1.2.3.256", "01.2.3.4 ", "1.2.3.4:80", "[::1]", "::1%lo",
          "localhost", "1:2:3:4:5:6:7:8:9", "unknown"}) {
        IpAddress address = Address("9.9.9.9");
        EXPECT_FALSE(ParseIpAddress(text, address)) << text;
        EXPECT_EQ(FormatIpAddress(address), "9.9.9.9") << text;
    }
    IpAddress address;
    EXPECT_FALSE(ParseIpAddress(std::string_view("::1\0", 4), address));
}

TEST(IpAddresses, OfSockets)
{
    for (const char* text : {"192.0.2.1", "2001:db8::1"}) {
        IpAddress back;
        ASSERT_TRUE(IpAddressOf(SocketAddressOf(Address(text)), back));
        EXPECT_EQ(FormatIpAddress(back), text);
    }
    sockaddr_storage local{};
    local.ss_family = AF_UNIX;
    IpAddress address;
    EXPECT_FALSE(IpAddressOf(local, address));
}

TEST(IpPrefixes, HoldWhatBeginsLikeThem)
{
    const struct {
        const char* prefix;
        const char* inside;
        const char* outside;
    } kRows[] = {
        {"192.0.2.1", "192.0.2.1", "192.0.2.0"},
        {"192.0.2.0/24", "192.0.2.255", "192.0.3.0"},
        {"192.0.2.128/25", "192.0.2.128", "192.0.2.127"},
        {"10.0.0.0/8", "10.255.0.1", "11.0.0.0"},
        {"10.0.0.0/8", "::ffff:10.1.2.3", "::10.1.2.3"},
        {"0.0.0.0/0", "255.255.255.255", "::1"},
        {"::1", "::1", "::"},
        {"2001:db8::/32", "2001:db8:ffff::", "2001:db9::"},
        {"fc00::/7", "fd00::1", "fe00::1"},
        {"::/0", "1.2.3.4", nullptr},
        {"::ffff:10.0.0.0/104", "10.2.3.4", "11.0.0.0"},
    };
    for (const auto& row : kRows) {
        IpPrefix prefix;
        ASSERT_EQ(ParseIpPrefix(row.prefix, prefix), "");
        EXPECT_TRUE(prefix.Contains(Address(row.inside))) << row.prefix << " " << row.inside;
        if (row.outside) {
            EXPECT_FALSE(prefix.Contains(Address(row.outside))) << row.prefix << " " << row.outside;
        }
        EXPECT_TRUE(IsInAny({{Address("9.9.9.9")}, prefix}, Address(row.inside)));
    }
    EXPECT_FALSE(IsInAny({}, Address("::1")));
}

TEST(IpPrefixes, WhatIsWrongIsSaid)
{
    const struct {
        const char* text;
        const char* reason;
    } kRows[] = {
        {"", "expected an address"},
        {"proxy.example.org", "not 'proxy.example.org'"},
        {"10.0.0.0/", "0 to 32 bits"},
        {"10.0.0.0/33", "0 to 32 bits"},
        {"10.0.0.0/-1", "0 to 32 bits"},
        {"10.0.0.0/8/8", "0 to 32 bits"},
        {"10.0.0.0/255.0.0.0", "0 to 32 bits"},
        {"10.0.0.0/0008", "0 to 32 bits"},
        {"::/129", "0 to 128 bits"},
        {"[::1]", "not '[::1]'"},
        {"10.1.2.3/8", "expected '10.0.0.0/8'"},
        {"2001:db8::1/32", "expected '2001:db8::/32'"},
    };
    for (const auto& row : kRows) {
        IpPrefix prefix{Address("9.9.9.9"), 128};
        EXPECT_NE(ParseIpPrefix(row.text, prefix).find(row.reason), std::string::npos)
            << row.text << ": " << ParseIpPrefix(row.text, prefix);
        EXPECT_EQ(FormatIpAddress(prefix.address), "9.9.9.9");
    }
}

} // namespace
} // namespace base
