// SPDX-License-Identifier: Apache-2.0
//
// Memory that is short when a test says so: this program's own allocation functions stand before
// the C library's, for the program and all its libraries. Under the address and thread sanitizers,
// which have their own, it is operator new that fails.
#pragma once

namespace failing_memory {

// Counts anew. The allocation with that number fails; 0: none does.
void FailAt(int number);
// The same, and so do all that follow.
void FailFrom(int number);
bool HasFailed();
// The calling thread's own allocations do not count, and do not fail.
void ExemptThisThread();

} // namespace failing_memory
