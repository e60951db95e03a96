// SPDX-License-Identifier: Apache-2.0
//
// The objects behind handles.
#pragma once

#include <new>
#include <utility>

#include <kest/types.h>

#include "platform/failures.h"
#include "platform/memory.h"

namespace tolm {

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

} // namespace tolm
