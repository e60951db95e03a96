// SPDX-License-Identifier: Apache-2.0
//
// One request and its reply, on their way through the pipeline.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "host/access/request_access.h"
#include "host/auth/access_control.h"
#include "host/http/body.h"
#include "host/http/request.h"
#include "host/http/response.h"
#include "host/pipeline/lock_reply.h"

namespace kestd {

class Pipeline;
struct EffectiveSettings;

// COPY's and MOVE's headers (RFC 4918 sections 10.2, 10.3 and 10.6) in the forms that the module
// takes.
struct CopyMoveTarget {
    bool mayOverwrite = false;
    INT32 depth = -1;
    std::string path;           // of the destination, decoded
    std::u16string destination; // as GetCopyInfo or GetMoveInfo hands it out
};

// What the client wants to be so for a change to happen (RFC 9110 section 13.1). Empty: it has not
// said.
struct Conditions {
    std::string_view match;       // "If-Match"
    std::string_view noneMatch;   // "If-None-Match"
    uint64_t unmodifiedSince = 0; // "If-Unmodified-Since", as a system time; counts without a match
};

// A hold on the session of a request; gives it back at its end.
class SessionHold {
  public:
    SessionHold() noexcept = default;
    SessionHold(const SessionHold&) = delete;
    SessionHold& operator=(const SessionHold&) = delete;
    ~SessionHold() { Release(); }
    // Takes a session over that was granted.
    void Hold(AccessControl& keeper, SCHANDLE session) noexcept
    {
        Release();
        keeper_ = &keeper;
        session_ = session;
    }
    void Release() noexcept
    {
        if (keeper_)
            std::exchange(keeper_, nullptr)->ReleaseSession(session_);
    }
    SCHANDLE Get() const noexcept { return session_; }

  private:
    AccessControl* keeper_ = nullptr;
    SCHANDLE session_{};
};

// Filled by the connection, then by one stage after the other, on one thread at a time.
class Exchange {
  public:
    Exchange() = default;
    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;
    void Reset() noexcept; // as new, with the memory kept

    // The connection's, set before the first stage:
    Request request;
    Body body;
    Response response;
    const EffectiveSettings* settings = nullptr; // outlives the exchange
    const Pipeline* pipeline = nullptr;          // likewise
    SuspendableCall* call = nullptr;             // the stages'; null where their thread has to wait
    std::chrono::steady_clock::time_point start; // only where it is logged

    // What stages keep and tell others:
    AuthResult auth;
    SessionHold session;
    RequestAccess access; // the stage "access" begins it
    CopyMoveTarget copyMove;
    Conditions conditions;
    LockReply lockReply; // of a LOCK

    // A component has failed. The first failure counts, but a fault of the system comes before a
    // refusal.
    void ReportFailure(TALSTATUS failure) noexcept;
    // The status (500 and above) that a fault stands for which was reported; 0: there was none.
    int ReportedFault() const noexcept { return failure_ ? FaultStatus() : 0; }
    // What the handler says gives way to a failure that was reported: it may have taken for missing
    // what could not be looked at, and have left it out. While nothing has left, another reply
    // takes the place of its own; from then on the message is cut, so that nobody takes it for
    // whole. Throws std::bad_alloc.
    void ApplyReportedFailure()
    {
        if (failure_)
            ReplaceOrCut();
    }
    // The body of a reply of this status that has none. Throws std::bad_alloc.
    void SetErrorPage(int status, std::string_view text);
    void ApplyErrorPage()
    {
        if (errorPageStatus_)
            ReplaceByErrorPage();
    }

  private:
    int FaultStatus() const noexcept;
    void ReplaceOrCut();
    void ReplyWithFailure(int status);
    void ReplaceByErrorPage();

    TALSTATUS failure_ = 0;   // 0 is none
    int errorPageStatus_ = 0; // 0: there is none
    std::string_view errorPage_;
};

// Exchanges that are not in use, kept with their memory: as many as requests that a thread has open
// at once. Stands on the thread's stack, as BlockPool does and for the same reason.
class ExchangePool {
  public:
    ExchangePool() noexcept;
    ~ExchangePool();
    ExchangePool(const ExchangePool&) = delete;
    ExchangePool& operator=(const ExchangePool&) = delete;

  private:
    friend std::unique_ptr<Exchange> AcquireExchange();
    friend void ReleaseExchange(std::unique_ptr<Exchange> exchange) noexcept;

    ExchangePool* const before_;
    std::array<std::unique_ptr<Exchange>, 4> exchanges_;
    size_t count_ = 0;
};

// One of the thread's pool, if it has one, else a new one. Throws std::bad_alloc.
std::unique_ptr<Exchange> AcquireExchange();
void ReleaseExchange(std::unique_ptr<Exchange> exchange) noexcept;

} // namespace kestd
