// SPDX-License-Identifier: Apache-2.0
//
// Sets connections up.
#include "host/auth/ldap_connection.h"

#include <condition_variable>
#include <exception>
#include <mutex>
#include <string_view>
#include <thread>

#include <sys/socket.h>

namespace kestd {
namespace {

class ConnectLimit;
constinit thread_local ConnectLimit* t_limit = nullptr; // of the connection that the thread makes

// Ends a connection that is not made in time. libldap has a limit of its own, but not while it
// shakes hands by GnuTLS: there it reads for ever from a server that says nothing.
class ConnectLimit {
  public:
    explicit ConnectLimit(std::chrono::milliseconds time) : thread_([this, time] { Watch(time); })
    {
        t_limit = this;
    }
    ~ConnectLimit()
    {
        t_limit = nullptr;
        {
            const std::lock_guard lock(mutex_);
            isMade_ = true;
        }
        hasEnded_.notify_one();
        thread_.join();
    }
    ConnectLimit(const ConnectLimit&) = delete;
    ConnectLimit& operator=(const ConnectLimit&) = delete;

    // The socket of the connection; -1: it is about to be closed.
    void Take(int socket)
    {
        const std::lock_guard lock(mutex_);
        socket_ = socket;
        if (isOver_)
            End();
    }

  private:
    void Watch(std::chrono::milliseconds time)
    {
        std::unique_lock lock(mutex_);
        isOver_ = !hasEnded_.wait_for(lock, time, [this] { return isMade_; });
        if (isOver_)
            End();
    }
    // With mutex_ held.
    void End()
    {
        if (socket_ >= 0)
            shutdown(socket_, SHUT_RDWR);
    }

    std::mutex mutex_; // guards the rest
    std::condition_variable hasEnded_;
    int socket_ = -1;
    bool isMade_ = false;
    bool isOver_ = false;
    std::thread thread_; // the last: it uses the others
};

int TakeSocket(LDAP*, Sockbuf* buffer, LDAPURLDesc*, sockaddr*, ldap_conncb*)
{
    ber_socket_t socket = -1;
    if (t_limit && ber_sockbuf_ctrl(buffer, LBER_SB_OPT_GET_FD, &socket) == 1)
        t_limit->Take(socket);
    return 0;
}

void LeaveSocket(LDAP*, Sockbuf*, ldap_conncb*)
{
    if (t_limit)
        t_limit->Take(-1);
}

// Makes a connection with TLS now, and not with the first question.
int ConnectSecurely(LDAP* connection, const LdapServer& server)
{
    static ldap_conncb callbacks = {TakeSocket, LeaveSocket, nullptr};
    ldap_set_option(connection, LDAP_OPT_CONNECT_CB, &callbacks);
    try {
        const ConnectLimit limit(server.timeout);
        return server.startsTls ? ldap_start_tls_s(connection, nullptr, nullptr)
                                : ldap_connect(connection);
    } catch (const std::exception&) { // no thread
        return LDAP_LOCAL_ERROR;
    }
}

} // namespace

timeval LdapTimeval(std::chrono::milliseconds time)
{
    timeval value{};
    value.tv_sec = time.count() / 1000;
    value.tv_usec = time.count() % 1000 * 1000;
    return value;
}

int ConnectLdap(const LdapServer& server, LdapConnection& connection)
{
    // libldap sets itself up at its first use, and looks without a lock whether it has: that first
    // use is one thread's alone.
    static const int ready = [] {
        int version = 0;
        return ldap_get_option(nullptr, LDAP_OPT_PROTOCOL_VERSION, &version);
    }();
    (void)ready; // it reads a default and cannot fail
    LDAP* made = nullptr;
    if (const int result = ldap_initialize(&made, server.url.c_str()); result != LDAP_SUCCESS)
        return result;
    LdapConnection fresh(made);
    const int version = LDAP_VERSION3;
    const timeval timeout = LdapTimeval(server.timeout);
    ldap_set_option(made, LDAP_OPT_PROTOCOL_VERSION, &version);
    ldap_set_option(made, LDAP_OPT_NETWORK_TIMEOUT, &timeout);
    ldap_set_option(made, LDAP_OPT_TIMEOUT, &timeout);
    ldap_set_option(made, LDAP_OPT_REFERRALS, LDAP_OPT_OFF); // no trips to other servers
    const int demand = LDAP_OPT_X_TLS_DEMAND;
    ldap_set_option(made, LDAP_OPT_X_TLS_REQUIRE_CERT, &demand);
    if (!server.caCertificate.empty())
        ldap_set_option(made, LDAP_OPT_X_TLS_CACERTFILE, server.caCertificate.c_str());
    const int isServer = 0;
    if (ldap_set_option(made, LDAP_OPT_X_TLS_NEWCTX, &isServer) != LDAP_OPT_SUCCESS)
        return LDAP_LOCAL_ERROR; // the certificate's file cannot be used
    if (server.startsTls || server.url.starts_with("ldaps://"))
        if (const int result = ConnectSecurely(made, server); result != LDAP_SUCCESS)
            return result;
    connection = std::move(fresh);
    return LDAP_SUCCESS;
}

int BindLdap(LDAP* connection, const std::string& name, std::string_view password)
{
    if (password.empty())
        return LDAP_INVALID_CREDENTIALS;
    // libldap only reads it.
    berval credentials{static_cast<ber_len_t>(password.size()), const_cast<char*>(password.data())};
    return ldap_sasl_bind_s(connection, name.c_str(), LDAP_SASL_SIMPLE, &credentials, nullptr,
                            nullptr, nullptr);
}

} // namespace kestd
