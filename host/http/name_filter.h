// SPDX-License-Identifier: Apache-2.0
//
// Tells most header names that a message does not have without comparing any.
#pragma once

#include <cstdint>
#include <string_view>

#include "base/ascii.h"

namespace kestd {

// Tells most names apart: equal for names that are equal without case.
constexpr uint32_t NameKey(std::string_view name) noexcept
{
    if (name.empty())
        return 0;
    const auto end = [](char c) {
        return static_cast<uint32_t>(static_cast<unsigned char>(base::Lower(c)));
    };
    return static_cast<uint32_t>(name.size()) << 16 | end(name.front()) << 8 | end(name.back());
}

// The set of the keys that a list of fields has, a bit for those that fall together.
class NameFilter {
  public:
    void Add(uint32_t key) noexcept { bits_ |= Bit(key); }
    // False only where no such key was added.
    bool MayHold(uint32_t key) const noexcept { return (bits_ & Bit(key)) != 0; }
    void Clear() noexcept { bits_ = 0; }

  private:
    static uint64_t Bit(uint32_t key) noexcept
    {
        return uint64_t{1} << ((key * 0x9E3779B1U) >> 26); // the upper six of a mixed key's bits
    }

    uint64_t bits_ = 0;
};

} // namespace kestd
