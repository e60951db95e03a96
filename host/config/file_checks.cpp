// SPDX-License-Identifier: Apache-2.0
//
// Asks the system about files that settings name.
#include "host/config/file_checks.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace kestd {
namespace {

std::string Reason(const std::string& path)
{
    return "'" + path + "': " + std::strerror(errno);
}

} // namespace

std::string WhatIsWrongWithFile(const std::string& path)
{
    struct stat info {};
    if (stat(path.c_str(), &info) != 0)
        return Reason(path);
    if (S_ISDIR(info.st_mode))
        return "'" + path + "' is a directory, expected a file";
    return access(path.c_str(), R_OK) == 0 ? std::string() : Reason(path);
}

std::string WhatIsWrongWithDirectory(const std::string& path)
{
    struct stat info {};
    if (stat(path.c_str(), &info) != 0)
        return Reason(path);
    if (!S_ISDIR(info.st_mode))
        return "'" + path + "' is not a directory";
    return access(path.c_str(), R_OK | X_OK) == 0 ? std::string() : Reason(path);
}

std::string WhatIsWrongWithLogFile(const std::string& path)
{
    if (path.front() != '/')
        return "'" + path + "': expected a full path"; // whoever rotates it works elsewhere
    struct stat info {};
    if (stat(path.c_str(), &info) == 0) {
        if (S_ISDIR(info.st_mode))
            return "'" + path + "' is a directory, expected a file";
        return access(path.c_str(), W_OK) == 0 ? std::string() : Reason(path);
    }
    if (errno != ENOENT)
        return Reason(path);
    const std::string parent = path.substr(0, std::max<size_t>(path.rfind('/'), 1));
    return access(parent.c_str(), W_OK | X_OK) == 0 ? std::string() : Reason(parent);
}

} // namespace kestd
