// SPDX-License-Identifier: Apache-2.0
//
// A directory server of its own for a test: slapd on a free loopback port, over a temporary
// directory, with a certificate made for it.
#pragma once

#include <string>

#include <sys/types.h>

namespace kestd {

class Slapd {
  public:
    Slapd();
    ~Slapd();
    Slapd(const Slapd&) = delete;
    Slapd& operator=(const Slapd&) = delete;

    // Empty when the server answers; else what went wrong.
    const std::string& Problem() const { return problem_; }
    std::string Url() const;       // ldap://
    std::string SecureUrl() const; // ldaps://
    std::string CaCertificate() const { return directory_ + "/cert.pem"; }

    void Stop();
    void Start(); // on the same ports
  private:
    bool Run(const std::string& command);
    bool WriteFiles();
    bool WaitForAnswer();

    std::string directory_;
    std::string problem_;
    int port_ = 0;
    int securePort_ = 0;
    pid_t process_ = -1;
};

} // namespace kestd
