// SPDX-License-Identifier: Apache-2.0
//
// What requests came to: counted on their way out, summed up when somebody asks.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/metrics/exposition.h"
#include <kest/types.h>

namespace kestd {

// The volumes that requests are counted for, by number; 0 stands for none of them.
class VolumeIndex {
  public:
    // `location` is where the module serves, without a trailing "/".
    VolumeIndex(std::string location, std::vector<std::string> names);
    // That of a path, which is decoded.
    size_t Find(std::string_view path) const noexcept;
    const std::string& Name(size_t number) const noexcept { return names_[number]; }
    size_t Count() const noexcept { return names_.size(); } // with 0

  private:
    const std::string location_;
    std::vector<std::string> names_; // the first is empty; in order
};

// One request that has been answered.
struct RequestSample {
    UINT32 method = 0; // of KEST_METHOD
    int status = 0;
    std::string_view path; // decoded; empty where the head was malformed
    uint64_t received = 0; // bytes of the bodies
    uint64_t sent = 0;
    std::chrono::nanoseconds duration{0};
    int failure = 0; // the status that a component's fault stands for; 0: there was none
};

// Counters without labels or locks: cells of a few tables, one table for each of a few groups of
// threads, so that hardly ever two count in one. Thread-safe.
class RequestCounts {
  public:
    // Throws std::bad_alloc.
    explicit RequestCounts(VolumeIndex volumes);
    ~RequestCounts();
    RequestCounts(const RequestCounts&) = delete;
    RequestCounts& operator=(const RequestCounts&) = delete;

    void Count(const RequestSample& sample) noexcept;
    // Writes all families. Throws std::bad_alloc.
    void Write(Exposition& out) const;

    static constexpr size_t kMethods = 32; // more than there are
    static constexpr size_t kClasses = 6;  // by the first digit of the status; 0: another

    // Whether a status is counted by itself: all that the server knows are; the others together.
    static bool HasCell(int status) noexcept;

  private:
    struct Table;
    template <class CellIn> uint64_t Sum(CellIn&& cellIn) const;
    void WriteRequests(Exposition& out) const;
    void WriteDurations(Exposition& out) const;
    void WriteSizes(Exposition& out) const;
    void WriteVolumes(Exposition& out) const;
    void WriteFailures(Exposition& out) const;

    const VolumeIndex volumes_;
    const std::unique_ptr<Table[]> tables_;
};

} // namespace kestd
