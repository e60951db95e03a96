// SPDX-License-Identifier: Apache-2.0
//
// The program kestd: picks the command.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "host/commands/commands.h"

namespace {

int Run(const std::vector<std::string>& arguments)
{
    if (arguments.empty())
        return kestd::UsageError("expected a command");
    const std::string& command = arguments[0];
    const std::vector<std::string> rest(arguments.begin() + 1, arguments.end());
    if (command == "serve")
        return kestd::RunServe(rest);
    if (command == "check")
        return kestd::RunCheck(rest);
    if (command == "user")
        return kestd::RunUser(rest);
    if (command == "locks")
        return kestd::RunLocks(rest);
    if (command == "access")
        return kestd::RunAccess(rest);
    if (command == "--help" || command == "-h" || command == "help") {
        kestd::PrintHelp();
        return 0;
    }
    if (command == "--version") {
        std::puts("kestd " KESTD_VERSION);
        return 0;
    }
    return kestd::UsageError("unknown command '" + command + "'");
}

} // namespace

int main(int count, char** texts)
{
    try {
        return Run(std::vector<std::string>(texts + 1, texts + count));
    } catch (const std::exception& error) {
        return kestd::Failure(error.what());
    }
}
