// SPDX-License-Identifier: Apache-2.0
#include "load.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <random>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>
#include <unordered_map>
#include <unordered_set>

#include "reply.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kReceiveSize = 256 * 1024;
constexpr auto kSilence = std::chrono::seconds(60);

uint32_t Micros(Clock::duration time)
{
    return static_cast<uint32_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(time).count());
}

struct Connection {
    uint32_t number = 0;
    int fd = -1;
    bool open = false;
    size_t step = 0;
    uint64_t sequence = 0;
    uint64_t random = 0;
    std::unordered_map<std::string, std::string> captured;
    // the running request
    std::string head; // with a body that is no file
    Content file;
    size_t sent = 0;
    size_t rangeStart = 0;
    ReplyReader reply;
    uint64_t received = 0; // bytes of the reply's body
    std::string beginning; // of the body, when the step looks into it
    bool differs = false;
    bool retried = false;
    bool wantsWrite = false;
    Clock::time_point began;
    Clock::time_point lastSeen;
    bool sawFirst = false;
};

class Load {
  public:
    Load(const Scenario& scenario, const sockaddr_in& address, const std::string& host)
        : scenario_(scenario), address_(address), host_(host), buffer_(kReceiveSize)
    {
    }
    Outcome Run();

  private:
    bool Open(Connection& c);
    void Close(Connection& c);
    bool NextSequence(Connection& c);
    void NextStep(Connection& c);
    void StartRequest(Connection& c);
    void Send(Connection& c);
    void Receive(Connection& c);
    void TakeBody(Connection& c, const char* data, size_t size);
    void CaptureToken(Connection& c, const std::string& name);
    void Finish(Connection& c);
    void Retry(Connection& c);
    void Lost(Connection& c, const char* why);
    void Wrong(const Connection& c, const std::string& why);
    std::string Check(Connection& c, const Step& step);
    void Watch(Connection& c, bool write);
    std::string Expand(const Connection& c, const std::string& text) const;
    bool OutOfTime() const;

    const Scenario& scenario_;
    sockaddr_in address_;
    std::string host_;
    std::vector<char> buffer_;
    std::vector<Connection> connections_;
    std::unordered_set<std::string> held_;
    std::mt19937_64 dice_{1};
    Outcome outcome_;
    uint64_t started_ = 0;
    size_t working_ = 0;
    int epoll_ = -1;
    Clock::time_point start_;
};

bool Load::OutOfTime() const
{
    if (scenario_.sequences)
        return started_ >= scenario_.sequences;
    return Clock::now() - start_ >= std::chrono::duration<double>(scenario_.duration);
}

std::string Load::Expand(const Connection& c, const std::string& text) const
{
    std::string out;
    for (size_t at = 0; at < text.size();) {
        const size_t open = text.find('{', at);
        const size_t close = open == std::string::npos ? open : text.find('}', open);
        if (close == std::string::npos) {
            out.append(text, at);
            break;
        }
        out.append(text, at, open - at);
        const std::string name = text.substr(open + 1, close - open - 1);
        if (name == "c")
            out += std::to_string(c.number);
        else if (name == "i")
            out += std::to_string(c.sequence);
        else if (name == "m")
            out += std::to_string(c.sequence % scenario_.modulo);
        else if (name == "r")
            out += std::to_string(c.random);
        else if (const auto found = c.captured.find(name); found != c.captured.end())
            out += found->second;
        else
            out.append(text, open, close + 1 - open);
        at = close + 1;
    }
    return out;
}

void Load::Watch(Connection& c, bool write)
{
    if (c.wantsWrite == write)
        return;
    epoll_event event = {};
    event.events = EPOLLIN | (write ? EPOLLOUT : 0u);
    event.data.u32 = c.number;
    epoll_ctl(epoll_, EPOLL_CTL_MOD, c.fd, &event);
    c.wantsWrite = write;
}

bool Load::Open(Connection& c)
{
    // Connecting to loopback does not wait, so it may block; all that follows must not.
    c.fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (c.fd < 0 ||
        connect(c.fd, reinterpret_cast<const sockaddr*>(&address_), sizeof address_) != 0) {
        Wrong(c, std::string("cannot connect: ") + std::strerror(errno));
        if (c.fd >= 0)
            close(c.fd);
        c.fd = -1;
        return false;
    }
    const int on = 1;
    setsockopt(c.fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    fcntl(c.fd, F_SETFL, O_NONBLOCK);
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.u32 = c.number;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, c.fd, &event);
    c.wantsWrite = false;
    c.open = true;
    return true;
}

void Load::Close(Connection& c)
{
    if (c.fd >= 0)
        close(c.fd);
    c.fd = -1;
    c.open = false;
}

void Load::Wrong(const Connection& c, const std::string& why)
{
    ++outcome_.wrong;
    if (outcome_.firstWrong.empty()) {
        const Step& step = scenario_.steps[c.step];
        outcome_.firstWrong = step.method + " " + Expand(c, step.target) + ": " + why;
    }
}

bool Load::NextSequence(Connection& c)
{
    if (OutOfTime()) {
        Close(c);
        --working_;
        return false;
    }
    c.sequence = started_++;
    c.random = dice_() % scenario_.random;
    c.captured.clear();
    c.step = 0;
    return true;
}

void Load::NextStep(Connection& c)
{
    for (;;) {
        if (c.step == scenario_.steps.size()) {
            ++outcome_.sequences;
            if (!NextSequence(c))
                return;
        }
        const Step& step = scenario_.steps[c.step];
        if (step.needs.empty() || c.captured.count(step.needs))
            break;
        ++c.step;
    }
    c.retried = false;
    StartRequest(c);
}

void Load::StartRequest(Connection& c)
{
    const Step& step = scenario_.steps[c.step];
    if (!c.open && !Open(c)) {
        --working_;
        return;
    }
    const std::string body = Expand(c, step.body);
    c.file = step.bodyFile;
    c.head = step.method + " " + Expand(c, step.target) + " HTTP/1.1\r\nHost: " + host_ + "\r\n";
    for (const std::string& header : step.headers)
        c.head += Expand(c, header) + "\r\n";
    if (step.rangeLength) {
        c.rangeStart = dice_() % (step.rangeFile.size - step.rangeLength + 1);
        c.head += "Range: bytes=" + std::to_string(c.rangeStart) + "-" +
                  std::to_string(c.rangeStart + step.rangeLength - 1) + "\r\n";
    }
    if (!body.empty() || step.hasBodyFile || step.method == "PUT")
        c.head += "Content-Length: " + std::to_string(body.size() + c.file.size) + "\r\n";
    c.head += "\r\n" + body;
    c.sent = 0;
    c.received = 0;
    c.beginning.clear();
    c.differs = false;
    c.sawFirst = false;
    c.reply.Begin(step.method == "HEAD");
    c.began = c.lastSeen = Clock::now();
    if (!step.gives.empty() && !c.retried)
        held_.erase(Expand(c, step.gives));
    Send(c);
}

void Load::Send(Connection& c)
{
    const size_t total = c.head.size() + c.file.size;
    while (c.sent < total) {
        iovec parts[2];
        int count = 0;
        if (c.sent < c.head.size())
            parts[count++] = {c.head.data() + c.sent, c.head.size() - c.sent};
        const size_t inFile = c.sent < c.head.size() ? 0 : c.sent - c.head.size();
        if (inFile < c.file.size)
            parts[count++] = {const_cast<char*>(c.file.data) + inFile, c.file.size - inFile};
        msghdr message = {};
        message.msg_iov = parts;
        message.msg_iovlen = static_cast<size_t>(count);
        const ssize_t done = sendmsg(c.fd, &message, MSG_NOSIGNAL);
        if (done < 0) {
            if (errno == EAGAIN)
                return Watch(c, true);
            // A server that refuses a body may have answered before it closed.
            return Receive(c);
        }
        c.sent += static_cast<size_t>(done);
        outcome_.bytesOut += static_cast<size_t>(done);
        c.lastSeen = Clock::now();
    }
    Watch(c, false);
}

void Load::TakeBody(Connection& c, const char* data, size_t size)
{
    const Step& step = scenario_.steps[c.step];
    const Content* wanted = nullptr;
    size_t at = c.received;
    if (c.reply.Status() == 206 && step.rangeLength) {
        wanted = &step.rangeFile;
        at += c.rangeStart;
    } else if (step.hasReplyFile && c.reply.Status() / 100 == 2) {
        wanted = &step.replyFile;
    }
    if (wanted && !c.differs)
        c.differs = at + size > wanted->size || std::memcmp(wanted->data + at, data, size) != 0;
    if ((!step.replyHas.empty() || !step.token.empty()) && c.beginning.size() < 65536)
        c.beginning.append(data, std::min<size_t>(size, 65536 - c.beginning.size()));
    c.received += size;
}

void Load::Receive(Connection& c)
{
    for (;;) {
        const ssize_t got = recv(c.fd, buffer_.data(), buffer_.size(), 0);
        if (got < 0 && errno == EAGAIN)
            return;
        if (got <= 0) {
            if (c.reply.TakeEnd())
                return Finish(c);
            if (!c.reply.Started() && !c.retried)
                return Retry(c);
            return Lost(c, "the connection ended within a reply");
        }
        c.lastSeen = Clock::now();
        if (!c.sawFirst) {
            c.sawFirst = true;
            outcome_.firstByteMicros.push_back(Micros(c.lastSeen - c.began));
        }
        const size_t size = static_cast<size_t>(got);
        outcome_.bytesIn += size;
        const size_t taken =
            c.reply.Take(buffer_.data(), size,
                         [&](const char* data, size_t piece) { TakeBody(c, data, piece); });
        if (c.reply.Broken())
            return Lost(c, "this is no HTTP");
        if (!c.reply.Done())
            continue;
        if (taken != size)
            return Lost(c, "bytes follow the reply");
        return Finish(c);
    }
}

// A server may close an idle connection at the very moment that it is used again.
void Load::Retry(Connection& c)
{
    ++outcome_.reconnects;
    Close(c);
    c.retried = true;
    StartRequest(c);
}

void Load::Lost(Connection& c, const char* why)
{
    Wrong(c, why);
    ++outcome_.requests;
    Close(c);
    c.step = scenario_.steps.size();
    NextStep(c);
}

std::string Load::Check(Connection& c, const Step& step)
{
    const int status = c.reply.Status();
    if (std::find(step.expected.begin(), step.expected.end(), status) == step.expected.end())
        return "answered " + std::to_string(status);
    if (status / 100 != 2)
        return "";
    if (c.differs)
        return "the body differs";
    const int64_t wanted = step.rangeLength    ? static_cast<int64_t>(step.rangeLength)
                           : step.hasReplyFile ? static_cast<int64_t>(step.replyFile.size)
                                               : step.replyLength;
    if (wanted >= 0 && c.received != static_cast<uint64_t>(wanted))
        return "the body has " + std::to_string(c.received) + " bytes instead of " +
               std::to_string(wanted);
    if ((!step.replyHas.empty() || !step.token.empty()) &&
        c.beginning.find(step.replyHas) == std::string::npos)
        return "the body lacks what it should contain";
    if (!step.takes.empty() && !held_.insert(Expand(c, step.takes)).second)
        return "two holders at once";
    return "";
}

// Servers tell a new lock's token in a header, in the body, or in both.
void Load::CaptureToken(Connection& c, const std::string& name)
{
    if (const auto value = c.reply.Header("lock-token"); !value.empty()) {
        c.captured[name] = std::string(value);
        return;
    }
    for (const char* scheme : {"opaquelocktoken:", "urn:uuid:"}) {
        const size_t at = c.beginning.find(scheme);
        if (at == std::string::npos)
            continue;
        c.captured[name] = "<" + c.beginning.substr(at, c.beginning.find('<', at) - at) + ">";
        return;
    }
    Wrong(c, "a lock without a token");
}

void Load::Finish(Connection& c)
{
    const Step& step = scenario_.steps[c.step];
    outcome_.wholeMicros.push_back(Micros(c.lastSeen - c.began));
    ++outcome_.requests;
    ++outcome_.statuses[c.reply.Status()];
    if (const std::string why = Check(c, step); !why.empty()) {
        Wrong(c, why);
    } else if (c.reply.Status() / 100 == 2) {
        for (const auto& [name, header] : step.captures) {
            if (const auto value = c.reply.Header(header); !value.empty())
                c.captured[name] = std::string(value);
        }
        if (!step.token.empty())
            CaptureToken(c, step.token);
    }
    if (!c.reply.Keeps() || c.sent < c.head.size() + c.file.size) {
        ++outcome_.reconnects;
        Close(c);
    }
    ++c.step;
    NextStep(c);
}

Outcome Load::Run()
{
    epoll_ = epoll_create1(EPOLL_CLOEXEC);
    start_ = Clock::now();
    connections_.resize(scenario_.connections);
    working_ = connections_.size();
    for (uint32_t i = 0; i < scenario_.connections; ++i) {
        connections_[i].number = i;
        connections_[i].step = 0;
        if (NextSequence(connections_[i]))
            NextStep(connections_[i]);
    }
    std::vector<epoll_event> events(256);
    Clock::time_point checked = Clock::now();
    while (working_ > 0) {
        const int count = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), 1000);
        for (int i = 0; i < count; ++i) {
            Connection& c = connections_[events[static_cast<size_t>(i)].data.u32];
            const uint32_t what = events[static_cast<size_t>(i)].events;
            if (!c.open)
                continue;
            if (what & EPOLLOUT)
                Send(c);
            if (c.open && (what & (EPOLLIN | EPOLLERR | EPOLLHUP)))
                Receive(c);
        }
        if (Clock::now() - checked < std::chrono::seconds(1))
            continue;
        checked = Clock::now();
        for (Connection& c : connections_) {
            if (c.open && checked - c.lastSeen > kSilence)
                Lost(c, "no answer for a minute");
        }
    }
    outcome_.seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    close(epoll_);
    return std::move(outcome_);
}

} // namespace

Outcome RunLoad(const Scenario& scenario, const sockaddr_in& address, const std::string& host)
{
    return Load(scenario, address, host).Run();
}

} // namespace bench
