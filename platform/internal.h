// SPDX-License-Identifier: Apache-2.0
//
// What the files of the platform layer share: failure statuses and the objects behind handles.
#pragma once

#include <new>
#include <utility>

#include <kest/sdk/component.h>
#include <kest/status.h>
#include <kest/types.h>

#include "platform/memory.h"

namespace tolm {

// The platform layer as a component. What fails here is answered to whoever called, who knows
// whether a request has to hear of it.
struct PlatformComponent : kest::Component<kFacilityPlatform> {
    [[nodiscard]] static constexpr TALSTATUS Fault(UINT16 code) noexcept { return Failure(code); }
};

constexpr TALSTATUS Fail(UINT16 code) noexcept
{
    return PlatformComponent::Failure(code);
}

// The first word of everything behind a handle, so that a handle of another kind, or one that was
// destroyed and not yet reused, is refused instead of followed.
enum class Kind : UINT32 {
    Dead = 0,
    Key = 0x4B657931,
    Event,
    Mutex,
    ReadWriteLock,
    SpinLock,
    Thread,
    Timer,
    WorkItem,
};

struct Object {
    explicit Object(Kind k) noexcept : kind(k) {}
    Kind kind;
};

// The object behind `handle`, or null when it is not a T.
template <class T> T* FromHandle(HANDLE handle) noexcept
{
    auto* object = static_cast<Object*>(handle);
    return object && object->kind == T::kKind ? static_cast<T*>(object) : nullptr;
}

// Makes a T in counted memory. Null when memory is short.
template <class T, class... Args> T* NewObject(Args&&... args)
{
    void* memory = AllocateObject(sizeof(T), T::kKind != Kind::Key);
    return memory ? new (memory) T(std::forward<Args>(args)...) : nullptr;
}

template <class T> void DeleteObject(T* object) noexcept
{
    object->~T();
    object->kind = Kind::Dead;
    KeepStores(object);
    FreeObject(object, T::kKind != Kind::Key);
}

// Runs `body`, which may use the C++ library, and turns what it throws into a status: nothing may
// leave the library as an exception.
template <class Body> TALSTATUS Guarded(Body&& body) noexcept
{
    return kest::AtBoundary<PlatformComponent>(std::forward<Body>(body));
}

} // namespace tolm
