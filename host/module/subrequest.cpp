// SPDX-License-Identifier: Apache-2.0
//
// IKestIO_5 of a request in memory: a path, a method and a token.
#include "host/module/subrequest.h"

#include <utility>

#include <kest/identifiers.h>
#include <kest/status.h>

#include "base/ascii.h"
#include "base/utf.h"
#include "host/component.h"

namespace kestd {

namespace {

// Stores a result, or says that there was nowhere to put it.
template <class T, class U> TALSTATUS Give(T* out, U value) noexcept
{
    if (!out)
        return HostFailure(kCodeInvalidParameter);
    *out = value;
    return TAL_STATUS_SUCCESS;
}

} // namespace

Subrequest::Subrequest(Exchange& behind, UINT32 method, std::string lockToken)
    : behind_(behind), behindIo_(behind), method_(method), lockToken_(std::move(lockToken))
{
    if (!base::AppendUtf16(behind.request.target.path, path_))
        path_.clear(); // cannot happen: the path was decoded from valid text
    const size_t units = path_.size();
    path_.resize(units + kSpareUnits);
    url_ = {static_cast<UINT16>(units * sizeof(WCHAR)),
            static_cast<UINT16>(path_.size() * sizeof(WCHAR)), path_.data()};
    arguments_ = {0, 0, &noArguments_};
}

void Subrequest::Run(IKestReq_2& module)
{
    const CallScope scope(*this);
    (void)module.RequestHandler(this, behind_.session.Get(), method_); // the reply says it all
}

bool Subrequest::IsCancelled() noexcept
{
    return behind_.response.HasClientLeft();
}

TALSTATUS Subrequest::QueryInterface(const GUID* iid, void** out)
{
    if (!iid || !out)
        return HostFailure(kCodeInvalidParameter);
    *out = nullptr;
    if (!(*iid == IID_KestIO_5 || *iid == IID_KestIO_3 || *iid == IID_IUnknown))
        return HostFailure(kCodeNoInterface);
    *out = static_cast<IKestIO_5*>(this);
    AddRef();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Subrequest::DiscardClientPayload()
{
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Subrequest::GetCopyInfo(BOOLEAN*, INT32*, UNICODE_STRING**)
{
    return HostFailure(kCodeInvalidRequest);
}

TALSTATUS Subrequest::GetMoveInfo(BOOLEAN*, UNICODE_STRING**)
{
    return HostFailure(kCodeInvalidRequest);
}

TALSTATUS Subrequest::GetRawUrl(STRING** url)
{
    return behindIo_.GetRawUrl(url);
}

TALSTATUS Subrequest::GetRemoteAddress(UNICODE_STRING* address)
{
    return behindIo_.GetRemoteAddress(address);
}

TALSTATUS Subrequest::GetRemoteHost(UNICODE_STRING* host)
{
    return behindIo_.GetRemoteHost(host);
}

TALSTATUS Subrequest::GetUrl(UINT32*, UNICODE_STRING** url)
{
    return Give(url, &url_);
}

TALSTATUS Subrequest::GetUrlArguments(UINT32*, UNICODE_STRING** arguments)
{
    return Give(arguments, &arguments_);
}

TALSTATUS Subrequest::GetRequestHeader(char* name, UINT32* length, char* buffer)
{
    if (!name || !length)
        return HostFailure(kCodeInvalidParameter);
    if (lockToken_.empty() || !base::EqualsIgnoringCase(name, "Lock-Token"))
        return HostFailure(kCodeNotFound);
    const UINT32 room = buffer ? *length : 0;
    *length = static_cast<UINT32>(lockToken_.size() + (lockToken_.size() >= room ? 1 : 0));
    if (lockToken_.size() >= room)
        return HostFailure(kCodeBufferTooSmall);
    lockToken_.copy(buffer, lockToken_.size());
    buffer[lockToken_.size()] = '\0';
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Subrequest::GetRequestMethod(UINT32* number)
{
    return Give(number, method_);
}

TALSTATUS Subrequest::GetReplyHeader(char*, UINT32*, char*)
{
    return HostFailure(kCodeNotFound);
}

TALSTATUS Subrequest::GetUserAgent(UINT32* kind)
{
    return Give(kind, 0u);
}

TALSTATUS Subrequest::IsClientPayloadAvailable(UINT32* available)
{
    return Give(available, 0u);
}

TALSTATUS Subrequest::ReadClientPayload(UINT32, UINT8*, UINT32* read)
{
    const TALSTATUS status = Give(read, 0u);
    return Failed(status) ? status : HostFailure(kCodeEndOfFile);
}

TALSTATUS Subrequest::PutString(char*)
{
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Subrequest::SendHeader(HTTPSTATUS)
{
    return std::exchange(hasBegun_, true) ? HostFailure(kCodeInvalidRequest) : TAL_STATUS_SUCCESS;
}

TALSTATUS Subrequest::SetRequestHeader(char*, UINT32, char*)
{
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Subrequest::SetReplyHeader(char* name, UINT32 length, char* value)
{
    if (hasBegun_)
        return HostFailure(kCodeInvalidRequest);
    return !name || (length && !value) ? HostFailure(kCodeInvalidParameter) : TAL_STATUS_SUCCESS;
}

TALSTATUS Subrequest::Working()
{
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Subrequest::Write(UINT32, UINT8*)
{
    return TAL_STATUS_SUCCESS;
}

void* Subrequest::AllocMemory(UINT32 size)
{
    return arena_.Allocate(size);
}

TALSTATUS Subrequest::GetRawHeaders(UINT8** headers)
{
    return Give(headers, &noHeaders_);
}

TALSTATUS Subrequest::GetHostname(UINT32* length, char* buffer)
{
    return behindIo_.GetHostname(length, buffer);
}

TALSTATUS Subrequest::GetPort(UINT32* length, char* buffer)
{
    return behindIo_.GetPort(length, buffer);
}

TALSTATUS Subrequest::GetProtocolName(UINT32* length, char* buffer)
{
    return behindIo_.GetProtocolName(length, buffer);
}

TALSTATUS Subrequest::SetCustomError(HTTPSTATUS, char*)
{
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Subrequest::GetAuthRealm(UINT32* length, char* buffer)
{
    return behindIo_.GetAuthRealm(length, buffer);
}

BOOLEAN Subrequest::IsSecure()
{
    return behindIo_.IsSecure();
}

} // namespace kestd
