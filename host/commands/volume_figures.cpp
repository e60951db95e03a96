// SPDX-License-Identifier: Apache-2.0
//
// The thread that asks the storage provider.
#include "host/commands/volume_figures.h"

#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

#include <kest/dav/volume_figures.h>
#include <kest/status.h>

namespace kestd {

struct VolumeFiguresReader::State {
    Ref<IKestDAV2> provider; // the thread's alone
    std::mutex mutex;        // guards the rest
    std::condition_variable moved;
    bool isAsked = false;
    bool ends = false;
    bool hasEnded = false;
    std::vector<VolumeFigures> volumes;
};

namespace {

std::vector<VolumeFigures> Ask(IKestDAV2& provider)
{
    std::vector<VolumeFigures> volumes;
    std::vector<UINT64> buffer(128);
    for (UINT32 number = 0;; ++number) {
        auto size = static_cast<UINT32>(buffer.size() * sizeof(UINT64));
        TALSTATUS status = provider.IoctlRequest({}, kIoctlVolumeFigures, sizeof number, &number,
                                                 &size, buffer.data());
        if (Code(status) == kCodeBufferTooSmall) {
            buffer.resize(size / sizeof(UINT64) + 1);
            status = provider.IoctlRequest({}, kIoctlVolumeFigures, sizeof number, &number, &size,
                                           buffer.data());
        }
        if (Failed(status))
            return volumes;
        const auto& told = *reinterpret_cast<const DAV_VOLUME_FIGURES*>(buffer.data());
        const char* const name =
            reinterpret_cast<const char*>(buffer.data()) + offsetof(DAV_VOLUME_FIGURES, Name);
        volumes.push_back({std::string(name, told.NameLength), told.TotalBytes, told.FreeBytes,
                           told.Locks, told.KeptEntries, told.Flags});
    }
}

} // namespace

VolumeFiguresReader::VolumeFiguresReader(Ref<IKestDAV2> provider)
    : state_(std::make_shared<State>())
{
    state_->provider = std::move(provider);
    std::thread([state = state_] { Run(state); }).detach();
}

VolumeFiguresReader::~VolumeFiguresReader()
{
    std::unique_lock lock(state_->mutex);
    state_->ends = true;
    state_->moved.notify_all();
    (void)state_->moved.wait_for(lock, std::chrono::seconds(1), [&] { return state_->hasEnded; });
}

void VolumeFiguresReader::Run(const std::shared_ptr<State>& state)
{
    std::unique_lock lock(state->mutex);
    for (;;) {
        state->moved.wait(lock, [&] { return state->isAsked || state->ends; });
        if (state->ends)
            break;
        lock.unlock();
        std::vector<VolumeFigures> fresh;
        try {
            fresh = Ask(*state->provider.Get());
        } catch (const std::exception&) { // no memory: there are none this time
            fresh.clear();
        }
        lock.lock();
        state->volumes.swap(fresh);
        state->isAsked = false;
        state->moved.notify_all();
    }
    state->provider = {};
    state->hasEnded = true;
    state->moved.notify_all();
}

std::vector<VolumeFigures> VolumeFiguresReader::Read(std::chrono::milliseconds patience)
{
    std::unique_lock lock(state_->mutex);
    state_->isAsked = true;
    state_->moved.notify_all();
    const bool isFresh = state_->moved.wait_for(lock, patience, [&] { return !state_->isAsked; });
    std::vector<VolumeFigures> volumes = state_->volumes;
    if (!isFresh)
        for (VolumeFigures& volume : volumes)
            volume.flags &= ~UINT32{kVolumeIsReachable};
    return volumes;
}

} // namespace kestd
