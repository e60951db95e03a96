// SPDX-License-Identifier: Apache-2.0
//
// What the cases against a real directory server have in common: the server, one for each suite,
// and a clock that they move.
#pragma once

#include <atomic>

#include <gtest/gtest.h>

#include "host/auth/clock.h"
#include "tests/contract/host/components/slapd.h"

namespace kestd {

class MovableClock final : public Clock {
  public:
    TimePoint Now() const override { return TimePoint(std::chrono::seconds(seconds_.load())); }
    void Advance(int seconds) { seconds_ += seconds; }

  private:
    std::atomic<int> seconds_{1000};
};

class SlapdCase : public testing::Test {
  protected:
    static void SetUpTestSuite() { server_ = new Slapd; }
    static void TearDownTestSuite()
    {
        delete server_;
        server_ = nullptr;
    }
    // Names the server in a table's settings.
    template <class Settings> void Use(Settings& settings)
    {
        ASSERT_EQ(server_->Problem(), "");
        settings.server = server_->Url();
        settings.timeout = std::chrono::seconds(20); // a loaded machine is no failure
    }

    inline static Slapd* server_ = nullptr;
    MovableClock clock_;
};

} // namespace kestd
