// SPDX-License-Identifier: Apache-2.0
//
// Who a request comes from: the seam between the HTTP server, which reads headers, and the user and
// session services, which judge them.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/auth/suspendable_call.h"
#include <kest/types.h>

namespace kestd {

// What a request shows of itself. The views live as long as the call.
struct Credentials {
    std::string_view authorization; // value of "Authorization", empty when absent
    std::string_view cookie;        // value of "Cookie", empty when absent
    std::string_view remoteAddress; // numeric
    // Who has signed in outside of HTTP, by which source, and with which list of groups; an empty
    // name: nobody. It counts before `authorization`.
    std::string_view externalUser;
    std::string_view externalSource;
    std::string_view externalGroups;
    bool isSecure = false;    // TLS
    bool wantsCookie = false; // a browser (it accepts HTML), so that a session cookie makes sense
    SuspendableCall* call = nullptr; // the request's, which may wait; null: its thread waits
};

class AccessRules; // host/access

struct AuthResult {
    enum class Outcome {
        Granted,
        Unauthorized, // 401 with `challenge`
        Forbidden,    // 403
        Unavailable,  // 503: no session can be made now
        Throttled,    // 429: too many wrong passwords, after `retryAfter`
    };
    Outcome outcome = Outcome::Forbidden;
    SCHANDLE session{}; // Granted only; valid until ReleaseSession
    std::string user;   // for the access log and the access rules; empty for none
    // Groups that the sign-in knows the user to be in, in lower case; null: none but those of the
    // configuration.
    std::shared_ptr<const std::vector<std::string>> groups;
    std::shared_ptr<const AccessRules> limits; // of the app password that was shown; null: none
    std::string setCookie;                     // value of "Set-Cookie" to send, empty for none
    std::string challenge;                     // value of "WWW-Authenticate"
    std::chrono::seconds retryAfter{0};

    void Clear() noexcept
    {
        outcome = Outcome::Forbidden;
        session = {};
        user.clear();
        groups.reset();
        limits.reset();
        setCookie.clear();
        challenge.clear();
        retryAfter = {};
    }
};

class AccessControl {
  public:
    virtual ~AccessControl() = default;

    // Judges a request and holds its session open. Thread-safe. Takes the time of a password hash,
    // and that of those before it, when the credentials are not in the cache.
    virtual AuthResult Authenticate(const Credentials& credentials) = 0;
    // Whether anybody is let in, whatever he shows. Thread-safe, without a lock.
    virtual bool AllowsAnonymous() const noexcept { return false; }
    // The request is over: gives the hold on a granted session back.
    virtual void ReleaseSession(SCHANDLE session) = 0;
};

} // namespace kestd
