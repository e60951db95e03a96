// SPDX-License-Identifier: Apache-2.0
//
// Compares two states of the registry value by value.
#include "host/commands/setting_changes.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "base/utf.h"
#include "host/config/access_settings.h"
#include "host/config/class_settings.h"
#include "host/config/directory_settings.h"
#include "host/config/known_settings.h"
#include "host/config/module_settings.h"
#include "host/config/store_settings.h"
#include <kest/sdk/registry.h>
#include <kest/tolm.h>

namespace kestd {
namespace {

// What the module reads again.
constexpr const char16_t* kMoniker = u"Moniker";
constexpr const char16_t* kTemplates = u"Template Directory";

// The type and the bytes of a value; false when there is none, or it cannot be read.
bool ReadBytes(kest::RegistryKey& key, const char16_t* name, std::string& bytes)
{
    UINT32 type = 0;
    std::string data;
    if (key.Bytes(name, type, data) != kest::ReadResult::Read)
        return false;
    bytes.assign(sizeof type, '\0');
    std::memcpy(bytes.data(), &type, sizeof type);
    bytes.append(data);
    return true;
}

bool Waits(const std::u16string& key, const std::u16string& name)
{
    for (const KnownNames& known : KnownSettings())
        if (key == known.key &&
            std::find(known.names.begin(), known.names.end(), name) != known.names.end())
            return known.waits;
    return key != kDirectoryAttributesKey && key != kAccessGroupsKey &&
           !key.starts_with(kAccessRulesKey); // volumes, providers, classes do
}

} // namespace

SettingChanges::Values SettingChanges::Read(ITalpl& platform)
{
    Values values;
    std::string bytes;
    for (const KnownNames& known : KnownSettings()) {
        kest::RegistryKey key(platform, known.key);
        for (const char16_t* const name : known.names)
            if (ReadBytes(key, name, bytes))
                values[{known.key, name}] = bytes;
    }
    std::vector<std::u16string> whole = {kDirectoryAttributesKey, kVolumesKey, kAccessGroupsKey};
    for (const char16_t* const parent : {kProvidersKey, kClassesKey, kAccessRulesKey})
        (void)KeysBelow(platform, parent, whole); // who uses them tells of what cannot be read
    for (const std::u16string& path : whole) {
        std::vector<std::u16string> names;
        (void)NamesOf(platform, path.c_str(), names); // likewise
        kest::RegistryKey key(platform, path.c_str());
        for (const std::u16string& name : names)
            if (ReadBytes(key, name.c_str(), bytes))
                values[{path, name}] = bytes;
    }
    return values;
}

void SettingChanges::Begin(ITalpl& platform)
{
    started_ = inForce_ = Read(platform);
}

std::vector<SettingChanges::Change> SettingChanges::Compare(ITalpl& platform)
{
    Values fresh = Read(platform);
    std::vector<Name> names;
    for (const Values* const values : {&started_, &inForce_, &fresh})
        for (const auto& [name, value] : *values)
            names.push_back(name);
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    const auto differ = [&fresh](const Values& before, const Name& name) {
        const auto old = before.find(name);
        const auto now = fresh.find(name);
        if (old == before.end() || now == fresh.end())
            return (old == before.end()) != (now == fresh.end());
        return old->second != now->second;
    };
    std::vector<Change> changes;
    for (const Name& name : names) {
        const bool waits = Waits(name.first, name.second);
        if (differ(waits ? started_ : inForce_, name))
            changes.push_back({"'" + base::ToUtf8(name.first).value_or("?") + "' '" +
                                   base::ToUtf8(name.second).value_or("?") + "'",
                               waits});
    }
    inForce_ = std::move(fresh);
    return changes;
}

void SettingChanges::Hold(const std::string& location)
{
    // Known even where no value said it.
    const std::u16string moniker = base::ToUtf16(location).value_or(u"");
    (void)TolmRegistrySetOverride(kModuleKey, kMoniker, TALX_REG_SZ, moniker.c_str(),
                                  static_cast<UINT32>((moniker.size() + 1) * sizeof(char16_t)));
    const auto found = started_.find({kModuleKey, kTemplates});
    if (found != started_.end()) {
        const std::string& bytes = found->second;
        UINT32 type = 0;
        std::memcpy(&type, bytes.data(), sizeof type);
        (void)TolmRegistrySetOverride(kModuleKey, kTemplates, type, bytes.data() + sizeof type,
                                      static_cast<UINT32>(bytes.size() - sizeof type));
    }
}

void SettingChanges::Release()
{
    for (const char16_t* const name : {kMoniker, kTemplates})
        (void)TolmRegistrySetOverride(kModuleKey, name, TALX_REG_SZ, nullptr, 0); // may be none
}

} // namespace kestd
