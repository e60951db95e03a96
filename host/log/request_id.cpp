// SPDX-License-Identifier: Apache-2.0
//
// Makes identifiers of requests.
#include "host/log/request_id.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <random>

#include "base/hex.h"
#include "base/percent.h"

namespace kestd {

namespace {

// Counts from a number of the process's own; what it starts with is nothing to be guessed or
// hidden.
uint64_t NextNumber() noexcept
{
    static std::atomic<uint64_t> next{[]() noexcept {
        try {
            std::random_device random;
            return uint64_t{random()} << 32;
        } catch (...) { // without a source of random numbers, requests are told apart all the same
            return uint64_t{0};
        }
    }()};
    return next.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

void RequestId::Make() noexcept
{
    uint64_t number = NextNumber();
    for (size_t i = 16; i-- > 0; number >>= 4)
        text_[i] = base::kLowerHex[number & 15];
    text_[16] = '\0';
}

bool RequestId::Take(std::string_view name) noexcept
{
    if (name.empty() || name.size() > kLongest ||
        !std::all_of(name.begin(), name.end(), base::IsUnreserved))
        return false;
    std::memcpy(text_, name.data(), name.size());
    text_[name.size()] = '\0';
    return true;
}

} // namespace kestd
