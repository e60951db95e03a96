// SPDX-License-Identifier: Apache-2.0
//
// The thread that removes in the background what need not be kept.
#include "providers/filestore/purger.h"

#include <chrono>
#include <utility>

#include "providers/filestore/failures.h"
#include "providers/filestore/purge.h"
#include "providers/filestore/room.h"
#include "providers/filestore/upload_directory.h"

namespace filestore {

namespace {

constexpr auto kRound = std::chrono::minutes(1);
constexpr auto kRetireRound = std::chrono::minutes(15);
constexpr auto kPauseTime = std::chrono::milliseconds(2);

} // namespace

Purger::Purger(const Store& store)
    : store_(store), thread_([this](std::stop_token stop) { Run(std::move(stop)); })
{
}

Purger::~Purger() = default;

void Purger::Wake(bool retires)
{
    {
        const std::lock_guard lock(mutex_);
        woken_ = true;
        retires_ = retires_ || retires;
    }
    wake_.notify_one();
}

void Purger::Run(std::stop_token stop)
{
    const PurgePause pause = [&] {
        std::this_thread::sleep_for(kPauseTime);
        return !stop.stop_requested();
    };
    auto nextRetirement = std::chrono::steady_clock::now();
    bool retiresNow = false;
    while (!stop.stop_requested()) {
        const auto now = std::chrono::steady_clock::now();
        const bool retires = now >= nextRetirement;
        if (retires)
            nextRetirement = now + kRetireRound;
        (void)Protected([&] {
            for (const auto& volume : store_.Volumes()) {
                volume->CheckPlace();
                if (retires || retiresNow)
                    RetireDeleted(store_, *volume);
                (void)WritePending(*volume);
                volume->RecoverAll();
                (void)EmptyPurge(*volume, pause);
                KeepRoom(store_, *volume, pause);
                volume->FillReserve();
                DropExpiredLocks(store_, *volume);
                DropExpiredUploads(store_, *volume);
            }
            return TAL_STATUS_SUCCESS;
        });
        std::unique_lock lock(mutex_);
        wake_.wait_for(lock, stop, kRound, [this] { return woken_; });
        woken_ = false;
        retiresNow = std::exchange(retires_, false);
    }
    for (const auto& volume : store_.Volumes()) { // the last chance of this process
        (void)WritePending(*volume);
        volume->RecoverAll();
    }
}

} // namespace filestore
