// SPDX-License-Identifier: Apache-2.0
//
// Writes the lines of the audit log.
#include "host/log/audit.h"

#include <array>
#include <atomic>
#include <exception>
#include <iterator>
#include <string>

#include "base/system_time.h"
#include "host/log/json_line.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

std::atomic<bool> g_isAudited{false};

// Counted by whoever signs somebody in; in the order of kResults.
constexpr std::string_view kResults[] = {"granted", "denied", "throttled", "unavailable"};
std::array<std::atomic<uint64_t>, std::size(kResults)> g_signIns{};

// Hands the line that `put` completes to the log.
template <class Put> void WriteLine(Put&& put) noexcept
{
    try {
        std::string text;
        JsonLine line(text, base::SystemTimeNow());
        put(line);
        line.End();
        TolmLogLines(kLogAudit, text.data(), static_cast<UINT32>(text.size()));
    } catch (const std::exception& error) {
        TolmLog(kLogWarning, "kestd", "a line of the audit log is lost: no memory");
    }
}

} // namespace

void StartAudit() noexcept
{
    g_isAudited = true;
}

bool IsAudited() noexcept
{
    return g_isAudited.load(std::memory_order_relaxed);
}

void AuditChange(const AccessRecord& request, std::string_view destination) noexcept
{
    if (!IsAudited())
        return;
    WriteLine([&](JsonLine& line) {
        line.Text("id", request.id).Text("event", request.method).Text("remote", request.remote);
        line.Text("user", request.user).Text("target", request.target);
        if (!destination.empty())
            line.Text("destination", destination);
        line.Number("status", static_cast<uint64_t>(request.status));
    });
}

void AuditSignIn(std::string_view user, std::string_view remote, std::string_view result) noexcept
{
    for (size_t i = 0; i < g_signIns.size(); ++i)
        if (kResults[i] == result)
            g_signIns[i].fetch_add(1, std::memory_order_relaxed);
    if (!IsAudited())
        return;
    WriteLine([&](JsonLine& line) {
        line.Text("event", "sign-in").Text("remote", remote).Text("user", user);
        line.Text("result", result);
    });
}

SignInCounts CountedSignIns() noexcept
{
    const auto count = [](size_t i) { return g_signIns[i].load(std::memory_order_relaxed); };
    return {count(0), count(1), count(2), count(3)};
}

} // namespace kestd
