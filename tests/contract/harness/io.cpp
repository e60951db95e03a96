// SPDX-License-Identifier: Apache-2.0
#include "io.h"

#include <algorithm>
#include <cstring>
#include <strings.h>

#include "text.h"

namespace harness {

namespace {

TALSTATUS HostFailure(UINT16 code)
{
    return MakeStatus(kFacilityHost, code);
}

std::string Quoted(std::string_view text)
{
    return "\"" + std::string(text) + "\"";
}

UNICODE_STRING Roomy(std::u16string& text, size_t spare)
{
    const size_t units = text.size();
    text.resize(units + spare, u'\xFFFF'); // no terminator: the module must not rely on one
    return {static_cast<UINT16>(units * sizeof(WCHAR)),
            static_cast<UINT16>((units + spare) * sizeof(WCHAR)), text.data()};
}

} // namespace

ScriptedIo::ScriptedIo(Recorder& recorder, const WatchedPlatform& platform, Request request)
    : recorder_(recorder), platform_(platform), request_(std::move(request)),
      url_(Wide(request_.path)), arguments_(Wide(request_.arguments)),
      destination_(Wide(request_.destination)),
      raw_(request_.rawUrl.empty() ? request_.path : request_.rawUrl),
      body_(request_.body.begin(), request_.body.end()), replyHeaders_(request_.hostHeaders)
{
    urlU_ = Roomy(url_, request_.spareUnits);
    argumentsU_ = Counted(arguments_);
    destinationU_ = Counted(destination_);
    rawS_ = Counted(raw_);
}

Reply ScriptedIo::TakeReply() const
{
    Reply reply = reply_;
    reply.text =
        before_ + (head_.empty() ? std::string("none\n") : head_) + late_ + "\n" + reply.body;
    return reply;
}

void ScriptedIo::Leave(std::string_view text)
{
    if (platform_.HeldLocks() == 0)
        reply_.unguarded += text;
}

template <class Counted> Counted* ScriptedIo::Given(Counted& text)
{
    if (request_.nullBuffers)
        text = {};
    return request_.nullTexts ? nullptr : &text;
}

TALSTATUS ScriptedIo::QueryInterface(const GUID* iid, void** out)
{
    *out = nullptr;
    if (const auto status = recorder_.Enter("io.QueryInterface"))
        return *status;
    if (*iid == IID_KestIO_5)
        *out = static_cast<IKestIO_5*>(this);
    else if (*iid == IID_KestIO_3)
        *out = static_cast<IKestIO_3*>(this);
    else if (request_.takesInterims && *iid == IidOf<IKestInterimReply>::value)
        *out = static_cast<IKestInterimReply*>(&interims_);
    else if (*iid == IID_IUnknown)
        *out = static_cast<IKestIO_5*>(this);
    else
        return HostFailure(kCodeNoInterface);
    AddRef();
    return TAL_STATUS_SUCCESS;
}

UINT32 ScriptedIo::AddRef()
{
    return static_cast<UINT32>(++references_);
}

UINT32 ScriptedIo::Release()
{
    return static_cast<UINT32>(--references_);
}

TALSTATUS ScriptedIo::DiscardClientPayload()
{
    if (const auto status = recorder_.Enter("io.DiscardClientPayload"))
        return *status;
    body_.clear();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::GetCopyInfo(BOOLEAN* overwrite, INT32* depth, UNICODE_STRING** destination)
{
    if (const auto status = recorder_.Enter("io.GetCopyInfo"))
        return *status;
    *overwrite = request_.overwrite;
    *depth = request_.depth;
    *destination = Given(destinationU_);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::GetMoveInfo(BOOLEAN* overwrite, UNICODE_STRING** destination)
{
    if (const auto status = recorder_.Enter("io.GetMoveInfo"))
        return *status;
    *overwrite = request_.overwrite;
    *destination = Given(destinationU_);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::GetRawUrl(STRING** url)
{
    if (const auto status = recorder_.Enter("io.GetRawUrl"))
        return *status;
    *url = Given(rawS_);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::GetRemoteAddress(UNICODE_STRING*)
{
    return recorder_.Enter("io.GetRemoteAddress").value_or(HostFailure(kCodeNotFound));
}

TALSTATUS ScriptedIo::GetRemoteHost(UNICODE_STRING*)
{
    return recorder_.Enter("io.GetRemoteHost").value_or(HostFailure(kCodeNotFound));
}

TALSTATUS ScriptedIo::GetUrl(UINT32*, UNICODE_STRING** url)
{
    if (const auto status = recorder_.Enter("io.GetUrl"))
        return *status;
    *url = request_.nullUrl ? nullptr : &urlU_;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::GetUrlArguments(UINT32*, UNICODE_STRING** arguments)
{
    if (const auto status = recorder_.Enter("io.GetUrlArguments"))
        return *status;
    *arguments = Given(argumentsU_);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::GetRequestHeader(char* name, UINT32* length, char* buffer)
{
    if (const auto status = recorder_.Enter("io.GetRequestHeader", name))
        return *status;
    for (const auto& [key, value] : request_.headers) {
        if (strcasecmp(key.c_str(), name) != 0)
            continue;
        if (request_.exactHeaders && value.size() == *length) {
            std::memcpy(buffer, value.data(), value.size());
            return TAL_STATUS_SUCCESS;
        }
        return CopyOut(value, length, buffer) ? TAL_STATUS_SUCCESS
                                              : HostFailure(kCodeBufferTooSmall);
    }
    return HostFailure(kCodeNotFound);
}

TALSTATUS ScriptedIo::GetRequestMethod(UINT32* method)
{
    if (const auto status = recorder_.Enter("io.GetRequestMethod"))
        return *status;
    *method = request_.method;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::GetReplyHeader(char* name, UINT32* length, char* buffer)
{
    if (const auto status = recorder_.Enter("io.GetReplyHeader", name))
        return *status;
    for (const auto& [key, value] : replyHeaders_)
        if (strcasecmp(key.c_str(), name) == 0)
            return CopyOut(value, length, buffer) ? TAL_STATUS_SUCCESS
                                                  : HostFailure(kCodeBufferTooSmall);
    return HostFailure(kCodeNotFound);
}

TALSTATUS ScriptedIo::GetUserAgent(UINT32* kind)
{
    if (const auto status = recorder_.Enter("io.GetUserAgent"))
        return *status;
    *kind = request_.userAgent;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::IsClientPayloadAvailable(UINT32* available)
{
    if (const auto status = recorder_.Enter("io.IsClientPayloadAvailable"))
        return *status;
    size_t bytes = 0;
    for (const std::string& piece : body_)
        bytes += piece.size();
    *available = request_.payloadAvailable.value_or(static_cast<UINT32>(bytes));
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::ReadClientPayload(UINT32 size, UINT8* buffer, UINT32* read)
{
    *read = 0;
    if (const auto status = recorder_.Enter("io.ReadClientPayload", std::to_string(size)))
        return *status;
    if (body_.empty())
        return request_.bodyEnd;
    std::string& piece = body_.front();
    const size_t taken = std::min<size_t>(size, piece.size());
    std::memcpy(buffer, piece.data(), taken);
    *read = static_cast<UINT32>(taken);
    reply_.bodyReads += taken;
    if (taken == piece.size())
        body_.pop_front();
    else
        piece.erase(0, taken);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::PutString(char* text)
{
    if (const auto status = recorder_.Enter("io.PutString", Quoted(text)))
        return *status;
    reply_.body += text;
    Leave(text);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::SendHeader(HTTPSTATUS status)
{
    ++reply_.heads;
    if (const auto failure = recorder_.Enter("io.SendHeader", std::to_string(status)))
        return *failure;
    head_ += std::to_string(status) + "\n";
    Leave(std::to_string(status) + "\n");
    for (const auto& [name, value] : replyHeaders_)
        head_ += name + ": " + value + "\n";
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::SendInterim(HTTPSTATUS status, UINT32 count, const KEST_HEADER_LINE* lines)
{
    if (const auto failure = recorder_.Enter("io.SendInterim", std::to_string(status)))
        return *failure;
    if (!head_.empty())
        return HostFailure(kCodeInvalidRequest);
    before_ += std::to_string(status) + "\n";
    for (UINT32 i = 0; i < count; ++i)
        before_ += Narrow(&lines[i].Name) + ": " + Narrow(&lines[i].Value) + "\n";
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::SetRequestHeader(char* name, UINT32 length, char* value)
{
    const std::string text(value, length);
    if (const auto status =
            recorder_.Enter("io.SetRequestHeader", std::string(name) + ", " + Quoted(text)))
        return *status;
    std::erase_if(request_.headers,
                  [&](const auto& header) { return strcasecmp(header.first.c_str(), name) == 0; });
    request_.headers.emplace_back(name, text);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::SetReplyHeader(char* name, UINT32 length, char* value)
{
    const std::string text(value, length);
    if (const auto status =
            recorder_.Enter("io.SetReplyHeader", std::string(name) + ", " + Quoted(text)))
        return *status;
    if (!head_.empty()) {
        late_ += "late " + std::string(name) + ": " + text + "\n";
        return TAL_STATUS_SUCCESS;
    }
    for (auto& [key, old] : replyHeaders_)
        if (strcasecmp(key.c_str(), name) == 0) {
            old = text;
            return TAL_STATUS_SUCCESS;
        }
    replyHeaders_.emplace_back(name, text);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::Working()
{
    return recorder_.Enter("io.Working").value_or(TAL_STATUS_SUCCESS);
}

TALSTATUS ScriptedIo::Write(UINT32 size, UINT8* data)
{
    if (const auto status = recorder_.Enter("io.Write", std::to_string(size)))
        return *status;
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    reply_.body += text;
    Leave(text);
    reply_.writes.push_back(size);
    return TAL_STATUS_SUCCESS;
}

void* ScriptedIo::AllocMemory(UINT32 size)
{
    if (recorder_.Enter("io.AllocMemory", std::to_string(size)))
        return nullptr;
    memory_.push_back(std::make_unique_for_overwrite<char[]>(size));
    std::memset(memory_.back().get(), 0xA5, size);
    return memory_.back().get();
}

TALSTATUS ScriptedIo::GetRawHeaders(UINT8** headers)
{
    if (const auto status = recorder_.Enter("io.GetRawHeaders"))
        return *status;
    *headers = reinterpret_cast<UINT8*>(request_.rawHeaders.data());
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ScriptedIo::Text(const char* call, const std::string& value, UINT32* length, char* buffer)
{
    if (const auto status = recorder_.Enter(call))
        return *status;
    return CopyOut(value, length, buffer) ? TAL_STATUS_SUCCESS : HostFailure(kCodeBufferTooSmall);
}

TALSTATUS ScriptedIo::GetHostname(UINT32* length, char* buffer)
{
    return Text("io.GetHostname", request_.hostname, length, buffer);
}

TALSTATUS ScriptedIo::GetPort(UINT32* length, char* buffer)
{
    return Text("io.GetPort", request_.port, length, buffer);
}

TALSTATUS ScriptedIo::GetProtocolName(UINT32* length, char* buffer)
{
    return Text("io.GetProtocolName", request_.protocol, length, buffer);
}

TALSTATUS ScriptedIo::SetCustomError(HTTPSTATUS status, char* text)
{
    return recorder_.Enter("io.SetCustomError", std::to_string(status) + ", " + Quoted(text))
        .value_or(TAL_STATUS_SUCCESS);
}

TALSTATUS ScriptedIo::GetAuthRealm(UINT32* length, char* buffer)
{
    return Text("io.GetAuthRealm", request_.realm, length, buffer);
}

BOOLEAN ScriptedIo::IsSecure()
{
    (void)recorder_.Enter("io.IsSecure");
    return request_.protocol == "https" ? TRUE : FALSE;
}

} // namespace harness
