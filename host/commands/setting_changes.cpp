// SPDX-License-Identifier: Apache-2.0
//
// Compares two states of the registry value by value.
#include "host/commands/setting_changes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "base/utf.h"
#include "host/config/access_settings.h"
#include "host/config/known_settings.h"
#include "host/config/registry_settings.h"
#include <kest/status.h>
#include <kest/tolm.h>

namespace kestd {
namespace {

// What the module reads again.
constexpr const char16_t* kMoniker = u"Moniker";
constexpr const char16_t* kTemplates = u"Template Directory";

class Key {
  public:
    Key(ITalpl& platform, const std::u16string& path) : platform_(platform)
    {
        if (Failed(platform.TalxOpenKey(path.c_str(), TALX_KEY_READ, &handle_)))
            handle_ = nullptr;
    }
    ~Key()
    {
        if (handle_)
            (void)platform_.TalxCloseKey(handle_); // it was open
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;

    // Calls one of the platform's operations until the record has room; null when there is none.
    template <class Info, class Call> const Info* Fetch(Call&& call)
    {
        for (record_.resize(128);;) {
            UINT32 needed = 0;
            const auto room = static_cast<UINT32>(record_.size() * sizeof(uint64_t));
            const TALSTATUS status = handle_ ? call(handle_, record_.data(), room, &needed)
                                             : MakeStatus(kFacilityPlatform, kCodeNotFound);
            if (!Failed(status))
                return reinterpret_cast<const Info*>(record_.data());
            if (Code(status) != kCodeBufferTooSmall || needed <= room)
                return nullptr;
            record_.resize(needed / sizeof(uint64_t) + 1);
        }
    }
    const TALX_KEY_VALUE_INFORMATION* Value(const char16_t* name)
    {
        return Fetch<TALX_KEY_VALUE_INFORMATION>(
            [&](HANDLE key, void* to, UINT32 room, UINT32* needed) {
                return platform_.TalxQueryValueKey(key, name, to, room, needed);
            });
    }
    const TALX_KEY_VALUE_INFORMATION* Value(UINT32 index)
    {
        return Fetch<TALX_KEY_VALUE_INFORMATION>(
            [&](HANDLE key, void* to, UINT32 room, UINT32* needed) {
                return platform_.TalxEnumerateValueKey(key, index, to, room, needed);
            });
    }
    const TALX_KEY_INFORMATION* Subkey(UINT32 index)
    {
        return Fetch<TALX_KEY_INFORMATION>([&](HANDLE key, void* to, UINT32 room, UINT32* needed) {
            return platform_.TalxEnumerateKey(key, index, to, room, needed);
        });
    }

  private:
    ITalpl& platform_;
    HANDLE handle_ = nullptr;
    std::vector<uint64_t> record_; // aligned for the records
};

std::string BytesOf(const TALX_KEY_VALUE_INFORMATION& info)
{
    std::string bytes(sizeof info.ValueType, '\0');
    std::memcpy(bytes.data(), &info.ValueType, sizeof info.ValueType);
    return bytes.append(reinterpret_cast<const char*>(&info) + info.ValueOffset, info.ValueLength);
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
    for (const KnownNames& known : KnownSettings()) {
        Key key(platform, known.key);
        for (const char16_t* const name : known.names)
            if (const auto* const info = key.Value(name))
                values[{known.key, name}] = BytesOf(*info);
    }
    std::vector<std::u16string> whole = {kDirectoryAttributesKey, kVolumesKey, kAccessGroupsKey};
    for (const char16_t* const parent : {kProvidersKey, kClassesKey, kAccessRulesKey}) {
        Key key(platform, parent);
        for (UINT32 i = 0; const auto* const info = key.Subkey(i); ++i)
            whole.push_back(std::u16string(parent) + u"\\" +
                            std::u16string(info->KeyName, info->KeyNameLength / sizeof(char16_t)));
    }
    for (const std::u16string& path : whole) {
        Key key(platform, path);
        for (UINT32 i = 0; const auto* const info = key.Value(i); ++i) {
            const std::u16string name(info->KeyValueName,
                                      info->KeyValueNameLength / sizeof(char16_t));
            values[{path, name}] = BytesOf(*info);
        }
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
