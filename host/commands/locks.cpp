// SPDX-License-Identifier: Apache-2.0
//
// The command "kestd locks".
#include <algorithm>
#include <cstdio>
#include <iterator>

#include "base/system_time.h"
#include "host/commands/arguments.h"
#include "host/commands/commands.h"
#include "host/commands/setup.h"
#include <kest/dav.h>

namespace kestd {
namespace {

// What is left of a lock, in words.
std::string TimeLeft(INT64 timeout)
{
    return timeout < 0 ? "no end" : std::to_string(timeout / base::kUnitsPerSecond) + " s";
}

// Texts that came from clients: control characters would reach the terminal.
std::string Printable(std::string_view text)
{
    std::string out;
    std::transform(text.begin(), text.end(), std::back_inserter(out), [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7F ? '?' : c;
    });
    return out;
}

void PrintLock(const DAV_LOCK_INFO& lock)
{
    std::string_view text(reinterpret_cast<const char*>(&lock) + offsetof(DAV_LOCK_INFO, Text),
                          size_t{lock.TokenLength} + lock.PathLength + lock.CreatorLength +
                              lock.OwnerLength);
    const auto take = [&](UINT32 length) {
        const std::string part = Printable(text.substr(0, length));
        text.remove_prefix(length);
        return part;
    };
    const std::string token = take(lock.TokenLength);
    const std::string path = take(lock.PathLength);
    const std::string creator = take(lock.CreatorLength);
    const std::string owner = take(lock.OwnerLength);
    std::printf("%s\t%s\t%s%s\t%s\t%s\t%s\n", token.c_str(), path.c_str(),
                lock.Scope == Shared ? "shared" : "exclusive", lock.Depth ? ", with members" : "",
                TimeLeft(lock.Timeout).c_str(), creator.empty() ? "local user" : creator.c_str(),
                owner.c_str());
}

// The provider is asked for one after the other until it has no more.
int ListLocks(IKestDAV2& provider)
{
    std::vector<UINT64> buffer(1024);
    DAV_LOCK_PLACE place{};
    for (;;) {
        auto size = static_cast<UINT32>(buffer.size() * sizeof(UINT64));
        const TALSTATUS status =
            provider.IoctlRequest({}, kIoctlListLocks, sizeof place, &place, &size, buffer.data());
        if (Code(status) == kCodeNoMoreEntries)
            return 0;
        if (Failed(status))
            return Failure("the locks cannot be read, code " + std::to_string(Code(status)));
        PrintLock(*reinterpret_cast<const DAV_LOCK_INFO*>(buffer.data()));
    }
}

int BreakLock(IKestDAV2& provider, std::string token)
{
    const TALSTATUS status = provider.IoctlRequest(
        {}, kIoctlBreakLock, static_cast<UINT32>(token.size()), token.data(), nullptr, nullptr);
    if (Code(status) == kCodeNotFound)
        return Failure("there is no lock " + token);
    return Failed(status) ? Failure("the lock stays, code " + std::to_string(Code(status))) : 0;
}

} // namespace

int RunLocks(const std::vector<std::string>& arguments)
{
    std::vector<std::string> rest = arguments;
    const auto next = [&] {
        std::string word = rest.empty() ? "" : rest.front();
        if (!rest.empty())
            rest.erase(rest.begin());
        return word;
    };
    const std::string action = next();
    if (action == "--help" || action == "-h") {
        PrintHelp();
        return 0;
    }
    if (action != "list" && action != "break")
        return UsageError("expected locks list or locks break TOKEN");
    const std::string token = action == "break" ? next() : "";
    if (action == "break" && (token.empty() || token.front() == '-'))
        return UsageError("locks break needs a token");

    ServeArguments parsed;
    if (const std::string problem = ParseServe(std::move(rest), parsed); !problem.empty())
        return UsageError(problem);
    Setup setup(std::move(parsed), FindPlaces());
    if (const std::string problem = setup.LoadRegistry(false); !problem.empty())
        return Failure(problem);
    Ref<IKestDAV2> provider;
    if (Failed(Create(CLSID_FileStore, provider)))
        return Failure("the file store cannot be loaded");
    return action == "list" ? ListLocks(*provider.Get()) : BreakLock(*provider.Get(), token);
}

} // namespace kestd
