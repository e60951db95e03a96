// SPDX-License-Identifier: Apache-2.0
//
// Checks Basic credentials (RFC 7617) without paying for a password hash per request, and without
// letting a flood of wrong passwords take the machine.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/auth/clock.h"
#include "host/auth/guess_limits.h"
#include "host/auth/hash_pool.h"
#include "host/auth/sessions.h"
#include "host/auth/sign_in_order.h"
#include "host/auth/suspendable_call.h"
#include "host/auth/user_list.h"
#include "host/auth/users.h"
#include "host/config/auth_settings.h"

namespace kestd {

// Credentials that have been checked.
struct Verified {
    std::shared_ptr<const Principal> principal;
    std::atomic<uint64_t> session{0}; // a guess at the session to use, kept by who uses it
    // Of an app password: when it was used, null for none, and when it ends (0: never); seconds
    // since 1970.
    std::shared_ptr<std::atomic<int64_t>> used;
    int64_t ends = 0;

    void NoteUse() const noexcept
    {
        if (used)
            used->store(std::time(nullptr), std::memory_order_relaxed);
    }
};

class Authenticator {
  public:
    using Matcher = PasswordMatcher; // replaced in tests

    // The most requests that hash, or wait to, for guesses at one name or from one address.
    static constexpr uint32_t kGuessesAtOnce = 2;

    Authenticator(const AuthLimits& limits, const Clock& clock, Matcher matches);
    Authenticator(const Authenticator&) = delete;
    Authenticator& operator=(const Authenticator&) = delete;

    // Takes over other sources, in the order in which they are asked. Verified credentials of users
    // who are not the same any more are forgotten at once, those of checks that run now included.
    void SetSources(CredentialsSources sources);
    // Likewise other app passwords; those that stay keep the times of their use.
    void SetAppPasswords(AppPasswords apps);
    // What decides now.
    std::shared_ptr<const SignInOrder> Order() const;
    // As SetSources with a list of users as the only source.
    void SetUsers(UserMap users);
    void SetLimits(const AuthLimits& limits);
    // Whether a principal still stands for a user as he is, as far as it is known without asking
    // another machine.
    bool IsCurrent(const Principal& principal) const;

    enum class Result {
        Granted,
        Denied,
        Busy,        // too many passwords are being checked
        Throttled,   // too many wrong ones came; nothing was checked
        Unavailable, // who would know the password cannot be asked
    };
    // Judges the value of an "Authorization" header that came from a numeric address (empty for an
    // unknown one). `wait` is how long a throttled client should. While a password is hashed `call`
    // is suspended, or the calling thread waits where it is null. Busy also when the call need not
    // go on. Throws std::bad_alloc.
    Result Check(std::string_view authorization, std::string_view remote,
                 std::shared_ptr<Verified>& who, std::chrono::seconds& wait,
                 SuspendableCall* call = nullptr);

    // Names and addresses from which guesses are on their way to a hash; 0 while there are none.
    size_t PendingCounts() const;
    // Names and addresses whose next guess has to wait; of at most GuessLimits::kEntries.
    size_t ThrottledGuessers() const;

  private:
    class Guess;
    class Waiting;
    struct Entry {
        Digest digest;
        std::shared_ptr<Verified> who;
        TimePoint until;
        TimePoint latest; // that it can become
    };
    using Entries = std::list<Entry>;

    void TakeOver(SignInOrder order);
    Digest DigestOf(std::string_view text) const;
    GuessSource SourceOf(std::string name, std::string_view remote) const;
    std::shared_ptr<Verified> FindCached(const Digest& digest);
    void Remember(const Digest& digest, const std::shared_ptr<Verified>& who, bool isRemote);
    std::shared_ptr<Guess> FindGuess(const Digest& digest) const;
    Result Begin(const std::shared_ptr<Guess>& guess);
    void End(const Guess& guess) noexcept;
    void Count(const Digest& key);
    void Discount(const Digest& key) noexcept;
    Result WaitFor(std::unique_lock<std::mutex>& lock, Guess& guess, std::shared_ptr<Verified>& who,
                   std::chrono::seconds& wait, SuspendableCall* call);
    void Verify(Guess& guess, bool isLate) noexcept;
    Result CheckPassword(Guess& guess);

    const Clock& clock_;
    const Matcher matches_;
    std::array<unsigned char, 32> salt_{};

    mutable std::mutex mutex_;         // guards the rest; never held during a hash
    std::condition_variable hasEnded_; // a guess, for threads that wait
    AuthLimits limits_;
    GuessLimits guessLimits_;
    std::unordered_map<Digest, uint32_t, DigestHash> pending_; // guesses on their way to a hash
    std::shared_ptr<const SignInOrder> order_;                 // never null
    BoundedTable<bool> granted_{GuessLimits::kEntries};        // names that have signed in
    Entries entries_;                                          // the last used first
    std::unordered_map<Digest, Entries::iterator, DigestHash> cache_;
    std::unordered_map<Digest, std::shared_ptr<Guess>, DigestHash> guesses_; // by the credentials
    uint32_t joined_ = 0; // requests that wait for a guess of another one

    HashPool pool_;       // these are the last: their threads end before the rest goes
    HashPool remotePool_; // for checks that wait for another machine
};

} // namespace kestd
