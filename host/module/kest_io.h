// SPDX-License-Identifier: Apache-2.0
//
// One request and its reply: the host's IKestIO_5.
#pragma once

#include <chrono>
#include <string>
#include <utility>

#include "host/http/body.h"
#include "host/http/request_head.h"
#include "host/http/response.h"
#include "host/http/target.h"
#include "host/module/call_context.h"
#include "host/net/buffer.h"
#include "host/pipeline/access_control.h"
#include "host/pipeline/granted_lock.h"
#include "host/pipeline/range_requests.h"
#include <kest/io.h>

namespace kestd {

// COPY's and MOVE's headers (RFC 4918 sections 10.2, 10.3 and 10.6), judged before the module runs.
struct CopyMoveTarget {
    bool allowsOverwrite = false; // what the client wants
    bool overwrites = false; // what the module is told: clear also where nothing is to be replaced
    int rounds = 0;          // for which the destination has changed under the module's hands
    INT32 depth = -1;
    std::string path;           // of the destination, decoded
    std::u16string destination; // as GetCopyInfo or GetMoveInfo hands it out
};

// What the client wants to be so for a change to happen. Empty: it has not said.
struct Preconditions {
    std::string_view match;       // "If-Match"
    std::string_view noneMatch;   // "If-None-Match"
    uint64_t unmodifiedSince = 0; // "If-Unmodified-Since", as a system time; counts without a match
};

// Filled by the connection, then used by the module on one thread. Pooled: Reset makes it as new
// but keeps its memory.
class KestIo final : public IKestIO_5, public RunningCall {
  public:
    KestIo() = default;
    ~KestIo() = default;
    KestIo(const KestIo&) = delete;
    KestIo& operator=(const KestIo&) = delete;
    void Reset() noexcept;

    Buffer headText; // holds the head when the receive buffer had to move on, else empty
    RequestHead head;
    Target target;
    UINT32 method = KestMethodUnknown;
    Arena arena;
    Body body;
    Response response;
    AuthResult auth;
    bool isAdmitted = false;
    bool isSecure = false;   // what the client sees, which may be a proxy's TLS
    std::string_view remote; // numeric address of the client
    std::string hostname;    // the name it asked for, or the one it reached
    std::string port;
    std::string realm;
    CopyMoveTarget copyMove;
    GrantedLock grantedLock; // of a LOCK
    Preconditions preconditions;
    RangeRequest range;      // of a GET
    bool isKnownNew = false; // nothing was there when the client's conditions were judged
    std::chrono::steady_clock::time_point start; // only where it is logged

    // A header's value: lines of one name are joined. Null when there is none. Valid until the next
    // call. Throws std::bad_alloc.
    const std::string_view* FindRequestHeader(std::string_view name);
    // After the handler: whether it has to run once more, as if it had not run. Tells it once.
    bool TakeRetry() noexcept { return std::exchange(mustRetry_, false); }
    // After the handler: custom error texts, failures that came late, and the end of the reply.
    // True when another request may follow.
    bool Finish();
    // Whether a failure was reported, so that nothing that the handler says can be taken for true.
    bool HasFailed() const noexcept { return failure_ != 0; }

    TALSTATUS QueryInterface(const GUID* iid, void** out) override;
    UINT32 AddRef() override { return ++references_; }
    UINT32 Release() override { return --references_; }
    TALSTATUS DiscardClientPayload() override;
    TALSTATUS GetCopyInfo(BOOLEAN* overwrite, INT32* depth, UNICODE_STRING** destination) override;
    TALSTATUS GetMoveInfo(BOOLEAN* overwrite, UNICODE_STRING** destination) override;
    TALSTATUS GetRawUrl(STRING** url) override;
    TALSTATUS GetRemoteAddress(UNICODE_STRING* address) override;
    TALSTATUS GetRemoteHost(UNICODE_STRING* host) override;
    TALSTATUS GetUrl(UINT32* reserved, UNICODE_STRING** url) override;
    TALSTATUS GetUrlArguments(UINT32* reserved, UNICODE_STRING** arguments) override;
    TALSTATUS GetRequestHeader(char* name, UINT32* length, char* buffer) override;
    TALSTATUS GetRequestMethod(UINT32* number) override;
    TALSTATUS GetReplyHeader(char* name, UINT32* length, char* buffer) override;
    TALSTATUS GetUserAgent(UINT32* kind) override;
    TALSTATUS IsClientPayloadAvailable(UINT32* available) override;
    TALSTATUS ReadClientPayload(UINT32 size, UINT8* buffer, UINT32* read) override;
    TALSTATUS PutString(char* text) override;
    TALSTATUS SendHeader(HTTPSTATUS status) override;
    TALSTATUS SetRequestHeader(char* name, UINT32 length, char* value) override;
    TALSTATUS SetReplyHeader(char* name, UINT32 length, char* value) override;
    TALSTATUS Working() override;
    TALSTATUS Write(UINT32 size, UINT8* data) override;
    void* AllocMemory(UINT32 size) override;
    TALSTATUS GetRawHeaders(UINT8** headers) override;
    TALSTATUS GetHostname(UINT32* length, char* buffer) override;
    TALSTATUS GetPort(UINT32* length, char* buffer) override;
    TALSTATUS GetProtocolName(UINT32* length, char* buffer) override;
    TALSTATUS SetCustomError(HTTPSTATUS status, char* text) override;
    TALSTATUS GetAuthRealm(UINT32* length, char* buffer) override;
    BOOLEAN IsSecure() override { return isSecure; }

    IKestIO_5* Request() noexcept override { return this; }
    UINT32 Method() const noexcept override { return method; }
    bool HasBodyArrived() const noexcept override { return body.HasArrived(); }
    void ReportFailure(TALSTATUS failure) noexcept override;
    bool IsCancelled() noexcept override { return response.HasClientLeft(); }
    KEST_CONDITIONS Conditions() const noexcept override;

  private:
    template <class F> TALSTATUS Guarded(F&& operation) noexcept;
    void ApplyReportedFailure();
    void ReplyWithFailure(int status);
    bool FitRange(HTTPSTATUS& status);
    void SecureCookie();

    UINT32 references_ = 1;
    TALSTATUS failure_ = 0; // reported by a component, 0 is none
    bool mustRetry_ = false;
    int customStatus_ = 0;
    std::string_view customText_;
    std::vector<Field> joined_; // looked up before, or set by the handler
    STRING rawUrl_{};
    UNICODE_STRING url_{};
    UNICODE_STRING arguments_{};
    UNICODE_STRING destination_{};
    UINT8* rawHeaders_ = nullptr;
};

} // namespace kestd
