// SPDX-License-Identifier: Apache-2.0
//
// Known bodies. A client sends the same few PROPFIND bodies again and again, and reading one costs
// as much as the whole answer about a file. So the last few are kept, and what they ask for. Any
// thread.
#pragma once

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

// Hands out what `body` asks for. False when it is not known.
[[nodiscard]] bool RecallBody(std::string_view body, KnownRequest& request);
// Keeps a body that has been read to its end.
void RememberBody(std::string_view body, const KnownRequest& request);
