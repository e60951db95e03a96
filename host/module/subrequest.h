// SPDX-License-Identifier: Apache-2.0
//
// A request that the server itself makes of the module, in memory.
#pragma once

#include <string>
#include <string_view>

#include "host/module/call_context.h"
#include "host/module/kest_io.h"
#include "host/net/buffer.h"
#include <kest/io.h>
#include <kest/req.h>

namespace kestd {

// A request without headers and body, on behalf of another one; of the reply only the status and
// the date are kept.
class Subrequest final : public IKestIO_5, public RunningCall {
  public:
    // `path` is unescaped and begins with the location. Throws std::bad_alloc.
    Subrequest(Exchange& behind, std::string_view path, UINT32 method);
    ~Subrequest() = default;
    Subrequest(const Subrequest&) = delete;
    Subrequest& operator=(const Subrequest&) = delete;

    // The one header that a request of this kind can have.
    void SetLockToken(std::string value) { lockToken_ = std::move(value); }
    // Has the module answer, in the session of the request behind.
    void Run(IKestReq_2& module);
    // 0 when the handler sent none. A failure that a component reports is the request's: then this
    // tells nothing.
    int Status() const noexcept { return status_; }
    const std::string& LastModified() const noexcept { return lastModified_; } // empty: untold

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
    // As PROPFIND it asks for what bears the literal name: a HEAD may be answered for a page's link
    // that escapes a name once too often.
    UINT32 Method() const noexcept override
    {
        return method_ == KestMethodHead ? UINT32{KestMethodPropFind} : method_;
    }
    KEST_CONDITIONS Conditions() const noexcept override { return {}; }
    bool HasBodyArrived() const noexcept override { return true; }
    void ReportFailure(TALSTATUS failure) noexcept override;
    bool IsCancelled() noexcept override;

  private:
    Exchange& behind_;
    KestIo behindIo_; // answers for what both have in common
    const UINT32 method_;
    UINT32 references_ = 1;
    int status_ = 0;
    Arena arena_;
    std::string escaped_;
    std::string lockToken_;
    std::string lastModified_;
    std::u16string path_; // with spare room behind
    UINT8 noHeaders_ = 0;
    WCHAR noArguments_ = 0;
    STRING rawUrl_{};
    UNICODE_STRING url_{};
    UNICODE_STRING arguments_{};
};

} // namespace kestd
