// SPDX-License-Identifier: Apache-2.0
//
// Connections to LDAP servers, by libldap.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include <ldap.h>

namespace kestd {

struct LdapUnbind {
    void operator()(LDAP* connection) const { ldap_unbind_ext_s(connection, nullptr, nullptr); }
};
using LdapConnection = std::unique_ptr<LDAP, LdapUnbind>;

struct LdapFreeMessage {
    void operator()(LDAPMessage* message) const { ldap_msgfree(message); }
};
using LdapMessage = std::unique_ptr<LDAPMessage, LdapFreeMessage>;

struct LdapServer {
    std::string url; // ldap://HOST[:PORT] or ldaps://HOST[:PORT]
    bool startsTls = false;
    std::string caCertificate;               // PEM; empty: the system's
    std::chrono::milliseconds timeout{3000}; // of connecting, and of each answer
};

timeval LdapTimeval(std::chrono::milliseconds time);

// Connects and switches to TLS where that is wanted; certificates are verified, referrals not
// followed. Waits up to the time limit for each step. A result code of libldap.
int ConnectLdap(const LdapServer& server, LdapConnection& connection);

// A simple bind. An empty password never binds: servers take that for nobody and say yes (RFC 4513
// section 5.1.2). A result code of libldap.
int BindLdap(LDAP* connection, const std::string& name, std::string_view password);

} // namespace kestd
