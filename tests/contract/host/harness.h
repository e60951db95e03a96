// SPDX-License-Identifier: Apache-2.0
//
// A real server on a port of its own, with a module and an access control that tests script, and a
// client that sends bytes as they are.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/ascii.h"
#include "host/module/call_context.h"
#include "host/server/server.h"
#include <kest/host.h>
#include <kest/identifiers.h>
#include <kest/req.h>
#include <kest/status.h>

namespace kestd::test {

inline constexpr char kGet[] = "GET /Ferro/a HTTP/1.1\r\nHost: h\r\n\r\n";
inline constexpr char kGetWithFields[] =
    "GET /Ferro/a?x=%20y HTTP/1.1\r\nHost: h:81\r\nAccept: text/html\r\n"
    "X-One: 1\r\nx-one: 2\r\nRange: bytes=0-1\r\n\r\n";

// A request with this line and these fields, each with its line break.
inline std::string RequestText(std::string_view line, std::string_view fields = "")
{
    return std::string(line) + " HTTP/1.1\r\nHost: h\r\n" + std::string(fields) + "\r\n";
}

class ScriptedModule final : public IKestReq_2 {
  public:
    std::function<TALSTATUS(IKestIO_5&, UINT32)> handler = [](IKestIO_5& io, UINT32) {
        return io.SendHeader(200);
    };
    std::atomic<int> calls{0};

    TALSTATUS QueryInterface(const GUID*, void** out) override
    {
        *out = nullptr;
        return TAL_STATUS_NO_INTERFACE;
    }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS ModuleInit(SCHANDLE, KEST_LOCATION_ACCESS*, UNICODE_STRING*, GUID*) override
    {
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS RequestHandler(IKestIO_5* io, SCHANDLE, UINT32 method) override
    {
        ++calls;
        return handler(*io, method);
    }
};

class ScriptedDoor final : public AccessControl {
  public:
    std::function<AuthResult(const Credentials&)> judge = [](const Credentials&) {
        AuthResult admission;
        admission.outcome = AuthResult::Outcome::Granted;
        admission.user = "someone";
        return admission;
    };
    std::atomic<int> inside{0};
    std::atomic<bool> isOpen{false};

    bool AllowsAnonymous() const noexcept override { return isOpen; }
    AuthResult Authenticate(const Credentials& credentials) override
    {
        AuthResult admission = judge(credentials);
        if (admission.outcome == AuthResult::Outcome::Granted)
            ++inside;
        return admission;
    }
    void ReleaseSession(SCHANDLE) override { --inside; }
};

struct Answer {
    int status = 0;
    std::string head; // whole, with the status line
    std::string body; // chunks taken apart
    bool isWhole = false;

    // The value of a header, or "(none)".
    std::string Header(std::string_view name) const
    {
        size_t at = head.find("\r\n");
        while (at != std::string::npos && at + 2 < head.size()) {
            const size_t end = head.find("\r\n", at + 2);
            const std::string line = head.substr(at + 2, end - at - 2);
            const size_t colon = line.find(':');
            if (colon != std::string::npos &&
                base::EqualsIgnoringCase(std::string_view(line).substr(0, colon), name))
                return std::string(base::Trimmed(std::string_view(line).substr(colon + 1)));
            at = end;
        }
        return "(none)";
    }
};

// How a client gets its bytes: plain here, TLS in the TLS tests.
class Client {
  public:
    explicit Client(uint16_t port, int receiveBuffer = 0, const char* from = "127.0.0.1")
    {
        fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (receiveBuffer)
            setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        const int on = 1;
        setsockopt(fd_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        inet_pton(AF_INET, from, &address.sin_addr);
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(connect(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    virtual ~Client() { Close(); }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void Close()
    {
        if (fd_ >= 0)
            close(fd_);
        fd_ = -1;
    }
    void EndSending() { shutdown(fd_, SHUT_WR); }
    int Fd() const { return fd_; }

    bool Send(std::string_view bytes)
    {
        while (!bytes.empty()) {
            const ssize_t sent = Put(bytes.data(), bytes.size());
            if (sent <= 0)
                return false;
            bytes.remove_prefix(static_cast<size_t>(sent));
        }
        return true;
    }

    // The next reply. Status 0 when the connection ended or `time` passed first.
    Answer Receive(bool isHead = false, std::chrono::milliseconds time = std::chrono::seconds(20))
    {
        const auto end = std::chrono::steady_clock::now() + time;
        Answer answer;
        size_t at = 0;
        while ((at = held_.find("\r\n\r\n")) == std::string::npos)
            if (!More(end))
                return answer;
        answer.head = held_.substr(0, at + 2);
        held_.erase(0, at + 4);
        answer.status = std::stoi(answer.head.substr(9, 3));
        if (isHead || answer.status == 304 || answer.status == 204 || answer.status < 200) {
            answer.isWhole = true;
        } else if (answer.Header("Transfer-Encoding") == "chunked") {
            answer.isWhole = ReceiveChunks(answer.body, end);
        } else if (answer.Header("Content-Length") != "(none)") {
            const size_t length = std::stoul(answer.Header("Content-Length"));
            while (held_.size() < length && More(end)) {
            }
            answer.isWhole = held_.size() >= length;
            answer.body = held_.substr(0, length);
            held_.erase(0, answer.body.size());
        } else {
            while (More(end)) {
            }
            answer.body.swap(held_);
            answer.isWhole = true;
        }
        return answer;
    }

    Answer Ask(std::string_view request, bool isHead = false)
    {
        EXPECT_TRUE(Send(request));
        return Receive(isHead);
    }

    // True when the server has closed the connection, or does so in time.
    bool IsClosed(std::chrono::milliseconds time = std::chrono::seconds(20))
    {
        const auto end = std::chrono::steady_clock::now() + time;
        while (More(end)) {
        }
        return ended_;
    }
    const std::string& Held() const { return held_; }

  protected:
    virtual ssize_t Put(const void* bytes, size_t size)
    {
        return send(fd_, bytes, size, MSG_NOSIGNAL);
    }
    virtual ssize_t Get(void* to, size_t size) { return recv(fd_, to, size, 0); }
    virtual bool HasPending() { return false; }
    int fd_ = -1;

  private:
    bool More(std::chrono::steady_clock::time_point end)
    {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd entry{fd_, POLLIN, 0};
        if (!HasPending() &&
            (left.count() <= 0 || poll(&entry, 1, static_cast<int>(left.count())) <= 0))
            return false;
        char bytes[16384];
        const ssize_t got = Get(bytes, sizeof bytes);
        if (got <= 0) {
            ended_ = true;
            return false;
        }
        held_.append(bytes, static_cast<size_t>(got));
        return true;
    }

    bool ReceiveChunks(std::string& body, std::chrono::steady_clock::time_point end)
    {
        for (;;) {
            size_t line = 0;
            while ((line = held_.find("\r\n")) == std::string::npos)
                if (!More(end))
                    return false;
            const size_t size = std::stoul(held_.substr(0, line), nullptr, 16);
            while (held_.size() < line + 2 + size + 2)
                if (!More(end))
                    return false;
            body.append(held_, line + 2, size);
            EXPECT_EQ(held_.substr(line + 2 + size, 2), "\r\n");
            held_.erase(0, line + 2 + size + 2);
            if (size == 0)
                return true;
        }
    }

    std::string held_;
    bool ended_ = false;
};

// Settings with short limits and no log.
inline ServerSettings QuietSettings()
{
    ServerSettings settings;
    settings.listen = {{"127.0.0.1", 0}};
    settings.accessLog = false;
    settings.limits.shutdownTime = std::chrono::seconds(5);
    return settings;
}

class ServerTest : public ::testing::Test {
  protected:
    // Stops the server at the end of its scope: a handler may go on after its reply has been
    // received, so it has to end before what it refers to does.
    class Running {
      public:
        explicit Running(ServerTest& test) : test_(test) {}
        Running(const Running&) = delete;
        Running& operator=(const Running&) = delete;
        ~Running() { test_.Stop(); }

      private:
        ServerTest& test_;
    };

    // To be called when everything that a handler refers to has been declared.
    [[nodiscard]] Running Start(const ServerSettings& settings = QuietSettings(),
                                std::string location = "/Ferro")
    {
        StartUntilTearDown(settings, std::move(location));
        return Running(*this);
    }
    // For handlers that refer to members of the fixture only.
    void StartUntilTearDown(const ServerSettings& settings = QuietSettings(),
                            std::string location = "/Ferro")
    {
        server = std::make_unique<Server>(settings, door, &module, std::move(location));
        EXPECT_EQ(server->Start(), "");
        EXPECT_EQ(server->Addresses().size(), settings.listen.size());
        port = server->Addresses().empty() ? uint16_t{0} : server->Addresses()[0].port;
    }
    void Stop()
    {
        if (server) {
            EXPECT_TRUE(server->Stop() || mayStick);
        }
    }
    void TearDown() override
    {
        server.reset();
        EXPECT_EQ(door.inside, 0); // every hold on a session was given back
    }
    Answer Ask(std::string_view request, bool isHead = false)
    {
        Client client(port);
        return client.Ask(request, isHead);
    }

    ScriptedModule module;
    ScriptedDoor door;
    std::unique_ptr<Server> server;
    uint16_t port = 0;
    bool mayStick = false; // a handler that does not return is part of the case
};

inline std::string Header(IKestIO_5& io, const char* name)
{
    char text[4096];
    UINT32 length = sizeof text;
    const TALSTATUS status = io.GetRequestHeader(const_cast<char*>(name), &length, text);
    return Failed(status) ? "(none)" : std::string(text, length);
}

inline void SetHeader(IKestIO_5& io, const char* name, std::string_view value)
{
    EXPECT_EQ(io.SetReplyHeader(const_cast<char*>(name), static_cast<UINT32>(value.size()),
                                const_cast<char*>(value.data())),
              TAL_STATUS_SUCCESS);
}

inline TALSTATUS Write(IKestIO_5& io, std::string_view bytes)
{
    return io.Write(static_cast<UINT32>(bytes.size()),
                    reinterpret_cast<UINT8*>(const_cast<char*>(bytes.data())));
}

// Reads the body to its end; `status` is the last one.
inline std::string ReadBody(IKestIO_5& io, TALSTATUS& status, UINT32 block = 4096)
{
    std::string body;
    std::vector<UINT8> buffer(block);
    UINT32 read = 0;
    while (status = io.ReadClientPayload(block, buffer.data(), &read), Code(status) == 0)
        body.append(reinterpret_cast<char*>(buffer.data()), read);
    return body;
}

inline std::u16string Url(IKestIO_5& io)
{
    UNICODE_STRING* url = nullptr;
    EXPECT_EQ(io.GetUrl(nullptr, &url), TAL_STATUS_SUCCESS);
    return {url->Buffer, url->Length / sizeof(WCHAR)};
}

} // namespace kestd::test
