// SPDX-License-Identifier: Apache-2.0
//
// The request that runs on the calling thread, as components see it.
#pragma once

#include <array>
#include <cstddef>

#include "host/access/request_access.h"
#include <kest/host.h>
#include <kest/io.h>
#include <kest/types.h>
#include <kest/unknown.h>

namespace kestd {

// The objects that components tie to one call, each under a key; holds a reference to each.
class Attachments {
  public:
    Attachments() = default;
    ~Attachments() { ReleaseAll(); }
    Attachments(const Attachments&) = delete;
    Attachments& operator=(const Attachments&) = delete;

    // Adds a reference. False when there are too many keys.
    bool Set(const GUID& key, IUnknown* object) noexcept;
    IUnknown* Get(const GUID& key) const noexcept; // borrowed; null when there is none
    void ReleaseAll() noexcept;

  private:
    struct Entry {
        GUID key;
        IUnknown* object;
    };
    static constexpr size_t kMost = 8;
    std::array<Entry, kMost> entries_;
    size_t count_ = 0;
};

class RunningCall {
  public:
    virtual IKestIO_5* Request() noexcept = 0;
    virtual UINT32 Method() const noexcept = 0;
    virtual bool HasBodyArrived() const noexcept = 0;
    virtual void ReportFailure(TALSTATUS failure) noexcept = 0;
    // Whether the reply can reach nobody any more.
    virtual bool IsCancelled() noexcept = 0;
    // See IKestCallContext.
    virtual KEST_CONDITIONS Conditions() const noexcept = 0;
    virtual RequestAccess& Access() noexcept = 0;

    Attachments attachments;

  protected:
    ~RunningCall() = default;
};

// Puts a call in the place of the thread's running one and returns that; null is none. For a call
// that stops on one thread and goes on on another.
RunningCall* ExchangeRunningCall(RunningCall* call) noexcept;

// Makes a call the thread's running one for as long as the scope lasts, and releases what was tied
// to it at the end. Scopes nest: the call that ran before runs again afterwards.
class CallScope {
  public:
    explicit CallScope(RunningCall& call) noexcept;
    ~CallScope();
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

  private:
    RunningCall& call_;
    RunningCall* before_;
};

// The class object of CLSID_KestCallContext: the request that runs on the calling thread.
IClassFactory* CallContextFactory();

} // namespace kestd
