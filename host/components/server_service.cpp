// SPDX-License-Identifier: Apache-2.0
//
// Answers components about the configuration and a session's user.
#include "host/components/server_service.h"

#include <algorithm>

#include "base/utf.h"
#include "host/component.h"

namespace kestd {
namespace {

// Copies `text` and a terminator; the length counts no terminator.
TALSTATUS Answer(std::string_view text, UINT32* length, char* buffer)
{
    if (!length || !buffer)
        return HostFailure(kCodeInvalidParameter);
    const UINT32 room = *length;
    *length = static_cast<UINT32>(text.size());
    if (text.size() + 1 > room)
        return HostFailure(kCodeBufferTooSmall);
    std::copy(text.begin(), text.end(), buffer);
    buffer[text.size()] = '\0';
    return TAL_STATUS_SUCCESS;
}

// A counted string over a text that outlives it.
UNICODE_STRING CountedOver(std::u16string& text)
{
    const size_t bytes = std::min<size_t>(text.size() * sizeof(WCHAR), 0xFFFE);
    return {static_cast<UINT16>(bytes), static_cast<UINT16>(bytes), text.data()};
}

class ConfigService final : public Object<ConfigService, IKestConfig> {
  public:
    ConfigService(std::shared_ptr<const HostIdentity> identity, const SessionTable& sessions)
        : identity_(std::move(identity)), proxy_(identity_->proxy), sessions_(sessions)
    {
        proxyCounted_ = CountedOver(proxy_);
    }

    // A module learns its location in ModuleInit and cannot move.
    TALSTATUS SetLocation(GUID*, KEST_LOCATION_ACCESS, UNICODE_STRING*) override
    {
        return HostFailure(kCodeNotImplemented);
    }
    TALSTATUS GetHostname(UINT32* length, char* buffer) override
    {
        return Answer(identity_->hostname, length, buffer);
    }
    TALSTATUS GetLocation(UINT32* length, char* buffer) override
    {
        return Answer({}, length, buffer); // modules are mounted at the root
    }
    TALSTATUS GetPort(UINT32* length, char* buffer) override
    {
        return Answer(identity_->port, length, buffer);
    }
    TALSTATUS GetSessionTimeout(UINT32* seconds) override
    {
        if (!seconds)
            return HostFailure(kCodeInvalidParameter);
        return AtBoundary([&]() -> TALSTATUS {
            *seconds = static_cast<UINT32>(sessions_.IdleTime().count());
            return TAL_STATUS_SUCCESS;
        });
    }
    TALSTATUS GetProxyInformation(UNICODE_STRING** proxy) override
    {
        if (!proxy)
            return HostFailure(kCodeInvalidParameter);
        if (proxy_.empty())
            return HostFailure(kCodeNotFound);
        *proxy = &proxyCounted_; // belongs to this object
        return TAL_STATUS_SUCCESS;
    }
    // Users sign in without a domain.
    TALSTATUS EnumAuthenticationDomains(UINT32, UNICODE_STRING**) override
    {
        return HostFailure(kCodeNoMoreEntries);
    }
    TALSTATUS EnumDomainContexts(UNICODE_STRING*, UINT32, UNICODE_STRING**) override
    {
        return HostFailure(kCodeNotFound);
    }
    TALSTATUS SetProxyCredentials(UNICODE_STRING*, UNICODE_STRING*) override
    {
        return HostFailure(kCodeNotImplemented); // the host makes no requests of its own
    }

  private:
    const std::shared_ptr<const HostIdentity> identity_;
    std::u16string proxy_;
    UNICODE_STRING proxyCounted_{};
    const SessionTable& sessions_;
};

class SessionService final : public Object<SessionService, IKestSession> {
  public:
    explicit SessionService(SessionTable& sessions) : sessions_(sessions) {}

    TALSTATUS Associate(SCHANDLE session) override
    {
        return AtBoundary([&]() -> TALSTATUS {
            auto principal = sessions_.PrincipalOf(session);
            if (!principal)
                return HostFailure(kCodeNotFound);
            auto user = base::ToUtf16(principal->dottedName);
            auto domain = base::ToUtf16(principal->tree);
            if (!user || !domain)
                return HostFailure(kCodeInvalidRequest);
            hasUser_ = !principal->name.empty();
            user_ = std::move(*user);
            domain_ = std::move(*domain);
            userCounted_ = CountedOver(user_);
            domainCounted_ = CountedOver(domain_);
            isAssociated_ = true;
            return TAL_STATUS_SUCCESS;
        });
    }
    TALSTATUS GetPrimaryCredentials(UNICODE_STRING** user, UNICODE_STRING** domain) override
    {
        if (!isAssociated_)
            return HostFailure(kCodeInvalidParameter);
        if (!hasUser_)
            return HostFailure(kCodeNotFound);
        if (user)
            *user = &userCounted_;
        if (domain)
            *domain = &domainCounted_;
        return TAL_STATUS_SUCCESS;
    }

  private:
    SessionTable& sessions_;
    bool isAssociated_ = false;
    bool hasUser_ = false;
    std::u16string user_;
    std::u16string domain_;
    UNICODE_STRING userCounted_{};
    UNICODE_STRING domainCounted_{};
};

} // namespace

IKestConfig* MakeConfigService(std::shared_ptr<const HostIdentity> identity,
                               const SessionTable& sessions)
{
    return new ConfigService(std::move(identity), sessions);
}

IKestSession* MakeSessionService(SessionTable& sessions)
{
    return new SessionService(sessions);
}

} // namespace kestd
