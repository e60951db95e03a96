// SPDX-License-Identifier: Apache-2.0
//
// The contract's request object: forwards to an exchange what the module asks and says.
#pragma once

#include "host/module/call_context.h"
#include "host/pipeline/exchange.h"
#include <kest/host/interim_reply.h>
#include <kest/host/send_file.h>
#include <kest/io.h>

namespace kestd {

// Spare code units behind a request's path. Form uploads build their target names in that room.
inline constexpr size_t kSpareUnits = 1024;

// Lives as long as one call of the module, on one thread at a time. Texts that it hands out lie in
// the request's memory.
class KestIo final : public IKestIO_5,
                     public IKestInterimReply,
                     public IKestSendFile,
                     public RunningCall {
  public:
    explicit KestIo(Exchange& exchange) noexcept;
    ~KestIo() = default;
    KestIo(const KestIo&) = delete;
    KestIo& operator=(const KestIo&) = delete;

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
    BOOLEAN IsSecure() override { return request_.isSecure; }
    TALSTATUS SendInterim(HTTPSTATUS status, UINT32 count, const KEST_HEADER_LINE* lines) override;
    TALSTATUS SendFile(INT32 descriptor, UINT64 offset, UINT64 length, UINT64* sent) override;

    IKestIO_5* Request() noexcept override { return this; }
    UINT32 Method() const noexcept override { return request_.method; }
    bool HasBodyArrived() const noexcept override { return exchange_.body.HasArrived(); }
    void ReportFailure(TALSTATUS failure) noexcept override { exchange_.ReportFailure(failure); }
    bool IsCancelled() noexcept override { return exchange_.response.HasClientLeft(); }
    KEST_CONDITIONS Conditions() const noexcept override;
    RequestAccess& Access() noexcept override { return exchange_.access; }

  private:
    template <class F> TALSTATUS Guarded(F&& operation) noexcept;

    Exchange& exchange_;
    kestd::Request& request_; // of the exchange
    Response& response_;      // likewise
    UINT32 references_ = 1;
    STRING rawUrl_{};
    UNICODE_STRING url_{};
    UNICODE_STRING arguments_{};
    UNICODE_STRING destination_{};
    UINT8* rawHeaders_ = nullptr;
};

} // namespace kestd
