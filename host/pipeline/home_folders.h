// SPDX-License-Identifier: Apache-2.0
//
// The folders that the access rules give each user: made when he first comes.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_set>

#include "host/pipeline/exchange.h"

namespace kestd {

// Thread-safe.
class HomeFolders {
  public:
    // Makes what the rules of the request want made for its user and is not there. What cannot be
    // made is said in the log, and tried again after a reload. Throws std::bad_alloc.
    void Provide(const Exchange& exchange) const;

  private:
    bool IsFirst(const Exchange& exchange) const;

    mutable std::mutex mutex_;                     // guards the members below
    mutable uint64_t version_ = 0;                 // of the settings that they belong to
    mutable std::unordered_set<std::string> seen_; // users
};

} // namespace kestd
