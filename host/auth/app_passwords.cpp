// SPDX-License-Identifier: Apache-2.0
//
// Makes, finds and keeps app passwords.
#include "host/auth/app_passwords.h"

#include <array>
#include <ctime>
#include <optional>
#include <vector>

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <sys/random.h>

#include "base/ascii.h"
#include "base/hex.h"
#include "base/utf.h"
#include "host/auth/users.h"

namespace kestd {
namespace {

constexpr std::string_view kPrefix = "kest-";
constexpr size_t kIdLength = 8;      // characters of 5 bits
constexpr size_t kSecretLength = 32; // likewise: 160 bits
constexpr size_t kLength = kPrefix.size() + kIdLength + 1 + kSecretLength;
constexpr size_t kKeyBytes = 32;
constexpr char kLetters[] = "abcdefghijklmnopqrstuvwxyz234567";

// So many characters of 5 random bits each; empty where there are no random numbers.
std::string RandomText(size_t length)
{
    std::array<unsigned char, kSecretLength> bytes{};
    if (length > bytes.size() || getentropy(bytes.data(), length) != 0)
        return {};
    std::string text;
    for (size_t i = 0; i < length; ++i)
        text += kLetters[bytes[i] & 31];
    return text;
}

std::string Hex(std::string_view bytes)
{
    std::string text;
    for (const char c : bytes)
        base::AppendHex(text, static_cast<unsigned char>(c), base::kLowerHex);
    return text;
}

std::optional<std::string> FromHex(std::string_view text)
{
    std::string bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2) {
        const int high = base::HexValue(text[i]);
        const int low = base::HexValue(text[i + 1]);
        if (high < 0 || low < 0)
            return std::nullopt;
        bytes += static_cast<char>(high << 4 | low);
    }
    return text.size() % 2 ? std::nullopt : std::optional(bytes);
}

// Empty where there is no memory.
std::string HashOf(const std::string& key, std::string_view secret)
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    unsigned length = 0;
    if (!HMAC(EVP_sha256(), key.data(), static_cast<int>(key.size()),
              reinterpret_cast<const unsigned char*>(secret.data()), secret.size(), hash.data(),
              &length))
        return {};
    return Hex({reinterpret_cast<const char*>(hash.data()), length});
}

std::shared_ptr<const AccessRules> LimitsOf(const AppPassword& one)
{
    if (one.volume.empty() && !one.isReadOnly)
        return nullptr;
    const Rights all = one.isReadOnly ? kRightList | kRightRead : kRightsAll;
    const std::vector<Who> everybody = {{Who::Kind::Everybody, {}}};
    std::vector<AccessRule> rules;
    if (one.volume.empty()) {
        rules.push_back({"app password", everybody, "/", all, kRightsAll & ~all, false});
    } else {
        rules.push_back({"other volumes", everybody, "/*", 0, kRightsAll, false});
        rules.push_back(
            {"app password", everybody, "/" + one.volume, all, kRightsAll & ~all, false});
    }
    return std::make_shared<const AccessRules>(std::move(rules), std::vector<AccessGroup>());
}

bool ReadTime(std::string_view text, int64_t& time)
{
    uint64_t number = 0;
    if (!base::ParseDecimal(text, number) || number > 253'402'300'799) // the year 9999
        return false;
    time = static_cast<int64_t>(number);
    return true;
}

std::string FormatLine(const AppPassword& one)
{
    return one.user + ":" + one.id + ":" + one.hash + ":" + std::to_string(one.made) + ":" +
           std::to_string(one.ends) + ":" + one.volume + ":" + (one.isReadOnly ? "read" : "all") +
           ":" + one.name;
}

std::string ParseLine(std::string_view line, AppPassword& one)
{
    const std::vector<std::string> fields = FieldsOf(line);
    if (fields.size() != 8)
        return "expected USER:ID:HASH:MADE:ENDS:VOLUME:RIGHTS:NAME";
    one.user = fields[0];
    one.id = fields[1];
    one.hash = fields[2];
    one.volume = fields[5];
    one.isReadOnly = fields[6] == "read";
    one.name = fields[7];
    if (std::string wrong = WhatIsWrongWithName(one.user); !wrong.empty())
        return wrong;
    if (one.id.size() != kIdLength || one.hash.size() != 64)
        return "the second and third field are none of an app password";
    if (!ReadTime(fields[3], one.made) || !ReadTime(fields[4], one.ends))
        return "expected times in seconds since 1970";
    if (!one.isReadOnly && fields[6] != "all")
        return "expected 'all' or 'read', not '" + fields[6] + "'";
    if (std::string wrong = one.volume.empty() ? "" : WhatIsWrongWithVolume(one.volume);
        !wrong.empty())
        return wrong;
    one.limits = LimitsOf(one);
    return WhatIsWrongWithAppPasswordName(one.name);
}

std::string Parse(const std::string& path, std::string_view text, AppPasswords& all)
{
    AppPasswords read;
    std::string problem =
        ForEachLine(text, [&](size_t number, std::string_view line) -> std::string {
            constexpr std::string_view kKey = "key:";
            if (line.empty() || line.front() == '#')
                return {};
            if (read.key.empty()) {
                const auto key =
                    line.starts_with(kKey) ? FromHex(line.substr(kKey.size())) : std::nullopt;
                if (!key || key->size() != kKeyBytes)
                    return AtLine(path, number, "expected a line 'key:' with 64 digits");
                read.key = *key;
                return {};
            }
            auto one = std::make_shared<AppPassword>();
            if (std::string wrong = ParseLine(line, *one); !wrong.empty())
                return AtLine(path, number, wrong);
            const std::string id = one->id;
            if (!read.entries.emplace(id, std::move(one)).second)
                return AtLine(path, number, "the identifier " + id + " stands twice");
            return {};
        });
    if (problem.empty())
        all = std::move(read);
    return problem;
}

// The file, held against other writers, and what it holds.
struct Held {
    explicit Held(const std::string& path) : file(path, kLargestAppPasswordsFile)
    {
        problem = file.Problem();
        if (problem.empty())
            problem = Parse(path, file.Text(), all);
    }
    LockedFile file;
    AppPasswords all;
    std::string problem; // empty: both can be used
};

std::string Format(const AppPasswords& all)
{
    std::string text = "key:" + Hex(all.key) + "\n";
    for (const auto& [id, one] : all.entries)
        text += FormatLine(*one) + "\n";
    return text;
}

} // namespace

std::shared_ptr<const AppPassword> AppPasswords::Find(std::string_view secret, int64_t now) const
{
    if (!IsAppSecret(secret))
        return nullptr;
    const auto found = entries.find(secret.substr(kPrefix.size(), kIdLength));
    if (found == entries.end() || (found->second->ends && found->second->ends <= now))
        return nullptr;
    const std::string hash = HashOf(key, secret);
    const std::string& kept = found->second->hash;
    return hash.size() == kept.size() && CRYPTO_memcmp(hash.data(), kept.data(), hash.size()) == 0
               ? found->second
               : nullptr;
}

std::shared_ptr<const AppPassword> AppPasswords::Find(std::string_view id,
                                                      std::string_view user) const
{
    const auto found = entries.find(id);
    return found != entries.end() && found->second->user == user ? found->second : nullptr;
}

bool IsAppSecret(std::string_view password) noexcept
{
    return password.size() == kLength && password.starts_with(kPrefix) &&
           password[kPrefix.size() + kIdLength] == '-';
}

std::string WhatIsWrongWithAppPasswordName(std::string_view name)
{
    if (name.empty() || name.size() > kLongestAppPasswordName)
        return "the name of an app password has 1 to " + std::to_string(kLongestAppPasswordName) +
               " bytes";
    if (!base::IsUtf8(name) || base::HasControlOrTab(name) || name.find(':') != std::string::npos)
        return "the name of an app password is UTF-8 text without ':' and control characters";
    return {};
}

std::string WhatIsWrongWithVolume(std::string_view volume)
{
    if (volume.find_first_of(":/") != std::string_view::npos || volume == kUserComponent ||
        volume == kMembersComponent)
        return "expected the name of a volume";
    return WhatIsWrongWithRulePath("/" + std::string(volume));
}

std::string LoadAppPasswords(const std::string& path, AppPasswords& all)
{
    std::string text;
    if (std::string problem = ReadTextFile(path, kLargestAppPasswordsFile, text); !problem.empty())
        return problem;
    return Parse(path, text, all);
}

std::string AddAppPassword(const std::string& path, AppPassword wanted, std::string& secret)
{
    Held held(path);
    if (!held.problem.empty())
        return held.problem;
    AppPasswords& all = held.all;
    for (const auto& [id, one] : all.entries)
        if (one->user == wanted.user && one->name == wanted.name)
            return wanted.user + " has an app password '" + wanted.name + "' already";
    if (all.key.empty()) {
        all.key.resize(kKeyBytes);
        if (getentropy(all.key.data(), all.key.size()) != 0)
            return "no random numbers";
    }
    do {
        wanted.id = RandomText(kIdLength);
    } while (all.entries.contains(wanted.id));
    const std::string random = RandomText(kSecretLength);
    std::string made = std::string(kPrefix) + wanted.id + "-" + random;
    wanted.hash = HashOf(all.key, made);
    if (!IsAppSecret(made) || wanted.hash.empty())
        return "no random numbers, or no memory";
    const std::string id = wanted.id;
    all.entries.emplace(id, std::make_shared<const AppPassword>(std::move(wanted)));
    std::string problem = held.file.Replace(Format(all));
    if (problem.empty())
        secret = std::move(made);
    return problem;
}

std::string RevokeAppPassword(const std::string& path, std::string_view user,
                              std::string_view idOrName)
{
    Held held(path);
    if (!held.problem.empty())
        return held.problem;
    AppPasswords& all = held.all;
    const size_t revoked = std::erase_if(all.entries, [&](const auto& entry) {
        return entry.second->user == user &&
               (entry.first == idOrName || entry.second->name == idOrName);
    });
    if (revoked == 0)
        return std::string(user) + " has no app password '" + std::string(idOrName) + "'";
    return held.file.Replace(Format(all));
}

// What is malformed is left out: nobody is let in by these times.
void LoadUses(const std::string& path, const AppPasswords& all)
{
    std::string text;
    if (!ReadTextFile(path, kLargestAppPasswordsFile, text).empty())
        return;
    (void)ForEachLine(text, [&](size_t, std::string_view line) -> std::string {
        const size_t colon = std::min(line.find(':'), line.size());
        const auto found = all.entries.find(line.substr(0, colon));
        int64_t time = 0;
        if (found != all.entries.end() && colon < line.size() &&
            ReadTime(line.substr(colon + 1), time) && *found->second->used < time)
            *found->second->used = time;
        return {};
    });
}

std::string WriteUses(const std::string& path, const AppPasswords& all, std::string& written)
{
    std::string text;
    for (const auto& [id, one] : all.entries)
        if (const int64_t used = *one->used)
            text += id + ":" + std::to_string(used) + "\n";
    if (text == written)
        return {};
    LockedFile file(path, kLargestAppPasswordsFile);
    std::string problem = file.Problem().empty() ? file.Replace(text) : file.Problem();
    if (problem.empty())
        written = std::move(text);
    return problem;
}

} // namespace kestd
