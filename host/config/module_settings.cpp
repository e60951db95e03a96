// SPDX-License-Identifier: Apache-2.0
//
// Reads and checks the module's table.
#include "host/config/module_settings.h"

#include <cstdint>

#include "base/ascii.h"
#include "base/utf.h"

namespace kestd {
namespace {

// The module puts the names of its templates right behind the value, which it keeps as UTF-8; and
// it reads it from a record that has to hold the value's name, too. What it cannot take it replaces
// by another place, where nothing is found.
std::string WhatIsWrongWithTemplates(const std::string& directory)
{
    constexpr size_t kMostUnits = 239;
    constexpr size_t kMostBytes = 255;
    if (!directory.empty() && directory.back() != '/')
        return "expected a directory with a '/' at its end";
    const auto wide = base::ToUtf16(directory);
    if (!wide || wide->size() > kMostUnits || directory.size() > kMostBytes)
        return "expected at most " + std::to_string(kMostUnits) + " characters (" +
               std::to_string(kMostBytes) + " bytes); name it by a shorter path";
    return {};
}

} // namespace

KnownNames ModuleSettingNames()
{
    return {kModuleKey,
            true,
            {u"Moniker", u"Read-Write Block Size", u"Template Directory", u"Dialect",
             u"Infinity Entries"}};
}

Dialect ReadDialect(ITalpl& platform)
{
    RegistryReader in(platform, kModuleKey);
    std::string dialect;
    in.Text(u"Dialect", dialect);
    return dialect == "standard" ? Dialect::Standard : Dialect::Classic;
}

std::string CheckModuleSettings(ITalpl& platform)
{
    RegistryReader in(platform, kModuleKey);
    uint32_t number = 262144;
    in.Number(u"Read-Write Block Size", number, 1024, 524288);
    uint64_t level = 0;
    in.Number(u"Debug Level", level);
    std::string templates;
    in.Text(u"Template Directory", templates);
    if (const std::string wrong = WhatIsWrongWithTemplates(templates); !wrong.empty())
        in.Refuse(u"Template Directory", wrong);
    std::string dialect = "classic";
    in.Text(u"Dialect", dialect);
    if (dialect != "classic" && dialect != "standard")
        in.Refuse(u"Dialect", "expected 'classic' or 'standard'");
    uint32_t entries = 0;
    in.Number(u"Infinity Entries", entries, 0, 100'000'000);
    std::string moniker = "/Ferro";
    in.Text(u"Moniker", moniker);
    const bool isPath = moniker.size() >= 2 && moniker.size() < 200 && moniker.front() == '/' &&
                        moniker.back() != '/' && !base::HasControlOrTab(moniker);
    if (!isPath)
        in.Refuse(u"Moniker", "expected a path such as '/Ferro', with a '/' at its beginning and "
                              "none at its end");
    return in.Problem();
}

} // namespace kestd
