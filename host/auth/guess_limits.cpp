// SPDX-License-Identifier: Apache-2.0
//
// Counts of wrong guesses, and the waits that follow from them.
#include "host/auth/guess_limits.h"

#include <algorithm>

namespace kestd {

using std::chrono::seconds;

const Digest& GuessLimits::KeyOf(const GuessSource& who)
{
    return known_.Find(who.pair) ? who.pair : who.name;
}

seconds GuessLimits::WaitOf(const Digest& key)
{
    const Entry* const entry = wrong_.Find(key);
    const TimePoint now = clock_.Now();
    if (!entry || now >= entry->until)
        return seconds(0);
    return std::chrono::ceil<seconds>(entry->until - now);
}

seconds GuessLimits::Wait(const GuessSource& who)
{
    const seconds name = WaitOf(KeyOf(who));
    // Who has signed in from there before is not held up by his neighbours.
    const bool isStranger = who.hasAddress && !known_.Find(who.pair);
    return isStranger ? std::max(name, WaitOf(who.address)) : name;
}

uint32_t GuessLimits::Add(const Digest& key, uint32_t free)
{
    Entry& entry = wrong_.Touch(key);
    const TimePoint now = clock_.Now();
    if (now - entry.last >= kMemory)
        entry = {};
    entry.last = now;
    entry.wrong = std::min(entry.wrong + 1, 1'000'000u);
    if (entry.wrong > free) {
        const uint32_t doublings = std::min(entry.wrong - free - 1, 20u);
        entry.until = now + std::min(longest_, seconds(1u << doublings));
    }
    return entry.wrong;
}

GuessLimits::Count GuessLimits::Wrong(const GuessSource& who)
{
    const uint32_t wrong = Add(KeyOf(who), kFreeByName);
    if (who.hasAddress)
        (void)Add(who.address, kFreeByAddress); // the name's count is what is told
    return {wrong, Wait(who)};
}

size_t GuessLimits::Throttled() const
{
    const TimePoint now = clock_.Now();
    return wrong_.CountIf([&](const Entry& entry) { return entry.until > now; });
}

void GuessLimits::Right(const GuessSource& who)
{
    known_.Touch(who.pair) = true;
    wrong_.Erase(who.pair);
}

} // namespace kestd
