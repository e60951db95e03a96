// SPDX-License-Identifier: Apache-2.0
//
// Reads and checks the tables about signing in.
#include "host/config/sign_in_settings.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/host_name.h"
#include "base/token.h"
#include "host/config/ldap_settings.h"

namespace kestd {
namespace {

constexpr std::string_view kKnownSources[] = {"users", "htpasswd", "ldap",
                                              "pam",   "proxy",    "certificate"};
constexpr const char* kExpectedSources = "expected some of 'users', 'htpasswd', 'ldap', 'pam', "
                                         "'proxy' and 'certificate'";

void ReadSources(RegistryReader& in, SignInSettings& settings)
{
    in.Texts(u"Sources", settings.sources);
    in.Text(u"Htpasswd File", settings.htpasswdFile);
    in.Text(u"App Passwords File", settings.appPasswordsFile);
    in.Text(u"PAM Service", settings.pamService);
    if (settings.pamService.empty() || settings.pamService.find('/') != std::string::npos)
        in.Refuse(u"PAM Service", "expected the name of a file in /etc/pam.d");
    std::vector<std::string>& sources = settings.sources;
    if (sources.empty())
        in.Refuse(u"Sources", kExpectedSources);
    for (auto one = sources.begin(); one != sources.end(); ++one) {
        if (std::ranges::find(kKnownSources, *one) == std::end(kKnownSources))
            in.Refuse(u"Sources", kExpectedSources + (", not '" + *one + "'"));
        else if (std::find(sources.begin(), one, *one) != one)
            in.Refuse(u"Sources", "'" + *one + "' stands there twice");
    }
    if (settings.Uses("htpasswd") && settings.htpasswdFile.empty())
        in.Refuse(u"Sources", "'htpasswd' needs 'Htpasswd File'");
}

// Read in any case, so that what is wrong with them is told; in use where the sources say so.
void ReadProxySignIn(RegistryReader& in, const SignInSettings& signIn, ServerSettings& server)
{
    std::string user = "Remote-User";
    std::string groups = "Remote-Groups";
    in.Text(u"Proxy User Header", user);
    in.Text(u"Proxy Groups Header", groups);
    if (!base::IsFieldName(user))
        in.Refuse(u"Proxy User Header", "expected the name of a header field");
    if (!groups.empty() && !base::IsFieldName(groups))
        in.Refuse(u"Proxy Groups Header", "expected the name of a header field");
    server.proxyUserHeader.clear();
    server.proxyGroupsHeader.clear();
    if (!signIn.Uses("proxy"))
        return;
    if (server.trustedProxies.empty())
        in.Refuse(u"Sources", "nobody can sign in by 'proxy' without 'Trusted Proxies'");
    server.proxyUserHeader = std::move(user);
    server.proxyGroupsHeader = std::move(groups);
}

void ReadCertificateSignIn(RegistryReader& in, const SignInSettings& signIn, ServerSettings& server)
{
    std::string authorities;
    std::string revoked;
    in.Text(u"Client CA", authorities);
    in.Text(u"Client CRL", revoked);
    server.clientCa.clear();
    server.clientCrl.clear();
    if (!signIn.Uses("certificate"))
        return;
    if (authorities.empty())
        in.Refuse(u"Sources", "'certificate' needs 'Client CA'");
    if (server.tlsCertificate.empty())
        in.Refuse(u"Sources", "nobody shows a 'certificate' without 'TLS Certificate'");
    server.clientCa = std::move(authorities);
    server.clientCrl = std::move(revoked);
}

// A password would be readable on its way to another machine.
bool IsExposed(const LdapSignIn& ldap)
{
    if (ldap.startsTls || !ldap.server.starts_with(kLdapScheme))
        return false;
    std::string_view rest = std::string_view(ldap.server).substr(kLdapScheme.size());
    rest = rest.substr(0, rest.find('/'));
    std::string_view host;
    std::string_view port;
    base::SplitHost(rest, host, port);
    return !base::IsLoopbackHost(host);
}

// A look for what is mistyped; the server has the last word.
bool IsFilter(const std::string& filter)
{
    return filter.starts_with('(') && filter.ends_with(')') &&
           std::ranges::count(filter, '(') == std::ranges::count(filter, ')');
}

void CheckServer(RegistryReader& in, const LdapSignIn& ldap)
{
    if (!HasLdapUrl(ldap))
        return in.Refuse(u"Server", "expected ldap://HOST[:PORT] or ldaps://HOST[:PORT]");
    RefuseDoubleTls(in, ldap);
    if (IsExposed(ldap))
        in.Refuse(u"Server", "expected ldaps:// or 'Start TLS': passwords could be read on their "
                             "way to that machine");
}

void ReadLdap(RegistryReader& in, LdapSignIn& ldap, AuthLimits& limits)
{
    ReadLdapServer(in, ldap);
    in.Text(u"User Filter", ldap.userFilter);
    in.Text(u"User Name", ldap.userName);
    in.Text(u"Group Attribute", ldap.groupAttribute);
    in.Text(u"Group Base", ldap.groupBase);
    in.Text(u"Group Filter", ldap.groupFilter);
    in.Text(u"Group Name", ldap.groupName);
    in.Number(u"Checks At Once", limits.remoteAtOnce, 1, 256);
    if (!IsFilter(ldap.userFilter) || ldap.userFilter.find("%u") == std::string::npos)
        in.Refuse(u"User Filter", "expected a filter with %u, such as (uid=%u)");
    if (!IsFilter(ldap.groupFilter))
        in.Refuse(u"Group Filter", "expected a filter such as (member=%d)");
    if (ldap.userName.empty())
        in.Refuse(u"User Name", "expected the name of an attribute");
    if (ldap.groupName.empty())
        in.Refuse(u"Group Name", "expected the name of an attribute");
    if (!ldap.bindName.empty() && ldap.bindPassword.empty())
        in.Refuse(u"Bind Name", "expected 'Bind Password': without one the server takes anybody");
}

} // namespace

std::vector<KnownNames> SignInSettingNames()
{
    return {{kAuthKey,
             false,
             {u"Plain HTTP Passwords", u"Sources", u"Htpasswd File", u"App Passwords File",
              u"PAM Service", u"Proxy User Header", u"Proxy Groups Header", u"Client CA",
              u"Client CRL"}},
            {kAuthLdapKey,
             false,
             {u"Server", u"Start TLS", u"CA Certificate", u"Bind Name", u"Base", u"Bind Password",
              u"User Filter", u"User Name", u"Group Attribute", u"Group Base", u"Group Name",
              u"Group Filter", u"Timeout", u"Checks At Once", u"Retry Time"}}};
}

std::string ReadSignInSettings(ITalpl& platform, ServerSettings& server, UserSettings& users)
{
    RegistryReader in(platform, kAuthKey);
    in.Flag(u"Plain HTTP Passwords", server.takesPlainPasswords);
    ReadSources(in, users.signIn);
    ReadProxySignIn(in, users.signIn, server);
    ReadCertificateSignIn(in, users.signIn, server);
    RegistryReader ldap(platform, kAuthLdapKey);
    ReadLdap(ldap, users.signIn.ldap, users.auth);
    if (users.signIn.Uses("ldap"))
        CheckServer(ldap, users.signIn.ldap);
    std::string problems = in.Problem();
    AddProblems(problems, ldap.Problem());
    return problems;
}

} // namespace kestd
