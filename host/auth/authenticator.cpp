// SPDX-License-Identifier: Apache-2.0
//
// Checks passwords: the cache of what was right before, the queue for hashes, the limits on
// guesses.
#include "host/auth/authenticator.h"

#include <cstring>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sys/random.h>

#include "base/ascii.h"
#include "base/base64.h"
#include "base/utf.h"
#include "host/auth/passwords.h"
#include <kest/tolm.h>

namespace kestd {
namespace {

// The longest credentials that can belong to anybody: name, domain and password with room to spare.
constexpr size_t kLongestHeader = 4096;

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

// SHA-256 of two texts in a row.
std::array<unsigned char, 32> Sha256(std::string_view first, std::string_view second)
{
    // Fetched once: looking the algorithm up costs more than the digest of a short text. Both stay
    // until the process ends, when threads may still sign in.
    static EVP_MD* const algorithm = EVP_MD_fetch(nullptr, "SHA256", nullptr);
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

struct WipedText {
    std::string text;
    ~WipedText() { OPENSSL_cleanse(text.data(), text.size()); }
};

} // namespace

bool ReadBasic(std::string_view authorization, std::string& name, std::string& password)
{
    constexpr std::string_view kScheme = "Basic ";
    if (authorization.size() > kLongestHeader || authorization.size() < kScheme.size() ||
        !base::EqualsIgnoringCase(authorization.substr(0, kScheme.size()), kScheme))
        return false;
    auto decoded = base::DecodeBase64(base::Trimmed(authorization.substr(kScheme.size())));
    if (!decoded)
        return false;
    const WipedText text{std::move(*decoded)};
    const std::string_view whole = text.text;
    const size_t colon = whole.find(':');
    if (colon == std::string_view::npos || whole.find('\0') != std::string_view::npos ||
        !base::IsUtf8(whole))
        return false;
    std::string_view user = whole.substr(0, colon);
    if (const size_t domain = user.rfind('\\'); domain != std::string_view::npos)
        user.remove_prefix(domain + 1); // some clients send the machine's or the domain's name
    if (user.empty())
        return false;
    name = user;
    password = whole.substr(colon + 1);
    return true;
}

Authenticator::Authenticator(const AuthLimits& limits, const Clock& clock, Matcher matches)
    : clock_(clock), matches_(std::move(matches)), limits_(limits), guessLimits_(clock),
      users_(std::make_shared<const UserMap>())
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
    changed_.notify_all(); // more may be hashed at once
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

// Made and destroyed with mutex_ held.
class Authenticator::Pending {
  public:
    Pending(Authenticator& self, std::unique_lock<std::mutex>& lock, const GuessSource& source)
        : self_(self), lock_(lock), name_(self.guessLimits_.KeyOf(source)),
          address_(source.address), hasAddress_(source.hasAddress)
    {
        isTooMany_ =
            Count(name_) >= kGuessesAtOnce || (hasAddress_ && Count(address_) >= kGuessesAtOnce);
        ++self_.pending_[name_];
        try {
            ++self_.pending_[address_];
        } catch (...) {
            Leave(name_);
            throw;
        }
    }
    ~Pending()
    {
        if (!lock_.owns_lock())
            lock_.lock();
        Leave(name_);
        Leave(address_);
    }
    Pending(const Pending&) = delete;
    Pending& operator=(const Pending&) = delete;
    bool IsTooMany() const { return isTooMany_; }

  private:
    uint32_t Count(const Digest& key) const
    {
        const auto found = self_.pending_.find(key);
        return found == self_.pending_.end() ? 0 : found->second;
    }
    void Leave(const Digest& key)
    {
        const auto found = self_.pending_.find(key);
        if (--found->second == 0)
            self_.pending_.erase(found);
    }

    Authenticator& self_;
    std::unique_lock<std::mutex>& lock_;
    const Digest name_;
    const Digest address_;
    const bool hasAddress_;
    bool isTooMany_ = false;
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
                                           std::chrono::seconds& wait)
{
    if (authorization.size() > kLongestHeader)
        return Result::Denied;
    const Digest digest = DigestOf(authorization);
    std::unique_lock lock(mutex_);
    if ((who = FindCached(digest)))
        return Result::Granted;
    if (const auto found = flights_.find(digest); found != flights_.end()) {
        const auto flight = found->second; // outlives its place in the table
        return WaitFor(lock, flight, who, wait);
    }
    lock.unlock();
    std::string name;
    WipedText password;
    if (!ReadBasic(authorization, name, password.text))
        return Result::Denied;
    const GuessSource source = SourceOf(name, remote);
    auto flight = std::make_shared<Flight>();
    lock.lock();
    if ((wait = guessLimits_.Wait(source)).count() > 0)
        return Result::Throttled;
    if (!flights_.emplace(digest, flight).second) { // somebody was faster
        const auto other = flights_.find(digest)->second;
        return WaitFor(lock, other, who, wait);
    }
    Result result = Result::Busy;
    try {
        result = Verify(lock, {source, name, remote}, password.text, who, wait);
        if (result == Result::Granted)
            Remember(digest, who);
    } catch (...) {
        if (!lock.owns_lock())
            lock.lock();
        flight->isDone = true; // with Busy: those who wait try again later
        flights_.erase(digest);
        changed_.notify_all();
        throw;
    }
    flight->isDone = true;
    flight->result = result;
    flight->wait = wait;
    flight->who = who;
    flights_.erase(digest);
    changed_.notify_all();
    return result;
}

// With mutex_ held: hashes the password if it may be, and counts what came of it.
Authenticator::Result Authenticator::Verify(std::unique_lock<std::mutex>& lock, const Guess& guess,
                                            std::string_view password,
                                            std::shared_ptr<Verified>& who,
                                            std::chrono::seconds& wait)
{
    const auto& [source, name, remote] = guess;
    const Pending pending(*this, lock, source);
    wait = std::chrono::seconds(1);
    if (pending.IsTooMany() && limits_.guessDelay.count() > 0)
        return Result::Throttled;
    if (!WaitForHash(lock, users_->find(name) != users_->end()))
        return Result::Busy;
    // Others may have guessed wrong meanwhile.
    if ((wait = guessLimits_.Wait(source)).count() > 0) {
        --running_;
        changed_.notify_all();
        return Result::Throttled;
    }
    const Result result = Verify(lock, name, password, who);
    if (!lock.owns_lock())
        lock.lock();
    if (result == Result::Granted)
        guessLimits_.Right(source);
    else if (result == Result::Denied)
        TellWrong(name, remote, guessLimits_.Wrong(source));
    return result;
}

// With mutex_ held: the result of a check of the same credentials.
Authenticator::Result Authenticator::WaitFor(std::unique_lock<std::mutex>& lock,
                                             const std::shared_ptr<Flight>& flight,
                                             std::shared_ptr<Verified>& who,
                                             std::chrono::seconds& wait)
{
    // Some places are left for others: one client may bring the same credentials many times.
    if (waiting_ >= limits_.waiters - limits_.waiters / 4)
        return Result::Busy;
    ++waiting_;
    const bool isDone =
        changed_.wait_for(lock, limits_.SlowestHash(), [&] { return flight->isDone; });
    --waiting_;
    if (!isDone)
        return Result::Busy;
    who = flight->who;
    wait = flight->wait;
    return flight->result;
}

// With mutex_ held: takes the right to hash. False when too many want it. Names that belong to
// nobody come last and take half of the places at most: whoever makes names up cannot keep users
// out. While many wait, the time therefore tells whether a name is one.
bool Authenticator::WaitForHash(std::unique_lock<std::mutex>& lock, bool isKnown)
{
    const auto isFree = [&] {
        return running_ < limits_.hashesAtOnce && (isKnown || waitingKnown_ == 0);
    };
    if (!isFree()) {
        if (waiting_ >= (isKnown ? limits_.waiters : (limits_.waiters + 1) / 2))
            return false;
        ++waiting_;
        waitingKnown_ += isKnown;
        const bool isMine = changed_.wait_for(lock, limits_.longestWait, isFree);
        --waiting_;
        waitingKnown_ -= isKnown;
        if (!isMine) {
            changed_.notify_all(); // others may have waited for this one
            return false;
        }
    }
    ++running_;
    return true;
}

// With mutex_ held, which is let go during the hash, and the right to hash, which is given back.
Authenticator::Result Authenticator::Verify(std::unique_lock<std::mutex>& lock,
                                            const std::string& name, std::string_view password,
                                            std::shared_ptr<Verified>& who)
{
    struct GiveBack {
        Authenticator& self;
        std::unique_lock<std::mutex>& lock;
        ~GiveBack()
        {
            if (!lock.owns_lock())
                lock.lock();
            --self.running_;
            self.changed_.notify_all();
        }
    };
    const GiveBack giveBack{*this, lock};
    const auto find = [&] {
        const auto found = users_->find(name);
        return found == users_->end() ? nullptr : found->second;
    };
    const std::shared_ptr<const User> user = find();
    lock.unlock();
    // An unknown name costs the same hash, so that the time does not tell.
    const bool fits = matches_(password, user ? user->hash : DecoyHash());
    if (!user || !fits)
        return Result::Denied;
    auto made = std::make_shared<Verified>();
    made->user = user;
    made->principal = MakePrincipal(*user);
    lock.lock();
    const auto now = find(); // the users may have changed meanwhile
    if (!now || !(*now == *user))
        return Result::Denied;
    who = std::move(made);
    return Result::Granted;
}

} // namespace kestd
