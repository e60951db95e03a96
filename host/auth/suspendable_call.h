// SPDX-License-Identifier: Apache-2.0
//
// A request's call that can wait for another thread without keeping its own.
#pragma once

namespace kestd {

class SuspendableCall {
  public:
    // For the call itself, with no lock held: stops until Wake, or perhaps for nothing. A Wake that
    // came since it last returned is not lost: it returns soon. It may return on another thread.
    // False when nothing is to be waited for any more: the client is given up, or the server stops.
    [[nodiscard]] virtual bool Suspend() = 0;
    // From any thread, at any time between the call's beginning and its end. Does not wait, and
    // does not run the call on the calling thread.
    virtual void Wake() noexcept = 0;

  protected:
    ~SuspendableCall() = default;
};

} // namespace kestd
