// SPDX-License-Identifier: Apache-2.0
//
// The command "kestd user".
#include <array>
#include <csignal>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <openssl/crypto.h>
#include <termios.h>
#include <unistd.h>

#include "host/auth/passwords.h"
#include "host/auth/users.h"
#include "host/commands/arguments.h"
#include "host/commands/commands.h"
#include "host/commands/setup.h"

namespace kestd {
namespace {

struct Secret {
    std::string text;
    ~Secret() { OPENSSL_cleanse(text.data(), text.size()); }
};

// Reads one line without its break; false at an error or an end before any byte.
bool ReadLine(int file, std::string& line)
{
    line.clear();
    line.reserve(kLongestPassword + 2); // not moved about in memory while it grows
    char c = 0;
    for (;;) {
        const ssize_t got = read(file, &c, 1);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return got == 0 && !line.empty();
        if (c == '\n')
            return true;
        if (line.size() <= kLongestPassword) // one more than allowed is enough to refuse it
            line += c;
    }
}

// Switches the echo of a terminal off. Signals that stop the program wait until it is on again.
class EchoOff {
  public:
    explicit EchoOff(int terminal) : terminal_(terminal)
    {
        sigset_t stops;
        sigemptyset(&stops);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP})
            sigaddset(&stops, signal);
        pthread_sigmask(SIG_BLOCK, &stops, &oldMask_);
        isOff_ = tcgetattr(terminal_, &old_) == 0;
        if (!isOff_)
            return;
        termios quiet = old_;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        isOff_ = tcsetattr(terminal_, TCSAFLUSH, &quiet) == 0;
    }
    ~EchoOff()
    {
        if (isOff_)
            tcsetattr(terminal_, TCSAFLUSH, &old_);
        pthread_sigmask(SIG_SETMASK, &oldMask_, nullptr);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;
    bool IsOff() const { return isOff_; }

  private:
    const int terminal_;
    termios old_{};
    sigset_t oldMask_{};
    bool isOff_ = false;
};

bool Ask(int terminal, const char* prompt, std::string& answer)
{
    const auto print = [&](const char* text) {
        return write(terminal, text, std::strlen(text)) >= 0;
    };
    const EchoOff quiet(terminal);
    if (!quiet.IsOff() || !print(prompt))
        return false;
    const bool isRead = ReadLine(terminal, answer);
    (void)print("\n"); // the user's own line break was not echoed
    return isRead;
}

// The new password: asked for twice on a terminal, else the first line of standard input. Empty on
// success, else what is wrong.
std::string ReadPassword(std::string& password)
{
    if (isatty(STDIN_FILENO)) {
        Secret again;
        if (!Ask(STDIN_FILENO, "Password: ", password) || !Ask(STDIN_FILENO, "Again: ", again.text))
            return "no password was given";
        if (password != again.text)
            return "the two passwords are not the same";
    } else if (!ReadLine(STDIN_FILENO, password)) {
        return "no password on standard input";
    }
    if (password.empty())
        return "the password is empty";
    if (password.size() > kLongestPassword)
        return "the password has more than " + std::to_string(kLongestPassword) + " bytes";
    return {};
}

std::string SetPassword(const UserArguments& arguments, const std::string& hash, UserMap& users)
{
    const auto found = users.find(arguments.name);
    const bool isNew = arguments.action == "add";
    if (isNew && found != users.end())
        return "there is a user " + arguments.name + " already";
    if (!isNew && found == users.end())
        return "there is no user " + arguments.name;
    User user = isNew ? User{arguments.name, {}, {}, {}, {}} : *found->second;
    user.hash = hash;
    if (!arguments.dottedName.empty())
        user.dottedName = arguments.dottedName;
    if (!arguments.tree.empty())
        user.tree = arguments.tree;
    if (!arguments.mail.empty())
        user.mail = arguments.mail;
    users[arguments.name] = std::make_shared<const User>(std::move(user));
    return {};
}

int AddOrChange(const UserArguments& arguments, const std::string& file)
{
    UserMap known; // asked first, so that nobody types a password in vain
    if (const std::string problem = LoadUsers(file, known); !problem.empty())
        return Failure(problem);
    if (const std::string problem = SetPassword(arguments, {}, known); !problem.empty())
        return Failure(problem);
    Secret password;
    if (const std::string problem = ReadPassword(password.text); !problem.empty())
        return Failure(problem);
    const std::string hash = HashPassword(password.text);
    if (hash.empty())
        return Failure("the password cannot be hashed");
    const std::string problem =
        ChangeUsers(file, [&](UserMap& users) { return SetPassword(arguments, hash, users); });
    return problem.empty() ? 0 : Failure(problem);
}

int Remove(const UserArguments& arguments, const std::string& file)
{
    const std::string problem = ChangeUsers(file, [&](UserMap& users) -> std::string {
        return users.erase(arguments.name) ? "" : "there is no user " + arguments.name;
    });
    return problem.empty() ? 0 : Failure(problem);
}

int List(const std::string& file)
{
    UserMap users;
    if (const std::string problem = LoadUsers(file, users); !problem.empty())
        return Failure(problem);
    for (const auto& [name, user] : users)
        std::printf("%s\t%s\t%s\t%s\n", name.c_str(), user->dottedName.c_str(), user->tree.c_str(),
                    user->mail.c_str());
    return 0;
}

// The users file that the arguments, the configuration or the installation name.
std::string FindFile(const UserArguments& arguments, std::string& file)
{
    file = arguments.usersFile;
    if (!file.empty())
        return {};
    ServeArguments serve;
    serve.config = arguments.config;
    serve.stateDirectory = arguments.stateDirectory;
    Setup setup(std::move(serve), FindPlaces());
    if (std::string problem = setup.LoadRegistry(false); !problem.empty())
        return problem;
    HostSettings settings;
    if (std::string problem = setup.ReadSettings(settings); !problem.empty())
        return problem;
    file = UsersFileOf(settings, setup.StateDirectory());
    return settings.users.usersFile.empty() ? MakeDirectories(setup.StateDirectory())
                                            : std::string();
}

} // namespace

int RunUser(const std::vector<std::string>& arguments)
{
    if (!arguments.empty() && arguments.front() == "app-password")
        return RunAppPassword({arguments.begin() + 1, arguments.end()});
    UserArguments parsed;
    if (const std::string problem = ParseUser(arguments, parsed); !problem.empty())
        return UsageError(problem);
    if (parsed.wantsHelp) {
        PrintHelp();
        return 0;
    }
    std::string file;
    if (const std::string problem = FindFile(parsed, file); !problem.empty())
        return Failure(problem);
    if (parsed.action == "list")
        return List(file);
    if (parsed.action == "remove")
        return Remove(parsed, file);
    return AddOrChange(parsed, file);
}

} // namespace kestd
