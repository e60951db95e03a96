// SPDX-License-Identifier: Apache-2.0
//
// Checks passwords: the cache of what was right before, the checks that run, the limits on guesses.
#include "host/auth/authenticator.h"

#include <stdexcept>
#include <utility>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <sys/random.h>

#include "host/auth/basic_credentials.h"
#include "host/auth/passwords.h"
#include "host/log/audit.h"
#include <kest/tolm.h>

namespace kestd {
namespace {

// Contexts for digests, which cost more to make than a short text's digest. They are shared: one of
// each thread's own would have to end with it, which takes memory at the thread's first use that
// nobody can refuse.
class DigestContexts {
  public:
    struct Free {
        void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
    };
    using Context = std::unique_ptr<EVP_MD_CTX, Free>;

    Context Take()
    {
        {
            const std::lock_guard lock(mutex_);
            if (count_)
                return std::move(spare_[--count_]);
        }
        return Context(EVP_MD_CTX_new());
    }
    void Give(Context context)
    {
        const std::lock_guard lock(mutex_);
        if (count_ < spare_.size())
            spare_[count_++] = std::move(context);
    }

  private:
    std::mutex mutex_; // guards both
    std::array<Context, 16> spare_;
    size_t count_ = 0;
};

// Fetched once: looking the algorithm up costs more than the digest of a short text. It stays until
// the process ends, when threads may still sign in. Null where there is no memory for it now.
const EVP_MD* Sha256Algorithm()
{
    static std::atomic<EVP_MD*> shared{nullptr};
    EVP_MD* known = shared.load(std::memory_order_acquire);
    if (known)
        return known;
    EVP_MD* const fetched = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    if (shared.compare_exchange_strong(known, fetched))
        return fetched;
    EVP_MD_free(fetched); // somebody was faster
    return known;
}

// SHA-256 of two texts in a row.
std::array<unsigned char, 32> Sha256(std::string_view first, std::string_view second)
{
    const EVP_MD* const algorithm = Sha256Algorithm();
    static DigestContexts& contexts = *new DigestContexts;
    DigestContexts::Context own = contexts.Take();
    std::array<unsigned char, 32> digest{};
    if (!algorithm || !own || !EVP_DigestInit_ex2(own.get(), algorithm, nullptr) ||
        !EVP_DigestUpdate(own.get(), first.data(), first.size()) ||
        !EVP_DigestUpdate(own.get(), second.data(), second.size()) ||
        !EVP_DigestFinal_ex(own.get(), digest.data(), nullptr))
        throw std::runtime_error("SHA-256 is not available");
    contexts.Give(std::move(own));
    return digest;
}

HashPool::Limits PoolLimits(const AuthLimits& limits)
{
    return {limits.hashesAtOnce, limits.waiters, limits.longestWait};
}

} // namespace

Authenticator::Authenticator(const AuthLimits& limits, const Clock& clock, Matcher matches)
    : clock_(clock), matches_(std::move(matches)), limits_(limits), guessLimits_(clock),
      users_(std::make_shared<const UserMap>()), pool_(PoolLimits(limits))
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
}

std::shared_ptr<const Principal> Authenticator::MakePrincipal(const User& user)
{
    const auto digest = Sha256(FormatUser(user), {});
    std::string key = user.name;
    key += '\0';
    key.append(reinterpret_cast<const char*>(digest.data()), digest.size());
    return std::make_shared<const Principal>(
        Principal{user.name, user.dottedName, user.tree, user.mail, std::move(key)});
}

void Authenticator::SetUsers(UserMap users)
{
    auto fresh = std::make_shared<const UserMap>(std::move(users));
    const std::lock_guard lock(mutex_);
    users_ = std::move(fresh);
    for (auto entry = entries_.begin(); entry != entries_.end();) {
        const auto found = users_->find(entry->who->user->name);
        if (found != users_->end() && *found->second == *entry->who->user) {
            ++entry;
            continue;
        }
        cache_.erase(entry->digest);
        entry = entries_.erase(entry);
    }
}

std::shared_ptr<const Principal> Authenticator::PrincipalOf(std::string_view name) const
{
    std::shared_ptr<const User> user;
    {
        const std::lock_guard lock(mutex_);
        const auto found = users_->find(name);
        if (found == users_->end())
            return nullptr;
        user = found->second;
    }
    return MakePrincipal(*user);
}

bool Authenticator::IsCurrent(const Principal& principal) const
{
    const auto now = PrincipalOf(principal.name);
    return now && now->key == principal.key;
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

GuessSource Authenticator::SourceOf(const std::string& name, std::string_view remote) const
{
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
    entry->until = clock_.Now() + limits_.cacheTime; // what is in use stays
    if (entry != entries_.begin())
        entries_.splice(entries_.begin(), entries_, entry);
    return entry->who;
}

// With mutex_ held.
void Authenticator::Remember(const Digest& digest, const std::shared_ptr<Verified>& who)
{
    if (cache_.find(digest) != cache_.end())
        return;
    while (!entries_.empty() && entries_.size() >= limits_.cacheEntries) {
        cache_.erase(entries_.back().digest);
        entries_.pop_back();
    }
    entries_.push_front({digest, who, clock_.Now() + limits_.cacheTime});
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
    if (pool_.Waiting() + joined_ >= limits_.waiters - limits_.waiters / 4)
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
        const bool isKnown = users_->find(guess->name) != users_->end();
        isQueued = pool_.Submit(
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
            result = CheckHash(guess);
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

// Hashes the password, and counts what came of it.
Authenticator::Result Authenticator::CheckHash(Guess& guess)
{
    const auto find = [&] {
        const auto found = users_->find(guess.name);
        return found == users_->end() ? nullptr : found->second;
    };
    std::unique_lock lock(mutex_);
    // Others may have guessed wrong meanwhile.
    if ((guess.wait = guessLimits_.Wait(guess.source)).count() > 0)
        return Result::Throttled;
    const std::shared_ptr<const User> user = find();
    lock.unlock();
    // An unknown name costs the same hash, so that the time does not tell.
    const bool fits = matches_(guess.password.text, user ? user->hash : DecoyHash());
    std::shared_ptr<Verified> made;
    if (user && fits) {
        made = std::make_shared<Verified>();
        made->user = user;
        made->principal = MakePrincipal(*user);
    }
    lock.lock();
    const std::shared_ptr<const User> now = find(); // the users may have changed meanwhile
    if (!made || !now || !(*now == *user)) {
        AuditSignIn(guess.name, guess.remote, "denied");
        TellWrong(guess.name, guess.remote, guessLimits_.Wrong(guess.source));
        return Result::Denied;
    }
    AuditSignIn(guess.name, guess.remote, "granted");
    guessLimits_.Right(guess.source);
    Remember(guess.digest, made);
    guess.who = std::move(made);
    return Result::Granted;
}

} // namespace kestd
