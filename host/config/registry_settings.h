// SPDX-License-Identifier: Apache-2.0
//
// What the host reads from the registry. Every value has a default; one of a wrong type or outside
// its bounds is an error that names its place in the file.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "host/auth/authenticator.h"
#include "host/auth/sessions.h"
#include "host/components/directory_ldap.h"
#include "host/config/settings.h"
#include <kest/com.h>
#include <kest/sdk/registry.h>
#include <kest/talpl.h>

namespace kestd {

inline constexpr const char16_t* kServerKey = u"Kest\\Configuration\\Server";
inline constexpr const char16_t* kModuleKey = u"Kest\\Configuration\\KestDav";
inline constexpr const char16_t* kDirectoryKey = u"Kest\\Configuration\\Directory";
inline constexpr const char16_t* kDirectoryAttributesKey =
    u"Kest\\Configuration\\Directory\\Attributes";
inline constexpr const char16_t* kStoreKey = u"Kest\\Configuration\\FileStore";
inline constexpr const char16_t* kVolumesKey = u"Kest\\Configuration\\FileStore\\Volumes";
inline constexpr const char16_t* kProvidersKey = u"Kest\\Policies\\DAV Handlers\\Configured";
inline constexpr const char16_t* kClassesKey = u"Tolm\\Classes";

// Reads the values of one key. A missing key or value, and one that is wrong, leaves the variable
// as it is. All problems are kept.
class RegistryReader {
  public:
    // `key` is a full path; it need not exist.
    RegistryReader(ITalpl& platform, const char16_t* key);

    // Each says whether it has read a value.
    bool Text(const char16_t* name, std::string& value);
    bool Texts(const char16_t* name, std::vector<std::string>& value);
    bool Flag(const char16_t* name, bool& value); // true and false, or 1 and 0
    bool Number(const char16_t* name, uint32_t& value, uint32_t least, uint32_t most);
    bool Number(const char16_t* name, uint64_t& value);
    template <class Rep, class Period>
    void Time(const char16_t* name, std::chrono::duration<Rep, Period>& value, uint32_t least,
              uint32_t most) // in the variable's unit
    {
        auto count = static_cast<uint32_t>(value.count());
        Number(name, count, least, most);
        value = std::chrono::duration<Rep, Period>(count);
    }
    bool Has(const char16_t* name);
    // All values of the key, which are texts, added to or replacing those of the same name.
    void AllTexts(std::vector<std::pair<std::string, std::string>>& values);

    // Adds a problem with a value that was read: "FILE:LINE: 'KEY' 'NAME': reason".
    void Refuse(const char16_t* name, const std::string& reason);
    // All of them, a line each; empty for none.
    const std::string& Problem() const { return problem_; }

  private:
    // Whether a value was read; what is wrong with it otherwise becomes the problem.
    bool Took(const char16_t* name, kest::ReadResult result, const char* expected);

    const char16_t* const key_;
    kest::RegistryKey open_;
    std::string problem_;
};

// Adds further problems to some, a line each.
void AddProblems(std::string& all, const std::string& more);

// All settings of the host.
struct HostSettings {
    ServerSettings server;
    SessionLimits sessions;
    AuthLimits auth;
    uint32_t objectsPerSession = 64;
    std::string usersFile; // empty: the state directory's

    bool usesLdap = false;     // 'Backend' of the directory's key: "users" or "ldap"
    std::string tree = "KEST"; // 'Tree': of users whose record names none
    LdapSettings ldap;
};

// Reads them; empty on success, else all problems. `settings` holds the defaults on entry.
std::string ReadHostSettings(ITalpl& platform, HostSettings& settings);

// Looks at the settings of the WebDAV module and of the file store, which fall back to defaults in
// silence: what is wrong there is said before anybody is served. Empty when all is well.
std::string CheckComponentSettings(ITalpl& platform);

// "ADDR:PORT", "[ADDR]:PORT" for IPv6. False when it is neither; names are not resolved.
bool ParseListenAddress(std::string_view text, ListenAddress& address);
std::string FormatListenAddress(const ListenAddress& address);

// Empty when the text is an absolute http or https URL of a server, with or without a path of plain
// characters under which a proxy publishes it; else what is wrong with it. A trailing "/" is
// allowed.
std::string WhatIsWrongWithPublicUrl(std::string_view url);
// The path of such a URL without a "/" at its end; empty when it has none, or is no such URL.
std::string PathOfPublicUrl(std::string_view url);

// What components hear of the host: the public URL's name, or the first listening address.
struct HostName {
    std::string hostname; // with the port unless it is the protocol's own
    std::string port;
};
HostName NameOfHost(const ServerSettings& settings);

} // namespace kestd
