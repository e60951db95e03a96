// SPDX-License-Identifier: Apache-2.0
//
// The way of a request through the server: which stages it meets, in which order.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/auth/access_control.h"
#include "host/config/settings.h"
#include "host/pipeline/request_handler.h"
#include "host/pipeline/stage.h"

namespace kestd {

// Thread-safe; nothing changes after it has been made.
class Pipeline {
  public:
    // `accessControl` and `handler` outlive the pipeline. `location` is the path that the handler
    // serves, such as "/Ferro", UTF-8, unescaped, without a trailing "/".
    Pipeline(Dialect dialect, AccessControl& accessControl, RequestHandler& handler,
             std::string location);
    ~Pipeline();
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    // The names of the stages in their order.
    const std::vector<std::string_view>& Stages() const noexcept { return names_; }

    // For the connection; all throw std::bad_alloc.
    // Whether the handler is to be asked, once the body is here. Else the reply has been begun.
    bool OnRequest(Exchange& exchange) const;
    // Has the handler answer.
    void Call(Exchange& exchange) const;
    // Ends the reply. True when another request may follow on the connection.
    bool Finish(Exchange& exchange) const;

    // For the handler; all throw std::bad_alloc.
    // Ends the head of the reply. False when it has ended before.
    bool BeginReply(Exchange& exchange, int status) const;
    // Sends a piece of the body. False when nobody takes it.
    bool WriteReply(Exchange& exchange, std::string_view piece) const;
    // The same of a part of an open file; see Response::AppendFile.
    Response::FileOutcome SendFile(Exchange& exchange, int file, uint64_t offset, uint64_t length,
                                   uint64_t& sent) const;

  private:
    struct AllStages;
    struct Row;
    enum Hook : unsigned { kRequest, kBody, kReplyHead, kReplyBody, kReplyEnd, kReplySent };
    static constexpr size_t kHooks = kReplySent + 1;
    static constexpr size_t kMethods = 32; // more than there are
    using Run = std::vector<const Stage*>;

    void Place(const Row& row);
    const Run& StagesOf(const Exchange& exchange, Hook hook) const noexcept
    {
        return runs_[hook][exchange.request.method];
    }

    RequestHandler& handler_;
    const bool showsErrorPages_; // in the standard dialect
    const std::unique_ptr<const AllStages> stages_;
    std::vector<std::string_view> names_;
    std::array<std::array<Run, kMethods>, kHooks> runs_; // by the number of the method
};

} // namespace kestd
