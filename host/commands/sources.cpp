// SPDX-License-Identifier: Apache-2.0
//
// Makes sources by their names.
#include "host/commands/sources.h"

#include "host/auth/external_source.h"
#include "host/auth/htpasswd.h"
#include "host/auth/ldap_source.h"
#include "host/auth/pam_source.h"
#include "host/auth/passwords.h"
#include "host/auth/user_list.h"

namespace kestd {

std::shared_ptr<CredentialsSource> MakeSource(const std::string& name, const HostSettings& settings,
                                              const UserLists& lists, const Clock& clock)
{
    const SignInSettings& signIn = settings.users.signIn;
    if (name == "htpasswd")
        return MakeUserList(name, lists.htpasswd, IsHtpasswdPassword);
    if (name == "ldap")
        return MakeLdapSource(signIn.ldap, settings.directory.tree, clock);
    if (name == "pam")
        return MakePamSource(signIn.pamService);
    if (name == kProxySource || name == kCertificateSource)
        return MakeExternalSource(name);
    return MakeUserList("users", lists.users, IsPassword);
}

CredentialsSources MakeSources(const HostSettings& settings, const UserLists& lists,
                               const Clock& clock, const std::shared_ptr<CredentialsSource>& ldap)
{
    const SignInSettings& signIn = settings.users.signIn;
    CredentialsSources sources;
    if (!signIn.Uses("users") && !lists.users.empty())
        sources.push_back(MakeSource("users", settings, lists, clock));
    for (const std::string& name : signIn.sources)
        sources.push_back(name == "ldap" && ldap ? ldap : MakeSource(name, settings, lists, clock));
    return sources;
}

} // namespace kestd
