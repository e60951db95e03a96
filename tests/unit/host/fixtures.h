// SPDX-License-Identifier: Apache-2.0
//
// What the tests of the services share.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "host/auth/clock.h"
#include "host/auth/sessions.h"

namespace kestd {

// Stands still until it is told to move.
class ManualClock final : public Clock {
  public:
    TimePoint Now() const override { return TimePoint(std::chrono::milliseconds(ms_.load())); }
    void Advance(std::chrono::milliseconds by) { ms_ += by.count(); }

  private:
    std::atomic<int64_t> ms_{1'000'000};
};

inline std::shared_ptr<const Principal> MakeUser(const std::string& name)
{
    return std::make_shared<const Principal>(Principal{name, "CN=" + name, "TREE", {}, name});
}

inline bool IsSame(SCHANDLE a, SCHANDLE b)
{
    return a.hTypeId == b.hTypeId && a.hId == b.hId;
}

} // namespace kestd
