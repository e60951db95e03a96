// SPDX-License-Identifier: Apache-2.0
//
// What the storage provider tells of its volumes, asked on a thread of its own: a disk that does
// not answer keeps nobody else waiting.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <kest/com.h>
#include <kest/dav.h>

namespace kestd {

struct VolumeFigures {
    std::string name;
    uint64_t totalBytes = 0;
    uint64_t freeBytes = 0;
    uint64_t locks = 0;
    uint64_t keptEntries = 0;
    uint32_t flags = 0; // of DAV_VOLUME_FLAGS
};

// For one thread.
class VolumeFiguresReader {
  public:
    // Throws std::system_error.
    explicit VolumeFiguresReader(Ref<IKestDAV2> provider);
    // Does not wait for a disk that does not answer.
    ~VolumeFiguresReader();
    VolumeFiguresReader(const VolumeFiguresReader&) = delete;
    VolumeFiguresReader& operator=(const VolumeFiguresReader&) = delete;

    // How things stand. Where the provider does not tell in time, the last that it has told, with
    // no volume reachable.
    std::vector<VolumeFigures> Read(std::chrono::milliseconds patience);

  private:
    struct State;
    static void Run(const std::shared_ptr<State>& state);

    const std::shared_ptr<State> state_; // the thread's, too
};

} // namespace kestd
