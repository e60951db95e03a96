// SPDX-License-Identifier: Apache-2.0
//
// URLs, hosts and addresses.
#include "base/uri.h"

#include <string>

#include <gtest/gtest.h>

#include "base/host_name.h"

namespace base {
namespace {

TEST(Host, NamesAndAddresses)
{
    for (const std::string& text :
         {std::string("h"), std::string("a.b-c_d~e"), std::string("127.0.0.1:80"),
          std::string("h:"), std::string("h:0"), std::string("h:65535"), std::string("[::1]"),
          std::string("[::1]:80"), std::string("[::ffff:1.2.3.4]:"), std::string("a!$&'()*+,;=b"),
          std::string(255, 'h') + ":65535"})
        EXPECT_TRUE(IsValidHost(text)) << text;
    for (const std::string& text :
         {std::string(""),         std::string(":80"),    std::string("h:65536"),
          std::string("h:000080"), std::string("h:8a"),   std::string("h:-1"),
          std::string("u@h"),      std::string("h/"),     std::string("h%20"),
          std::string("[::1"),     std::string("::1"),    std::string("[1.2.3.4]"),
          std::string("[::1]x"),   std::string("[]"),     std::string("[::1%eth0]"),
          std::string("h h"),      std::string("h\0", 2), std::string("[::1\0]", 6),
          std::string("\xC3\xA4"), std::string(256, 'h')})
        EXPECT_FALSE(IsValidHost(text)) << text;
}

TEST(Host, IsSplitAtItsPort)
{
    struct Row {
        const char* text;
        const char* name;
        const char* port;
    };
    for (const Row& row : {Row{"h", "h", ""}, Row{"h:8", "h", "8"}, Row{"[::1]", "[::1]", ""},
                           Row{"[::1]:8", "[::1]", "8"}, Row{"h:", "h", ""}}) {
        std::string_view name;
        std::string_view port;
        SplitHost(row.text, name, port);
        EXPECT_EQ(name, row.name);
        EXPECT_EQ(port, row.port);
    }
}

TEST(Host, LoopbackIsThisMachineOnly)
{
    for (const char* name : {"localhost", "LOCALHOST", "localhost.", "a.localhost", "127.0.0.1",
                             "127.255.0.9", "[::1]", "[0:0::1]"})
        EXPECT_TRUE(IsLoopbackHost(name)) << name;
    for (const char* name : {"", ".", "xlocalhost", "localhost.com", "128.0.0.1", "[::2]", "::1",
                             "127.1", "127.0.0.1.example", "[127.0.0.1]", "[]"})
        EXPECT_FALSE(IsLoopbackHost(name)) << name;
}

TEST(Address, LoopbackIsThisMachineOnly)
{
    for (const char* address : {"127.0.0.1", "127.9.9.9", "::1", "::ffff:127.0.0.1"})
        EXPECT_TRUE(IsLoopbackAddress(address)) << address;
    for (const char* address : {"0.0.0.0", "::", "::ffff:128.0.0.1", "[::1]", "localhost", ""})
        EXPECT_FALSE(IsLoopbackAddress(address)) << address;
    EXPECT_TRUE(IsIpv4Address("1.2.3.4"));
    EXPECT_FALSE(IsIpv4Address("1.2.3.256"));
    EXPECT_FALSE(IsIpv4Address(std::string_view("1.2.3.4\0", 8)));
    uint8_t bytes[4] = {9, 9, 9, 9};
    EXPECT_FALSE(ParseIpv4Address("1.2.3", bytes));
    EXPECT_EQ(bytes[0], 9);
    EXPECT_TRUE(ParseIpv4Address("1.2.3.255", bytes));
    EXPECT_EQ(bytes[0], 1);
    EXPECT_EQ(bytes[3], 255);
    EXPECT_TRUE(IsIpv6Address("fe80::1"));
    EXPECT_FALSE(IsIpv6Address("1.2.3.4"));
}

TEST(Port, IsANumberOfFiveDigitsAtMost)
{
    uint16_t port = 1;
    EXPECT_TRUE(ParsePort("65535", port));
    EXPECT_EQ(port, 65535);
    EXPECT_TRUE(ParsePort("0", port));
    EXPECT_EQ(port, 0);
    for (const char* text : {"", "65536", "000080", "+1", "1 ", "x"})
        EXPECT_FALSE(ParsePort(text, port)) << text;
}

TEST(Origin, IsTakenOffAUrl)
{
    struct Row {
        const char* url;
        const char* scheme;
        const char* host;
        const char* rest;
    };
    for (const Row& row :
         {Row{"http://h", "http", "h", ""}, Row{"HTTPS://h:1/a?b", "HTTPS", "h:1", "/a?b"},
          Row{"webdav://[::1]:80?q", "webdav", "[::1]:80", "?q"},
          Row{"webdavs://h/", "webdavs", "h", "/"}}) {
        std::string_view url = row.url;
        std::string_view scheme;
        std::string_view host;
        EXPECT_TRUE(TakeOrigin(url, scheme, host)) << row.url;
        EXPECT_EQ(scheme, row.scheme);
        EXPECT_EQ(host, row.host);
        EXPECT_EQ(url, row.rest);
    }
    for (const char* text : {"", "h", "//h", "ftp://h", "http:/h", "http//h", "http://",
                             "http:///a", "http://u@h/", "http://h:x", "http://h#f", " http://h"}) {
        std::string_view url = text;
        std::string_view scheme;
        std::string_view host;
        EXPECT_FALSE(TakeOrigin(url, scheme, host)) << text;
    }
}

TEST(Path, IsUnderItselfAndWhatHoldsIt)
{
    EXPECT_TRUE(IsUnder("/a", "/a"));
    EXPECT_TRUE(IsUnder("/a/b", "/a"));
    EXPECT_FALSE(IsUnder("/ab", "/a"));
    EXPECT_FALSE(IsUnder("/", "/a"));
}

} // namespace
} // namespace base
