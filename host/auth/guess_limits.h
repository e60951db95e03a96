// SPDX-License-Identifier: Apache-2.0
//
// Counts wrong passwords by whom and from where, and says how long the next guess has to wait.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <list>
#include <string_view>
#include <unordered_map>

#include "host/auth/clock.h"

namespace kestd {

using Digest = std::array<unsigned char, 32>; // of a secret salt and a text

struct DigestHash {
    size_t operator()(const Digest& digest) const
    {
        size_t value = 0;
        std::memcpy(&value, digest.data(), sizeof value); // salted, so nobody chooses it
        return value;
    }
};

// Entries by digest; the one that was touched least recently gives way to a new one.
template <class Value> class BoundedTable {
  public:
    explicit BoundedTable(size_t most) : most_(most) {}

    // Null when there is none. Does not touch it.
    Value* Find(const Digest& key)
    {
        const auto found = index_.find(key);
        return found == index_.end() ? nullptr : &found->second->second;
    }
    // Makes it when there is none. Throws std::bad_alloc and leaves all as it was.
    Value& Touch(const Digest& key)
    {
        const auto found = index_.find(key);
        if (found != index_.end()) {
            entries_.splice(entries_.begin(), entries_, found->second);
            return found->second->second;
        }
        entries_.emplace_front(key, Value{});
        try {
            index_.emplace(key, entries_.begin());
        } catch (...) {
            entries_.pop_front();
            throw;
        }
        if (entries_.size() > most_) {
            index_.erase(entries_.back().first);
            entries_.pop_back();
        }
        return entries_.front().second;
    }
    void Erase(const Digest& key)
    {
        const auto found = index_.find(key);
        if (found == index_.end())
            return;
        entries_.erase(found->second);
        index_.erase(found);
    }
    size_t Size() const { return entries_.size(); }
    template <class Fits> size_t CountIf(Fits&& fits) const
    {
        size_t count = 0;
        for (const auto& [key, value] : entries_)
            count += fits(value) ? 1 : 0;
        return count;
    }

  private:
    const size_t most_;
    std::list<std::pair<Digest, Value>> entries_; // the last touched first
    std::unordered_map<Digest, typename std::list<std::pair<Digest, Value>>::iterator, DigestHash>
        index_;
};

// Who guesses from where. An address that has signed in under the name before has a count of its
// own for it, so that strangers who guess at the name do not keep its owner out.
struct GuessSource {
    Digest name;
    Digest address;
    Digest pair;
    bool hasAddress = false; // false for loopback: behind a proxy it stands for everybody
};

// The first few wrong passwords cost nothing; each later one doubles the wait for the next, from a
// second up to a limit. All is forgotten an hour after the last wrong one. Not thread-safe.
class GuessLimits {
  public:
    static constexpr uint32_t kFreeByName = 5;
    static constexpr uint32_t kFreeByAddress = 20;
    static constexpr std::chrono::hours kMemory{1};
    static constexpr size_t kEntries = 16 * 1024; // of wrong guesses, and as many of right ones

    explicit GuessLimits(const Clock& clock) : clock_(clock) {}

    // 0 counts without ever making anybody wait.
    void SetLongestDelay(std::chrono::seconds delay) { longest_ = delay; }

    // Which count a guess at the name is added to.
    const Digest& KeyOf(const GuessSource& who);
    // How long the next guess has to wait; 0 when it may be judged now.
    std::chrono::seconds Wait(const GuessSource& who);
    struct Count {
        uint32_t wrong; // of the name's count
        std::chrono::seconds next;
    };
    Count Wrong(const GuessSource& who);
    void Right(const GuessSource& who);
    // Names and addresses whose next guess has to wait. Takes time for each that is remembered.
    size_t Throttled() const;

  private:
    struct Entry {
        uint32_t wrong = 0;
        TimePoint last{};
        TimePoint until{};
    };
    std::chrono::seconds WaitOf(const Digest& key);
    uint32_t Add(const Digest& key, uint32_t free);

    const Clock& clock_;
    std::chrono::seconds longest_{60};
    BoundedTable<Entry> wrong_{kEntries};
    BoundedTable<bool> known_{kEntries}; // pairs
};

} // namespace kestd
