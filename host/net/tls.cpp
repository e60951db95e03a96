// SPDX-License-Identifier: Apache-2.0
//
// OpenSSL over a socket that never waits, and the server's context.
#include "host/net/tls.h"

#include <sys/socket.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string>

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

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

std::shared_ptr<ssl_ctx_st> LoadTlsContext(const std::string& certificate, const std::string& key,
                                           std::string& error)
{
    std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    if (!context) {
        error = "cannot set up TLS: " + LastError();
        return nullptr;
    }
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_options(context.get(), SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE |
                                           SSL_OP_IGNORE_UNEXPECTED_EOF);
    SSL_CTX_set_mode(context.get(), SSL_MODE_ENABLE_PARTIAL_WRITE |
                                        SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER |
                                        SSL_MODE_RELEASE_BUFFERS);
    SSL_CTX_set_alpn_select_cb(context.get(), SelectProtocol, nullptr);
    static constexpr unsigned char kContextId[] = "kestd";
    SSL_CTX_set_session_id_context(context.get(), kContextId, sizeof kContextId - 1);
    if (SSL_CTX_use_certificate_chain_file(context.get(), certificate.c_str()) != 1)
        error = "cannot use the TLS certificate " + certificate + ": " + LastError();
    else if (SSL_CTX_use_PrivateKey_file(context.get(), key.c_str(), SSL_FILETYPE_PEM) != 1)
        error = "cannot use the TLS key " + key + ": " + LastError();
    else if (SSL_CTX_check_private_key(context.get()) != 1)
        error = "the TLS key " + key + " does not belong to the certificate " + certificate;
    else
        return context;
    return nullptr;
}

} // namespace kestd
