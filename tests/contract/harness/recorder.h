// SPDX-License-Identifier: Apache-2.0
//
// What the module under test called, in order, and which of its calls are to fail.
#pragma once

#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kest/status.h>

namespace harness {

// The status of calls that fail because a test counted them out.
inline constexpr TALSTATUS kInjected = MakeStatus(0xC7AF, kCodeUnsuccessful);

// Every scripted object passes its calls through one recorder. Names are "OBJECT.Operation"
// ("io.SendHeader", "sa.SACreate", "gen2.res.Write"); the text behind the name shows arguments.
class Recorder {
  public:
    // Notes a call. Gives the status that the call has to return at once instead of doing its work,
    // if a test asked for one.
    std::optional<TALSTATUS> Enter(std::string_view name, std::string_view arguments = {});
    // The same for calls that are counted and can fail but are not listed: the platform's.
    std::optional<TALSTATUS> EnterUnlisted(std::string_view name);
    // Looks at every listed call as it is made; called without the recorder's lock. Set while no
    // request runs.
    std::function<void(std::string_view name)> onCall;

    // The `nth` call (1 is the next) named `name` returns `status`; once.
    void Fail(std::string name, TALSTATUS status, int nth = 1);
    // Every call named `name` returns `status`.
    void FailAlways(std::string name, TALSTATUS status);
    // The `nth` call from now on, whatever it is, fails with kInjected.
    void FailCall(int nth);
    // True when a call that was to fail has been made.
    bool FailureHappened() const;
    // How many calls have failed because a test wanted it.
    int Failures() const;
    // The name of the call that FailCall made fail.
    std::string FailedCall() const;

    // The calls so far, each "NAME(ARGUMENTS)", whose names begin with one of the prefixes (all
    // without a prefix).
    std::vector<std::string> Calls(std::vector<std::string> prefixes = {}) const;
    int Count(std::string_view name) const;
    void Clear(); // forgets calls and planned failures

  private:
    struct Plan {
        std::string name;
        TALSTATUS status;
        int nth;
        bool always;
    };
    std::optional<TALSTATUS> Decide(std::string_view name);

    mutable std::mutex mutex_;
    std::vector<std::string> names_;
    std::vector<std::string> texts_;
    std::vector<Plan> plans_;
    int countdown_ = 0;
    bool happened_ = false;
    int failures_ = 0;
    std::string failedCall_;
};

} // namespace harness
