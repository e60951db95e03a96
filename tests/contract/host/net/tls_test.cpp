// SPDX-License-Identifier: Apache-2.0
//
// The same server through TLS, with a certificate made on the spot.
#include <cstdio>
#include <filesystem>
#include <thread>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

// Writes a new key and a self-signed certificate for `name`.
void MakeCertificate(const std::string& directory, const char* name)
{
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* certificate = X509_new();
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1);
    X509_gmtime_adj(X509_getm_notBefore(certificate), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 3600);
    X509_set_pubkey(certificate, key);
    X509_NAME* subject = X509_get_subject_name(certificate);
    X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
    X509_set_issuer_name(certificate, subject);
    X509_sign(certificate, key, EVP_sha256());
    FILE* file = std::fopen((directory + "/cert.pem").c_str(), "w");
    PEM_write_X509(file, certificate);
    std::fclose(file);
    file = std::fopen((directory + "/key.pem").c_str(), "w");
    PEM_write_PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr);
    std::fclose(file);
    X509_free(certificate);
    EVP_PKEY_free(key);
}

class TlsClient final : public Client {
  public:
    // `before` is sent plain, before the handshake.
    TlsClient(uint16_t port, int maxVersion = 0, std::string_view before = {}) : Client(port)
    {
        EXPECT_EQ(send(fd_, before.data(), before.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(before.size()));
        context_ = SSL_CTX_new(TLS_client_method());
        if (maxVersion) {
            SSL_CTX_set_min_proto_version(context_, TLS1_VERSION);
            SSL_CTX_set_security_level(context_, 0);
            SSL_CTX_set_max_proto_version(context_, maxVersion);
        }
        static constexpr unsigned char kProtocols[] = "\x02h2\x08http/1.1";
        SSL_CTX_set_alpn_protos(context_, kProtocols, sizeof kProtocols - 1);
        ssl_ = SSL_new(context_);
        SSL_set_fd(ssl_, fd_);
        isConnected = SSL_connect(ssl_) == 1;
    }
    ~TlsClient() override
    {
        SSL_free(ssl_);
        SSL_CTX_free(context_);
    }
    std::string Protocol() const
    {
        const unsigned char* text = nullptr;
        unsigned size = 0;
        SSL_get0_alpn_selected(ssl_, &text, &size);
        return {reinterpret_cast<const char*>(text), size};
    }
    std::string PeerName() const
    {
        X509* peer = SSL_get1_peer_certificate(ssl_);
        char text[128] = {};
        X509_NAME_get_text_by_NID(X509_get_subject_name(peer), NID_commonName, text, sizeof text);
        X509_free(peer);
        return text;
    }
    bool isConnected = false;

  protected:
    ssize_t Put(const void* bytes, size_t size) override
    {
        return SSL_write(ssl_, bytes, static_cast<int>(size));
    }
    ssize_t Get(void* to, size_t size) override
    {
        return SSL_read(ssl_, to, static_cast<int>(size));
    }
    bool HasPending() override { return SSL_pending(ssl_) > 0; }

  private:
    SSL_CTX* context_ = nullptr;
    SSL* ssl_ = nullptr;
};

class Tls : public ServerTest {
  protected:
    void SetUp() override
    {
        char name[] = "/tmp/kest-tls-XXXXXX";
        directory = mkdtemp(name);
        MakeCertificate(directory, "first");
        settings = QuietSettings();
        settings.tlsCertificate = directory + "/cert.pem";
        settings.tlsKey = directory + "/key.pem";
        module.handler = [this](IKestIO_5& io, UINT32 method) {
            EXPECT_TRUE(io.IsSecure());
            char protocol[8];
            UINT32 length = sizeof protocol;
            EXPECT_EQ(io.GetProtocolName(&length, protocol), TAL_STATUS_SUCCESS);
            EXPECT_STREQ(protocol, "https");
            if (method == KestMethodPut) {
                TALSTATUS status = 0;
                content = ReadBody(io, status, 65536);
                return io.SendHeader(Code(status) == kCodeEndOfFile ? 201 : 400);
            }
            SetHeader(io, "Content-Length", std::to_string(content.size()));
            io.SendHeader(200);
            return Write(io, content);
        };
    }
    void TearDown() override
    {
        ServerTest::TearDown();
        std::filesystem::remove_all(directory);
    }

    std::string directory;
    ServerSettings settings;
    std::string content;
};

TEST_F(Tls, ContentGoesBothWays)
{
    const Running running = Start(settings);
    TlsClient client(port);
    ASSERT_TRUE(client.isConnected);
    EXPECT_EQ(client.Protocol(), "http/1.1");
    for (const size_t size : {0u, 1u, 16384u, 65536u, 65537u, 3000000u}) {
        const std::string body(size, static_cast<char>('a' + size % 26));
        EXPECT_EQ(client
                      .Ask("PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nContent-Length: " +
                           std::to_string(size) + "\r\n\r\n" + body)
                      .status,
                  201);
        EXPECT_TRUE(client.Ask(kGet).body == body) << size;
    }
    std::string pipelined;
    for (int i = 0; i < 20; ++i)
        pipelined += kGet;
    ASSERT_TRUE(client.Send(pipelined));
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(client.Receive().body.size(), 3000000u);
}

TEST_F(Tls, APreambleComesBeforeIt)
{
    base::IpPrefix own;
    ASSERT_EQ(base::ParseIpPrefix("127.0.0.1", own), "");
    settings.trustedProxies = {own};
    settings.proxyProtocol = settings.listen;
    content = "content";
    std::string remote;
    door.judge = [&remote](const Credentials& credentials) {
        remote = credentials.remoteAddress;
        AuthResult admission;
        admission.outcome = AuthResult::Outcome::Granted;
        return admission;
    };
    const Running running = Start(settings);
    using namespace std::string_literals;
    for (const std::string& preamble :
         {"PROXY TCP4 192.0.2.7 127.0.0.1 1 2\r\n"s,
          "\r\n\r\n\0\r\nQUIT\n\x21\x11\0\x0C\xC0\0\x02\x07\x7F\0\0\x01\0\x01\0\x02"s}) {
        TlsClient client(port, 0, preamble);
        ASSERT_TRUE(client.isConnected);
        EXPECT_EQ(client.Ask(kGet).body, "content");
        EXPECT_EQ(remote, "192.0.2.7");
    }
    EXPECT_FALSE(TlsClient(port).isConnected) << "without one";
}

TEST_F(Tls, ChunkedUploadArrivesWhole)
{
    const Running running = Start(settings);
    TlsClient client(port);
    std::string request = "PUT /Ferro/a HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n";
    for (int i = 0; i < 100; ++i)
        request += "2710\r\n" + std::string(10000, 'x') + "\r\n";
    EXPECT_EQ(client.Ask(request + "0\r\n\r\n").status, 201);
    EXPECT_EQ(content.size(), 1000000u);
}

TEST_F(Tls, ManyClientsAtOnce)
{
    content = std::string(50000, 'x');
    const Running running = Start(settings);
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int t = 0; t < 8; ++t)
        threads.emplace_back([&] {
            for (int i = 0; i < 5; ++i) {
                TlsClient client(port);
                for (int k = 0; k < 5; ++k)
                    good += client.Ask(kGet).body.size() == 50000;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 8 * 5 * 5);
}

TEST_F(Tls, OldVersionsAreRefused)
{
    const Running running = Start(settings);
    EXPECT_FALSE(TlsClient(port, TLS1_1_VERSION).isConnected);
    EXPECT_TRUE(TlsClient(port, TLS1_2_VERSION).isConnected);
}

TEST_F(Tls, PlainTextIsNoTls)
{
    const Running running = Start(settings);
    Client client(port);
    ASSERT_TRUE(client.Send(kGet));
    EXPECT_TRUE(client.IsClosed());
    EXPECT_EQ(module.calls, 0);
}

TEST_F(Tls, HalfAHandshakeHoldsNobody)
{
    settings.limits.headTime = std::chrono::milliseconds(300);
    settings.limits.workerThreads = 1;
    const Running running = Start(settings);
    Client silent(port);
    Client half(port);
    ASSERT_TRUE(half.Send("\x16\x03\x01"));
    EXPECT_EQ(TlsClient(port).Ask(kGet).status, 200);
    EXPECT_TRUE(silent.IsClosed());
    EXPECT_TRUE(half.IsClosed());
}

TEST_F(Tls, ReloadTakesTheNewCertificate)
{
    const Running running = Start(settings);
    TlsClient before(port);
    EXPECT_EQ(before.PeerName(), "first");
    MakeCertificate(directory, "second");
    EXPECT_EQ(server->Apply(settings), "");
    EXPECT_EQ(TlsClient(port).PeerName(), "second");
    EXPECT_EQ(before.Ask(kGet).status, 200); // goes on with the old one
}

TEST_F(Tls, KeyOfAnotherCertificateIsRefused)
{
    const std::string other = directory + "/other";
    std::filesystem::create_directory(other);
    MakeCertificate(other, "other");
    settings.tlsKey = other + "/key.pem";
    Server wrong(settings, door, &module, "/Ferro");
    EXPECT_NE(wrong.Start(), "");
    settings.tlsKey = directory + "/missing.pem";
    Server missing(settings, door, &module, "/Ferro");
    EXPECT_NE(missing.Start().find("missing.pem"), std::string::npos);
}

} // namespace

} // namespace kestd::test
