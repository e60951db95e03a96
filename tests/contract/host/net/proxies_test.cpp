// SPDX-License-Identifier: Apache-2.0
//
// What a trusted proxy says about a request, and what nobody else may say.
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

base::IpPrefix Prefix(const char* text)
{
    base::IpPrefix prefix;
    EXPECT_EQ(base::ParseIpPrefix(text, prefix), "");
    return prefix;
}

// The peer is 127.0.0.1, or another of that network.
class Proxies : public ServerTest {
  protected:
    void SetUp() override
    {
        settings.listen = {{"127.0.0.1", 0}};
        settings.accessLog = false;
        settings.takesPlainPasswords = true;
        settings.trustedProxies = {Prefix("127.0.0.1"), Prefix("10.0.0.0/8"), Prefix("fd00::/8")};
        door.judge = [this](const Credentials& credentials) {
            const std::lock_guard lock(seenLock);
            remote = credentials.remoteAddress;
            isSecure = credentials.isSecure;
            AuthResult admission;
            admission.outcome = AuthResult::Outcome::Granted;
            return admission;
        };
        module.handler = [this](IKestIO_5& io, UINT32) {
            const std::lock_guard lock(seenLock);
            char text[300];
            UINT32 length = sizeof text;
            EXPECT_EQ(io.GetHostname(&length, text), TAL_STATUS_SUCCESS);
            host.assign(text, length);
            length = sizeof text;
            EXPECT_EQ(io.GetPort(&length, text), TAL_STATUS_SUCCESS);
            host.append(":").append(text, length);
            return io.SendHeader(204);
        };
    }
    // "REMOTE SCHEME HOST:PORT" as the server takes it; or the status of a refusal.
    std::string Seen(const std::string& fields, const char* from = "127.0.0.1")
    {
        Client client(port, 0, from);
        const Answer answer =
            client.Ask("GET /Ferro/a HTTP/1.1\r\nHost: inner:81\r\n" + fields + "\r\n");
        if (answer.status != 204)
            return std::to_string(answer.status);
        const std::lock_guard lock(seenLock);
        return remote + (isSecure ? " https " : " http ") + host;
    }
    int Move(const std::string& destination, const std::string& fields,
             const char* from = "127.0.0.1")
    {
        Client client(port, 0, from);
        return client
            .Ask("MOVE /Ferro/a HTTP/1.1\r\nHost: inner:81\r\nDestination: " + destination +
                 "\r\n" + fields + "\r\n")
            .status;
    }

    ServerSettings settings;
    std::mutex seenLock; // of what the server's threads say:
    std::string remote;
    std::string host;
    bool isSecure = false;
};

TEST_F(Proxies, TheClientIsTheLastHopThatIsNoTrustedProxy)
{
    const Running running = Start(settings);
    static constexpr struct {
        const char* fields;
        const char* seen;
    } kRows[] = {
        {"", "127.0.0.1 http inner:81"},
        {"X-Forwarded-For: 192.0.2.1\r\n", "192.0.2.1 http inner:81"},
        {"X-Forwarded-For: 6.6.6.6, 192.0.2.1\r\n", "192.0.2.1 http inner:81"},
        {"X-Forwarded-For: 6.6.6.6, 192.0.2.1, 10.0.0.9\r\n", "192.0.2.1 http inner:81"},
        {"X-Forwarded-For: 192.0.2.1, 10.0.0.9,fd00::1\r\n", "192.0.2.1 http inner:81"},
        {"X-Forwarded-For: 6.6.6.6\r\nX-Forwarded-For: 192.0.2.1\r\n", "192.0.2.1 http inner:81"},
        {"X-Forwarded-For: 10.0.0.8, 10.0.0.9\r\n", "10.0.0.8 http inner:81"},
        {"X-Forwarded-For: [2001:db8::1]:4711\r\n", "2001:db8::1 http inner:81"},
        {"X-Forwarded-For: 192.0.2.1:4711\r\n", "192.0.2.1 http inner:81"},
        {"X-Forwarded-For: 192.0.2.1, unknown\r\n", "127.0.0.1 http inner:81"},
        {"X-Forwarded-For: 192.0.2.1, unknown, 10.0.0.1\r\n", "127.0.0.1 http inner:81"},
        {"X-Forwarded-For: \r\n", "127.0.0.1 http inner:81"},
        {"X-Forwarded-Proto: https\r\n", "127.0.0.1 https inner:81"},
        {"X-Forwarded-Proto: gopher\r\n", "127.0.0.1 http inner:81"},
        {"X-Forwarded-For: 192.0.2.1\r\nX-Forwarded-Proto: http, https\r\n",
         "192.0.2.1 https inner:81"},
        {"X-Forwarded-For: 6.6.6.6, 192.0.2.1, 10.0.0.1\r\n"
         "X-Forwarded-Proto: gopher, https, http\r\nX-Forwarded-Host: evil, outer, middle\r\n",
         "192.0.2.1 https outer:443"},
        {"X-Forwarded-For: 192.0.2.1, 10.0.0.1\r\nX-Forwarded-Proto: https\r\n"
         "X-Forwarded-Host: outer\r\n",
         "192.0.2.1 https outer:443"},
        {"X-Forwarded-Host: outer\r\n", "127.0.0.1 http outer:80"},
        {"X-Forwarded-Host: outer:8443\r\nX-Forwarded-Port: 9\r\n", "127.0.0.1 http outer:8443"},
        {"X-Forwarded-Host: outer\r\nX-Forwarded-Port: 8443\r\n", "127.0.0.1 http outer:8443"},
        {"X-Forwarded-Host: outer\r\nX-Forwarded-Port: 99999\r\n", "127.0.0.1 http outer:80"},
        {"X-Forwarded-Host: <b>\r\n", "127.0.0.1 http inner:81"},
        {"Forwarded: for=192.0.2.1;proto=https;host=outer\r\n", "192.0.2.1 https outer:443"},
        {"Forwarded: for=6.6.6.6;host=evil,for=\"[2001:db8::1]:9\";host=\"outer:8443\", "
         "for=10.0.0.1;host=middle;proto=https\r\n",
         "2001:db8::1 http outer:8443"},
        {"Forwarded: for=192.0.2.1, for=_hidden\r\n", "127.0.0.1 http inner:81"},
        {"Forwarded: for=192.0.2.1, for=unknown;proto=https\r\n", "127.0.0.1 https inner:81"},
        {"Forwarded: for=6.6.6.6\r\nForwarded: for=192.0.2.1\r\n", "192.0.2.1 http inner:81"},
        {"Forwarded: for=6.6.6.6\r\nX-Forwarded-For: 192.0.2.1\r\n", "192.0.2.1 http inner:81"},
        {"Forwarded: for=6.6.6.6;host=evil\r\nX-Forwarded-Proto: https\r\n",
         "127.0.0.1 https inner:81"},
        {"Forwarded: for =6.6.6.6\r\n", "400"},
        {"Forwarded: for=\"192.0.2.1\r\n", "400"},
        {"Forwarded: \r\n", "400"},
    };
    for (const auto& row : kRows)
        EXPECT_EQ(Seen(row.fields), row.seen) << row.fields;
}

TEST_F(Proxies, NobodyElseIsListenedTo)
{
    const Running running = Start(settings);
    for (const char* fields :
         {"X-Forwarded-For: 192.0.2.1\r\nX-Forwarded-Proto: https\r\nX-Forwarded-Host: outer\r\n"
          "X-Forwarded-Port: 9\r\n",
          "Forwarded: for=192.0.2.1;proto=https;host=outer\r\n", "Forwarded: ;;;===\r\n"})
        EXPECT_EQ(Seen(fields, "127.0.0.2"), "127.0.0.2 http inner:81") << fields;
}

TEST_F(Proxies, OnlyTheHeadersThatTheProxyWritesCount)
{
    const std::string both = "Forwarded: for=192.0.2.1;host=standard\r\n"
                             "X-Forwarded-For: 192.0.2.2\r\nX-Forwarded-Host: x\r\n";
    settings.proxyHeaders = ProxyHeaders::Forwarded;
    {
        const Running running = Start(settings);
        EXPECT_EQ(Seen(both), "192.0.2.1 http standard:80");
        EXPECT_EQ(Seen("X-Forwarded-For: 192.0.2.2\r\n"), "127.0.0.1 http inner:81");
    }
    settings.proxyHeaders = ProxyHeaders::XForwarded;
    const Running running = Start(settings);
    EXPECT_EQ(Seen(both), "192.0.2.2 http x:80");
    EXPECT_EQ(Seen("Forwarded: for=192.0.2.1\r\n"), "127.0.0.1 http inner:81");
    EXPECT_EQ(Seen("Forwarded: ;;;===\r\n"), "127.0.0.1 http inner:81");
}

TEST_F(Proxies, ThePublicUrlWins)
{
    settings.publicUrl = "https://public:444";
    const Running running = Start(settings);
    EXPECT_EQ(Seen("X-Forwarded-Proto: http\r\nX-Forwarded-Host: outer\r\n"),
              "127.0.0.1 https public:444");
    EXPECT_EQ(Move("https://public:444/Ferro/b", "X-Forwarded-Host: outer\r\n"), 204);
    EXPECT_EQ(Move("https://outer/Ferro/b", "X-Forwarded-Host: outer\r\n"), 204);
}

TEST_F(Proxies, DestinationsMayNameTheHostThatTheProxyTells)
{
    settings.dialect = Dialect::Standard;
    const Running running = Start(settings);
    const char* const told = "X-Forwarded-Host: outer:8443\r\n";
    EXPECT_EQ(Move("https://outer:8443/Ferro/b", told), 204);
    EXPECT_EQ(Move("https://OUTER:8443/Ferro/b", "Forwarded: host=\"outer:8443\"\r\n"), 204);
    EXPECT_EQ(
        Move("https://outer:8443/Ferro/b", "X-Forwarded-Host: outer\r\nX-Forwarded-Port: 8443\r\n"),
        204);
    EXPECT_EQ(Move("http://inner:81/Ferro/b", told), 204);
    EXPECT_EQ(Move("https://other/Ferro/b", told), 502);
    EXPECT_EQ(Move("https://outer/Ferro/b", told), 502) << "another port";
    EXPECT_EQ(Move("https://outer:8443/elsewhere", told), 502);
    EXPECT_EQ(Move("https://outer:8443/Ferro/b", told, "127.0.0.2"), 502);
}

TEST_F(Proxies, WithoutAWordAboutTheHost_AnyDestinationIsOurs)
{
    settings.dialect = Dialect::Standard;
    const Running running = Start(settings);
    EXPECT_EQ(Move("https://outer/Ferro/b", ""), 204);
    EXPECT_EQ(Move("https://outer/Ferro/b", "X-Forwarded-For: 192.0.2.1\r\n"), 204);
    EXPECT_EQ(Move("https://outer/elsewhere", ""), 502);
    EXPECT_EQ(Move("https://outer/Ferro/b", "", "127.0.0.2"), 502);
}

TEST_F(Proxies, TheClassicDialectKnowsItsHosts)
{
    settings.dialect = Dialect::Classic;
    const Running running = Start(settings);
    EXPECT_EQ(Move("https://outer/Ferro/b", ""), 502);
}

TEST_F(Proxies, NoHeaderOpensTheDoorForAnotherHost)
{
    door.isOpen = true;
    settings.publicUrl = "https://public";
    const Running running = Start(settings);
    const auto status = [this](const std::string& fields) {
        return Client(port).Ask("GET /Ferro/a HTTP/1.1\r\n" + fields + "\r\n").status;
    };
    EXPECT_EQ(status("Host: localhost\r\n"), 204);
    EXPECT_EQ(status("Host: 127.0.0.1:8080\r\nX-Forwarded-Host: public\r\n"), 204);
    EXPECT_EQ(status("Host: evil\r\nX-Forwarded-Host: localhost\r\n"), 421);
    EXPECT_EQ(status("Host: evil\r\nForwarded: host=public\r\n"), 421);
    EXPECT_EQ(status("Host: localhost\r\nX-Forwarded-Host: evil\r\n"), 421);
    EXPECT_EQ(status("Host: localhost\r\nForwarded: host=evil\r\n"), 421);
}

TEST_F(Proxies, PostsFromTheForwardedHostAreItsOwn)
{
    const Running running = Start(settings);
    const auto status = [this](const std::string& fields, const char* from = "127.0.0.1") {
        return Client(port, 0, from)
            .Ask("POST /Ferro/a HTTP/1.1\r\nHost: inner:81\r\nContent-Length: 0\r\n"
                 "Origin: https://outer\r\n" +
                 fields + "\r\n")
            .status;
    };
    EXPECT_EQ(status("X-Forwarded-Host: outer\r\nX-Forwarded-Proto: https\r\n"), 204);
    EXPECT_EQ(status("X-Forwarded-Host: other\r\nX-Forwarded-Proto: https\r\n"), 403);
    EXPECT_EQ(status("X-Forwarded-Host: outer\r\nX-Forwarded-Proto: https\r\n", "127.0.0.2"), 403);
}

TEST_F(Proxies, ConnectionsAreCountedByTheirClients)
{
    settings.limits.connectionsPerAddress = 2;
    std::mutex mutex;
    std::condition_variable changed;
    int inside = 0;
    bool isOver = false;
    module.handler = [&](IKestIO_5& io, UINT32) {
        {
            std::unique_lock lock(mutex);
            ++inside;
            changed.notify_all();
            changed.wait_for(lock, std::chrono::seconds(60), [&] { return isOver; });
        }
        return io.SendHeader(204);
    };
    const Running running = Start(settings);
    const auto ask = [](Client& client, const std::string& who) {
        EXPECT_TRUE(client.Send("GET /Ferro/a HTTP/1.1\r\nHost: h\r\nX-Forwarded-For: " + who +
                                "\r\n\r\n"));
    };
    Client first(port);
    Client second(port);
    Client third(port);
    ask(first, "192.0.2.1");
    ask(second, "192.0.2.1");
    ask(third, "192.0.2.2");
    {
        std::unique_lock lock(mutex);
        EXPECT_TRUE(changed.wait_for(lock, std::chrono::seconds(60), [&] { return inside == 3; }));
    }
    Client fourth(port);
    ask(fourth, "192.0.2.1");
    EXPECT_EQ(fourth.Receive().status, 503);
    {
        const std::lock_guard lock(mutex);
        isOver = true;
    }
    changed.notify_all();
    for (Client* client : {&first, &second, &third})
        EXPECT_EQ(client->Receive().status, 204);
    ask(fourth, "192.0.2.1"); // the places were given back
    EXPECT_EQ(fourth.Receive().status, 204);
}

// Published by a proxy under /dav/.
class Published : public Proxies {
  protected:
    void SetUp() override
    {
        Proxies::SetUp();
        settings.publicUrl = "https://outer/dav";
        settings.pathPrefix = "/dav";
        settings.dialect = Dialect::Standard;
        module.handler = [this](IKestIO_5& io, UINT32 method) {
            url = Url(io);
            destination.clear();
            BOOLEAN overwrites = 0;
            UNICODE_STRING* text = nullptr;
            if (method == KestMethodMove && !Failed(io.GetMoveInfo(&overwrites, &text)))
                destination.assign(text->Buffer, text->Length / sizeof(WCHAR));
            return io.SendHeader(204);
        };
    }
    // The URL as the module gets it, or the status where it is not asked.
    std::u16string UrlOf(const std::string& target, const std::string& fields = "")
    {
        const Answer answer =
            Ask("GET " + target + " HTTP/1.1\r\nHost: inner\r\n" + fields + "\r\n");
        const std::string status = std::to_string(answer.status);
        return answer.status == 204 ? url : std::u16string(status.begin(), status.end());
    }

    std::u16string url;
    std::u16string destination;
};

TEST_F(Published, PathsAreWhatClientsSee_WhetherTheProxyTakesThePrefixOffOrNot)
{
    const Running running = Start(settings, "/dav/Ferro");
    EXPECT_EQ(UrlOf("/Ferro/a%20b"), u"/dav/Ferro/a b");
    EXPECT_EQ(UrlOf("/dav/Ferro/a%20b"), u"/dav/Ferro/a b");
    EXPECT_EQ(UrlOf("/dav/dav/Ferro/a"), u"404");
    EXPECT_EQ(UrlOf("/davenport/Ferro/a"), u"404");
    const std::string taken = "X-Forwarded-Prefix: /dav/\r\n";
    EXPECT_EQ(UrlOf("/Ferro/a", taken), u"/dav/Ferro/a");
    EXPECT_EQ(UrlOf("/dav/Ferro/a", taken), u"404") << "the client asked for /dav/dav/Ferro/a";
    EXPECT_EQ(UrlOf("/dav/Ferro/a", "X-Forwarded-Prefix: /other\r\n"), u"/dav/Ferro/a");
    const std::string head = "GET / HTTP/1.1\r\nHost: inner\r\n\r\n";
    EXPECT_EQ(Ask(head).Header("Location"), "/dav/Ferro/");
}

TEST_F(Published, DestinationsAreTakenWithAndWithoutThePrefix)
{
    const Running running = Start(settings, "/dav/Ferro");
    for (const char* sent : {"https://outer/dav/Ferro/b", "https://outer/Ferro/b", "/dav/Ferro/b",
                             "/Ferro/b", "http://inner/Ferro/b"}) {
        EXPECT_EQ(Ask(std::string("MOVE /Ferro/a HTTP/1.1\r\nHost: inner\r\nDestination: ") + sent +
                      "\r\n\r\n")
                      .status,
                  204);
        EXPECT_EQ(destination, u"/dav/Ferro/b") << sent;
        EXPECT_EQ(url, u"/dav/Ferro/a");
    }
}

TEST_F(Published, PagesRunWhatStandsBesideTheirPlace)
{
    module.handler = [](IKestIO_5& io, UINT32) {
        SetHeader(io, "Content-Type", "text/html");
        return io.SendHeader(200);
    };
    const Running running = Start(settings, "/dav/Ferro");
    const Answer page = Ask("GET /Ferro/ HTTP/1.1\r\nHost: inner\r\n\r\n");
    const std::string policy = page.Header("Content-Security-Policy");
    EXPECT_NE(policy.find("script-src inner/dav/Wharf/ outer/dav/Wharf/ "), std::string::npos)
        << policy;
}

// A listener whose connections begin with a preamble.
class Announced : public Proxies {
  protected:
    void SetUp() override
    {
        Proxies::SetUp();
        settings.proxyProtocol = settings.listen;
    }
    static std::string Request(const std::string& fields = "")
    {
        return "GET /Ferro/a HTTP/1.1\r\nHost: inner:81\r\n" + fields + "\r\n";
    }
    static std::string Record(const std::string& head, const std::string& rest)
    {
        using namespace std::string_literals;
        return "\r\n\r\n\0\r\nQUIT\n"s + head + '\0' + static_cast<char>(rest.size()) + rest;
    }
    // As Proxies::Seen; "closed" when there is no reply.
    std::string Seen(const std::string& bytes, const char* from = "127.0.0.1")
    {
        Client client(port, 0, from);
        const Answer answer = client.Ask(bytes);
        if (answer.status == 0)
            return client.IsClosed() ? "closed" : "silent";
        return answer.status == 204 ? remote + (isSecure ? " https" : " http")
                                    : std::to_string(answer.status);
    }
};

TEST_F(Announced, TheClientIsWhoThePreambleNames)
{
    using namespace std::string_literals;
    const Running running = Start(settings);
    const std::string four = "\xC0\x00\x02\x07\x7F\x00\x00\x01\x12\x34\x00\x50"s;
    EXPECT_EQ(Seen("PROXY TCP4 192.0.2.7 127.0.0.1 1 2\r\n" + Request()), "192.0.2.7 http");
    EXPECT_EQ(Seen("PROXY TCP6 2001:db8::1 ::1 1 2\r\n" + Request()), "2001:db8::1 http");
    EXPECT_EQ(Seen("PROXY UNKNOWN\r\n" + Request()), "127.0.0.1 http");
    EXPECT_EQ(Seen(Record("\x21\x11", four) + Request()), "192.0.2.7 http");
    EXPECT_EQ(Seen(Record("\x21\x11", four + "\xEE\x00\x01?\x20\x00\x05\x01\x00\x00\x00\x00"s) +
                   Request()),
              "192.0.2.7 https");
    EXPECT_EQ(Seen(Record("\x20"s + '\0', "") + Request()), "127.0.0.1 http") << "LOCAL";
}

TEST_F(Announced, HeadersOfTheClientAreItsOwn)
{
    const Running running = Start(settings);
    EXPECT_EQ(Seen("PROXY TCP4 192.0.2.7 127.0.0.1 1 2\r\n" +
                   Request("X-Forwarded-For: 6.6.6.6\r\nX-Forwarded-Proto: https\r\n")),
              "192.0.2.7 http");
    EXPECT_EQ(Seen("PROXY TCP4 10.0.0.1 127.0.0.1 1 2\r\n" +
                   Request("X-Forwarded-For: 192.0.2.8\r\nX-Forwarded-Proto: https\r\n")),
              "192.0.2.8 https")
        << "a trusted proxy behind the first";
}

TEST_F(Announced, WhoDoesNotSayItProperlyIsClosed)
{
    settings.limits.headTime = std::chrono::milliseconds(300);
    const Running running = Start(settings);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Seen(Request()), "closed");
    EXPECT_EQ(Seen("PROXY TCP4 nobody 127.0.0.1 1 2\r\n" + Request()), "closed");
    EXPECT_EQ(Seen(Record("\x31\x11", "") + Request()), "closed");
    EXPECT_EQ(Seen("PROXY TCP4 192.0.2.7 127.0.0.1 1 2\r\n" + Request(), "127.0.0.2"), "closed")
        << "no trusted proxy";
    EXPECT_EQ(Seen("PROXY TCP4"), "closed") << "not in time";
    EXPECT_EQ(Seen(""), "closed") << "not in time";
    EXPECT_EQ(module.calls, 0);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("connection from 127.0.0.1 closed: its PROXY preamble is malformed"),
              std::string::npos)
        << log;
}

TEST_F(Announced, APreambleMayComeInPieces)
{
    const Running running = Start(settings);
    Client client(port);
    for (const char c : std::string("PROXY TCP4 192.0.2.7 127.0.0.1 1 2\r\n" + Request())) {
        ASSERT_TRUE(client.Send({&c, 1}));
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_EQ(client.Receive().status, 204);
    EXPECT_EQ(remote, "192.0.2.7");
    EXPECT_EQ(client.Ask(Request()).status, 204) << "once for all requests";
    EXPECT_EQ(remote, "192.0.2.7");
}

TEST_F(Announced, ConnectionsAreCountedByTheirClients)
{
    settings.limits.connectionsPerAddress = 1;
    const Running running = Start(settings);
    const std::string whole = "PROXY TCP4 192.0.2.7 127.0.0.1 1 2\r\n" + Request();
    Client first(port);
    EXPECT_EQ(first.Ask(whole).status, 204);
    Client second(port);
    EXPECT_EQ(second.Ask(whole).status, 503);
    EXPECT_TRUE(second.IsClosed());
    Client third(port);
    EXPECT_EQ(third.Ask("PROXY TCP4 192.0.2.8 127.0.0.1 1 2\r\n" + Request()).status, 204);
}

} // namespace

} // namespace kestd::test
