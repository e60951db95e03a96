// SPDX-License-Identifier: Apache-2.0
//
// The request that runs on the calling thread, as components see it.
#pragma once

#include <kest/io.h>
#include <kest/types.h>

namespace kestd {

class RunningCall {
  public:
    virtual IKestIO_5* Request() noexcept = 0;
    virtual UINT32 Method() const noexcept = 0;
    virtual bool HasBodyArrived() const noexcept = 0;
    virtual void TakeFailure(TALSTATUS failure) noexcept = 0;

  protected:
    ~RunningCall() = default;
};

// Makes a call the thread's running one for as long as the scope lasts. Scopes nest: the call that
// ran before runs again afterwards.
class CallScope {
  public:
    explicit CallScope(RunningCall& call) noexcept;
    ~CallScope();
    CallScope(const CallScope&) = delete;
    CallScope& operator=(const CallScope&) = delete;

  private:
    RunningCall* before_;
};

} // namespace kestd
