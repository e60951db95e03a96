// SPDX-License-Identifier: Apache-2.0
//
// The tables in their order.
#include "host/config/host_settings.h"

#include "host/config/module_settings.h"
#include "host/config/server_settings.h"
#include "host/config/sign_in_settings.h"
#include "host/config/store_settings.h"

namespace kestd {

std::string ReadHostSettings(ITalpl& platform, HostSettings& settings)
{
    settings.server.dialect = ReadDialect(platform);
    std::string problems = ReadServerSettings(platform, settings.server, settings.users);
    AddProblems(problems, ReadSignInSettings(platform, settings.server, settings.users));
    AddProblems(problems, ReadDirectorySettings(platform, settings.directory));
    return problems;
}

std::string CheckComponentSettings(ITalpl& platform)
{
    std::string problems = CheckModuleSettings(platform);
    AddProblems(problems, CheckStoreSettings(platform));
    return problems;
}

} // namespace kestd
