// SPDX-License-Identifier: Apache-2.0
//
// What both tables that name an LDAP server have in common: the directory's, and that of sign-ins.
#pragma once

#include <string_view>

#include "host/config/registry_reader.h"

namespace kestd {

inline constexpr std::string_view kLdapScheme = "ldap://";
inline constexpr std::string_view kLdapsScheme = "ldaps://";

// Where the server is, how it is reached, and whom to search as. `ldap` holds the defaults.
template <class Settings> void ReadLdapServer(RegistryReader& in, Settings& ldap)
{
    in.Text(u"Server", ldap.server);
    in.Text(u"Base", ldap.base);
    in.Text(u"Bind Name", ldap.bindName);
    in.Text(u"Bind Password", ldap.bindPassword);
    in.Flag(u"Start TLS", ldap.startsTls);
    in.Text(u"CA Certificate", ldap.caCertificate);
    in.Time(u"Timeout", ldap.timeout, 100, 60'000);
    in.Time(u"Retry Time", ldap.retryTime, 0, 3600);
}

template <class Settings> bool HasLdapUrl(const Settings& ldap)
{
    return ldap.server.starts_with(kLdapScheme) || ldap.server.starts_with(kLdapsScheme);
}

template <class Settings> void RefuseDoubleTls(RegistryReader& in, const Settings& ldap)
{
    if (ldap.startsTls && ldap.server.starts_with(kLdapsScheme))
        in.Refuse(u"Start TLS", "an ldaps:// connection has TLS from its beginning");
}

} // namespace kestd
