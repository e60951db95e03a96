// SPDX-License-Identifier: Apache-2.0
//
// The platform layer's memory: blocks for TalxAlloc…Memory, memory for objects behind handles, the
// counts of both, and failures on demand for tests.
#pragma once

#include <cstddef>

#include <kest/talpl.h>

namespace tolm {

// A block of `size` bytes (0 is allowed), aligned for every scalar type. Null when memory is short.
void* AllocateBlock(UINT32 size) noexcept;

// Frees a block of AllocateBlock. False, and nothing freed, when `memory` is no live block.
bool FreeBlock(void* memory) noexcept;

// Memory for an object behind a handle; counted as a synchronisation object or as an open key.
void* AllocateObject(std::size_t size, bool isSync) noexcept;
void FreeObject(void* memory, bool isSync) noexcept;

// Makes the compiler carry out the stores into `memory` although it is about to be freed: the marks
// of dead blocks and objects are there for whoever still has a pointer.
inline void KeepStores(const void* memory) noexcept
{
    __asm__ volatile("" : : "r"(memory) : "memory");
}

void ReadStatistics(TALPL_STATISTICS& out) noexcept;

} // namespace tolm
