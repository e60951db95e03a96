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
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "host/auth/clock.h"
#include "host/auth/guess_limits.h"
#include "host/auth/sessions.h"
#include "host/auth/users.h"
#include "host/config/auth_settings.h"

namespace kestd {

// Credentials that have been checked.
struct Verified {
    std::shared_ptr<const User> user;
    std::shared_ptr<const Principal> principal;
    std::atomic<uint64_t> session{0}; // a guess at the session to use, kept by who uses it
};

class Authenticator {
  public:
    // Whether a password fits a hash; replaced in tests.
    using Matcher = std::function<bool(std::string_view password, const std::string& hash)>;

    // The most requests that hash, or wait to, for guesses at one name or from one address.
    static constexpr uint32_t kGuessesAtOnce = 2;

    Authenticator(const AuthLimits& limits, const Clock& clock, Matcher matches);
    Authenticator(const Authenticator&) = delete;
    Authenticator& operator=(const Authenticator&) = delete;

    // Takes over another set of users. Verified credentials of users whose record is not the same
    // any more are forgotten at once, those of checks that run now included.
    void SetUsers(UserMap users);
    void SetLimits(const AuthLimits& limits);
    // The principal of a user as it is known now; null when there is none.
    std::shared_ptr<const Principal> PrincipalOf(std::string_view name) const;
    // Whether a principal still stands for a user as he is.
    bool IsCurrent(const Principal& principal) const;

    enum class Result {
        Granted,
        Denied,
        Busy,     // too many passwords are being checked
        Throttled // too many wrong ones came; nothing was checked
    };
    // Judges the value of an "Authorization" header that came from a numeric address (empty for an
    // unknown one). `wait` is how long a throttled client should.
    Result Check(std::string_view authorization, std::string_view remote,
                 std::shared_ptr<Verified>& who, std::chrono::seconds& wait);

    // A principal for a user's record.
    static std::shared_ptr<const Principal> MakePrincipal(const User& user);

  private:
    // A check that runs; who brings the same credentials waits for it.
    struct Flight {
        bool isDone = false;
        Result result = Result::Busy;
        std::chrono::seconds wait{0};
        std::shared_ptr<Verified> who;
    };
    struct Guess {
        const GuessSource& source;
        const std::string& name;
        std::string_view remote;
    };
    struct Entry {
        Digest digest;
        std::shared_ptr<Verified> who;
        TimePoint until;
    };
    using Entries = std::list<Entry>;

    // A guess on its way to a hash; counted among those of its name and address while it lives.
    class Pending;

    Digest DigestOf(std::string_view text) const;
    GuessSource SourceOf(const std::string& name, std::string_view remote) const;
    Result Verify(std::unique_lock<std::mutex>& lock, const Guess& guess, std::string_view password,
                  std::shared_ptr<Verified>& who, std::chrono::seconds& wait);
    std::shared_ptr<Verified> FindCached(const Digest& digest);
    void Remember(const Digest& digest, const std::shared_ptr<Verified>& who);
    Result WaitFor(std::unique_lock<std::mutex>& lock, const std::shared_ptr<Flight>& flight,
                   std::shared_ptr<Verified>& who, std::chrono::seconds& wait);
    bool WaitForHash(std::unique_lock<std::mutex>& lock, bool isKnown);
    Result Verify(std::unique_lock<std::mutex>& lock, const std::string& name,
                  std::string_view password, std::shared_ptr<Verified>& who);

    const Clock& clock_;
    const Matcher matches_;
    std::array<unsigned char, 32> salt_{};

    mutable std::mutex mutex_; // guards the rest; never held during a hash
    std::condition_variable changed_;
    AuthLimits limits_;
    GuessLimits guessLimits_;
    std::unordered_map<Digest, uint32_t, DigestHash> pending_; // guesses on their way to a hash
    std::shared_ptr<const UserMap> users_;
    Entries entries_; // the last used first
    std::unordered_map<Digest, Entries::iterator, DigestHash> cache_;
    std::unordered_map<Digest, std::shared_ptr<Flight>, DigestHash> flights_;
    uint32_t running_ = 0;
    uint32_t waiting_ = 0;
    uint32_t waitingKnown_ = 0; // of them, those that name a user
};

// Name and password of a Basic header; false when it is none. A domain before the last "\" of the
// name is cut off.
bool ReadBasic(std::string_view authorization, std::string& name, std::string& password);

} // namespace kestd
