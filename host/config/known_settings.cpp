// SPDX-License-Identifier: Apache-2.0
//
// Finds misspelt tables and settings.
#include "host/config/known_settings.h"

#include <algorithm>
#include <cstdint>

#include "base/ascii.h"
#include "host/config/access_settings.h"
#include "host/config/class_settings.h"
#include "host/config/directory_settings.h"
#include "host/config/module_settings.h"
#include "host/config/server_settings.h"
#include "host/config/sign_in_settings.h"
#include "host/config/store_settings.h"
#include <kest/tolm.h>

namespace kestd {

const std::vector<KnownNames>& KnownSettings()
{
    static const std::vector<KnownNames> known = [] {
        std::vector<KnownNames> all = ServerSettingNames();
        for (KnownNames& names : SignInSettingNames())
            all.push_back(std::move(names));
        for (const auto names : {ModuleSettingNames, StoreSettingNames, DirectorySettingNames})
            all.push_back(names());
        return all;
    }();
    return known;
}

namespace {

// How many characters have to be put in, left out or replaced (bytes; names are ASCII mostly).
size_t Distance(std::string_view a, std::string_view b)
{
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t replaced = diagonal + (base::Lower(a[i - 1]) != base::Lower(b[j - 1]));
            diagonal = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, replaced});
        }
    }
    return row.back();
}

// Something that the registry says nobody reads.
struct Unread {
    std::string place; // "FILE:LINE"
    std::string key;
    std::string name; // empty: the whole key
};

// Takes a line of TolmRegistryReportUnread apart.
Unread ParseLine(std::string_view line)
{
    constexpr std::string_view kValue = ": nobody reads the value '";
    constexpr std::string_view kKey = ": nobody reads the key '";
    constexpr std::string_view kOf = "' of '";
    if (line.ends_with('\''))
        line.remove_suffix(1);
    if (const size_t at = line.find(kValue); at != std::string_view::npos) {
        const std::string_view rest = line.substr(at + kValue.size());
        const size_t of = std::min(rest.rfind(kOf), rest.size());
        return {std::string(line.substr(0, at)),
                std::string(rest.substr(std::min(of + kOf.size(), rest.size()))),
                std::string(rest.substr(0, of))};
    }
    const size_t at = std::min(line.find(kKey), line.size());
    return {std::string(line.substr(0, at)),
            std::string(line.substr(std::min(at + kKey.size(), line.size()))),
            {}};
}

std::vector<Unread> AllUnread()
{
    std::vector<Unread> all;
    TolmRegistryReportUnread(
        [](const char* line, void* context) {
            static_cast<std::vector<Unread>*>(context)->push_back(ParseLine(line));
        },
        &all);
    return all;
}

// Tables whose entries have names of the administrator's choice are known by themselves.
std::vector<std::string> KnownTables()
{
    std::vector<std::string> tables;
    for (const KnownNames& known : KnownSettings())
        tables.push_back(NarrowedName(known.key));
    for (const char16_t* const table :
         {kVolumesKey, kDirectoryAttributesKey, kAccessGroupsKey, kAccessRulesKey})
        tables.push_back(NarrowedName(table));
    return tables;
}

std::vector<std::string> NamesIn(std::string_view key)
{
    std::vector<std::string> names;
    for (const KnownNames& known : KnownSettings())
        if (base::EqualsIgnoringCase(NarrowedName(known.key), key))
            for (const char16_t* const name : known.names)
                names.push_back(NarrowedName(name));
    return names;
}

bool Holds(const std::vector<std::string>& names, std::string_view name)
{
    return std::any_of(names.begin(), names.end(),
                       [&](const std::string& one) { return base::EqualsIgnoringCase(one, name); });
}

// Whether a provider or a class is configured that this program does not bring.
bool HasForeign(ITalpl& platform, const std::vector<std::u16string>& ownClasses)
{
    for (const char16_t* const parent : {kProvidersKey, kClassesKey}) {
        std::vector<std::u16string> keys;
        (void)KeysBelow(platform, parent, keys); // who uses them tells of what cannot be read
        for (const std::u16string& key : keys) {
            const std::string name = NarrowedName(key.substr(key.rfind(u'\\') + 1));
            const auto isThis = [&](const std::u16string& own) {
                return base::EqualsIgnoringCase(NarrowedName(own), name);
            };
            if (std::none_of(ownClasses.begin(), ownClasses.end(), isThis))
                return true;
        }
    }
    return false;
}

bool IsBelow(std::string_view key, const char16_t* parent)
{
    const std::string start = NarrowedName(parent) + "\\";
    return base::EqualsIgnoringCase(key.substr(0, start.size()), start);
}

std::string Told(const Unread& one, const std::string& nearest)
{
    std::string text =
        one.place + (one.name.empty() ? ": unknown table '" + one.key
                                      : ": '" + one.key + "': unknown setting '" + one.name);
    text.push_back('\'');
    if (!nearest.empty())
        text += "; did you mean '" + nearest + "'?";
    return text;
}

} // namespace

std::string NearestName(std::string_view name, const std::vector<std::string>& candidates)
{
    constexpr size_t kLongest = 256; // of a name that is compared; bytes
    std::string nearest;
    if (name.size() > kLongest)
        return nearest;
    size_t least = std::max<size_t>(2, name.size() / 4) + 1;
    for (const std::string& candidate : candidates) {
        const size_t distance = Distance(name, candidate);
        if (distance < least) {
            least = distance;
            nearest = candidate;
        }
    }
    return nearest;
}

std::string UnknownSettings(ITalpl& platform, const std::vector<std::u16string>& ownClasses)
{
    const std::vector<std::string> tables = KnownTables();
    const bool hasForeign = HasForeign(platform, ownClasses);
    std::string problems;
    for (const Unread& one : AllUnread()) {
        if (IsBelow(one.key, kProvidersKey)) // the module reads them, later
            continue;
        const bool isClass = IsBelow(one.key, kClassesKey);
        if (one.name.empty() || !(Holds(tables, one.key) || isClass)) {
            const std::string nearest = NearestName(one.key, tables);
            if (!Holds(tables, one.key) && !(hasForeign && nearest.empty()))
                AddProblems(problems, Told(one, nearest));
            continue;
        }
        const std::vector<std::string> names =
            isClass ? std::vector<std::string>{"Library"} : NamesIn(one.key);
        if (!Holds(names, one.name))
            AddProblems(problems, Told(one, NearestName(one.name, names)));
    }
    return problems;
}

} // namespace kestd
