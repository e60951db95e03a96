// SPDX-License-Identifier: Apache-2.0
//
// Looks at each file and directory that a setting names.
#include "host/config/configured_paths.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/config/registry_settings.h"
#include <kest/status.h>
#include <kest/tolm.h>

namespace kestd {
namespace {

std::string Reason(const std::string& path)
{
    return "'" + path + "': " + std::strerror(errno);
}

std::string WhatTheLinkerSays(const std::string& library)
{
    void* const loaded = dlopen(library.c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (!loaded) {
        const char* const error = dlerror();
        return error ? error : "'" + library + "' cannot be loaded";
    }
    dlclose(loaded);
    return {};
}

std::string WhatKeepsFromLoading(const std::string& path)
{
    const std::string wrong = WhatIsWrongWithFile(path);
    return wrong.empty() ? WhatTheLinkerSays(path) : wrong;
}

// Finds a library as the component manager does: a path as it is or beside the manager's library,
// a name there or wherever the dynamic linker looks.
std::string WhatIsWrongWithLibrary(const std::string& name)
{
    if (name.empty())
        return "expected the file of a library";
    if (name.front() == '/')
        return WhatKeepsFromLoading(name);
    Dl_info info{};
    if (dladdr(reinterpret_cast<const void*>(&TolmCreateInstance), &info) && info.dli_fname) {
        const std::string own = info.dli_fname;
        const std::string beside = own.substr(0, own.rfind('/') + 1) + name;
        if (name.find('/') != std::string::npos || access(beside.c_str(), F_OK) == 0)
            return WhatKeepsFromLoading(beside);
    }
    return WhatTheLinkerSays(name);
}

} // namespace

std::vector<std::u16string> KeysBelow(ITalpl& platform, const char16_t* key)
{
    std::vector<std::u16string> keys;
    HANDLE handle = nullptr;
    if (Failed(platform.TalxOpenKey(key, TALX_KEY_READ, &handle)))
        return keys;
    for (UINT32 index = 0;; ++index) {
        std::array<uint64_t, 256> record{};
        UINT32 needed = 0;
        if (Failed(platform.TalxEnumerateKey(handle, index, record.data(), sizeof record, &needed)))
            break;
        const auto* const info = reinterpret_cast<const TALX_KEY_INFORMATION*>(record.data());
        keys.push_back(std::u16string(key) + u"\\" +
                       std::u16string(info->KeyName, info->KeyNameLength / sizeof(char16_t)));
    }
    (void)platform.TalxCloseKey(handle); // it was open
    return keys;
}

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

std::string CheckConfiguredPaths(ITalpl& platform)
{
    const struct {
        const char16_t* key;
        const char16_t* name;
        std::string (*check)(const std::string& path);
    } kPaths[] = {
        {kServerKey, u"TLS Certificate", WhatIsWrongWithFile},
        {kServerKey, u"TLS Key", WhatIsWrongWithFile},
        {kServerKey, u"Wharf Directory", WhatIsWrongWithDirectory},
        {kModuleKey, u"Template Directory", WhatIsWrongWithDirectory},
        {kDirectoryKey, u"CA Certificate", WhatIsWrongWithFile},
    };
    std::string problems;
    for (const auto& one : kPaths) {
        RegistryReader in(platform, one.key);
        std::string path;
        // A value of another type has been told of by whoever reads it.
        if (kest::RegistryKey(platform, one.key).Text(one.name, path) == kest::ReadResult::Read &&
            !path.empty())
            if (const std::string wrong = one.check(path); !wrong.empty())
                in.Refuse(one.name, wrong);
        AddProblems(problems, in.Problem());
    }
    for (const std::u16string& key : KeysBelow(platform, kClassesKey)) {
        RegistryReader in(platform, key.c_str());
        std::string library;
        in.Text(u"Library", library);
        if (in.Has(u"Library"))
            if (const std::string wrong = WhatIsWrongWithLibrary(library); !wrong.empty())
                in.Refuse(u"Library", wrong);
        AddProblems(problems, in.Problem());
    }
    return problems;
}

} // namespace kestd
