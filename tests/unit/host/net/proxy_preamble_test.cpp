// SPDX-License-Identifier: Apache-2.0
#include "host/net/proxy_preamble.h"

#include <string>

#include <gtest/gtest.h>

namespace kestd {
namespace {

using namespace std::string_literals;

const std::string kSignature = "\r\n\r\n\0\r\nQUIT\n"s;

// "CLIENT SIZE", and "tls" where the client speaks it.
std::string Read(const std::string& text)
{
    ProxyPreamble preamble;
    switch (ReadProxyPreamble(text, preamble)) {
    case PreambleState::Incomplete:
        return "incomplete";
    case PreambleState::Malformed:
        return "malformed";
    case PreambleState::Complete:
        break;
    }
    return (preamble.client ? FormatIpAddress(*preamble.client) : "-") + " " +
           std::to_string(preamble.size) + (preamble.isSecure ? " tls" : "");
}

std::string Record(int command, int family, const std::string& rest)
{
    std::string text = kSignature;
    text += static_cast<char>(command);
    text += static_cast<char>(family);
    text += static_cast<char>(rest.size() >> 8);
    text += static_cast<char>(rest.size() & 0xFF);
    return text + rest;
}

const std::string kFour = "\xC0\x00\x02\x01\x7F\x00\x00\x01\x12\x34\x00\x50"s;
const std::string kSix = "\x20\x01\x0D\xB8"s + std::string(11, '\0') + "\x01"s +
                         std::string(15, '\0') + "\x01"s + "\x12\x34\x00\x50"s;

TEST(ProxyPreambles, OfVersion1)
{
    const struct {
        const char* text;
        const char* read;
    } kRows[] = {
        {"PROXY TCP4 192.0.2.1 127.0.0.1 56324 443\r\nGET", "192.0.2.1 42"},
        {"PROXY TCP6 2001:db8::1 ::1 0 65535\r\n", "2001:db8::1 36"},
        {"PROXY TCP6 ffff:f:ffff:ffff:ffff:ffff:ffff:ffff "
         "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff 65535 65535\r\n",
         "ffff:f:ffff:ffff:ffff:ffff:ffff:ffff 101"},
        {"PROXY UNKNOWN\r\n", "- 15"},
        {"PROXY UNKNOWN ffff::1 whatever it is 1 2\r\n", "- 42"},
        {"PROXY TCP4 192.0.2.1 127.0.0.1 56324 443\n", "incomplete"},
        {"PROXY TCP4 192.0.2.1 127.0.0.1 56324 443\r", "incomplete"},
        {"", "incomplete"},
        {"PROX", "incomplete"},
        {"GET / HTTP/1.1\r\n\r\n", "malformed"},
        {"PROXY  TCP4 192.0.2.1 127.0.0.1 1 2\r\n", "malformed"},
        {"PROXY TCP4  192.0.2.1 127.0.0.1 1 2\r\n", "malformed"},
        {"PROXY TCP4 192.0.2.1 127.0.0.1 1 2 \r\n", "malformed"},
        {"PROXY TCP4 192.0.2.1 127.0.0.1 1 2 3\r\n", "malformed"},
        {"PROXY TCP4 192.0.2.1 127.0.0.1 1\r\n", "malformed"},
        {"PROXY TCP4 192.0.2.1 127.0.0.1 1 65536\r\n", "malformed"},
        {"PROXY TCP4 192.0.2.1 127.0.0.1 01 2\r\n", "malformed"},
        {"PROXY TCP4 192.0.2.1 127.0.0.1 -1 2\r\n", "malformed"},
        {"PROXY TCP4 192.0.2.256 127.0.0.1 1 2\r\n", "malformed"},
        {"PROXY TCP4 2001:db8::1 ::1 1 2\r\n", "malformed"},
        {"PROXY TCP6 192.0.2.1 127.0.0.1 1 2\r\n", "malformed"},
        {"PROXY tcp4 192.0.2.1 127.0.0.1 1 2\r\n", "malformed"},
        {"PROXY UDP4 192.0.2.1 127.0.0.1 1 2\r\n", "malformed"},
        {"PROXY \r\n", "malformed"},
        {"proxy UNKNOWN\r\n", "malformed"},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(Read(row.text), row.read) << row.text;
    EXPECT_EQ(Read("PROXY UNKNOWN " + std::string(91, 'x') + "\r\n"), "- 107");
    EXPECT_EQ(Read("PROXY UNKNOWN " + std::string(92, 'x') + "\r\n"), "malformed");
    EXPECT_EQ(Read("PROXY UNKNOWN " + std::string(92, 'x')), "incomplete");
    EXPECT_EQ(Read("PROXY UNKNOWN " + std::string(93, 'x')), "malformed");
}

TEST(ProxyPreambles, OfVersion2)
{
    EXPECT_EQ(Read(Record(0x21, 0x11, kFour) + "GET"), "192.0.2.1 28");
    EXPECT_EQ(Read(Record(0x21, 0x21, kSix)), "2001:db8::1 52");
    EXPECT_EQ(Read(Record(0x20, 0x00, "")), "- 16") << "LOCAL";
    EXPECT_EQ(Read(Record(0x20, 0x11, kFour)), "- 28")
        << "LOCAL with addresses, which do not count";
    EXPECT_EQ(Read(Record(0x20, 0x11, "x")), "- 17") << "LOCAL: what follows is skipped";
    EXPECT_EQ(Read(Record(0x21, 0x00, "")), "- 16") << "unspecified";
    EXPECT_EQ(Read(Record(0x21, 0x12, kFour)), "- 28") << "datagrams";
    EXPECT_EQ(Read(Record(0x21, 0x31, std::string(216, 'x'))), "- 232") << "a Unix socket";
    EXPECT_EQ(Read(Record(0x21, 0x11, kFour + std::string(4096 - 12, '\4'))), "malformed");
    EXPECT_EQ(Read(Record(0x21, 0x11, kFour + "\x04\x0F\xF1"s + std::string(0xFF1, 'x'))),
              "192.0.2.1 4112");
    EXPECT_EQ(Read(Record(0x21, 0x00, std::string(4097, 'x'))), "malformed") << "too long";
    EXPECT_EQ(Read(Record(0x11, 0x11, kFour)), "malformed") << "version 1";
    EXPECT_EQ(Read(Record(0x22, 0x11, kFour)), "malformed") << "no such command";
    EXPECT_EQ(Read(Record(0x21, 0x41, kFour)), "malformed") << "no such family";
    EXPECT_EQ(Read(Record(0x21, 0x13, kFour)), "malformed") << "no such transport";
    EXPECT_EQ(Read(Record(0x21, 0x11, kFour.substr(1))), "malformed") << "too short";
    EXPECT_EQ(Read(Record(0x21, 0x21, kFour)), "malformed") << "too short";
    EXPECT_EQ(Read("\r\n\r\n\0\r\nQUIT\r"s), "malformed");
}

TEST(ProxyPreambles, ExtensionsAreSkipped)
{
    EXPECT_EQ(Read(Record(0x21, 0x11, kFour + "\xEE\x00\x03"s + "abc" + "\x04\x00\x00"s)),
              "192.0.2.1 37");
    EXPECT_EQ(Read(Record(0x21, 0x11, kFour + "\x20\x00\x05\x01\x00\x00\x00\x00"s)),
              "192.0.2.1 36 tls");
    EXPECT_EQ(Read(Record(0x21, 0x11, kFour + "\x20\x00\x05\x00\x00\x00\x00\x00"s)),
              "192.0.2.1 36");
    EXPECT_EQ(Read(Record(0x21, 0x11, kFour + "\x20\x00\x00"s)), "192.0.2.1 31");
    for (const std::string& cut : {"\xEE"s, "\xEE\x00"s, "\xEE\x00\x01"s, "\xEE\xFF\xFFxyz"s})
        EXPECT_EQ(Read(Record(0x21, 0x11, kFour + cut)), "malformed");
}

TEST(ProxyPreambles, EveryBeginningIsIncomplete)
{
    for (const std::string& whole : {"PROXY TCP6 2001:db8::1 ::1 1 2\r\n"s,
                                     Record(0x21, 0x11, kFour + "\xEE\x00\x03"s + "abc")})
        for (size_t size = 0; size < whole.size(); ++size)
            EXPECT_EQ(Read(std::string(whole.data(), size)), "incomplete") << size;
}

} // namespace
} // namespace kestd
