// SPDX-License-Identifier: Apache-2.0
//
// The access control of a running host: credentials, cookies, sessions.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "host/auth/access_control.h"
#include "host/auth/authenticator.h"
#include "host/auth/sessions.h"

namespace kestd {

// The name of the cookie that carries a browser's session.
inline constexpr std::string_view kSessionCookie = "KestSession";

// The value of a cookie in a "Cookie" header (RFC 6265 section 5.4); empty when it is missing.
std::string_view FindCookie(std::string_view header, std::string_view name);

class SessionAdmission final : public AccessControl {
  public:
    SessionAdmission(Authenticator& authenticator, SessionTable& sessions);

    // Where the session cookie is valid, such as "/Ferro", and the realm of the challenge. Set
    // before the first request; the realm again on a reload.
    void SetLocation(const std::string& location);
    void SetRealm(const std::string& realm);
    // Whether requests need credentials, or everybody is the local user. The host never opens a
    // closed door: a users file that is emptied later locks everybody out.
    void RequireCredentials(bool required) { allowsAnonymous_ = !required; }
    bool RequiresCredentials() const { return !allowsAnonymous_; }
    bool AllowsAnonymous() const noexcept override { return allowsAnonymous_; }

    AuthResult Authenticate(const Credentials& credentials) override;
    void ReleaseSession(SCHANDLE session) override;

  private:
    AuthResult Enter(const Credentials& credentials,
                     const std::shared_ptr<const Principal>& principal,
                     std::atomic<uint64_t>& guess);
    std::string Challenge() const;

    Authenticator& authenticator_;
    SessionTable& sessions_;
    const std::shared_ptr<const Principal> local_;
    std::atomic<uint64_t> localSession_{0}; // a guess at the local user's shared session
    std::atomic<bool> allowsAnonymous_{true};
    std::string cookiePath_ = "/";
    mutable std::mutex mutex_; // guards challenge_
    std::string challenge_;
};

} // namespace kestd
