// SPDX-License-Identifier: Apache-2.0
//
// The command "kestd check": says all that is wrong with a configuration, and changes nothing.
#include <algorithm>
#include <cstdio>

#include "host/commands/arguments.h"
#include "host/commands/commands.h"
#include "host/commands/setup.h"
#include "host/config/addresses.h"
#include "host/config/registry_reader.h"
#include "host/server/listener.h"
#include "host/server/server.h"

namespace kestd {
namespace {

constexpr const char* kRunning = "--running";

// What keeps a server from listening; said once for an address that stands there twice.
std::string CheckAddresses(const std::vector<ListenAddress>& addresses)
{
    std::string problems;
    std::vector<ListenAddress> seen;
    for (ListenAddress address : addresses) {
        if (address.port != 0 && std::find(seen.begin(), seen.end(), address) != seen.end()) {
            AddProblems(problems, FormatListenAddress(address) + " is to be listened on twice");
            continue;
        }
        seen.push_back(address);
        std::string error;
        (void)OpenListeningSocket(address, error); // closed at once
        AddProblems(problems, error);
    }
    return problems;
}

// All problems, a line each.
std::string Check(Setup& setup, HostSettings& settings, UserLists& users, bool hasUsers,
                  bool isRunning)
{
    std::string problems = setup.CheckState();
    if (const std::string unread = setup.LoadRegistry(false); !unread.empty()) {
        AddProblems(problems, unread);
        return problems; // nothing can be said of settings that cannot be read
    }
    std::string wrong = setup.ReadSettings(settings);
    AddProblems(wrong, setup.CheckPathsAndNames());
    AddProblems(problems, wrong);
    if (wrong.empty())
        AddProblems(problems, Server::Check(settings.server));
    const std::string noUsers = setup.ReadUsers(settings, users);
    AddProblems(problems, noUsers);
    if (noUsers.empty() && !hasUsers)
        AddProblems(problems, Setup::CheckAccessPolicy(settings, users));
    std::vector<ListenAddress> addresses = settings.server.listen;
    addresses.insert(addresses.end(), settings.server.metricsListen.begin(),
                     settings.server.metricsListen.end());
    if (!isRunning)
        AddProblems(problems, CheckAddresses(addresses));
    return problems;
}

} // namespace

int RunCheck(const std::vector<std::string>& arguments)
{
    std::vector<std::string> words = arguments;
    const bool isRunning = !words.empty() && words.front() == kRunning;
    if (isRunning)
        words.erase(words.begin());
    ServeArguments parsed;
    if (const std::string problem = ParseServe(words, parsed); !problem.empty())
        return UsageError(problem);
    if (parsed.wantsHelp) {
        PrintHelp();
        return 0;
    }
    const bool hasUsers = !parsed.users.empty();
    parsed.users.clear(); // ParseServe has seen all that can be wrong; hashing takes its time
    Setup setup(std::move(parsed), FindPlaces(), true);
    HostSettings settings;
    UserLists users;
    const std::string problems = Check(setup, settings, users, hasUsers, isRunning);
    if (!problems.empty())
        return Failure(problems);
    if (!hasUsers)
        for (const std::string& warning : AccessWarnings(settings, users, setup.Platform()))
            std::fprintf(stderr, "kestd: %s\n", warning.c_str());
    std::puts("ok");
    return 0;
}

} // namespace kestd
