// SPDX-License-Identifier: Apache-2.0
//
// A cache of the last few PROPFIND bodies and of what they ask for. A client sends the same few
// bodies again and again, and parsing one costs as much as the whole reply about a file. Safe for
// concurrent use.
#pragma once

#include <atomic>
#include <string_view>

#include <kest/types.h>

inline constexpr UINT32 kCachedNameBytes = 512;

// What a body asks for.
struct CachedPropFind {
    UINT32 flags = 0;
    UINT32 liveProperties = 0;
    UINT32 nameBytes = 0;
    char names[kCachedNameBytes]; // of the dead properties, in order, each with its terminator
};

// Made for static storage, one for the process. A cache for each thread would be allocated at a
// thread's first PROPFIND, where running out of memory could not be reported.
class PropFindBodyCache {
  public:
    // Copies what `body` asks for. False when the body is not cached, or when another thread uses
    // its entry.
    [[nodiscard]] bool Recall(std::string_view body, CachedPropFind& request);
    // Caches a body that was parsed to its end without an error.
    void Remember(std::string_view body, const CachedPropFind& request);

  private:
    // Bodies of known clients are a few hundred bytes long. Longer ones, and those with more names,
    // are parsed each time.
    static constexpr size_t kMostBytes = 1024;

    struct Entry {
        std::atomic<bool> isHeld{false}; // guards the rest
        UINT32 size = 0;                 // 0: none
        CachedPropFind request{};
        char body[kMostBytes]{};
    };
    class Hold;

    // The one entry that may hold this body, chosen by its length.
    Entry& EntryFor(std::string_view body);

    Entry entries_[8]; // about one for each kind of client
};
