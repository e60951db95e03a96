// SPDX-License-Identifier: Apache-2.0
//
// ITalplFaultInjection: makes allocations of the platform layer fail on demand, for tests.
// Implemented by libtolm.so; reached with QueryInterface from ITalpl, and only in a process that
// was started with TOLM_FAULT_INJECTION=1 in its environment.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

struct ITalplFaultInjection : IUnknown {
    // The `nth` allocation from now on (1 is the next) of the whole process fails; with `andAfter`
    // every later one too. 0 switches the injection off. [any thread; concurrent; no reply]
    virtual TALSTATUS FailAllocation(UINT64 nth, BOOLEAN andAfter) = 0;
    // Allocations asked for since the last FailAllocation. [any thread; concurrent; no reply]
    virtual TALSTATUS GetAllocationCount(UINT64* count) = 0;

  protected:
    ~ITalplFaultInjection() = default;
};
