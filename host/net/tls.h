// SPDX-License-Identifier: Apache-2.0
//
// What the stream needs of OpenSSL. The calls never wait, whatever the socket's mode, and leave
// no errors in the thread's error queue.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

struct ssl_st;
struct ssl_ctx_st;

namespace kestd {

// A server session over a socket. Throws std::bad_alloc.
ssl_st* MakeTlsSession(ssl_ctx_st* context, int fd);

// SSL_ERROR_NONE with the number of bytes, or why not.
int TlsRead(ssl_st* ssl, void* to, size_t size, size_t& got);
int TlsWrite(ssl_st* ssl, const void* from, size_t size, size_t& written);
void TlsEnd(ssl_st* ssl); // sends the closure alert as far as it goes

// The common name of the verified certificate that the client has shown, UTF-8; empty where it has
// shown none, or one without such a name, with several, or with zero bytes in it. Throws
// std::bad_alloc.
std::string TlsClientName(ssl_st* ssl);

// PEM files.
struct TlsFiles {
    std::string certificate; // with its chain
    std::string key;
    std::string clientCa;  // those whose certificates clients may show; empty: none are asked for
    std::string clientCrl; // what those have revoked; empty: nothing
};

// A server context: TLS 1.2 and later, HTTP/1.1 by ALPN. A client may show a certificate or none;
// the handshake fails with one that cannot be verified. Null with a reason in `error`.
std::shared_ptr<ssl_ctx_st> LoadTlsContext(const TlsFiles& files, std::string& error);

} // namespace kestd
