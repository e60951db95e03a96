// SPDX-License-Identifier: Apache-2.0
//
// The folders that the access rules give each user: made when he first comes.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <unordered_map>

#include "host/auth/clock.h"
#include "host/pipeline/exchange.h"

namespace kestd {

// Has the file store make a collection, for a session.
TALSTATUS MakeFolder(SCHANDLE session, const std::string& path);

// Thread-safe.
class HomeFolders {
  public:
    using Maker = std::function<TALSTATUS(SCHANDLE session, const std::string& path)>;
    // What could not be made is tried again with a request of the user's after so long, and said in
    // the log no more often, however many users it concerns.
    static constexpr std::chrono::minutes kRetryTime{1};

    explicit HomeFolders(const Clock& clock, Maker make = MakeFolder)
        : clock_(clock), make_(std::move(make))
    {
    }
    // Makes what the rules of the request want made for its user and is not there. Throws
    // std::bad_alloc.
    void Provide(const Exchange& exchange) const;

  private:
    bool IsDue(const Exchange& exchange) const;
    void Keep(const Exchange& exchange, bool isThere) const;
    void Warn(const std::string& path, TALSTATUS status) const;

    const Clock& clock_; // outlives it
    const Maker make_;
    mutable std::mutex mutex_;     // guards the members below
    mutable uint64_t version_ = 0; // of the settings that they belong to
    // Users, and when their folders are to be looked after again; never where they are there.
    mutable std::unordered_map<std::string, TimePoint> due_;
    mutable TimePoint nextWarning_{};
};

} // namespace kestd
