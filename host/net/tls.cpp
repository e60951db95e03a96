// SPDX-License-Identifier: Apache-2.0
//
// OpenSSL over a socket that never waits, and the server's context.
#include "host/net/tls.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

namespace kestd {

namespace {

// A socket BIO that never waits, whatever the socket's mode.
int BioFd(BIO* bio)
{
    return static_cast<int>(reinterpret_cast<intptr_t>(BIO_get_data(bio)));
}

int BioSend(BIO* bio, const char* from, int size)
{
    BIO_clear_retry_flags(bio);
    const ssize_t sent =
        send(BioFd(bio), from, static_cast<size_t>(size), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
        BIO_set_retry_write(bio);
    return static_cast<int>(sent);
}

int BioReceive(BIO* bio, char* to, int size)
{
    BIO_clear_retry_flags(bio);
    const ssize_t got = recv(BioFd(bio), to, static_cast<size_t>(size), MSG_DONTWAIT);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
        BIO_set_retry_read(bio);
    return static_cast<int>(got);
}

long BioControl(BIO*, int command, long, void*)
{
    return command == BIO_CTRL_FLUSH ? 1 : 0;
}

BIO_METHOD* SocketMethod()
{
    static BIO_METHOD* const method = [] {
        BIO_METHOD* made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "socket");
        if (made) {
            BIO_meth_set_write(made, BioSend);
            BIO_meth_set_read(made, BioReceive);
            BIO_meth_set_ctrl(made, BioControl);
        }
        return made;
    }();
    return method;
}

int SelectProtocol(SSL*, const unsigned char** out, unsigned char* outSize, const unsigned char* in,
                   unsigned int inSize, void*)
{
    static constexpr unsigned char kProtocols[] = "\x08http/1.1\x08http/1.0";
    unsigned char* selected = nullptr;
    if (SSL_select_next_proto(&selected, outSize, kProtocols, sizeof kProtocols - 1, in, inSize) !=
        OPENSSL_NPN_NEGOTIATED)
        return SSL_TLSEXT_ERR_ALERT_FATAL; // RFC 7301 section 3.2
    *out = selected;
    return SSL_TLSEXT_ERR_OK;
}

std::string LastError()
{
    char text[256] = "unknown error";
    if (const unsigned long code = ERR_peek_last_error())
        ERR_error_string_n(code, text, sizeof text);
    ERR_clear_error();
    return text;
}

void SetOptions(SSL_CTX* context)
{
    SSL_CTX_set_min_proto_version(context, TLS1_2_VERSION);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE |
                                     SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_mode(context, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                  SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_alpn_select_cb(context, SelectProtocol, nullptr);
    static constexpr unsigned char kContextId[] = "kestd";
    SSL_CTX_set_session_id_context(context, kContextId, sizeof kContextId - 1);
}

// Takes the certificates of clients that the authorities vouch for. Empty, or what is wrong.
std::string AskForClients(SSL_CTX* context, const TlsFiles& files)
{
    STACK_OF(X509_NAME)* const names = SSL_load_client_CA_file(files.clientCa.c_str());
    if (!names || SSL_CTX_load_verify_file(context, files.clientCa.c_str()) != 1) {
        sk_X509_NAME_pop_free(names, X509_NAME_free);
        return "cannot use the certificates of 'Client CA' " + files.clientCa + ": " + LastError();
    }
    SSL_CTX_set_client_CA_list(context, names); // takes them
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
    if (files.clientCrl.empty())
        return {};
    X509_STORE* const store = SSL_CTX_get_cert_store(context);
    X509_LOOKUP* const lookup = X509_STORE_add_lookup(store, X509_LOOKUP_file());
    if (!lookup || X509_load_crl_file(lookup, files.clientCrl.c_str(), X509_FILETYPE_PEM) <= 0)
        return "cannot use the list of 'Client CRL' " + files.clientCrl + ": " + LastError();
    X509_STORE_set_flags(store, X509_V_FLAG_CRL_CHECK);
    return {};
}

int Outcome(SSL* ssl, int result)
{
    const int error = result == 1 ? SSL_ERROR_NONE : SSL_get_error(ssl, result);
    if (error == SSL_ERROR_SSL || error == SSL_ERROR_SYSCALL)
        ERR_clear_error();
    return error;
}

} // namespace

ssl_st* MakeTlsSession(ssl_ctx_st* context, int fd)
{
    SSL* ssl = SSL_new(context);
    BIO* bio = ssl && SocketMethod() ? BIO_new(SocketMethod()) : nullptr;
    if (!bio) {
        SSL_free(ssl);
        throw std::bad_alloc();
    }
    BIO_set_data(bio, reinterpret_cast<void*>(static_cast<intptr_t>(fd)));
    BIO_set_init(bio, 1);
    SSL_set_bio(ssl, bio, bio); // takes the BIO
    SSL_set_accept_state(ssl);
    return ssl;
}

int TlsRead(ssl_st* ssl, void* to, size_t size, size_t& got)
{
    return Outcome(ssl, SSL_read_ex(ssl, to, size, &got));
}

int TlsWrite(ssl_st* ssl, const void* from, size_t size, size_t& written)
{
    return Outcome(ssl, SSL_write_ex(ssl, from, size, &written));
}

void TlsEnd(ssl_st* ssl)
{
    if (SSL_is_init_finished(ssl))
        (void)SSL_shutdown(ssl); // one try: a client that takes nothing hears nothing
    ERR_clear_error();
}

std::string TlsClientName(ssl_st* ssl)
{
    X509* const certificate = SSL_get0_peer_certificate(ssl);
    if (!certificate || SSL_get_verify_result(ssl) != X509_V_OK)
        return {};
    X509_NAME* const subject = X509_get_subject_name(certificate);
    const int at = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (at < 0 || X509_NAME_get_index_by_NID(subject, NID_commonName, at) >= 0)
        return {};
    unsigned char* text = nullptr;
    const int size =
        ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at)));
    const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owner(
        text, [](unsigned char* made) { OPENSSL_free(made); });
    ERR_clear_error();
    if (size <= 0 || std::memchr(text, 0, static_cast<size_t>(size)))
        return {};
    return {reinterpret_cast<const char*>(text), static_cast<size_t>(size)};
}

std::shared_ptr<ssl_ctx_st> LoadTlsContext(const TlsFiles& files, std::string& error)
{
    const std::string& certificate = files.certificate;
    const std::string& key = files.key;
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    if (!context) {
        error = "cannot set up TLS: " + LastError();
        return nullptr;
    }
    SetOptions(context.get());
    if (SSL_CTX_use_certificate_chain_file(context.get(), certificate.c_str()) != 1)
        error = "cannot use the TLS certificate " + certificate + ": " + LastError();
    else if (SSL_CTX_use_PrivateKey_file(context.get(), key.c_str(), SSL_FILETYPE_PEM) != 1)
        error = "cannot use the TLS key " + key + ": " + LastError();
    else if (SSL_CTX_check_private_key(context.get()) != 1)
        error = "the TLS key " + key + " does not belong to the certificate " + certificate;
    else if (!files.clientCa.empty())
        error = AskForClients(context.get(), files);
    return error.empty() ? context : nullptr;
}

} // namespace kestd
