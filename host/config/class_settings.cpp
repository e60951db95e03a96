// SPDX-License-Identifier: Apache-2.0
//
// Looks whether the libraries of classes can be loaded.
#include "host/config/class_settings.h"

#include <vector>

#include <dlfcn.h>
#include <unistd.h>

#include "host/config/file_checks.h"
#include "host/config/registry_reader.h"
#include <kest/tolm.h>

namespace kestd {
namespace {

// The library stays for whoever creates its classes: one with a C++ library of its own would leave
// that one's memory behind each time.
std::string WhatTheLinkerSays(const std::string& library)
{
    void* const loaded = dlopen(library.c_str(), RTLD_LAZY | RTLD_LOCAL | RTLD_NODELETE);
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

std::string CheckClassLibraries(ITalpl& platform)
{
    std::string problems;
    std::vector<std::u16string> keys;
    if (!KeysBelow(platform, kClassesKey, keys))
        AddProblems(problems, "the classes cannot be read");
    for (const std::u16string& key : keys) {
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
