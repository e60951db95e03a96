// SPDX-License-Identifier: Apache-2.0
//
// Puts the server's parts together, starts and stops them.
#include "host/server/server.h"

#include <sched.h>
#include <sys/resource.h>

#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>

#include "base/descriptor.h"
#include "host/config/addresses.h"
#include "host/config/settings_holder.h"
#include "host/log/access_log.h"
#include "host/module/module_handler.h"
#include "host/net/buffer.h"
#include "host/net/client_limits.h"
#include "host/net/event_loop.h"
#include "host/net/fiber.h"
#include "host/net/monotonic_clock.h"
#include "host/net/server_clock.h"
#include "host/net/worker_pool.h"
#include "host/pipeline/pipeline.h"
#include "host/server/connection_registry.h"
#include "host/server/inherited_sockets.h"
#include "host/server/listener.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLongWait{60'000};

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

// A worker's pools stand on its stack.
void RunWorker(EventLoop& loop, EventLoop::ReadyQueue& queue)
{
    const BlockPool blocks;
    const FiberPool fibers;
    const ExchangePool exchanges;
    loop.Run(queue);
}

} // namespace

class Server::Impl {
  public:
    Impl(const ServerSettings& settings, AccessControl& accessControl, IKestReq_2& module,
         std::string location, ServerCounts* counts)
        : settings_(settings), handler_(module),
          pipeline_(settings.dialect, accessControl, handler_, std::move(location)), counts_(counts)
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
    uint64_t Ticks() const { return ticks_; }
    ServerFigures Figures();
    bool Stop();

  private:
    std::string Publish(ServerSettings settings);
    std::string Listen(ListenAddress where, InheritedSockets& inherited);
    std::string ListenEverywhere();
    void RunClock();
    void ReportGivenUp(int64_t now);
    void StopConnections();
    void StopClock();
    void End(milliseconds time);

    const ServerSettings settings_;
    ModuleHandler handler_;
    const Pipeline pipeline_;
    EventLoop loop_;
    WorkerPool workers_{loop_, &RunWorker};
    ClientLimits clients_;
    ConnectionRegistry registry_;
    SettingsHolder inForce_;
    AccessLog log_;
    std::atomic<bool> isStopping_{false};
    ServerClock clock_;
    ServerCounts* const counts_;
    const ConnectionServices services_{loop_, registry_,   clients_, inForce_, pipeline_,
                                       log_,  isStopping_, clock_,   counts_};
    std::vector<std::unique_ptr<Listener>> listeners_;
    std::vector<ListenAddress> addresses_;
    std::thread clockThread_;
    std::atomic<uint64_t> ticks_{0}; // of that thread
    std::once_flag stopped_;
    bool hasEnded_ = false;
    uint64_t reportedGivenUp_ = 0; // of the clock's thread
    int64_t reportsAgain_ = 0;     // likewise; NowMs
};

std::string Server::Impl::Publish(ServerSettings settings)
{
    std::string error;
    settings.dialect = settings_.dialect;       // the module's does not change either,
    settings.pathPrefix = settings_.pathPrefix; // nor does its location
    settings.limits.connections = FitToFileLimit(settings.limits.connections);
    if (const auto made = MakeEffectiveSettings(settings, error))
        inForce_.Publish(made);
    return error;
}

std::string Server::Impl::Listen(ListenAddress where, InheritedSockets& inherited)
{
    std::string error;
    const std::vector<ListenAddress>& announced = settings_.proxyProtocol;
    const bool takesPreambles = std::count(announced.begin(), announced.end(), where) != 0;
    base::Descriptor socket = inherited.Claim(where);
    if (!socket)
        socket = OpenListeningSocket(where, error);
    if (!error.empty())
        return error;
    addresses_.push_back(where);
    listeners_.push_back(std::make_unique<Listener>(services_, std::move(socket), takesPreambles));
    return {};
}

// On each address of the settings, with the sockets of the service manager where it has opened
// them.
std::string Server::Impl::ListenEverywhere()
{
    std::string error;
    InheritedSockets inherited = InheritedSockets::Take(error);
    for (const ListenAddress& where : settings_.listen)
        if (error.empty())
            error = Listen(where, inherited);
    for (const ListenAddress& where : inherited.Unclaimed())
        if (error.empty())
            error = "the service manager listens on " + FormatListenAddress(where) +
                    ", which 'Listen' does not name";
    return error;
}

std::string Server::Impl::Start()
{
    if (const std::string error = Publish(settings_); !error.empty())
        return error;
    if (const std::string error = ListenEverywhere(); !error.empty())
        return error;
    for (const auto& listener : listeners_)
        listener->Begin();
    const unsigned cores = UsableCores();
    try {
        workers_.Start(cores, settings_.limits.workerThreads);
        clockThread_ = std::thread([this] { RunClock(); });
    } catch (const std::system_error& failure) {
        return std::string("cannot start threads: ") + failure.what();
    }
    return {};
}

// Everything is looked after at the first look after a long sleep, too.
void Server::Impl::RunClock()
{
    ClockPace pace;
    milliseconds sleep = kTick;
    int64_t due = 0;
    for (unsigned ticks = 0; clock_.Sleep(sleep); ++ticks) {
        const bool wasLong = sleep > kTick;
        workers_.OnTimer();
        bool isPaused = false;
        for (const auto& listener : listeners_) {
            listener->Resume();
            isPaused = isPaused || listener->IsPaused();
        }
        const int64_t now = NowMs();
        if (ticks % 2 == 0 || wasLong) {
            due = registry_.ExpireDeadlines(now, inForce_.Snapshot()->server.limits);
            ReportGivenUp(now);
        }
        if (ticks % 5 == 0 || wasLong)
            log_.Flush();
        ++ticks_;
        sleep = pace.Next(now, loop_.Served(), isPaused ? now : due);
    }
}

void Server::Impl::ReportGivenUp(int64_t now)
{
    const uint64_t all = clients_.GivenUp();
    if (all == reportedGivenUp_ || now < reportsAgain_)
        return;
    TolmLog(kLogWarning, "kestd",
            (std::to_string(all - reportedGivenUp_) +
             " requests were ended that waited longest for their clients: too many waited")
                .c_str());
    reportedGivenUp_ = all;
    reportsAgain_ = now + 10'000;
}

ServerFigures Server::Impl::Figures()
{
    ServerFigures figures;
    figures.idleConnections = registry_.CountIdle();
    figures.connections = std::max(registry_.Count(), figures.idleConnections);
    figures.workers = workers_.Count();
    figures.busyWorkers = loop_.Busy();
    figures.mostWorkers = workers_.Limit();
    figures.waitingRequests = clients_.Waiting();
    figures.givenUpRequests = clients_.GivenUp();
    return figures;
}

std::string Server::Impl::Apply(const ServerSettings& settings)
{
    if (const std::string error = Publish(settings); !error.empty())
        return error;
    workers_.SetLimit(settings.limits.workerThreads);
    return {};
}

bool Server::Impl::Stop()
{
    std::call_once(stopped_, [this] {
        isStopping_ = true;
        if (clockThread_.joinable()) {
            StopConnections();
            StopClock();
        }
        loop_.Stop();
        End(milliseconds(1000));
        log_.Flush();
    });
    return hasEnded_;
}

// Lets running requests end in their time, then cancels them.
void Server::Impl::StopConnections()
{
    for (const auto& listener : listeners_)
        listener->Close();
    // Again and again: a connection may have been about to become idle.
    const auto end =
        std::chrono::steady_clock::now() + inForce_.Snapshot()->server.limits.shutdownTime;
    do
        registry_.CloseIdle();
    while (!registry_.WaitUntilEmpty(kTick / 4) && std::chrono::steady_clock::now() < end);
    registry_.CloseAll();
    (void)registry_.WaitUntilEmpty(milliseconds(1000)); // for the replies in hand
}

void Server::Impl::StopClock()
{
    clock_.End();
    clockThread_.join();
}

// Gives back what the workers use, once they have ended.
void Server::Impl::End(milliseconds time)
{
    hasEnded_ = workers_.Join(time);
    if (!hasEnded_)
        return;
    registry_.DeleteAll();
    listeners_.clear();
}

Server::Server(const ServerSettings& settings, AccessControl& accessControl, IKestReq_2* module,
               std::string location, ServerCounts* counts)
    : impl_(std::make_unique<Impl>(settings, accessControl, *module, std::move(location), counts))
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

uint64_t Server::Ticks() const
{
    return impl_->Ticks();
}

ServerFigures Server::Figures()
{
    return impl_->Figures();
}

bool Server::Stop()
{
    return impl_->Stop();
}

} // namespace kestd
