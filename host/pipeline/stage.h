// SPDX-License-Identifier: Apache-2.0
//
// One step of every request and of its reply.
#pragma once

#include <string_view>

#include "host/pipeline/exchange.h"

namespace kestd {

// What a stage has decided about a request.
class Decision {
  public:
    static constexpr Decision GoOn() noexcept { return Decision(0); }
    // The reply is an error of that status.
    static constexpr Decision Refuse(int status) noexcept { return Decision(status); }
    // The stage has begun a reply of its own.
    static constexpr Decision Replied() noexcept { return Decision(-1); }
    bool GoesOn() const noexcept { return value_ == 0; }
    int Refusal() const noexcept { return value_ > 0 ? value_ : 0; } // 0: none

  private:
    explicit constexpr Decision(int value) noexcept : value_(value) {}
    int value_;
};

// A stage gets what it works with by its constructor and keeps nothing of a request: that belongs
// to the exchange. It is called for the hooks and methods that its row in pipeline.cpp names, by
// any number of threads, on a fiber. Hooks of requests are called in the order of the rows, those
// of replies in the opposite one. Throw std::bad_alloc unless noted.
class Stage {
  public:
    virtual ~Stage() = default;

    // The head has been read.
    virtual Decision OnRequest(Exchange&) const { return Decision::GoOn(); }
    // The body, or its beginning, is here, and the handler about to be asked.
    virtual Decision OnBody(Exchange&) const { return Decision::GoOn(); }
    // The handler ends the head of its reply, with this status.
    virtual void OnReplyHead(Exchange&, int) const {}
    // The handler sends a piece of the body.
    virtual void OnReplyBody(Exchange&, std::string_view) const {}
    // The reply is complete, whoever made it. Its head may not have left.
    virtual void OnReplyEnd(Exchange&) const {}
    // The reply has left, or could not.
    virtual void OnReplySent(Exchange&) const noexcept {}
};

} // namespace kestd
