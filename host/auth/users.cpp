// SPDX-License-Identifier: Apache-2.0
//
// Reads and writes the users file.
#include "host/auth/users.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/ascii.h"
#include "base/utf.h"
#include "host/auth/passwords.h"

namespace kestd {
namespace {

std::string ErrorText(const std::string& what)
{
    return what + ": " + std::strerror(errno);
}

std::string At(const std::string& path, size_t line, const std::string& reason)
{
    return path + ":" + std::to_string(line) + ": " + reason;
}

// Empty on success. A missing file is an empty text.
std::string ReadWhole(const std::string& path, std::string& text)
{
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return errno == ENOENT ? std::string() : ErrorText(path);
    std::array<char, 16384> block{};
    std::string read;
    std::string problem;
    for (;;) {
        const ssize_t got = ::read(file, block.data(), block.size());
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            problem = ErrorText(path);
        if (got <= 0)
            break;
        read.append(block.data(), static_cast<size_t>(got));
        if (read.size() > kLargestUsersFile) {
            problem = path + ": larger than " + std::to_string(kLargestUsersFile) + " bytes";
            break;
        }
    }
    close(file);
    if (problem.empty())
        text = std::move(read);
    return problem;
}

// Calls `visit` with each line, without its break, and its number; stops at the first text.
template <class Visit> std::string ForEachLine(std::string_view text, Visit&& visit)
{
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (std::string problem = visit(number, line); !problem.empty())
            return problem;
    }
    return {};
}

bool IsUserLine(std::string_view line)
{
    const std::string_view trimmed = base::Trimmed(line);
    return !trimmed.empty() && !trimmed.starts_with('#');
}

std::string ParseUser(std::string_view line, User& user)
{
    std::vector<std::string> fields;
    for (;;) {
        const size_t end = std::min(line.find(':'), line.size());
        fields.emplace_back(line.substr(0, end));
        if (end == line.size())
            break;
        line.remove_prefix(end + 1);
    }
    if (fields.size() < 2 || fields.size() > 5)
        return "expected name:hash:dotted name:tree:mail";
    fields.resize(5);
    if (std::string problem = WhatIsWrongWithName(fields[0]); !problem.empty())
        return problem;
    if (!IsUsableHash(fields[1]))
        return "the second field is not a password hash that this system knows";
    for (size_t i = 2; i < fields.size(); ++i)
        if (std::string problem = WhatIsWrongWithField(fields[i]); !problem.empty())
            return problem;
    user = {fields[0], fields[1], fields[2], fields[3], fields[4]};
    return {};
}

std::string ParseUsers(const std::string& path, std::string_view text, UserMap& users)
{
    UserMap read;
    std::string problem =
        ForEachLine(text, [&](size_t number, std::string_view line) -> std::string {
            if (!IsUserLine(line))
                return {};
            User user;
            if (std::string wrong = ParseUser(line, user); !wrong.empty())
                return At(path, number, wrong);
            const auto name = user.name;
            if (!read.emplace(name, std::make_shared<const User>(std::move(user))).second)
                return At(path, number, "the user " + name + " stands twice");
            return {};
        });
    if (problem.empty())
        users = std::move(read);
    return problem;
}

// The old text with the users' lines replaced, removed and added at the end; all else is kept.
std::string Rewritten(std::string_view text, const UserMap& users)
{
    std::string out;
    UserMap left = users;
    (void)ForEachLine(text, [&](size_t, std::string_view line) -> std::string {
        if (IsUserLine(line)) {
            const auto found = left.find(line.substr(0, line.find(':')));
            if (found == left.end())
                return {};
            out += FormatUser(*found->second) + "\n";
            left.erase(found);
        } else {
            out.append(line).append("\n");
        }
        return {};
    });
    for (const auto& [name, user] : left)
        out += FormatUser(*user) + "\n";
    return out;
}

bool WriteAll(int file, std::string_view text)
{
    while (!text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written < 0 && errno == EINTR)
            continue;
        if (written < 0)
            return false;
        text.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

std::string DirectoryOf(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

} // namespace

std::string WhatIsWrongWithName(std::string_view name)
{
    if (name.empty())
        return "a user's name cannot be empty";
    if (name.size() > kLongestUserName)
        return "a user's name has at most " + std::to_string(kLongestUserName) + " bytes";
    if (!base::IsUtf8(name) || base::HasControlOrTab(name))
        return "a user's name is UTF-8 text without control characters";
    if (name.find_first_of(":\\") != std::string_view::npos)
        return "a user's name holds neither ':' nor '\\'";
    if (name.front() == '#' || base::Trimmed(name).size() != name.size())
        return "a user's name begins with neither '#' nor a blank and does not end with a blank";
    return {};
}

std::string WhatIsWrongWithField(std::string_view field)
{
    if (field.size() > kLongestUserField)
        return "a field has at most " + std::to_string(kLongestUserField) + " bytes";
    if (!base::IsUtf8(field) || base::HasControlOrTab(field))
        return "a field is UTF-8 text without control characters";
    if (field.find(':') != std::string_view::npos)
        return "a field holds no ':'";
    return {};
}

std::string LoadUsers(const std::string& path, UserMap& users)
{
    std::string text;
    if (std::string problem = ReadWhole(path, text); !problem.empty())
        return problem;
    return ParseUsers(path, text, users);
}

std::string FormatUser(const User& user)
{
    return user.name + ":" + user.hash + ":" + user.dottedName + ":" + user.tree + ":" + user.mail;
}

// The lock is taken on the file itself. Since writers replace it, whoever has waited looks whether
// the file under this name is still the one it locked.
UsersFile::UsersFile(std::string path) : path_(std::move(path))
{
    for (;;) {
        lock_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
        if (lock_ < 0 && errno == ENOENT) {
            lock_ = open(path_.c_str(), O_RDWR | O_CLOEXEC | O_CREAT | O_EXCL, 0600);
            if (lock_ < 0 && errno == EEXIST)
                continue;
        }
        if (lock_ < 0) {
            problem_ = ErrorText(path_);
            return;
        }
        int locked = 0;
        do
            locked = flock(lock_, LOCK_EX);
        while (locked != 0 && errno == EINTR);
        struct stat mine {
        }, named{};
        if (locked != 0 || fstat(lock_, &mine) != 0) {
            problem_ = ErrorText(path_);
            return;
        }
        if (stat(path_.c_str(), &named) == 0 && mine.st_dev == named.st_dev &&
            mine.st_ino == named.st_ino)
            break;
        close(lock_);
    }
    problem_ = ReadWhole(path_, text_);
    if (problem_.empty())
        problem_ = ParseUsers(path_, text_, users_);
}

UsersFile::~UsersFile()
{
    if (lock_ >= 0)
        close(lock_);
}

std::string UsersFile::Write()
{
    const std::string text = Rewritten(text_, users_);
    const std::string temporary = path_ + ".new." + std::to_string(getpid());
    const int file =
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (file < 0)
        return ErrorText(temporary);
    struct stat old {};
    const bool keepsOwner =
        fstat(lock_, &old) == 0 && (geteuid() != 0 || fchown(file, old.st_uid, old.st_gid) == 0);
    const bool isWritten =
        keepsOwner && fchmod(file, 0600) == 0 && WriteAll(file, text) && fsync(file) == 0;
    std::string problem = isWritten ? std::string() : ErrorText(temporary);
    close(file);
    if (problem.empty() && rename(temporary.c_str(), path_.c_str()) != 0)
        problem = ErrorText(path_);
    if (!problem.empty()) {
        unlink(temporary.c_str());
        return problem;
    }
    const std::string directory = DirectoryOf(path_);
    const int parent = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isDurable = parent >= 0 && fsync(parent) == 0;
    problem = isDurable ? std::string() : ErrorText(directory);
    if (parent >= 0)
        close(parent);
    return problem;
}

} // namespace kestd
