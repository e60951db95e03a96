// SPDX-License-Identifier: Apache-2.0
//
// Runs a sequence of operations, starts a store on every state that a power cut in the course of
// its last operation can leave, and compares what it finds with what 'Sync' promises.
#pragma once

#include <functional>
#include <string>
#include <unordered_set>
#include <vector>

#include "tests/crashstates/operations.h"
#include "tests/crashstates/states.h"

namespace crashstates {

struct Setting {
    filestore::SyncLevel sync;
    UINT32 keepDays;
    const char* name;
};
extern const std::vector<Setting> kSettings;

struct Counts {
    size_t sequences = 0;
    size_t states = 0;  // that differ
    size_t repeats = 0; // of those
    size_t faults = 0;
    size_t repairs = 0; // states that a second cut, while the store starts, can leave
};

struct Fault {
    std::string what; // the last operation and the setting, and how the state differs
    std::string detail;
};

class Checker {
  public:
    using OnFault = std::function<void(const Fault&)>;
    // `directory`: of the real disk, for what the store keeps beside the file system interface.
    Checker(const Setting& setting, std::string directory, const Sampling& sampling,
            OnFault onFault);

    // `repairs`: cuts while the store starts on a state are tried, too, for every so many states;
    // 0: for none.
    void Check(const std::vector<const Operation*>& sequence, size_t repairs);

    Counts counts;
    // False when an operation before the last failed: then the rest says nothing new.
    bool lastWasWhole = true;

  private:
    using Lines = std::vector<std::string>;
    struct Expected {
        std::vector<Lines> after; // each number of answered operations
        size_t repairs = 0;
        const char* halfway = nullptr; // of the last operation
        bool isInTwoPlaces = false;    // likewise
        bool isMoveAcross = false;     // likewise: from one volume to the other
        std::string name;
    };
    struct Running;

    Disk FirstDisk();
    std::unique_ptr<filestore::Store> Start(Machine& machine) const;
    void CheckState(const Disk& disk, const Cut& cut, const Expected& expected, bool isRepair);
    std::string Compare(const Lines& found, const Cut& cut, const Expected& expected) const;
    std::string CompareUntouched(const Lines& found, const Expected& expected) const;
    void Report(std::string what, std::string detail);
    std::string Leftovers(const Machine& machine, filestore::Store& store) const;
    bool IsExact() const { return setting_.sync == filestore::SyncLevel::Full; }

    const Setting setting_;
    const std::string directory_;
    const Sampling sampling_;
    const OnFault onFault_;
    InodeId tops_[2] = {};
    bool usesOther_ = true; // of the sequence that runs
    Disk first_;
    std::unordered_set<size_t> seen_; // hashes of states with what is expected of them
};

} // namespace crashstates
