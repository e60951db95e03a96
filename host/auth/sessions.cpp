// SPDX-License-Identifier: Apache-2.0
//
// The table of sessions: held, idle, ended.
#include "host/auth/sessions.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <stdexcept>
#include <sys/random.h>

#include "base/hex.h"

namespace kestd {
namespace {

// What every handle of this host carries as its type.
char g_sessionType; // only its address is used

// A number is a place and a generation: a place that is used again gets another number.
constexpr unsigned kPlaceBits = 20;
constexpr uint64_t kPlaceMask = (uint64_t{1} << kPlaceBits) - 1;

std::string RandomCookie()
{
    std::array<unsigned char, 16> bytes{};
    if (getentropy(bytes.data(), bytes.size()) != 0)
        throw std::runtime_error("no random numbers");
    std::string text;
    for (const unsigned char byte : bytes)
        base::AppendHex(text, byte, base::kLowerHex);
    return text;
}

// Of a full table, this part of the idle sessions goes at once, so that a flood of new ones does
// not search the table for each.
constexpr size_t kEvictedPart = 16;

} // namespace

SessionTable::SessionTable(const SessionLimits& limits, const Clock& clock)
    : clock_(clock), capacity_(std::clamp<uint32_t>(limits.sessions, 1, 1U << kPlaceBits)),
      places_(std::make_unique<std::atomic<Session*>[]>(capacity_)), limits_(limits)
{
    freePlaces_.reserve(capacity_); // giving a place back cannot fail
}

SessionTable::~SessionTable()
{
    for (uint32_t i = 0; i < capacity_; ++i)
        delete places_[i].load();
}

void SessionTable::OnEnd(std::function<void(SCHANDLE)> listener)
{
    listeners_.push_back(std::move(listener));
}

void SessionTable::SetLimits(const SessionLimits& limits)
{
    const std::lock_guard lock(mutex_);
    limits_ = limits;
}

std::chrono::seconds SessionTable::IdleTime() const
{
    const std::lock_guard lock(mutex_);
    return limits_.idleTime;
}

Session* SessionTable::PlaceOf(uint64_t number) const
{
    const uint64_t place = number & kPlaceMask;
    return number != 0 && place < capacity_ ? places_[place].load(std::memory_order_acquire)
                                            : nullptr;
}

SCHANDLE SessionTable::HandleOf(uint64_t number)
{
    if (number == 0)
        return {};
    return {&g_sessionType, reinterpret_cast<HANDLE>(number)};
}

uint64_t SessionTable::NumberOf(SCHANDLE handle)
{
    return handle.hTypeId == &g_sessionType ? reinterpret_cast<uint64_t>(handle.hId) : 0;
}

SessionTable::Locked SessionTable::Lock(SCHANDLE handle)
{
    const uint64_t number = NumberOf(handle);
    Session* const session = PlaceOf(number);
    if (!session)
        return {};
    std::unique_lock lock(session->mutex);
    if (session->number != number)
        return {};
    return {std::move(lock), session};
}

bool SessionTable::Hold(SCHANDLE handle)
{
    const Locked session = Lock(handle);
    if (!session || session->state != Session::State::Active || session->isDoomed)
        return false;
    ++session->holds;
    return true;
}

void SessionTable::ReleaseSession(SCHANDLE handle)
{
    const Locked session = Lock(handle);
    if (!session || session->holds == 0)
        return;
    --session->holds;
    session->lastUsed = clock_.Now();
}

std::shared_ptr<const Principal> SessionTable::PrincipalOf(SCHANDLE handle)
{
    const Locked session = Lock(handle);
    return session ? session->principal : nullptr;
}

SCHANDLE SessionTable::HoldShared(const std::shared_ptr<const Principal>& principal)
{
    return MakeRoomFor([&](std::vector<SCHANDLE>&) -> SCHANDLE {
        const auto found = shared_.find(principal->key);
        if (found != shared_.end() && Hold(HandleOf(found->second)))
            return HandleOf(found->second);
        return MakeHeld(principal, {});
    });
}

SCHANDLE SessionTable::HoldByCookie(const std::shared_ptr<const Principal>& principal,
                                    std::string_view cookie)
{
    const std::lock_guard lock(mutex_);
    const auto found = cookies_.find(std::string(cookie));
    if (found == cookies_.end())
        return {};
    const SCHANDLE handle = HandleOf(found->second);
    // A cookie alone admits nobody: it only chooses among the sessions of whoever has shown
    // credentials.
    const auto owner = PrincipalOf(handle);
    return owner && owner->key == principal->key && Hold(handle) ? handle : SCHANDLE{};
}

SCHANDLE SessionTable::HoldNew(const std::shared_ptr<const Principal>& principal,
                               std::string& cookie)
{
    cookie.clear();
    return MakeRoomFor([&](std::vector<SCHANDLE>& ended) -> SCHANDLE {
        const auto own = cookieSessions_.find(principal->key);
        if (own != cookieSessions_.end() && own->second.size() >= limits_.cookieSessionsPerUser)
            CloseOldestCookie(own->second, ended);
        std::string fresh = RandomCookie();
        const SCHANDLE made = MakeHeld(principal, fresh);
        if (made.hId)
            cookie = std::move(fresh);
        return made;
    });
}

// Runs `take` with mutex_ held. Where it finds the table full, the oldest idle sessions end and it
// gets another try; others may be faster, so the tries are counted.
SCHANDLE
SessionTable::MakeRoomFor(const std::function<SCHANDLE(std::vector<SCHANDLE>& ended)>& take)
{
    for (int tries = 0; tries < 3; ++tries) {
        std::vector<SCHANDLE> ended;
        SCHANDLE taken{};
        try {
            const std::lock_guard lock(mutex_);
            taken = take(ended);
            if (!taken.hId)
                CloseOldest(ended);
        } catch (...) {
            Finish(ended);
            throw;
        }
        Finish(ended);
        if (taken.hId || ended.empty())
            return taken;
    }
    return {};
}

// With mutex_ held.
SCHANDLE SessionTable::MakeHeld(const std::shared_ptr<const Principal>& principal,
                                std::string cookie)
{
    uint32_t place = 0;
    if (!TakePlace(place))
        return {};
    const uint64_t number = ++generation_ << kPlaceBits | place;
    try {
        if (cookie.empty()) {
            shared_[principal->key] = number;
        } else {
            cookies_[cookie] = number;
            cookieSessions_[principal->key].push_back(number);
        }
    } catch (...) {
        cookies_.erase(cookie);
        if (const auto found = cookieSessions_.find(principal->key);
            found != cookieSessions_.end() && found->second.empty())
            cookieSessions_.erase(found);
        freePlaces_.push_back(place);
        throw;
    }
    Session& session = *places_[place].load();
    const std::lock_guard lock(session.mutex);
    session.number = number;
    session.state = Session::State::Active;
    session.isDoomed = false;
    session.holds = 1;
    session.lastUsed = clock_.Now();
    session.principal = principal;
    session.cookie = std::move(cookie);
    ++count_;
    return HandleOf(number);
}

// With mutex_ held.
bool SessionTable::TakePlace(uint32_t& place)
{
    if (!freePlaces_.empty()) {
        place = freePlaces_.back();
        freePlaces_.pop_back();
        return true;
    }
    if (madePlaces_ == capacity_)
        return false;
    place = madePlaces_;
    places_[place].store(new Session, std::memory_order_release);
    ++madePlaces_;
    return true;
}

// With mutex_ held: closes the least recently used part of the sessions that no request holds.
void SessionTable::CloseOldest(std::vector<SCHANDLE>& ended)
{
    std::vector<std::pair<TimePoint, Session*>> idle;
    for (uint32_t i = 0; i < madePlaces_; ++i) {
        Session& session = *places_[i].load();
        const std::lock_guard lock(session.mutex);
        if (session.state == Session::State::Active && session.holds == 0)
            idle.emplace_back(session.lastUsed, &session);
    }
    const size_t wanted = std::min(idle.size(), std::max<size_t>(capacity_ / kEvictedPart, 1));
    std::partial_sort(idle.begin(), idle.begin() + static_cast<std::ptrdiff_t>(wanted), idle.end());
    ended.reserve(ended.size() + wanted);
    for (size_t i = 0; i < wanted; ++i) {
        const std::lock_guard lock(idle[i].second->mutex);
        CloseLocked(*idle[i].second, ended);
    }
}

// With mutex_ held: closes the least recently used browser session of a user, if one is idle.
void SessionTable::CloseOldestCookie(const std::vector<uint64_t>& numbers,
                                     std::vector<SCHANDLE>& ended)
{
    Session* oldest = nullptr;
    TimePoint since;
    for (const uint64_t number : numbers) {
        Session& session = *PlaceOf(number);
        const std::lock_guard lock(session.mutex);
        if (session.holds == 0 && (!oldest || session.lastUsed < since)) {
            oldest = &session;
            since = session.lastUsed;
        }
    }
    if (!oldest)
        return;
    ended.reserve(ended.size() + 1);
    const std::lock_guard lock(oldest->mutex);
    CloseLocked(*oldest, ended);
}

// With mutex_ and the session's lock held: takes an unheld live session out of the index. It ends
// in Finish. `ended` has room reserved, so that nothing here fails half-way.
bool SessionTable::CloseLocked(Session& session, std::vector<SCHANDLE>& ended)
{
    if (session.state != Session::State::Active || session.holds != 0)
        return false;
    ended.push_back(HandleOf(session.number));
    session.state = Session::State::Ending;
    const std::string& key = session.principal->key;
    if (session.cookie.empty()) {
        const auto found = shared_.find(key);
        if (found != shared_.end() && found->second == session.number)
            shared_.erase(found);
    } else {
        cookies_.erase(session.cookie);
        const auto found = cookieSessions_.find(key);
        if (found != cookieSessions_.end()) {
            std::erase(found->second, session.number);
            if (found->second.empty())
                cookieSessions_.erase(found);
        }
    }
    return true;
}

// Without a lock: lets the services clean up and frees the places.
void SessionTable::Finish(const std::vector<SCHANDLE>& ended)
{
    for (const SCHANDLE handle : ended) {
        for (const auto& listener : listeners_)
            listener(handle);
        const std::lock_guard lock(mutex_);
        Session* session = nullptr;
        {
            const Locked locked = Lock(handle);
            session = locked.session;
            assert(session && session->attributes.empty() && session->objects.empty());
            session->number = 0;
            session->state = Session::State::Free;
            session->principal.reset();
            session->cookie.clear();
        }
        freePlaces_.push_back(
            static_cast<uint32_t>(reinterpret_cast<uint64_t>(handle.hId) & kPlaceMask));
        --count_;
    }
}

void SessionTable::EndIdle()
{
    std::vector<SCHANDLE> ended;
    {
        const std::lock_guard lock(mutex_);
        const TimePoint now = clock_.Now();
        ended.reserve(count_);
        for (uint32_t i = 0; i < madePlaces_; ++i) {
            Session& session = *places_[i].load();
            const std::lock_guard sessionLock(session.mutex);
            if (session.isDoomed || now - session.lastUsed >= limits_.idleTime)
                CloseLocked(session, ended);
        }
    }
    Finish(ended);
}

void SessionTable::EndWhere(const std::function<bool(const Principal&)>& isGone)
{
    std::vector<SCHANDLE> ended;
    {
        const std::lock_guard lock(mutex_);
        ended.reserve(count_);
        for (uint32_t i = 0; i < madePlaces_; ++i) {
            Session& session = *places_[i].load();
            const std::lock_guard sessionLock(session.mutex);
            if (session.state != Session::State::Active || !isGone(*session.principal))
                continue;
            session.isDoomed = true;
            CloseLocked(session, ended);
        }
    }
    Finish(ended);
}

void SessionTable::EndAll()
{
    EndWhere([](const Principal&) { return true; });
}

size_t SessionTable::Count() const
{
    const std::lock_guard lock(mutex_);
    return count_;
}

void SessionTable::ForEachPlace(const std::function<void(Session&)>& visit)
{
    const std::lock_guard lock(mutex_);
    for (uint32_t i = 0; i < madePlaces_; ++i) {
        Session& session = *places_[i].load();
        const std::lock_guard sessionLock(session.mutex);
        visit(session);
    }
}

} // namespace kestd
