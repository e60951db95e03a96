// SPDX-License-Identifier: Apache-2.0
//
// Reads, locks and replaces files.
#include "host/auth/text_file.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kestd {
namespace {

std::string ErrorText(const std::string& what)
{
    return what + ": " + std::strerror(errno);
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

// What root makes belongs to whom the directory belongs: the server, that is to read it.
void GiveToOwner(int file, const std::string& path)
{
    struct stat parent {};
    if (geteuid() == 0 && stat(DirectoryOf(path).c_str(), &parent) == 0)
        (void)!fchown(file, parent.st_uid, parent.st_gid); // else it stays root's
}

} // namespace

std::string ReadTextFile(const std::string& path, size_t most, std::string& text)
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
        if (read.size() > most) {
            problem = path + ": larger than " + std::to_string(most) + " bytes";
            break;
        }
    }
    close(file);
    if (problem.empty())
        text = std::move(read);
    return problem;
}

std::string AtLine(const std::string& path, size_t line, const std::string& reason)
{
    return path + ":" + std::to_string(line) + ": " + reason;
}

std::vector<std::string> FieldsOf(std::string_view line)
{
    std::vector<std::string> fields;
    for (;;) {
        const size_t end = std::min(line.find(':'), line.size());
        fields.emplace_back(line.substr(0, end));
        if (end == line.size())
            return fields;
        line.remove_prefix(end + 1);
    }
}

// The lock is taken on the file itself. Since writers replace it, whoever has waited looks whether
// the file under this name is still the one it locked.
LockedFile::LockedFile(std::string path, size_t most) : path_(std::move(path))
{
    for (;;) {
        lock_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
        if (lock_ < 0 && errno == ENOENT) {
            lock_ = open(path_.c_str(), O_RDWR | O_CLOEXEC | O_CREAT | O_EXCL, 0600);
            if (lock_ < 0 && errno == EEXIST)
                continue;
            if (lock_ >= 0)
                GiveToOwner(lock_, path_);
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
    problem_ = ReadTextFile(path_, most, text_);
}

LockedFile::~LockedFile()
{
    if (lock_ >= 0)
        close(lock_);
}

std::string LockedFile::Replace(const std::string& text)
{
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
