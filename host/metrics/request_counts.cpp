// SPDX-License-Identifier: Apache-2.0
//
// The tables of counters, and how they become families.
#include "host/metrics/request_counts.h"

#include <algorithm>
#include <iterator>

#include "host/http/method.h"

namespace kestd {

namespace {

using Cell = std::atomic<uint64_t>;

constexpr size_t kTables = 16; // 20 KiB each, and 1.5 KiB for each volume

// Microseconds and bytes: what lies at a bound or below is counted there.
constexpr std::array<uint64_t, 15> kDurations{
    500,     1'000,   2'500,     5'000,     10'000,     25'000,     50'000,    100'000,
    250'000, 500'000, 1'000'000, 2'500'000, 10'000'000, 30'000'000, 60'000'000};
constexpr std::array<uint64_t, 12> kSizes{0,         256,       1U << 10U, 1U << 12U,
                                          1U << 14U, 1U << 16U, 1U << 18U, 1U << 20U,
                                          1U << 22U, 1U << 24U, 1U << 28U, uint64_t{1} << 32U};

// In the order of their cells; the first cell is of all others.
constexpr std::array kStatuses{0,   200, 201, 204, 206, 207, 301, 302, 304, 307, 400, 401,
                               403, 404, 405, 408, 409, 410, 412, 413, 414, 415, 416, 417,
                               421, 422, 423, 424, 429, 431, 500, 501, 502, 503, 505, 507};
constexpr auto kCellOfStatus = [] {
    std::array<uint8_t, 600> cells{};
    for (size_t i = 1; i < kStatuses.size(); ++i)
        cells[static_cast<size_t>(kStatuses[i])] = static_cast<uint8_t>(i);
    return cells;
}();

constexpr size_t CellOf(int status) noexcept
{
    const auto index = static_cast<size_t>(status);
    return index < kCellOfStatus.size() ? kCellOfStatus[index] : 0;
}

void Add(Cell& cell, uint64_t value = 1) noexcept
{
    cell.fetch_add(value, std::memory_order_relaxed);
}

template <size_t N> struct Buckets {
    std::array<Cell, N + 1> counts{};
    Cell sum{0};

    void Observe(const std::array<uint64_t, N>& bounds, uint64_t value) noexcept
    {
        size_t i = 0;
        while (i < N && value > bounds[i])
            ++i;
        Add(counts[i]);
        Add(sum, value);
    }
};

// The sum of some buckets as a sample; `unit` is how many of what was observed make one.
template <size_t N> class Total {
  public:
    template <class Each> void Include(const Each& buckets)
    {
        for (size_t i = 0; i <= N; ++i)
            counts_[i] += buckets.counts[i].load(std::memory_order_relaxed);
        sum_ += buckets.sum.load(std::memory_order_relaxed);
    }
    bool IsEmpty() const
    {
        return std::all_of(counts_.begin(), counts_.end(), [](uint64_t n) { return n == 0; });
    }
    void Write(Exposition& out, Exposition::Labels labels, const std::array<uint64_t, N>& bounds,
               double unit) const
    {
        std::array<double, N> scaled{};
        for (size_t i = 0; i < N; ++i)
            scaled[i] = static_cast<double>(bounds[i]) / unit;
        out.Add(labels, scaled, counts_, static_cast<double>(sum_) / unit);
    }

  private:
    std::array<uint64_t, N + 1> counts_{};
    uint64_t sum_ = 0;
};

// Which table the calling thread counts in. No destructor, as for all thread-local variables.
size_t TableOfThread() noexcept
{
    static std::atomic<size_t> threads{0};
    constinit thread_local size_t numberAndOne = 0;
    if (numberAndOne == 0)
        numberAndOne = threads.fetch_add(1, std::memory_order_relaxed) + 1;
    return numberAndOne % kTables;
}

constexpr std::string_view kClassNames[] = {"other", "1xx", "2xx", "3xx", "4xx", "5xx"};
static_assert(std::size(kClassNames) == RequestCounts::kClasses);

std::string StatusName(int status)
{
    return status ? std::to_string(status) : "other";
}

} // namespace

VolumeIndex::VolumeIndex(std::string location, std::vector<std::string> names)
    : location_(std::move(location)), names_(std::move(names))
{
    std::sort(names_.begin(), names_.end());
    names_.insert(names_.begin(), std::string());
}

size_t VolumeIndex::Find(std::string_view path) const noexcept
{
    if (path.size() <= location_.size() + 1 || path[location_.size()] != '/' ||
        !path.starts_with(location_))
        return 0;
    path.remove_prefix(location_.size() + 1);
    path = path.substr(0, path.find('/'));
    const auto found = std::lower_bound(names_.begin() + 1, names_.end(), path);
    return found != names_.end() && *found == path
               ? static_cast<size_t>(std::distance(names_.begin(), found))
               : 0;
}

struct alignas(64) RequestCounts::Table {
    std::array<std::array<Cell, kStatuses.size()>, kMethods> requests{};
    std::array<Buckets<kDurations.size()>, kMethods> durations{};
    Buckets<kSizes.size()> received;
    Buckets<kSizes.size()> sent;
    std::array<Cell, kStatuses.size()> failures{};
    struct Volume {
        std::array<std::array<Cell, kClasses>, kMethods> requests{};
        Cell received{0};
        Cell sent{0};
    };
    std::unique_ptr<Volume[]> volumes;
};

RequestCounts::RequestCounts(VolumeIndex volumes)
    : volumes_(std::move(volumes)), tables_(std::make_unique<Table[]>(kTables))
{
    for (size_t i = 0; i < kTables; ++i)
        tables_[i].volumes = std::make_unique<Table::Volume[]>(volumes_.Count());
}

RequestCounts::~RequestCounts() = default;

bool RequestCounts::HasCell(int status) noexcept
{
    return CellOf(status) != 0;
}

void RequestCounts::Count(const RequestSample& sample) noexcept
{
    Table& table = tables_[TableOfThread()];
    const size_t method = std::min<size_t>(sample.method, kMethods - 1);
    const auto microseconds = static_cast<uint64_t>(sample.duration.count()) / 1000;
    Add(table.requests[method][CellOf(sample.status)]);
    table.durations[method].Observe(kDurations, microseconds);
    table.received.Observe(kSizes, sample.received);
    table.sent.Observe(kSizes, sample.sent);
    if (sample.failure)
        Add(table.failures[CellOf(sample.failure)]);
    const auto digit = static_cast<size_t>(sample.status) / 100;
    Table::Volume& volume = table.volumes[volumes_.Find(sample.path)];
    Add(volume.requests[method][digit < kClasses ? digit : 0]);
    Add(volume.received, sample.received);
    Add(volume.sent, sample.sent);
}

void RequestCounts::Write(Exposition& out) const
{
    WriteRequests(out);
    WriteDurations(out);
    WriteSizes(out);
    WriteVolumes(out);
    WriteFailures(out);
}

// The sum of one cell over all tables.
template <class CellIn> uint64_t RequestCounts::Sum(CellIn&& cellIn) const
{
    uint64_t value = 0;
    for (size_t i = 0; i < kTables; ++i)
        value += cellIn(tables_[i]).load(std::memory_order_relaxed);
    return value;
}

void RequestCounts::WriteRequests(Exposition& out) const
{
    out.Counter("kestd_requests", "Requests that were answered, by method and status.");
    for (UINT32 m = 0; m < kMethods; ++m)
        for (size_t s = 0; s < kStatuses.size(); ++s)
            if (const uint64_t n = Sum([&](const Table& t) -> auto& { return t.requests[m][s]; }))
                out.Add({{"method", MethodName(m)}, {"status", StatusName(kStatuses[s])}}, n);
}

void RequestCounts::WriteDurations(Exposition& out) const
{
    out.Histogram("kestd_request_duration_seconds",
                  "From the end of a request's head to the end of its handling, by method.");
    for (UINT32 m = 0; m < kMethods; ++m) {
        Total<kDurations.size()> total;
        for (size_t i = 0; i < kTables; ++i)
            total.Include(tables_[i].durations[m]);
        if (!total.IsEmpty())
            total.Write(out, {{"method", MethodName(m)}}, kDurations, 1e6);
    }
}

void RequestCounts::WriteSizes(Exposition& out) const
{
    Total<kSizes.size()> received;
    Total<kSizes.size()> sent;
    for (size_t i = 0; i < kTables; ++i) {
        received.Include(tables_[i].received);
        sent.Include(tables_[i].sent);
    }
    out.Histogram("kestd_request_size_bytes", "Sizes of what requests brought, without heads.");
    received.Write(out, {}, kSizes, 1);
    out.Histogram("kestd_reply_size_bytes", "Sizes of what replies brought, without heads.");
    sent.Write(out, {}, kSizes, 1);
}

void RequestCounts::WriteVolumes(Exposition& out) const
{
    out.Counter("kestd_volume_requests",
                "Requests by volume, method and class of the status; those outside of all volumes "
                "under an empty name.");
    for (size_t v = 0; v < volumes_.Count(); ++v)
        for (UINT32 m = 0; m < kMethods; ++m)
            for (size_t c = 0; c < kClasses; ++c)
                if (const uint64_t n =
                        Sum([&](const Table& t) -> auto& { return t.volumes[v].requests[m][c]; }))
                    out.Add({{"volume", volumes_.Name(v)},
                             {"method", MethodName(m)},
                             {"class", kClassNames[c]}},
                            n);
    out.Counter("kestd_volume_received_bytes", "What requests brought, by volume.");
    for (size_t v = 0; v < volumes_.Count(); ++v)
        out.Add({{"volume", volumes_.Name(v)}},
                Sum([&](const Table& t) -> auto& { return t.volumes[v].received; }));
    out.Counter("kestd_volume_sent_bytes", "What replies brought, by volume.");
    for (size_t v = 0; v < volumes_.Count(); ++v)
        out.Add({{"volume", volumes_.Name(v)}},
                Sum([&](const Table& t) -> auto& { return t.volumes[v].sent; }));
}

void RequestCounts::WriteFailures(Exposition& out) const
{
    out.Counter("kestd_provider_failures",
                "Requests in which a storage provider failed, by the status that it stands for.");
    for (size_t s = 0; s < kStatuses.size(); ++s) {
        const int status = kStatuses[s];
        const uint64_t n = Sum([&](const Table& t) -> auto& { return t.failures[s]; });
        if (n || status == 500 || status == 503 || status == 507)
            out.Add({{"status", StatusName(status)}}, n);
    }
}

} // namespace kestd
