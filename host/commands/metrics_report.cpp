// SPDX-License-Identifier: Apache-2.0
//
// The families of metrics besides those of requests, and what /health and /ready look at.
#include "host/commands/metrics_report.h"

#include <cstdio>
#include <ctime>
#include <memory>

#include <unistd.h>

#include "host/log/audit.h"
#include <kest/dav/volume_figures.h>

namespace kestd {

namespace {

// The server's clock goes at least once a second; one that has not for this long stands still.
constexpr std::chrono::seconds kStandstill{10};
// A disk that takes longer to tell its free space does not answer.
constexpr std::chrono::milliseconds kPatience{2000};

double SecondsOf(clockid_t clock)
{
    timespec now{};
    (void)clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// 0 where the system does not tell.
uint64_t ResidentBytes()
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen("/proc/self/statm", "re"),
                                                               &std::fclose);
    unsigned long long all = 0;
    unsigned long long resident = 0;
    if (!file || std::fscanf(file.get(), "%llu %llu", &all, &resident) != 2)
        return 0;
    return resident * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
}

uint64_t Read(const std::atomic<uint64_t>& counter)
{
    return counter.load(std::memory_order_relaxed);
}

} // namespace

MetricsReport::MetricsReport(Server& server, const ServerCounts& counts,
                             const Authenticator& authenticator, Ref<IKestDAV2> provider)
    : server_(server), counts_(counts), authenticator_(authenticator),
      volumes_(provider ? std::make_unique<VolumeFiguresReader>(std::move(provider)) : nullptr),
      start_(SecondsOf(CLOCK_REALTIME)), ticked_(std::chrono::steady_clock::now())
{
}

std::string MetricsReport::Metrics(MetricsFormat format)
{
    Exposition out(format);
    WriteProcess(out);
    counts_.requests.Write(out);
    const ServerFigures figures = server_.Figures();
    WriteConnections(out, figures);
    WriteWork(out, figures);
    WriteSignIns(out);
    WriteVolumes(out);
    return out.Take();
}

void MetricsReport::WriteProcess(Exposition& out) const
{
    out.Gauge("kestd_build_info", "1, with the version as a label.");
    out.Add({{"version", KESTD_VERSION}}, uint64_t{1});
    out.Gauge("process_start_time_seconds", "When the process began, in seconds since 1970.");
    out.Add({}, start_);
    out.Counter("process_cpu_seconds", "Processor time of the process.");
    out.Add({}, SecondsOf(CLOCK_PROCESS_CPUTIME_ID));
    out.Gauge("process_resident_memory_bytes", "Memory of the process that is not swapped out.");
    out.Add({}, ResidentBytes());
}

void MetricsReport::WriteConnections(Exposition& out, const ServerFigures& figures) const
{
    out.Gauge("kestd_connections", "Open connections; idle ones wait for a request.");
    out.Add({{"state", "active"}}, figures.connections - figures.idleConnections);
    out.Add({{"state", "idle"}}, figures.idleConnections);
    const ConnectionCounts& counts = counts_.connections;
    out.Counter("kestd_connections_accepted", "Connections that were served.");
    out.Add({}, Read(counts.accepted));
    out.Counter("kestd_connections_refused",
                "Connections that were not: too many at once, of one address, or by nobody who may "
                "speak the PROXY protocol.");
    out.Add({{"reason", "connections"}}, Read(counts.refusedAsTooMany));
    out.Add({{"reason", "address"}}, Read(counts.refusedToAddress));
    out.Add({{"reason", "untrusted"}}, Read(counts.refusedUntrusted));
}

void MetricsReport::WriteWork(Exposition& out, const ServerFigures& figures)
{
    out.Gauge("kestd_workers", "Threads that requests run on.");
    out.Add({}, figures.workers);
    out.Gauge("kestd_workers_busy", "Those of them that serve something.");
    out.Add({}, figures.busyWorkers);
    out.Gauge("kestd_workers_limit", "As many as there may be.");
    out.Add({}, figures.mostWorkers);
    out.Gauge("kestd_requests_waiting", "Requests whose clients keep them waiting.");
    out.Add({}, figures.waitingRequests);
    out.Counter("kestd_requests_given_up",
                "Requests that were ended because too many waited for their clients.");
    out.Add({}, figures.givenUpRequests);
}

void MetricsReport::WriteSignIns(Exposition& out) const
{
    const SignInCounts counts = CountedSignIns();
    out.Counter("kestd_sign_ins",
                "Checks of passwords, by result; remembered credentials are not checked again.");
    out.Add({{"result", "granted"}}, counts.granted);
    out.Add({{"result", "denied"}}, counts.denied);
    out.Add({{"result", "throttled"}}, counts.throttled);
    out.Add({{"result", "unavailable"}}, counts.unavailable);
    out.Gauge("kestd_guessers_throttled",
              "Names and addresses that have guessed wrong and have to wait.");
    out.Add({}, uint64_t{authenticator_.ThrottledGuessers()});
}

void MetricsReport::WriteVolumes(Exposition& out)
{
    const std::vector<VolumeFigures> volumes =
        volumes_ ? volumes_->Read(kPatience) : std::vector<VolumeFigures>();
    const auto family = [&](const char* name, const char* help, uint32_t needed, auto&& valueOf) {
        out.Gauge(name, help);
        for (const VolumeFigures& volume : volumes)
            if ((volume.flags & needed) == needed)
                out.Add({{"volume", volume.name}}, uint64_t{valueOf(volume)});
    };
    const auto flag = [](uint32_t bit) {
        return [bit](const VolumeFigures& volume) { return (volume.flags & bit) ? 1U : 0U; };
    };
    family("kestd_volume_up", "1 where the volume's directory answers and is in its place.", 0,
           flag(kVolumeIsReachable));
    family("kestd_volume_writable", "1 where the volume is served for changes, too.", 0,
           flag(kVolumeIsWritable));
    family("kestd_volume_size_bytes", "Size of the volume's disk.", kVolumeHasSpace,
           [](const VolumeFigures& volume) { return volume.totalBytes; });
    family("kestd_volume_free_bytes", "What is free on it.", kVolumeHasSpace,
           [](const VolumeFigures& volume) { return volume.freeBytes; });
    family("kestd_locks", "Locks that are held, 100,000 at most.", kVolumeHasCounts,
           [](const VolumeFigures& volume) { return volume.locks; });
    family("kestd_kept_entries", "Deleted entries that can be brought back, 100,000 at most.",
           kVolumeHasCounts, [](const VolumeFigures& volume) { return volume.keptEntries; });
}

std::string MetricsReport::WhatIsWrong()
{
    const uint64_t ticks = server_.Ticks();
    const auto now = std::chrono::steady_clock::now();
    if (ticks != ticks_ || isStopping_) { // while the server stops, its clock has ended
        ticks_ = ticks;
        ticked_ = now;
    }
    return now - ticked_ < kStandstill ? std::string() : "the server's clock stands still";
}

std::string MetricsReport::WhatIsNotReady()
{
    if (isStopping_)
        return "stopping";
    if (std::string wrong = WhatIsWrong(); !wrong.empty())
        return wrong;
    if (volumes_)
        for (const VolumeFigures& volume : volumes_->Read(kPatience))
            if ((volume.flags & kVolumeIsReachable) == 0)
                return "the volume '" + volume.name + "' does not answer, or is not in its place";
    return {};
}

} // namespace kestd
