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
#include "host/commands/sources.h"

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

struct Question {
    std::string user; // empty for nobody
    std::string path;
    std::vector<std::string> groups; // that were named, in lower case
};

// Takes them from the arguments, and leaves those of "kestd serve". Empty, or what is wrong.
std::string TakeQuestion(std::vector<std::string>& arguments, Question& question)
{
    if (arguments.size() < 3 || arguments[0] != "explain")
        return "expected access explain USER PATH";
    question.user = arguments[1] == kNobody ? "" : arguments[1];
    question.path = arguments[2];
    arguments.erase(arguments.begin(), arguments.begin() + 3);
    while (!arguments.empty() && arguments[0] == "--group") {
        if (arguments.size() < 2)
            return "expected --group NAME";
        question.groups.push_back(GroupName(arguments[1]));
        arguments.erase(arguments.begin(), arguments.begin() + 2);
    }
    return WhatIsWrongWithPath(question.path);
}

// Asks the sources who the user is, as for an app password: he gets the name and the groups that
// the first one says that knows him.
void FindUser(const HostSettings& settings, const UserLists& lists, Question& question)
{
    const SteadyClock clock;
    for (const auto& source : MakeSources(settings, lists, clock, nullptr)) {
        const Verdict verdict = source->Find(question.user);
        if (verdict.outcome == Verdict::Outcome::UnknownUser)
            continue;
        if (verdict.outcome != Verdict::Outcome::Granted)
            return (void)std::fprintf(stderr, "kestd: '%s' cannot say who '%s' is\n",
                                      std::string(source->Name()).c_str(), question.user.c_str());
        question.user = verdict.who->name;
        question.groups.insert(question.groups.end(), verdict.who->groups.begin(),
                               verdict.who->groups.end());
        return;
    }
    std::fprintf(stderr, "kestd: there is no user '%s'\n", question.user.c_str());
}

void PrintExplanation(const AccessRules* rules, const Question& question)
{
    static const std::vector<AccessRule> none;
    std::vector<std::string> groups =
        rules ? rules->GroupsOf(question.user) : std::vector<std::string>();
    groups.insert(groups.end(), question.groups.begin(), question.groups.end());
    const Explanation outcomes =
        Explain(rules ? rules->Rules() : none, question.user, groups, question.path);
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
    std::vector<std::string> rest = arguments;
    Question question;
    if (const std::string wrong = TakeQuestion(rest, question); !wrong.empty())
        return UsageError(wrong);
    ServeArguments parsed;
    if (const std::string problem = ParseServe(rest, parsed); !problem.empty())
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
    if (!question.user.empty())
        FindUser(settings, users, question);
    PrintExplanation(settings.server.access.get(), question);
    return 0;
}

} // namespace kestd
