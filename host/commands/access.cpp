// SPDX-License-Identifier: Apache-2.0
//
// The command "kestd access explain".
#include <cstdio>

#include "base/ascii.h"
#include "base/utf.h"
#include "host/access/access_rules.h"
#include "host/access/explanation.h"
#include "host/commands/arguments.h"
#include "host/commands/commands.h"
#include "host/commands/setup.h"

namespace kestd {
namespace {

constexpr const char* kNobody = "-"; // stands for who has not signed in

// What is wrong with a path that is asked about; empty when nothing is.
std::string WhatIsWrongWithPath(std::string_view path)
{
    if (path.empty() || path.front() != '/')
        return "expected a path such as /VOLUME/folder, without the server's location";
    if (!base::IsUtf8(path) || base::HasControlOrTab(path))
        return "the path is no valid text";
    return {};
}

void PrintExplanation(const AccessRules* rules, std::string_view user, std::string_view path)
{
    static const std::vector<AccessRule> none;
    const Explanation outcomes =
        Explain(rules ? rules->Rules() : none, user,
                rules ? rules->GroupsOf(user) : std::vector<std::string>(), path);
    for (size_t i = 0; i < kRightCount; ++i) {
        const AccessRule* const rule = outcomes[i].rule;
        const std::string why = rule ? "rule '" + rule->name + "' on " + rule->path : "no rule";
        std::printf("%-6s  %s  %s\n", std::string(kRightNames[i]).c_str(),
                    outcomes[i].isAllowed ? "allowed" : "denied ", why.c_str());
    }
}

} // namespace

int RunAccess(const std::vector<std::string>& arguments)
{
    if (!arguments.empty() && (arguments[0] == "--help" || arguments[0] == "-h")) {
        PrintHelp();
        return 0;
    }
    if (arguments.size() < 3 || arguments[0] != "explain")
        return UsageError("expected access explain USER PATH");
    const std::string user = arguments[1] == kNobody ? "" : arguments[1];
    const std::string& path = arguments[2];
    if (const std::string wrong = WhatIsWrongWithPath(path); !wrong.empty())
        return UsageError(wrong);
    ServeArguments parsed;
    if (const std::string problem = ParseServe({arguments.begin() + 3, arguments.end()}, parsed);
        !problem.empty())
        return UsageError(problem);
    Setup setup(std::move(parsed), FindPlaces());
    HostSettings settings;
    UserLists users;
    std::string problem = setup.LoadRegistry(false);
    if (problem.empty())
        problem = setup.ReadSettings(settings);
    if (problem.empty())
        problem = setup.ReadUsers(settings, users);
    if (!problem.empty())
        return Failure(problem);
    if (!user.empty() && !users.Contains(user) && !settings.users.signIn.HasUnlistedUsers())
        std::fprintf(stderr, "kestd: there is no user '%s'\n", user.c_str());
    PrintExplanation(settings.server.access.get(), user, path);
    return 0;
}

} // namespace kestd
