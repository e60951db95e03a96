// SPDX-License-Identifier: Apache-2.0
#include "host/net/server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>

#include "host/http/ascii.h"
#include "host/http/target.h"
#include "host/net/connection.h"
#include "host/net/connection_registry.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kTick{100};
constexpr milliseconds kLongWait{60'000};
// Connections over the limit that are told so at the same time, fewer where the limit is low; more
// are just closed.
constexpr size_t kTurnedAway = 256;
constexpr int kAcceptBatch = 32;

std::string Reason(const char* what, const ListenAddress& where, int error)
{
    return std::string(what) + " " + where.address + ":" + std::to_string(where.port) + ": " +
           std::strerror(error);
}

bool FillAddress(const ListenAddress& from, sockaddr_storage& out, socklen_t& size)
{
    out = {};
    auto& v4 = reinterpret_cast<sockaddr_in&>(out);
    auto& v6 = reinterpret_cast<sockaddr_in6&>(out);
    if (inet_pton(AF_INET, from.address.c_str(), &v4.sin_addr) == 1) {
        v4.sin_family = AF_INET;
        v4.sin_port = htons(from.port);
        size = sizeof v4;
        return true;
    }
    if (inet_pton(AF_INET6, from.address.c_str(), &v6.sin6_addr) == 1) {
        v6.sin6_family = AF_INET6;
        v6.sin6_port = htons(from.port);
        size = sizeof v6;
        return true;
    }
    return false;
}

// The processors that this process may run on; there may be more that it may not.
unsigned UsableCores()
{
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) == 0)
        return static_cast<unsigned>(std::max(CPU_COUNT(&set), 1));
    return std::max(std::thread::hardware_concurrency(), 1u); // more than the set has room for
}

// Files that may be open beside those for connections and content.
constexpr rlim_t kOwnFiles = 32;
// Enough for the content that any number of threads has in hand.
constexpr rlim_t kContentFiles = 1024;

// Asks the system for as many open files as the connections and what they serve may need; the usual
// limit of 1,024 would turn clients away long before our own does. Returns how many connections
// there may be: where the system allows less, connections must not take what content needs.
uint32_t FitToFileLimit(uint32_t connections)
{
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return connections;
    const rlim_t wanted = rlim_t{connections} * 2 + kContentFiles;
    if (limit.rlim_cur < wanted) {
        limit.rlim_cur = std::min(wanted, limit.rlim_max);
        (void)setrlimit(RLIMIT_NOFILE, &limit); // within the hard limit this cannot fail
    }
    const rlim_t others = kOwnFiles + std::min(limit.rlim_cur / 4, kContentFiles);
    const rlim_t allowed = limit.rlim_cur > others ? limit.rlim_cur - others : 1;
    if (allowed >= connections)
        return connections;
    TolmLog(kLogWarning, "kestd",
            ("only " + std::to_string(limit.rlim_cur) +
             " files can be open at once: no more than " + std::to_string(allowed) +
             " connections are served")
                .c_str());
    return static_cast<uint32_t>(allowed);
}

// Whether a connection beside as many as this is not even told that there are too many.
bool IsFarOver(size_t connections, size_t limit)
{
    return connections >= limit + std::min(kTurnedAway, limit / 4 + 8);
}

// Turns a settings record into what the server works with. Null with a text in `error`.
std::shared_ptr<EffectiveSettings> MakeEffectiveSettings(const ServerSettings& settings,
                                                         std::string& error)
{
    static std::atomic<uint64_t> versions{0};
    auto live = std::make_shared<EffectiveSettings>();
    live->settings = settings;
    live->version = ++versions;
    // The contract's strings count 16 bits of bytes, two for each code unit, and spare room.
    live->settings.limits.targetBytes = std::min(live->settings.limits.targetBytes, 28u * 1024);
    if (!settings.publicUrl.empty()) {
        std::string_view url = settings.publicUrl;
        std::string_view scheme;
        std::string_view host;
        if (!TakeOrigin(url, scheme, host)) {
            error = "the public URL " + settings.publicUrl + " is not http(s)://HOST[:PORT]";
            return nullptr;
        }
        std::string_view name;
        std::string_view port;
        SplitHost(host, name, port);
        live->publicHost = name;
        live->isPublicSecure = EqualsIgnoringCase(scheme, "https");
        live->publicPort =
            !port.empty() ? port : std::string_view(live->isPublicSecure ? "443" : "80");
    }
    if (settings.tlsCertificate.empty() != settings.tlsKey.empty()) {
        error = "TLS needs a certificate and a key";
        return nullptr;
    }
    if (!settings.tlsCertificate.empty()) {
        live->tls = LoadTlsContext(settings.tlsCertificate, settings.tlsKey, error);
        if (!live->tls)
            return nullptr;
    }
    return live;
}

// One listening socket.
class Listener final : public EventHandler {
  public:
    // Throws std::bad_alloc or std::system_error.
    Listener(Front& front, Descriptor socket)
        : front_(front), socket_(std::move(socket)),
          registration_(front_.loop.Add(socket_.Number(), *this))
    {
    }
    ~Listener() { front_.loop.Remove(registration_); }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    void Begin() { OnReady({}); }
    // From any thread: goes on after a pause.
    void Resume()
    {
        if (isPaused_.exchange(false))
            front_.loop.Schedule(registration_);
    }
    // From any thread: refuses new connections from now on. The socket itself stays until the
    // listener goes, so that nobody else gets its number meanwhile.
    void Close() { (void)shutdown(socket_.Number(), SHUT_RDWR); }

    void OnReady(Event) noexcept override
    {
        do {
            if (front_.isStopping)
                continue;
            if (Accept())
                front_.loop.Schedule(registration_); // others have their turn
        } while (!front_.loop.Release(registration_));
    }

  private:
    // Takes connections. True when there may be more to take now.
    bool Accept()
    {
        for (int i = 0; i < kAcceptBatch; ++i) {
            sockaddr_storage peer{};
            socklen_t size = sizeof peer;
            Descriptor client(
                accept4(socket_.Number(), reinterpret_cast<sockaddr*>(&peer), &size, SOCK_CLOEXEC));
            if (client.Number() >= 0) {
                Welcome(std::move(client), peer);
            } else if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
                // The connection stays in the queue; asking again at once would spin.
                if (const int64_t now = NowMs(); now >= saysAgain_) {
                    TolmLog(kLogWarning, "kestd",
                            "cannot accept a connection: too many open files or no memory");
                    saysAgain_ = now + 10'000;
                }
                isPaused_ = true;
                return false;
            } else if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINVAL) {
                return false; // nobody is there, or the listener is closed
            }                 // else a connection went away, or its network did
        }
        return true;
    }

    void Welcome(Descriptor client, const sockaddr_storage& peer)
    {
        const EffectiveSettings& live = front_.Current();
        const Limits& limits = live.settings.limits;
        try {
            ClientLimits::Place place = front_.clients.Enter(peer);
            const size_t open = front_.ConnectionCount();
            const size_t own = place.Connections() - 1;
            if (IsFarOver(open, limits.connections) || IsFarOver(own, limits.connectionsPerAddress))
                return;
            // deletes itself
            auto* connection =
                new Connection(front_, std::move(client), std::move(place), peer, live);
            if (open >= limits.connections || own >= limits.connectionsPerAddress)
                connection->RejectOverload();
            else
                connection->Begin();
        } catch (const std::exception& error) {
            TolmLog(kLogWarning, "kestd", error.what());
        }
    }

    Front& front_;
    const Descriptor socket_;
    const EventLoop::Registration registration_;
    std::atomic<bool> isPaused_{false}; // no memory, or no number for another descriptor
    int64_t saysAgain_ = 0;
};

} // namespace

class Server::Impl {
  public:
    Impl(const ServerSettings& settings, AccessControl& accessControl, IKestReq_2* module,
         std::string location)
        : settings_(settings), front_(accessControl, module, std::move(location))
    {
    }
    ~Impl()
    {
        while (!Stop())
            End(kLongWait);
    }

    std::string Start();
    std::vector<ListenAddress> Addresses() const { return addresses_; }
    std::string Apply(const ServerSettings& settings);
    bool Stop();

  private:
    void End(milliseconds time);
    std::string Listen(const ListenAddress& where);
    void Clock();

    const ServerSettings settings_;
    Front front_;
    std::vector<std::unique_ptr<Listener>> listeners_;
    std::vector<ListenAddress> addresses_;
    std::thread clock_;
    std::mutex mutex_; // guards clockEnds_
    std::condition_variable wake_;
    bool clockEnds_ = false;
    std::once_flag stopped_;
    bool hasEnded_ = false;
};

std::string Server::Impl::Listen(const ListenAddress& where)
{
    sockaddr_storage address{};
    socklen_t size = 0;
    if (!FillAddress(where, address, size))
        return "cannot listen on " + where.address + ": not a numeric address";
    Descriptor listening(socket(address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int fd = listening.Number();
    if (fd < 0)
        return Reason("cannot listen on", where, errno);
    const int on = 1;
    (void)setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (address.ss_family == AF_INET6)
        (void)setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &on, sizeof on);
    if (bind(fd, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        listen(fd, SOMAXCONN) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0)
        return Reason("cannot listen on", where, errno);
    const uint16_t port = address.ss_family == AF_INET6
                              ? reinterpret_cast<const sockaddr_in6&>(address).sin6_port
                              : reinterpret_cast<const sockaddr_in&>(address).sin_port;
    addresses_.push_back({where.address, ntohs(port)});
    listeners_.push_back(std::make_unique<Listener>(front_, std::move(listening)));
    return {};
}

std::string Server::Impl::Start()
{
    std::string error;
    const std::shared_ptr<EffectiveSettings> live = MakeEffectiveSettings(settings_, error);
    if (!live)
        return error;
    live->settings.limits.connections = FitToFileLimit(settings_.limits.connections);
    front_.Publish(live);
    for (const ListenAddress& where : settings_.listen)
        if (error = Listen(where); !error.empty())
            return error;
    for (const auto& listener : listeners_)
        listener->Begin();
    const unsigned cores = UsableCores();
    try {
        front_.workers.Start(cores, settings_.limits.workerThreads);
        clock_ = std::thread([this] { Clock(); });
    } catch (const std::system_error& failure) {
        return std::string("cannot start threads: ") + failure.what();
    }
    return {};
}

void Server::Impl::Clock()
{
    std::unique_lock lock(mutex_);
    for (unsigned ticks = 0; !clockEnds_; ++ticks) {
        wake_.wait_for(lock, kTick, [this] { return clockEnds_; });
        lock.unlock();
        front_.workers.OnTimer();
        for (const auto& listener : listeners_)
            listener->Resume();
        if (ticks % 2 == 0)
            front_.ExpireDeadlines(NowMs());
        if (ticks % 5 == 0)
            front_.log.Flush();
        lock.lock();
    }
}

std::string Server::Impl::Apply(const ServerSettings& settings)
{
    std::string error;
    const std::shared_ptr<EffectiveSettings> live = MakeEffectiveSettings(settings, error);
    if (!live)
        return error;
    live->settings.limits.connections = FitToFileLimit(settings.limits.connections);
    front_.workers.SetLimit(settings.limits.workerThreads);
    front_.Publish(live);
    return {};
}

bool Server::Impl::Stop()
{
    std::call_once(stopped_, [this] {
        front_.isStopping = true;
        if (clock_.joinable()) {
            for (const auto& listener : listeners_)
                listener->Close();
            const milliseconds time = front_.Snapshot()->settings.limits.shutdownTime;
            // Again and again: a connection may have been about to become idle.
            const auto end = std::chrono::steady_clock::now() + time;
            do
                front_.Hurry(false);
            while (!front_.WaitUntilEmpty(kTick / 4) && std::chrono::steady_clock::now() < end);
            front_.Hurry(true);
            (void)front_.WaitUntilEmpty(milliseconds(1000)); // for the replies in hand
            {
                const std::lock_guard lock(mutex_);
                clockEnds_ = true;
            }
            wake_.notify_all();
            clock_.join();
        }
        front_.loop.Stop();
        End(milliseconds(1000));
        front_.log.Flush();
    });
    return hasEnded_;
}

// Gives back what the workers use, once they have ended.
void Server::Impl::End(milliseconds time)
{
    hasEnded_ = front_.workers.Join(time);
    if (!hasEnded_)
        return;
    front_.DeleteAll();
    listeners_.clear();
}

Server::Server(const ServerSettings& settings, AccessControl& accessControl, IKestReq_2* module,
               std::string location)
    : impl_(std::make_unique<Impl>(settings, accessControl, module, std::move(location)))
{
}

Server::~Server() = default;

std::string Server::Check(const ServerSettings& settings)
{
    std::string error;
    (void)MakeEffectiveSettings(settings, error); // without one, the text says why
    return error;
}

std::string Server::Start()
{
    return impl_->Start();
}

std::vector<ListenAddress> Server::Addresses() const
{
    return impl_->Addresses();
}

std::string Server::Apply(const ServerSettings& settings)
{
    return impl_->Apply(settings);
}

bool Server::Stop()
{
    return impl_->Stop();
}

} // namespace kestd
