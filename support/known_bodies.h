// SPDX-License-Identifier: Apache-2.0
//
// Known bodies. A client sends the same few PROPFIND bodies again and again, and reading one costs
// as much as the whole answer about a file. So the last few are kept, and what they ask for. Any
// thread.
#pragma once

#include <atomic>
#include <string_view>

#include <kest/types.h>

inline constexpr UINT32 kKnownNameBytes = 512;

// What a body asks for.
struct KnownRequest {
    UINT32 flags = 0;
    UINT32 liveProperties = 0;
    UINT32 nameBytes = 0;
    char names[kKnownNameBytes]; // of the dead properties, in order, each with its terminator
};

// In place from the start: a thread that had its own would have to find memory for it where no
// failure can be told.
class KnownBodies {
  public:
    // Hands out what `body` asks for. False when it is not known.
    [[nodiscard]] bool Recall(std::string_view body, KnownRequest& request);
    // Keeps a body that has been read to its end.
    void Remember(std::string_view body, const KnownRequest& request);

  private:
    // Bodies of clients are a few hundred bytes long. What is longer, or names more, is read each
    // time.
    static constexpr size_t kMostBytes = 1024;

    struct KnownBody {
        std::atomic<bool> isHeld{false}; // guards the rest
        UINT32 size = 0;                 // 0: none
        KnownRequest request{};
        char body[kMostBytes]{};
    };
    class Hold;

    // Where a body stands if it is known.
    KnownBody& PlaceOf(std::string_view body);

    KnownBody known_[8]; // one for each of the usual clients
};
