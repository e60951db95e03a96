// SPDX-License-Identifier: Apache-2.0
//
// Looks at each file and directory that a setting names.
#include "host/config/configured_paths.h"

#include "host/config/class_settings.h"
#include "host/config/directory_settings.h"
#include "host/config/file_checks.h"
#include "host/config/module_settings.h"
#include "host/config/registry_reader.h"
#include "host/config/server_settings.h"
#include "host/config/sign_in_settings.h"
#include <kest/sdk/registry.h>

namespace kestd {

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
        {kServerKey, u"Log File", WhatIsWrongWithLogFile},
        {kServerKey, u"Access Log File", WhatIsWrongWithLogFile},
        {kServerKey, u"Audit Log File", WhatIsWrongWithLogFile},
        {kModuleKey, u"Template Directory", WhatIsWrongWithDirectory},
        {kDirectoryKey, u"CA Certificate", WhatIsWrongWithFile},
        {kAuthKey, u"Htpasswd File", WhatIsWrongWithFile},
        {kAuthLdapKey, u"CA Certificate", WhatIsWrongWithFile},
        {kAuthKey, u"Client CA", WhatIsWrongWithFile},
        {kAuthKey, u"Client CRL", WhatIsWrongWithFile},
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
    AddProblems(problems, CheckClassLibraries(platform));
    return problems;
}

} // namespace kestd
