// SPDX-License-Identifier: Apache-2.0
//
// Finds or makes the session of a request from its credentials and cookie.
#include "host/auth/session_admission.h"

#include "base/ascii.h"
#include "base/percent.h"
#include "host/auth/external_source.h"
#include <kest/tolm.h>

namespace kestd {
namespace {

// A quoted string of RFC 9110 section 5.6.4.
std::string Quoted(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            out += '\\';
        out += c;
    }
    return out + '"';
}

} // namespace

std::string_view FindCookie(std::string_view header, std::string_view name)
{
    while (!header.empty()) {
        const size_t end = std::min(header.find(';'), header.size());
        const std::string_view pair = base::Trimmed(header.substr(0, end));
        header.remove_prefix(std::min(end + 1, header.size()));
        const size_t equals = pair.find('=');
        if (equals != std::string_view::npos && base::Trimmed(pair.substr(0, equals)) == name)
            return base::Trimmed(pair.substr(equals + 1));
    }
    return {};
}

SessionAdmission::SessionAdmission(Authenticator& authenticator, SessionTable& sessions)
    : authenticator_(authenticator), sessions_(sessions),
      local_(std::make_shared<const Principal>())
{
    SetRealm("Kest");
}

void SessionAdmission::SetLocation(const std::string& location)
{
    cookiePath_ = base::PercentEncode(location);
}

void SessionAdmission::SetRealm(const std::string& realm)
{
    // The charset tells clients to send UTF-8 (RFC 7617 section 2.1).
    std::string challenge = "Basic realm=" + Quoted(realm) + ", charset=\"UTF-8\"";
    const std::lock_guard lock(mutex_);
    challenge_ = std::move(challenge);
}

std::string SessionAdmission::Challenge() const
{
    const std::lock_guard lock(mutex_);
    return challenge_;
}

AuthResult SessionAdmission::Authenticate(const Credentials& credentials)
{
    AuthResult refused;
    try {
        if (allowsAnonymous_)
            return Enter(credentials, local_, localSession_);
        if (!credentials.externalUser.empty()) {
            std::atomic<uint64_t> none{0};
            return Enter(credentials,
                         MakeExternalPrincipal(credentials.externalSource, credentials.externalUser,
                                               credentials.externalGroups),
                         none);
        }
        std::shared_ptr<Verified> who;
        const auto result =
            credentials.authorization.empty()
                ? Authenticator::Result::Denied
                : authenticator_.Check(credentials.authorization, credentials.remoteAddress, who,
                                       refused.retryAfter, credentials.call);
        if (result == Authenticator::Result::Granted)
            return Enter(credentials, who->principal, who->session);
        if (result == Authenticator::Result::Denied) {
            refused.challenge = Challenge();
            refused.outcome = AuthResult::Outcome::Unauthorized;
            return refused;
        }
        if (result == Authenticator::Result::Throttled) {
            refused.outcome = AuthResult::Outcome::Throttled;
            return refused;
        }
    } catch (const std::exception& error) {
        TolmLog(kLogError, "kestd", error.what());
    }
    refused.outcome = AuthResult::Outcome::Unavailable;
    return refused;
}

// `guess` is the number of the session that these credentials used last.
AuthResult SessionAdmission::Enter(const Credentials& credentials,
                                   const std::shared_ptr<const Principal>& principal,
                                   std::atomic<uint64_t>& guess)
{
    AuthResult admission;
    admission.outcome = AuthResult::Outcome::Granted;
    admission.user = principal->name;
    if (!principal->groups.empty())
        admission.groups = {principal, &principal->groups};
    if (principal->limits)
        admission.limits = principal->limits;
    const std::string_view cookie = credentials.cookie.empty()
                                        ? credentials.cookie
                                        : FindCookie(credentials.cookie, kSessionCookie);
    if (!cookie.empty())
        admission.session = sessions_.HoldByCookie(principal, cookie);
    if (!admission.session.hId && credentials.wantsCookie) {
        std::string fresh;
        admission.session = sessions_.HoldNew(principal, fresh);
        // No "HttpOnly" and no "Secure": whoever renders a page completes the cookie.
        if (!fresh.empty())
            admission.setCookie = std::string(kSessionCookie) + "=" + fresh +
                                  "; Path=" + cookiePath_ + "; SameSite=Lax";
    }
    if (!admission.session.hId) {
        const SCHANDLE guessed = SessionTable::HandleOf(guess.load(std::memory_order_relaxed));
        if (sessions_.Hold(guessed)) {
            admission.session = guessed;
        } else {
            admission.session = sessions_.HoldShared(principal);
            guess.store(SessionTable::NumberOf(admission.session), std::memory_order_relaxed);
        }
    }
    if (!admission.session.hId)
        admission.outcome = AuthResult::Outcome::Unavailable;
    return admission;
}

void SessionAdmission::ReleaseSession(SCHANDLE session)
{
    sessions_.ReleaseSession(session);
}

} // namespace kestd
