// SPDX-License-Identifier: Apache-2.0
//
// The thread that removes in the background what need not be kept (purge.h), and keeps space free
// (room.h).
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "providers/filestore/store.h"

namespace filestore {

class Purger final : public BackgroundWork {
  public:
    // Starts a thread that works through the store's volumes now and then.
    explicit Purger(const Store& store);
    ~Purger() override;
    void Wake(bool retires) override;

  private:
    void Run(std::stop_token stop);

    const Store& store_;
    std::mutex mutex_;
    std::condition_variable_any wake_;
    bool woken_ = false;
    bool retires_ = false; // with the next round
    std::jthread thread_;  // last: it uses the others
};

} // namespace filestore
