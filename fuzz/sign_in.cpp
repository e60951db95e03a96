// SPDX-License-Identifier: Apache-2.0
//
// What signing in reads: files of users and passwords, credentials, names from outside. The first
// byte of an input says which: "u" a users file, "h" an htpasswd file, "a" app passwords and the
// times of their use, "c" the value of "Authorization", "g" a list of groups.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <sys/mman.h>
#include <unistd.h>

#include "base/descriptor.h"
#include "host/auth/app_passwords.h"
#include "host/auth/basic_credentials.h"
#include "host/auth/external_source.h"
#include "host/auth/htpasswd.h"
#include "host/auth/users.h"

namespace {

using namespace kestd;

// A file in memory, as long as this lives.
class File {
  public:
    explicit File(std::string_view text) : descriptor_(memfd_create("fuzz", MFD_CLOEXEC))
    {
        if (write(descriptor_.Number(), text.data(), text.size()) !=
            static_cast<ssize_t>(text.size()))
            abort();
    }
    std::string Path() const { return "/proc/self/fd/" + std::to_string(descriptor_.Number()); }

  private:
    const base::Descriptor descriptor_;
};

void Expect(bool holds)
{
    if (!holds)
        abort();
}

// What was read reads the same when it is written again.
void ReadUsers(std::string_view text)
{
    UserMap users;
    if (!LoadUsers(File(text).Path(), users).empty())
        return Expect(users.empty());
    std::string written;
    for (const auto& [name, user] : users) {
        Expect(WhatIsWrongWithName(name).empty() && name == user->name);
        written += FormatUser(*user) + "\n";
    }
    UserMap again;
    Expect(LoadUsers(File(written).Path(), again).empty() && again.size() == users.size());
    for (const auto& [name, user] : users)
        Expect(*again.at(name) == *user);
}

void ReadHtpasswd(std::string_view text)
{
    UserMap users;
    if (!LoadHtpasswd(File(text).Path(), users).empty())
        return Expect(users.empty());
    for (const auto& [name, user] : users)
        Expect(WhatIsWrongWithName(name).empty() && name == user->name && !user->hash.empty());
}

void ReadApps(std::string_view text)
{
    AppPasswords apps;
    if (!LoadAppPasswords(File(text).Path(), apps).empty())
        return Expect(apps.entries.empty());
    for (const auto& [id, app] : apps.entries)
        Expect(id == app->id && !app->user.empty() && app->hash.size() == 64);
    Expect(!apps.Find("kest-aaaaaaaa-aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", 0));
}

void ReadCredentials(std::string_view text)
{
    std::string name, password;
    if (ReadBasic(text, name, password)) {
        Expect(name.find(':') == std::string::npos && name.find('\\') == std::string::npos);
        (void)IsAppSecret(password);
    }
}

void ReadGroups(std::string_view text)
{
    const auto who = MakeExternalPrincipal(kProxySource, "anna", text);
    for (const std::string& group : who->groups)
        Expect(!group.empty() && group.find(',') == std::string::npos);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size)
{
    if (size == 0)
        return 0;
    const std::string_view text(reinterpret_cast<const char*>(bytes) + 1, size - 1);
    switch (bytes[0]) {
    case 'u':
        ReadUsers(text);
        break;
    case 'h':
        ReadHtpasswd(text);
        break;
    case 'a':
        ReadApps(text);
        break;
    case 'c':
        ReadCredentials(text);
        break;
    case 'g':
        ReadGroups(text);
        break;
    default:
        break;
    }
    return 0;
}
