// SPDX-License-Identifier: Apache-2.0
//
// Checks passwords: the cache of what was right before, the checks that run, the limits on guesses.
#include "host/auth/authenticator.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/random.h>

#include "base/ascii.h"
#include "host/auth/basic_credentials.h"
#include "host/auth/passwords.h"
#include "host/auth/sha256.h"
#include "host/log/audit.h"
#include <kest/tolm.h>

namespace kestd {
namespace {

HashPool::Limits PoolLimits(const AuthLimits& limits)
{
    return {limits.hashesAtOnce, limits.waiters, limits.longestWait};
}

HashPool::Limits RemotePoolLimits(const AuthLimits& limits)
{
    return {limits.remoteAtOnce, limits.waiters, limits.longestWait};
}

} // namespace

Authenticator::Authenticator(const AuthLimits& limits, const Clock& clock, Matcher matches)
    : clock_(clock), matches_(std::move(matches)), limits_(limits), guessLimits_(clock),
      order_(std::make_shared<const SignInOrder>()), pool_(PoolLimits(limits)),
      remotePool_(RemotePoolLimits(limits))
{
    if (getentropy(salt_.data(), salt_.size()) != 0)
        throw std::runtime_error("no random numbers");
    guessLimits_.SetLongestDelay(limits.guessDelay);
}

void Authenticator::SetLimits(const AuthLimits& limits)
{
    const std::lock_guard lock(mutex_);
    limits_ = limits;
    guessLimits_.SetLongestDelay(limits.guessDelay);
    pool_.SetLimits(PoolLimits(limits));
    remotePool_.SetLimits(RemotePoolLimits(limits));
}

void Authenticator::SetUsers(UserMap users)
{
    SetSources({MakeUserList("users", std::move(users), matches_)});
}

void Authenticator::SetSources(CredentialsSources sources)
{
    const std::lock_guard lock(mutex_);
    TakeOver({std::move(sources), order_->apps});
}

void Authenticator::SetAppPasswords(AppPasswords apps)
{
    const std::lock_guard lock(mutex_);
    for (auto& [id, one] : apps.entries) // the times of use go on
        if (const auto known = order_->apps.Find(id, one->user)) {
            auto same = std::make_shared<AppPassword>(*one);
            same->used = known->used;
            one = std::move(same);
        }
    TakeOver({order_->sources, std::move(apps)});
}

// With mutex_ held.
void Authenticator::TakeOver(SignInOrder order)
{
    order_ = std::make_shared<const SignInOrder>(std::move(order));
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        if (order_->IsCurrent(*entry->who->principal)) {
            ++entry;
            continue;
        }
        cache_.erase(entry->digest);
        entry = entries_.erase(entry);
    }
}

size_t Authenticator::ThrottledGuessers() const
{
    const std::lock_guard lock(mutex_);
    return guessLimits_.Throttled();
}

std::shared_ptr<const SignInOrder> Authenticator::Order() const
{
    const std::lock_guard lock(mutex_);
    return order_;
}

bool Authenticator::IsCurrent(const Principal& principal) const
{
    return Order()->IsCurrent(principal);
}

Digest Authenticator::DigestOf(std::string_view text) const
{
    return Sha256({reinterpret_cast<const char*>(salt_.data()), salt_.size()}, text);
}

namespace {

// What stands for a client: an IPv4 address, or the network of an IPv6 one, of which each client
// has a whole one. Empty for loopback and what is no address.
std::string NetworkOf(std::string_view remote)
{
    const std::string text(remote);
    in_addr four{};
    if (inet_pton(AF_INET, text.c_str(), &four) == 1)
        return (ntohl(four.s_addr) >> 24) == 127 ? std::string() : text;
    in6_addr six{};
    if (inet_pton(AF_INET6, text.c_str(), &six) != 1 || IN6_IS_ADDR_LOOPBACK(&six))
        return {};
    if (IN6_IS_ADDR_V4MAPPED(&six))
        return text;
    return {reinterpret_cast<const char*>(six.s6_addr), 8};
}

} // namespace

// Names are counted without case: a directory server takes them so, and spellings would be free
// guesses.
GuessSource Authenticator::SourceOf(std::string name, std::string_view remote) const
{
    std::ranges::transform(name, name.begin(), base::Lower);
    const std::string network = NetworkOf(remote);
    GuessSource source;
    source.hasAddress = !network.empty();
    source.name = DigestOf("n" + name);
    source.address = DigestOf("a" + network);
    source.pair = DigestOf("p" + std::string(remote) + '\0' + name);
    return source;
}

namespace {

// The line that tools which lock addresses out look for: its form is documented.
void TellWrong(const std::string& name, std::string_view remote, const GuessLimits::Count& count)
{
    const std::string text = "wrong password from " + std::string(remote.empty() ? "-" : remote) +
                             " for '" + name + "': " + std::to_string(count.wrong) +
                             " so far, next try in " + std::to_string(count.next.count()) + " s";
    TolmLog(kLogWarning, "kestd", text.c_str());
}

} // namespace

// One password on its way to a hash. What it tells is guarded by the authenticator's mutex_.
class Authenticator::Guess final : public HashPool::Job {
  public:
    Guess(Authenticator& self, const Digest& credentials, std::string user, std::string_view from)
        : digest(credentials), name(std::move(user)), remote(from),
          source(self.SourceOf(name, remote)), self_(self)
    {
    }
    void Run(bool isLate) noexcept override { self_.Verify(*this, isLate); }

    const Digest digest; // of the credentials
    const std::string name;
    const std::string remote;
    const GuessSource source;
    WipedText password;
    Digest key{}; // that it is counted under, besides its address
    HashPool* pool = nullptr;

    Waiting* first = nullptr; // who waits for it
    bool isDone = false;
    Result result = Result::Busy;
    std::chrono::seconds wait{0};
    std::shared_ptr<Verified> who;

  private:
    Authenticator& self_;
};

// A request that waits for a guess; on its stack. Made and destroyed with mutex_ held.
class Authenticator::Waiting {
  public:
    Waiting(Guess& guess, SuspendableCall* call)
        : call_(call), guess_(guess), next_(std::exchange(guess.first, this))
    {
    }
    ~Waiting()
    {
        Waiting** link = &guess_.first;
        while (*link != this)
            link = &(*link)->next_;
        *link = next_;
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

    static void WakeAll(const Guess& guess) noexcept
    {
        for (const Waiting* one = guess.first; one; one = one->next_)
            if (one->call_)
                one->call_->Wake();
    }

  private:
    SuspendableCall* const call_;
    Guess& guess_;
    Waiting* next_;
};

// With mutex_ held.
std::shared_ptr<Verified> Authenticator::FindCached(const Digest& digest)
{
    const auto found = cache_.find(digest);
    if (found == cache_.end())
        return nullptr;
    const auto entry = found->second;
    if (clock_.Now() >= entry->until) {
        cache_.erase(found);
        entries_.erase(entry);
        return nullptr;
    }
    // What is in use stays; what another machine has said is asked again after a time.
    entry->until = std::min(clock_.Now() + limits_.cacheTime, entry->latest);
    if (entry != entries_.begin())
        entries_.splice(entries_.begin(), entries_, entry);
    entry->who->NoteUse();
    return entry->who;
}

// With mutex_ held.
void Authenticator::Remember(const Digest& digest, const std::shared_ptr<Verified>& who,
                             bool isRemote)
{
    if (cache_.find(digest) != cache_.end())
        return;
    while (!entries_.empty() && entries_.size() >= limits_.cacheEntries) {
        cache_.erase(entries_.back().digest);
        entries_.pop_back();
    }
    const TimePoint until = clock_.Now() + limits_.cacheTime;
    TimePoint latest = isRemote ? until : TimePoint::max();
    if (who->ends)
        latest = std::min(latest, clock_.Now() + std::chrono::seconds(std::max<int64_t>(
                                                     who->ends - std::time(nullptr), 0)));
    entries_.push_front({digest, who, std::min(until, latest), latest});
    try {
        cache_.emplace(digest, entries_.begin());
    } catch (...) {
        entries_.pop_front();
        throw;
    }
}

Authenticator::Result Authenticator::Check(std::string_view authorization, std::string_view remote,
                                           std::shared_ptr<Verified>& who,
                                           std::chrono::seconds& wait, SuspendableCall* call)
{
    if (authorization.size() > kLongestCredentials)
        return Result::Denied;
    const Digest digest = DigestOf(authorization);
    std::unique_lock lock(mutex_);
    if ((who = FindCached(digest)))
        return Result::Granted;
    std::shared_ptr<Guess> guess = FindGuess(digest);
    if (!guess) {
        lock.unlock();
        std::string name;
        WipedText password;
        if (!ReadBasic(authorization, name, password.text))
            return Result::Denied;
        auto fresh = std::make_shared<Guess>(*this, digest, std::move(name), remote);
        fresh->password.text.swap(password.text);
        lock.lock();
        if ((wait = guessLimits_.Wait(fresh->source)).count() > 0) {
            AuditSignIn(fresh->name, fresh->remote, "throttled");
            return Result::Throttled;
        }
        if (!(guess = FindGuess(digest))) { // else somebody was faster
            if (const Result refusal = Begin(fresh); refusal != Result::Granted) {
                wait = std::chrono::seconds(1);
                return refusal;
            }
            return WaitFor(lock, *fresh, who, wait, call);
        }
    }
    // Some places are left for others: one client may bring the same credentials many times.
    if (guess->pool->Waiting() + joined_ >= limits_.waiters - limits_.waiters / 4)
        return Result::Busy;
    ++joined_;
    const Result result = WaitFor(lock, *guess, who, wait, call);
    --joined_;
    return result;
}

// With mutex_ held.
std::shared_ptr<Authenticator::Guess> Authenticator::FindGuess(const Digest& digest) const
{
    const auto found = guesses_.find(digest);
    return found == guesses_.end() ? nullptr : found->second;
}

// With mutex_ held: has the password hashed if it may be. Names that belong to nobody come last and
// take half of the places at most: whoever makes names up cannot keep users out. While many wait,
// the time therefore tells whether a name is one.
Authenticator::Result Authenticator::Begin(const std::shared_ptr<Guess>& guess)
{
    guess->key = guessLimits_.KeyOf(guess->source);
    guess->pool = order_->NeedsRemote(guess->name) ? &remotePool_ : &pool_;
    const auto count = [&](const Digest& key) {
        const auto found = pending_.find(key);
        return found == pending_.end() ? 0 : found->second;
    };
    const bool isTooMany =
        count(guess->key) >= kGuessesAtOnce ||
        (guess->source.hasAddress && count(guess->source.address) >= kGuessesAtOnce);
    if (isTooMany && limits_.guessDelay.count() > 0)
        return Result::Throttled;
    // What is counted here End takes back: nothing in between may fail without it.
    Count(guess->key);
    try {
        Count(guess->source.address);
    } catch (...) {
        Discount(guess->key);
        throw;
    }
    bool isQueued = false;
    try {
        guesses_.emplace(guess->digest, guess);
        const bool isKnown = order_->IsKnown(guess->name) || granted_.Find(guess->source.name);
        isQueued = guess->pool->Submit(
            guess, isKnown ? HashPool::Priority::User : HashPool::Priority::Other, joined_);
    } catch (...) {
        End(*guess);
        throw;
    }
    if (!isQueued)
        End(*guess);
    return isQueued ? Result::Granted : Result::Busy;
}

// With mutex_ held: the guess is no longer on its way.
void Authenticator::End(const Guess& guess) noexcept
{
    Discount(guess.key);
    Discount(guess.source.address);
    guesses_.erase(guess.digest);
}

// With mutex_ held: one more guess is on its way. Throws std::bad_alloc and leaves all as it was.
void Authenticator::Count(const Digest& key)
{
    ++pending_.try_emplace(key, 0).first->second;
}

// With mutex_ held.
void Authenticator::Discount(const Digest& key) noexcept
{
    const auto found = pending_.find(key);
    if (--found->second == 0)
        pending_.erase(found);
}

size_t Authenticator::PendingCounts() const
{
    const std::lock_guard lock(mutex_);
    return pending_.size();
}

// With mutex_ held, which is let go meanwhile: waits for the guess to be verified, as a call that
// stops without its thread where it is one. The pool sees to it that every guess comes to its end.
Authenticator::Result Authenticator::WaitFor(std::unique_lock<std::mutex>& lock, Guess& guess,
                                             std::shared_ptr<Verified>& who,
                                             std::chrono::seconds& wait, SuspendableCall* call)
{
    const Waiting here(guess, call);
    bool goesOn = true;
    while (!guess.isDone && goesOn) {
        if (!call) {
            hasEnded_.wait(lock);
            continue;
        }
        lock.unlock();
        goesOn = call->Suspend();
        lock.lock();
    }
    if (!guess.isDone)
        return Result::Busy; // its client is gone
    who = guess.who;
    wait = guess.wait;
    return guess.result;
}

// On a thread of the pool.
void Authenticator::Verify(Guess& guess, bool isLate) noexcept
{
    Result result = Result::Busy;
    try {
        if (!isLate)
            result = CheckPassword(guess);
    } catch (const std::exception& error) { // those who wait try again later
        TolmLog(kLogError, "kestd", error.what());
    }
    const std::lock_guard lock(mutex_);
    End(guess);
    guess.result = result;
    guess.isDone = true;
    Waiting::WakeAll(guess);
    hasEnded_.notify_all();
}

// Asks the sources, and counts what came of it.
Authenticator::Result Authenticator::CheckPassword(Guess& guess)
{
    std::unique_lock lock(mutex_);
    // Others may have guessed wrong meanwhile.
    if ((guess.wait = guessLimits_.Wait(guess.source)).count() > 0)
        return Result::Throttled;
    const std::shared_ptr<const SignInOrder> order = order_;
    lock.unlock();
    bool hasAskedRemote = false;
    Verdict verdict = order->Ask(guess.name, guess.password.text, hasAskedRemote);
    // An unknown name costs the same hash, so that the time does not tell. Where a server was
    // asked, its own time tells.
    if (verdict.outcome == Verdict::Outcome::UnknownUser && !hasAskedRemote)
        (void)matches_(guess.password.text, DecoyHash());
    std::shared_ptr<Verified> made;
    if (verdict.outcome == Verdict::Outcome::Granted) {
        made = std::make_shared<Verified>();
        made->principal = std::move(verdict.who);
        if (const AppPassword* const app = order->AppOf(*made->principal)) {
            made->used = app->used;
            made->ends = app->ends;
        }
    }
    lock.lock();
    if (verdict.outcome == Verdict::Outcome::Unavailable) {
        AuditSignIn(guess.name, guess.remote, "unavailable");
        return Result::Unavailable;
    }
    // The users may have changed meanwhile.
    if (!made || (order != order_ && !order_->IsCurrent(*made->principal))) {
        AuditSignIn(guess.name, guess.remote, "denied");
        TellWrong(guess.name, guess.remote, guessLimits_.Wrong(guess.source));
        return Result::Denied;
    }
    AuditSignIn(guess.name, guess.remote, "granted");
    guessLimits_.Right(guess.source);
    granted_.Touch(guess.source.name) = true;
    Remember(guess.digest, made, hasAskedRemote);
    made->NoteUse();
    guess.who = std::move(made);
    return Result::Granted;
}

} // namespace kestd
