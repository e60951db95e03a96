// SPDX-License-Identifier: Apache-2.0
//
// Reads what the scheduler says of each thread. A clock of the processor's time would not do: on a
// busy machine a thread that waits for a processor would count as one that waits for a disk.
#include "host/net/thread_activity.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <chrono>
#include <string>
#include <string_view>

#include "base/descriptor.h"

namespace kestd {

namespace {

bool TakeNumber(std::string_view& text, uint64_t& number) noexcept
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end == text.data() + text.size())
        return false;
    text.remove_prefix(static_cast<size_t>(end - text.data()) + 1);
    return true;
}

// Nanoseconds on a processor and in the queue for one: the first two numbers of the line.
std::optional<uint64_t> ActiveTime(pid_t thread)
{
    const std::string path = "/proc/self/task/" + std::to_string(thread) + "/schedstat";
    const base::Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    char line[96];
    const ssize_t size = file.Number() < 0 ? -1 : read(file.Number(), line, sizeof line);
    if (size <= 0)
        return std::nullopt;
    std::string_view text(line, static_cast<size_t>(size));
    uint64_t ran = 0;
    uint64_t queued = 0;
    if (!TakeNumber(text, ran) || !TakeNumber(text, queued))
        return std::nullopt;
    return ran + queued;
}

} // namespace

std::optional<ThreadActivity> MeasureActivity(const std::vector<pid_t>& threads)
{
    ThreadActivity all;
    all.now = std::chrono::duration_cast<std::chrono::nanoseconds>(
                  std::chrono::steady_clock::now().time_since_epoch())
                  .count();
    all.threads = static_cast<uint32_t>(threads.size());
    for (const pid_t thread : threads) {
        const std::optional<uint64_t> active = ActiveTime(thread);
        if (!active)
            return std::nullopt;
        all.active += *active;
    }
    return all;
}

} // namespace kestd
