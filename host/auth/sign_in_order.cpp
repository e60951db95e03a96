// SPDX-License-Identifier: Apache-2.0
//
// Asks the sources one after the other.
#include "host/auth/sign_in_order.h"

#include <ctime>

namespace kestd {
namespace {

// As its user, but for what the app password is bound to.
std::shared_ptr<const Principal> Bound(const Principal& user, const AppPassword& app)
{
    Principal bound = user;
    bound.key.append(1, '\0').append(app.id); // sessions of its own
    bound.limits = app.limits;
    bound.appPassword = app.id;
    return std::make_shared<const Principal>(std::move(bound));
}

} // namespace

bool SignInOrder::NeedsRemote(std::string_view name) const noexcept
{
    for (const auto& source : sources) {
        if (source->IsRemote())
            return true;
        if (source->Knows(name))
            return false;
    }
    return false;
}

bool SignInOrder::IsKnown(std::string_view name) const noexcept
{
    for (const auto& source : sources)
        if (source->Knows(name))
            return true;
    return false;
}

bool SignInOrder::IsCurrent(const Principal& principal) const
{
    if (!principal.appPassword.empty() && !AppOf(principal))
        return false;
    for (const auto& source : sources)
        if (source->Name() == principal.source)
            return source->IsCurrent(principal);
    return false;
}

const AppPassword* SignInOrder::AppOf(const Principal& principal) const
{
    const auto found = apps.entries.find(principal.appPassword);
    return found != apps.entries.end() && found->second->user == principal.name
               ? found->second.get()
               : nullptr;
}

Verdict SignInOrder::Ask(const std::string& name, std::string_view password,
                         bool& hasAskedRemote) const
{
    constexpr Verdict::Outcome kGranted = Verdict::Outcome::Granted;
    const Verdict wrong{Verdict::Outcome::Wrong, nullptr};
    const bool isApp = IsAppSecret(password);
    const auto app = isApp ? apps.Find(password, std::time(nullptr)) : nullptr;
    if (isApp && !app)
        return wrong;
    for (size_t i = 0; i < sources.size(); ++i) {
        hasAskedRemote = hasAskedRemote || sources[i]->IsRemote();
        Verdict verdict = app ? sources[i]->Find(name) : sources[i]->Check(name, password);
        if (verdict.outcome == Verdict::Outcome::UnknownUser)
            continue;
        // Nobody gets round the order by typing "ANNA": where an earlier source knows the spelling
        // under which this one has found the name, this one does not decide.
        if (verdict.outcome == kGranted && verdict.who->name != name)
            for (size_t earlier = 0; earlier < i; ++earlier)
                if (sources[earlier]->Knows(verdict.who->name))
                    return wrong;
        if (verdict.outcome == kGranted && app)
            return verdict.who->name == app->user ? Verdict{kGranted, Bound(*verdict.who, *app)}
                                                  : wrong;
        return verdict;
    }
    return app ? wrong : Verdict{Verdict::Outcome::UnknownUser, nullptr};
}

} // namespace kestd
