// SPDX-License-Identifier: Apache-2.0
//
// Looks at the file, and hands over what is new.
#include "host/commands/app_password_watch.h"

#include <utility>

#include <sys/stat.h>

#include <kest/tolm.h>

namespace kestd {
namespace {

constexpr std::chrono::minutes kBetweenWrites{1};

std::string UsesFile(const std::string& path)
{
    return path + ".used";
}

void Say(const std::string& problem)
{
    TolmLog(kLogError, "kestd", problem.c_str());
}

} // namespace

AppPasswordWatch::Stamp AppPasswordWatch::StampOf(const std::string& path)
{
    struct stat info {};
    if (stat(path.c_str(), &info) != 0)
        return {};
    return {info.st_ino, info.st_mtim.tv_sec, info.st_mtim.tv_nsec, info.st_size};
}

void AppPasswordWatch::Use(const std::string& path, AppPasswords apps)
{
    path_ = path;
    LoadUses(UsesFile(path), apps);
    authenticator_.SetAppPasswords(std::move(apps));
}

void AppPasswordWatch::Look()
{
    const Stamp now = StampOf(path_);
    if (!(now == stamp_)) {
        AppPasswords fresh;
        const std::string problem = LoadAppPasswords(path_, fresh);
        stamp_ = now; // also of one that is wrong: that is said once
        if (!problem.empty()) {
            Say(problem + "; the old app passwords stay");
        } else {
            authenticator_.SetAppPasswords(std::move(fresh));
            sessions_.EndWhere([this](const Principal& principal) {
                return !principal.appPassword.empty() && !authenticator_.IsCurrent(principal);
            });
        }
    }
    const TimePoint time = std::chrono::steady_clock::now();
    if (time < nextWrite_)
        return;
    nextWrite_ = time + kBetweenWrites;
    WriteDown();
}

void AppPasswordWatch::Stop()
{
    WriteDown();
}

void AppPasswordWatch::WriteDown()
{
    const auto order = authenticator_.Order();
    if (order->apps.entries.empty() && written_.empty())
        return;
    if (const std::string problem = WriteUses(UsesFile(path_), order->apps, written_);
        !problem.empty())
        Say(problem);
}

} // namespace kestd
