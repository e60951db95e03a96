// SPDX-License-Identifier: Apache-2.0
//
// Runs "kestd check" on a changed configuration and takes its answer.
#include "host/commands/check_process.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace kestd {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::seconds kLongestCheck{60};
constexpr size_t kLongestText = 16 * 1024;

// What is written into a pipe until all writers are gone. False when time is up first.
bool ReadAll(int fd, steady_clock::time_point end, std::string& text)
{
    std::array<char, 4096> block{};
    for (;;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(end - steady_clock::now());
        pollfd entry{fd, POLLIN, 0};
        const int ready = left.count() > 0 ? poll(&entry, 1, static_cast<int>(left.count())) : 0;
        if (ready == 0)
            return false;
        const ssize_t got = ready < 0 ? -1 : read(fd, block.data(), block.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return true;
        if (text.size() < kLongestText)
            text.append(block.data(), static_cast<size_t>(got));
    }
}

// Starts the program with all signals open and `output` as its standard output and error. 0 or an
// error number.
int Start(const std::vector<char*>& arguments, int output, pid_t& child)
{
    posix_spawnattr_t attributes;
    if (const int error = posix_spawnattr_init(&attributes))
        return error;
    posix_spawn_file_actions_t actions;
    int error = posix_spawn_file_actions_init(&actions);
    if (error == 0) {
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
        error = posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
        if (error == 0)
            error = posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
        if (error == 0)
            error = posix_spawn(&child, "/proc/self/exe", &actions, &attributes, arguments.data(),
                                environ);
        posix_spawn_file_actions_destroy(&actions);
    }
    posix_spawnattr_destroy(&attributes);
    return error;
}

} // namespace

std::string CheckInOtherProcess(std::vector<std::string> words)
{
    words.insert(words.begin(), {"kestd", "check", "--running"}); // the addresses are its own
    std::vector<char*> arguments;
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    // Not this process's own standard error: nobody may be reading it.
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return std::string("the new configuration cannot be checked: ") + std::strerror(errno);
    pid_t child = 0;
    const int error = Start(arguments, ends[1], child);
    close(ends[1]);
    std::string text;
    const bool isInTime = error != 0 || ReadAll(ends[0], steady_clock::now() + kLongestCheck, text);
    close(ends[0]);
    if (error != 0)
        return std::string("the new configuration cannot be checked: ") + std::strerror(error);
    if (!isInTime)
        (void)kill(child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!isInTime)
        return "the check of the new configuration takes too long";
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        return {};
    return text.empty() ? "the check of the new configuration ended without a word" : text;
}

} // namespace kestd
