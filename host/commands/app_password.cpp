// SPDX-License-Identifier: Apache-2.0
//
// The command "kestd user app-password".
#include <cstdio>
#include <ctime>

#include "host/auth/app_passwords.h"
#include "host/commands/arguments.h"
#include "host/commands/commands.h"
#include "host/commands/setup.h"

namespace kestd {
namespace {

constexpr int64_t kDay = 24 * 3600; // seconds

std::string Day(int64_t time, const char* none)
{
    const time_t seconds = time;
    tm parts{};
    char text[32];
    if (time == 0 || !gmtime_r(&seconds, &parts) ||
        std::strftime(text, sizeof text, "%Y-%m-%d", &parts) == 0)
        return none;
    return text;
}

int Add(const AppPasswordArguments& arguments, const std::string& file)
{
    AppPassword wanted;
    wanted.user = arguments.user;
    wanted.name = arguments.name;
    wanted.volume = arguments.volume;
    wanted.isReadOnly = arguments.isReadOnly;
    wanted.made = std::time(nullptr);
    wanted.ends = arguments.days ? wanted.made + arguments.days * kDay : 0;
    const int64_t ends = wanted.ends;
    std::string secret;
    if (const std::string problem = AddAppPassword(file, std::move(wanted), secret);
        !problem.empty())
        return Failure(problem);
    std::printf("%s\n", secret.c_str());
    std::fprintf(stderr, "kestd: it is shown only now; it ends: %s\n", Day(ends, "never").c_str());
    return 0;
}

int List(const AppPasswordArguments& arguments, const std::string& file)
{
    AppPasswords all;
    if (const std::string problem = LoadAppPasswords(file, all); !problem.empty())
        return Failure(problem);
    LoadUses(file + ".used", all);
    for (const auto& [id, one] : all.entries) {
        if (!arguments.user.empty() && one->user != arguments.user)
            continue;
        std::printf("%s\t%s\t%s\tmade %s\tends %s\tused %s\t%s\t%s\n", one->user.c_str(),
                    id.c_str(), one->name.c_str(), Day(one->made, "-").c_str(),
                    Day(one->ends, "never").c_str(), Day(*one->used, "never").c_str(),
                    one->volume.empty() ? "all volumes" : one->volume.c_str(),
                    one->isReadOnly ? "read-only" : "all rights");
    }
    return 0;
}

// Empty when there may be such a user.
std::string CheckUser(Setup& setup, const HostSettings& settings, const std::string& user)
{
    UserLists lists;
    if (std::string problem = setup.ReadUsers(settings, lists); !problem.empty())
        return problem;
    if (lists.Contains(user) || settings.users.signIn.HasUnlistedUsers())
        return {};
    return "there is no user " + user;
}

} // namespace

int RunAppPassword(const std::vector<std::string>& arguments)
{
    AppPasswordArguments parsed;
    if (const std::string problem = ParseAppPassword(arguments, parsed); !problem.empty())
        return UsageError(problem);
    if (parsed.wantsHelp) {
        PrintHelp();
        return 0;
    }
    ServeArguments serve;
    serve.config = parsed.config;
    serve.stateDirectory = parsed.stateDirectory;
    Setup setup(std::move(serve), FindPlaces());
    HostSettings settings;
    std::string problem = setup.LoadRegistry(false);
    if (problem.empty())
        problem = setup.ReadSettings(settings);
    if (problem.empty() && parsed.action == "add")
        problem = CheckUser(setup, settings, parsed.user);
    if (problem.empty() && settings.users.signIn.appPasswordsFile.empty())
        problem = MakeDirectories(setup.StateDirectory());
    if (!problem.empty())
        return Failure(problem);
    const std::string file = AppPasswordsFileOf(settings, setup.StateDirectory());
    if (parsed.action == "add")
        return Add(parsed, file);
    if (parsed.action == "list")
        return List(parsed, file);
    problem = RevokeAppPassword(file, parsed.user, parsed.name);
    return problem.empty() ? 0 : Failure(problem);
}

} // namespace kestd
