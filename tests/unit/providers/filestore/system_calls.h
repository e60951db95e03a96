// SPDX-License-Identifier: Apache-2.0
//
// System calls on files that fail when a test says so. A program that this is part of has its own
// definitions of them, which stand before the C library's, also for the shared libraries that it
// uses.
#pragma once

namespace system_calls {

// Counts anew. The call with that number fails with `error`; 0: none does.
void FailAt(int number, int error);
int Made();
bool HasFailed();
// The calling thread's own calls do not count, and do not fail.
void ExemptThisThread();
// Syncs are taken as done from now on: for tests that no power cut ends.
void SyncNothing();

} // namespace system_calls
