// SPDX-License-Identifier: Apache-2.0
//
// Requests that mean harm: what two readers take differently, names that lead here from elsewhere,
// content that would run in a browser.
#include <cstring>

#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

using Hostile = ServerTest;

// Whatever an intermediary would read another way, so that one of the two takes a part of a request
// for the next one: refused, wherever the text is cut, and nothing behind it is served.
TEST_F(Hostile, WhatTwoReadersTakeDifferentlyIsRefusedWhereverItIsCut)
{
    static constexpr const char* kRows[] = {
        "PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding:\r\n chunked\r\n\r\n0\r\n\r\n",
        "PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: \r\n\tchunked\r\n\r\n0\r\n\r\n",
        "PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: \r\n 5\r\n\r\n12345",
        "PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nX:\r\n \r\nContent-Length: 5\r\n\r\n12345",
        "PUT /Ferro/a HTTP/1.1\r\nHost: h\r\n Content-Length: 5\r\n\r\n12345",
        "\rGET /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n",
        "\nGET /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n",
        "\r\n\rGET /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n",
        "\r\n\nGET /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n",
        "GET /Ferro/a HTTP/1.1\r\nHost: h\nX: y\r\n\r\n",
        "PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 5\r\nContent-Length: 5\r\n\r\n12345",
        "PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length : 5\r\n\r\n12345",
        "PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: 5, 5\r\n\r\n12345",
        "PROPFIND /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n"
        "1 \r\na\r\n0\r\n\r\n",
        "PROPFIND /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n"
        "1 x\r\na\r\n0\r\n\r\n",
        "PROPFIND /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n"
        "1;\na\r\n0\r\n\r\n",
        "PROPFIND /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n"
        "0x1\r\na\r\n0\r\n\r\n",
        "PROPFIND /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n"
        "1\na\r\n0\r\n\r\n",
        "PROPFIND /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n"
        "0\r\n\n",
    };
    const Running running = Start();
    for (const std::string_view row : kRows) {
        const std::string text = std::string(row) + "GET /Ferro/behind HTTP/1.1\r\nHost: h\r\n\r\n";
        for (size_t cut = 0; cut < row.size(); ++cut) {
            Client client(port);
            ASSERT_TRUE(client.Send(std::string_view(text).substr(0, cut)));
            // It may have been refused by now, and be closed.
            (void)client.Send(std::string_view(text).substr(cut));
            EXPECT_EQ(client.Receive().status, 400) << row << cut;
            EXPECT_EQ(client.Receive().status, 0) << row << cut;
        }
    }
    EXPECT_EQ(module.calls, 0);
}

// A page elsewhere must not reach a server that asks for no password by letting its own name lead
// to this machine.
TEST_F(Hostile, WithoutUsersOnlyNamesOfThisMachineAreServed)
{
    ServerSettings settings = QuietSettings();
    settings.publicUrl = "https://Files.example.org:8443";
    door.isOpen = true;
    const Running running = Start(settings);
    static constexpr const char* kOwn[] = {
        "localhost",
        "LOCALHOST:8080",
        "localhost.",
        "a.b.localhost:1",
        "127.0.0.1",
        "127.255.255.254:65535",
        "[::1]",
        "[::1]:8080",
        "[0:0::1]:80",
        "files.example.org",
        "FILES.example.ORG",
        "files.example.org:80",
    };
    static constexpr const char* kOthers[] = {
        "evil.example",      "localhost.evil.example",
        "notlocalhost",      "127.0.0.1.evil.example",
        "128.0.0.1",         "10.0.0.1",
        "0.0.0.0",           "[::]",
        "[::2]:80",          "x.files.example.org",
        "example.org",       "127.1",
        "2130706433",        "0x7f.0.0.1",
        ".localhost.evil",   "localhost..",
        "evil.example:8080",
    };
    Client client(port);
    const auto ask = [&client](const char* method, const char* target, const std::string& host) {
        return client
            .Ask(std::string(method) + " " + target + " HTTP/1.1\r\nHost: " + host + "\r\n\r\n")
            .status;
    };
    for (const char* host : kOwn) {
        EXPECT_EQ(ask("GET", "/Ferro/a", host), 200) << host;
        EXPECT_EQ(ask("GET", (std::string("http://") + host + "/Ferro/a").c_str(), "localhost"),
                  200)
            << host;
    }
    const int served = module.calls;
    for (const char* host : kOthers) {
        for (const char* target : {"/Ferro/a", "/", "/Wharf/common.js", "/elsewhere"})
            EXPECT_EQ(ask("GET", target, host), 421) << host << target;
        EXPECT_EQ(ask("DELETE", "/Ferro/a", host), 421) << host;
        EXPECT_EQ(ask("OPTIONS", "*", host), 421) << host;
        EXPECT_EQ(ask("GET", (std::string("http://") + host + "/Ferro/a").c_str(), "localhost"),
                  421)
            << host;
        EXPECT_EQ(ask("GET", "http://localhost/Ferro/a", host), 421) << host;
    }
    EXPECT_EQ(module.calls, served);
    door.isOpen = false; // who has to sign in may use any name
    EXPECT_EQ(ask("GET", "/Ferro/a", "evil.example"), 200);
}

// A policy that names the whole server would take stored content for our scripts.
TEST_F(Hostile, PagesRunScriptsOfTheWharfOnlyWhateverTheServerIsCalled)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Type", "text/html");
        return io.SendHeader(200);
    };
    ServerSettings settings = QuietSettings();
    settings.publicUrl = "https://files.example.org:8443";
    const auto scripts = [this](const std::string& host, const char* fields = "") {
        const std::string policy =
            Ask("GET /Ferro/a HTTP/1.1\r\nHost: " + host + "\r\n" + fields + "\r\n")
                .Header("Content-Security-Policy");
        const std::string mark = "script-src ";
        const size_t from = policy.find(mark) + mark.size();
        return policy.substr(from, policy.find("'sha256", from) - from);
    };
    {
        const Running named = Start(settings);
        EXPECT_EQ(scripts("files.example.org:8443"), "files.example.org:8443/Wharf/ ");
        EXPECT_EQ(scripts("10.0.0.1:80"), "10.0.0.1:80/Wharf/ files.example.org:8443/Wharf/ ");
        EXPECT_EQ(scripts("a;b"), "files.example.org:8443/Wharf/ ");
        EXPECT_EQ(scripts("a,'self'"), "files.example.org:8443/Wharf/ ");
    }
    const Running running = Start();
    EXPECT_EQ(scripts("Name:8080"), "Name:8080/Wharf/ ");
    EXPECT_EQ(scripts("[::1]:8080"), ""); // it could only be called the whole server
    EXPECT_EQ(scripts("a;script-src*"), "");
    EXPECT_EQ(scripts("[::1]:8080", "Sec-Fetch-Dest: document\r\n"), "'self' ");
}

TEST_F(Hostile, StoredContentIsNoScriptForABrowserThatAsksForOne)
{
    const Running running = Start();
    for (const char* use : {"script", "worker", "serviceworker", "sharedworker", "audioworklet"})
        EXPECT_EQ(
            Ask(RequestText("GET /Ferro/a.js", std::string("Sec-Fetch-Dest: ") + use + "\r\n"))
                .status,
            403)
            << use;
    EXPECT_EQ(module.calls, 0);
    for (const char* use : {"document", "empty", "image", "video", "style", "iframe"})
        EXPECT_EQ(
            Ask(RequestText("GET /Ferro/a.js", std::string("Sec-Fetch-Dest: ") + use + "\r\n"))
                .status,
            200)
            << use;
}

TEST_F(Hostile, RepliesTellBrowsersWhatTheyAre)
{
    const char* type = nullptr;
    bool isFile = false;
    module.handler = [&](IKestIO_5& io, UINT32) {
        const auto set = [&io](const char* name, const char* value) {
            EXPECT_EQ(io.SetReplyHeader(const_cast<char*>(name),
                                        static_cast<UINT32>(std::strlen(value)),
                                        const_cast<char*>(value)),
                      TAL_STATUS_SUCCESS);
        };
        if (type)
            set("Content-Type", type);
        if (isFile)
            set("Accept-Ranges", "bytes");
        return io.SendHeader(200);
    };
    const Running running = Start();
    const auto ask = [&](const char* newType, bool newIsFile) {
        type = newType;
        isFile = newIsFile;
        return Ask(RequestText("GET /Ferro/docs/a"));
    };
    const Answer page = ask("text/html; charset=\"utf-8\"", false);
    const std::string policy = page.Header("Content-Security-Policy");
    EXPECT_NE(policy.find("script-src h/Wharf/ 'sha256-"), std::string::npos) << policy;
    EXPECT_NE(policy.find("style-src h/Wharf/;"), std::string::npos) << policy;
    EXPECT_EQ(policy.find("unsafe"), std::string::npos);
    EXPECT_EQ(page.Header("X-Frame-Options"), "SAMEORIGIN");
    EXPECT_EQ(page.Header("X-Content-Type-Options"), "nosniff");
    for (const char* stored : {"text/html", "text/html;charset=utf-8", "image/svg+xml", "TEXT/XML",
                               "text/plain", "image/png", "application/pdfx", "x/y", ""}) {
        const Answer file = ask(*stored ? stored : nullptr, true);
        EXPECT_EQ(file.Header("Content-Security-Policy"), "sandbox; frame-ancestors 'self'")
            << stored;
        EXPECT_EQ(file.Header("X-Content-Type-Options"), "nosniff") << stored;
    }
    for (const char* media : {"video/mp4", "Audio/x-wav"}) // no player may fetch it without
        EXPECT_EQ(ask(media, true).Header("Content-Security-Policy"),
                  "sandbox allow-same-origin; frame-ancestors 'self'");
    const Answer document = ask("application/pdf", true); // browsers show no sandboxed one
    EXPECT_EQ(document.Header("Content-Security-Policy"), "(none)");
    EXPECT_EQ(document.Header("X-Content-Type-Options"), "nosniff");

    type = "text/html; charset=\"utf-8\"";
    isFile = false;
    const Answer data = Ask(RequestText("GET /Ferro/docs/.index_xml"));
    EXPECT_EQ(data.Header("Content-Security-Policy").find("sandbox; default-src 'none';"), 0u);
}

} // namespace

} // namespace kestd::test
