// SPDX-License-Identifier: Apache-2.0
//
// A request that the server itself makes of the module, in memory.
#pragma once

#include <string>

#include "host/module/call_context.h"
#include "host/module/kest_io.h"
#include "host/net/buffer.h"
#include <kest/io.h>
#include <kest/req.h>

namespace kestd {

// A request with no header but "Lock-Token" and without a body, on behalf of another one and for
// its path. Of the reply nothing is kept.
class Subrequest final : public IKestIO_5, public RunningCall {
  public:
    // Throws std::bad_alloc.
    Subrequest(Exchange& behind, UINT32 method, std::string lockToken);
    ~Subrequest() = default;
    Subrequest(const Subrequest&) = delete;
    Subrequest& operator=(const Subrequest&) = delete;

    // Has the module answer, in the session of the request behind.
    void Run(IKestReq_2& module);

    TALSTATUS QueryInterface(const GUID* iid, void** out) override;
    UINT32 AddRef() override { return ++references_; }
    UINT32 Release() override { return --references_; }
    TALSTATUS DiscardClientPayload() override;
    TALSTATUS GetCopyInfo(BOOLEAN*, INT32*, UNICODE_STRING**) override;
    TALSTATUS GetMoveInfo(BOOLEAN*, UNICODE_STRING**) override;
    TALSTATUS GetRawUrl(STRING** url) override;
    TALSTATUS GetRemoteAddress(UNICODE_STRING* address) override;
    TALSTATUS GetRemoteHost(UNICODE_STRING* host) override;
    TALSTATUS GetUrl(UINT32* reserved, UNICODE_STRING** url) override;
    TALSTATUS GetUrlArguments(UINT32* reserved, UNICODE_STRING** arguments) override;
    TALSTATUS GetRequestHeader(char* name, UINT32* length, char* buffer) override;
    TALSTATUS GetRequestMethod(UINT32* number) override;
    TALSTATUS GetReplyHeader(char*, UINT32*, char*) override;
    TALSTATUS GetUserAgent(UINT32* kind) override;
    TALSTATUS IsClientPayloadAvailable(UINT32* available) override;
    TALSTATUS ReadClientPayload(UINT32, UINT8*, UINT32* read) override;
    TALSTATUS PutString(char*) override;
    TALSTATUS SendHeader(HTTPSTATUS status) override;
    TALSTATUS SetRequestHeader(char*, UINT32, char*) override;
    TALSTATUS SetReplyHeader(char* name, UINT32 length, char* value) override;
    TALSTATUS Working() override;
    TALSTATUS Write(UINT32, UINT8*) override;
    void* AllocMemory(UINT32 size) override;
    TALSTATUS GetRawHeaders(UINT8** headers) override;
    TALSTATUS GetHostname(UINT32* length, char* buffer) override;
    TALSTATUS GetPort(UINT32* length, char* buffer) override;
    TALSTATUS GetProtocolName(UINT32* length, char* buffer) override;
    TALSTATUS SetCustomError(HTTPSTATUS, char*) override;
    TALSTATUS GetAuthRealm(UINT32* length, char* buffer) override;
    BOOLEAN IsSecure() override;

    IKestIO_5* Request() noexcept override { return this; }
    // It is still the request behind that runs: what is unlocked for a LOCK is taken back.
    UINT32 Method() const noexcept override { return behind_.request.method; }
    KEST_CONDITIONS Conditions() const noexcept override { return {}; }
    RequestAccess& Access() noexcept override { return behind_.access; }
    bool HasBodyArrived() const noexcept override { return true; }
    void ReportFailure(TALSTATUS) noexcept override {} // the reply that it would change has left
    bool IsCancelled() noexcept override;

  private:
    Exchange& behind_;
    KestIo behindIo_; // answers for what both have in common
    const UINT32 method_;
    UINT32 references_ = 1;
    bool hasBegun_ = false;
    Arena arena_;
    std::string lockToken_;
    std::u16string path_; // with spare room behind
    UINT8 noHeaders_ = 0;
    WCHAR noArguments_ = 0;
    UNICODE_STRING url_{};
    UNICODE_STRING arguments_{};
};

} // namespace kestd
