// SPDX-License-Identifier: Apache-2.0
//
// A fixed table of paths that were taken apart: it is there without memory being asked for.
#include "providers/filestore/parsed_paths.h"

#include <array>
#include <atomic>
#include <cstring>

namespace filestore::parsed_paths {

namespace {

constexpr size_t kPlaces = 64;
constexpr size_t kMost = 128; // units, and bytes

struct Place {
    std::atomic_flag isUsed; // by one thread at a time, who sees it used goes without
    UINT64 store = 0;        // stores count from 1
    Volume* volume = nullptr;
    size_t units = 0;
    size_t bytes = 0;
    WCHAR text[kMost] = {};
    char path[kMost] = {};
};

constinit std::array<Place, kPlaces> g_places{};

// By the end of a path that is not empty, where paths of one volume differ, and its length.
Place& PlaceOf(std::u16string_view text) noexcept
{
    constexpr size_t kUnits = sizeof(UINT64) / sizeof(WCHAR);
    UINT64 end = 0;
    const size_t taken = text.size() < kUnits ? text.size() : kUnits;
    std::memcpy(&end, text.data() + text.size() - taken, taken * sizeof(WCHAR));
    return g_places[(end + text.size()) * 0x9E3779B97F4A7C15 >> 58];
}
static_assert(kPlaces == 64); // what is left of 64 bits

// Holds a place, if nobody else does.
class Holder {
  public:
    explicit Holder(Place& place) noexcept
        : place_(place), holds_(!place.isUsed.test_and_set(std::memory_order_acquire))
    {
    }
    ~Holder()
    {
        if (holds_)
            place_.isUsed.clear(std::memory_order_release);
    }
    Holder(const Holder&) = delete;
    Holder& operator=(const Holder&) = delete;
    explicit operator bool() const noexcept { return holds_; }

  private:
    Place& place_;
    const bool holds_;
};

} // namespace

bool Recall(UINT64 store, std::u16string_view text, Target* target) noexcept
{
    if (text.empty() || text.size() > kMost)
        return false;
    Place& place = PlaceOf(text);
    const Holder held(place);
    if (!held || place.store != store || place.units != text.size() ||
        std::memcmp(place.text, text.data(), text.size() * sizeof(WCHAR)) != 0)
        return false;
    target->volume = place.volume;
    target->deletedId = 0;
    return target->path.Assign({place.path, place.bytes}); // it fitted before
}

void Note(UINT64 store, std::u16string_view text, const Target& target) noexcept
{
    const std::string_view path = target.path.View();
    if (text.empty() || text.size() > kMost || path.size() > kMost)
        return;
    Place& place = PlaceOf(text);
    const Holder held(place);
    if (!held)
        return;
    place.store = store;
    place.volume = target.volume;
    place.units = text.copy(place.text, kMost);
    place.bytes = path.copy(place.path, kMost);
}

} // namespace filestore::parsed_paths
