// SPDX-License-Identifier: Apache-2.0
//
// Reads and checks the directory's tables.
#include "host/config/directory_settings.h"

#include "host/config/ldap_settings.h"

namespace kestd {

KnownNames DirectorySettingNames()
{
    return {kDirectoryKey,
            false,
            {u"Backend", u"Tree", u"Server", u"Base", u"Bind Name", u"Bind Password", u"Start TLS",
             u"CA Certificate", u"Timeout", u"Cache Time", u"Cache Entries", u"Retry Time"}};
}

std::string ReadDirectorySettings(ITalpl& platform, DirectorySettings& settings)
{
    RegistryReader in(platform, kDirectoryKey);
    LdapSettings& ldap = settings.ldap;
    std::string backend = "users";
    in.Text(u"Backend", backend);
    if (backend != "users" && backend != "ldap")
        in.Refuse(u"Backend", "expected 'users' or 'ldap'");
    settings.usesLdap = backend == "ldap";
    in.Text(u"Tree", settings.tree);
    if (settings.tree.find_first_of("\\:") != std::string::npos || settings.tree.empty())
        in.Refuse(u"Tree", "expected a name without '\\' and ':'");
    ReadLdapServer(in, ldap);
    in.Time(u"Cache Time", ldap.cacheTime, 0, 24 * 3600);
    in.Number(u"Cache Entries", ldap.cacheEntries, 1, 1'000'000);
    if (settings.usesLdap && !HasLdapUrl(ldap))
        in.Refuse(ldap.server.empty() ? u"Backend" : u"Server",
                  "expected 'Server' to be ldap://HOST[:PORT] or ldaps://HOST[:PORT]");
    RefuseDoubleTls(in, ldap);
    RegistryReader attributes(platform, kDirectoryAttributesKey);
    attributes.AllTexts(ldap.attributes);
    std::string problems = in.Problem();
    AddProblems(problems, attributes.Problem());
    return problems;
}

} // namespace kestd
