// SPDX-License-Identifier: Apache-2.0
#include "services.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "host_failure.h"
#include "text.h"

namespace harness {

namespace {

TALSTATUS Give(const std::string& text, UINT32* length, char* buffer)
{
    return CopyOut(text, length, buffer) ? TAL_STATUS_SUCCESS : HostFailure(kCodeBufferTooSmall);
}

// The same by a host that leaves the terminator to the caller.
TALSTATUS GiveUnterminated(const std::string& text, UINT32* length, char* buffer)
{
    const TALSTATUS status = Give(text, length, buffer);
    if (!Failed(status))
        buffer[text.size()] = '?';
    return status;
}

TALSTATUS Give(const std::string& text, STRING* out)
{
    if (text.size() + 1 > out->MaximumLength)
        return HostFailure(kCodeBufferTooSmall);
    std::memcpy(out->Buffer, text.c_str(), text.size() + 1);
    out->Length = static_cast<UINT16>(text.size());
    return TAL_STATUS_SUCCESS;
}

struct tm Utc(UINT64 time)
{
    const time_t seconds = UnixSeconds(time);
    struct tm parts {};
    gmtime_r(&seconds, &parts);
    return parts;
}

template <size_t N> std::string DateText(UINT64 time, const char (&format)[N])
{
    char text[64];
    const struct tm parts = Utc(time);
    return {text, std::strftime(text, sizeof text, format, &parts)};
}

} // namespace

// -- Configuration.

TALSTATUS ConfigService::SetLocation(GUID*, KEST_LOCATION_ACCESS, UNICODE_STRING*)
{
    return NotScripted(recorder_, "config.SetLocation");
}
TALSTATUS ConfigService::GetHostname(UINT32* length, char* buffer)
{
    if (const auto status = recorder_.Enter("config.GetHostname", std::to_string(*length)))
        return *status;
    return GiveUnterminated(hostname, length, buffer);
}
TALSTATUS ConfigService::GetLocation(UINT32* length, char* buffer)
{
    if (const auto status = recorder_.Enter("config.GetLocation", std::to_string(*length)))
        return *status;
    return GiveUnterminated(location, length, buffer);
}
TALSTATUS ConfigService::GetPort(UINT32* length, char* buffer)
{
    if (const auto status = recorder_.Enter("config.GetPort"))
        return *status;
    return Give("8080", length, buffer);
}
TALSTATUS ConfigService::GetSessionTimeout(UINT32* seconds)
{
    *seconds = 900;
    return recorder_.Enter("config.GetSessionTimeout").value_or(TAL_STATUS_SUCCESS);
}
TALSTATUS ConfigService::GetProxyInformation(UNICODE_STRING**)
{
    return NotScripted(recorder_, "config.GetProxyInformation");
}
TALSTATUS ConfigService::EnumAuthenticationDomains(UINT32, UNICODE_STRING**)
{
    return NotScripted(recorder_, "config.EnumAuthenticationDomains");
}
TALSTATUS ConfigService::EnumDomainContexts(UNICODE_STRING*, UINT32, UNICODE_STRING**)
{
    return NotScripted(recorder_, "config.EnumDomainContexts");
}
TALSTATUS ConfigService::SetProxyCredentials(UNICODE_STRING*, UNICODE_STRING*)
{
    return NotScripted(recorder_, "config.SetProxyCredentials");
}

// -- Utilities.

TALSTATUS UtilService::SystemTimeTo8601Time(UINT64* time, STRING* out)
{
    if (const auto status = recorder_.Enter("util.SystemTimeTo8601Time"))
        return *status;
    return Give(DateText(*time, "%Y-%m-%dT%H:%M:%SZ"), out);
}
TALSTATUS UtilService::SystemTimeToHttpTime(UINT64* time, STRING* out)
{
    if (const auto status = recorder_.Enter("util.SystemTimeToHttpTime"))
        return *status;
    return Give(DateText(*time, "%a, %d %b %Y %H:%M:%S GMT"), out);
}
TALSTATUS UtilService::HttpTimeToSystemTime(STRING* text, UINT64* time)
{
    if (const auto status = recorder_.Enter("util.HttpTimeToSystemTime", Narrow(text)))
        return *status;
    struct tm parts {};
    const std::string value = Narrow(text);
    const char* end = strptime(value.c_str(), "%a, %d %b %Y %H:%M:%S GMT", &parts);
    if (!end || *end)
        return HostFailure(kCodeInvalidRequest);
    *time = Ticks(static_cast<UINT64>(timegm(&parts)));
    return TAL_STATUS_SUCCESS;
}
TALSTATUS UtilService::SystemTimeToTime_t(UINT64* time, time_t* out)
{
    if (const auto status = recorder_.Enter("util.SystemTimeToTime_t"))
        return *status;
    *out = UnixSeconds(*time);
    return TAL_STATUS_SUCCESS;
}
TALSTATUS UtilService::SystemTimeToTm(UINT64* time, struct tm* out)
{
    if (const auto status = recorder_.Enter("util.SystemTimeToTm"))
        return *status;
    *out = Utc(*time);
    return TAL_STATUS_SUCCESS;
}
TALSTATUS UtilService::Time_tToSystemTime(time_t time, UINT64* out)
{
    if (const auto status = recorder_.Enter("util.Time_tToSystemTime"))
        return *status;
    *out = Ticks(static_cast<UINT64>(time));
    return TAL_STATUS_SUCCESS;
}
TALSTATUS UtilService::EscapeUri(STRING* in, STRING* out)
{
    if (const auto status = recorder_.Enter("util.EscapeUri", Narrow(in)))
        return *status;
    std::string text;
    for (const char c : Narrow(in)) {
        const auto byte = static_cast<unsigned char>(c);
        if (std::isalnum(byte) || std::strchr("-._~/", c)) {
            text += c;
        } else {
            char hex[4];
            std::snprintf(hex, sizeof hex, "%%%02X", byte);
            text += hex;
        }
    }
    return Give(text, out);
}
TALSTATUS UtilService::EscapeUnicodeUri(UNICODE_STRING* in, UINT32, STRING* out)
{
    std::string text = Narrow(in);
    STRING narrow = Counted(text);
    return EscapeUri(&narrow, out);
}
TALSTATUS UtilService::MimeType(const std::string& name, char** type)
{
    const size_t dot = name.rfind('.');
    const auto found = dot == std::string::npos ? types.end() : types.find(name.substr(dot));
    if (found == types.end())
        return HostFailure(kCodeNotFound);
    *type = found->second.data();
    return TAL_STATUS_SUCCESS;
}
TALSTATUS UtilService::GetMimeTypeFromUnicodeObject(UNICODE_STRING* name, char** type)
{
    if (const auto status = recorder_.Enter("util.GetMimeTypeFromUnicodeObject", Narrow(name)))
        return *status;
    return MimeType(Narrow(name), type);
}
TALSTATUS UtilService::GetMimeTypeFromUTF8Object(STRING* name, char** type)
{
    if (const auto status = recorder_.Enter("util.GetMimeTypeFromUTF8Object", Narrow(name)))
        return *status;
    return MimeType(Narrow(name), type);
}
TALSTATUS UtilService::UnescapeUri(STRING* in, STRING* out)
{
    if (const auto status = recorder_.Enter("util.UnescapeUri", Narrow(in)))
        return *status;
    const std::string text = Narrow(in);
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        unsigned value = 0;
        if (text[i] == '%' && i + 2 < text.size() &&
            std::sscanf(text.c_str() + i + 1, "%2x", &value) == 1) {
            plain += static_cast<char>(value);
            i += 2;
        } else {
            plain += text[i];
        }
    }
    return Give(plain, out);
}
TALSTATUS UtilService::MapPlatformErrorToTalStatus(UINT32)
{
    return recorder_.Enter("util.MapPlatformErrorToTalStatus")
        .value_or(HostFailure(kCodeUnsuccessful));
}

// -- Events.

EventService::~EventService()
{
    if (handler)
        handler->Release();
}

TALSTATUS EventService::Publish(UINT32 type)
{
    GUID eventClass = Global_Event_Class;
    return handler ? handler->ConsumeEvent(&eventClass, type, nullptr) : HostFailure(kCodeNotFound);
}
TALSTATUS EventService::RegisterEventHandlerIf(GUID* eventClass, IEventHandler* subscriber)
{
    if (const auto status = recorder_.Enter("event.RegisterEventHandlerIf",
                                            *eventClass == Global_Event_Class ? "global" : "?"))
        return *status;
    if (handler)
        return HostFailure(kCodeObjectExists);
    handler = subscriber;
    return TAL_STATUS_SUCCESS;
}
TALSTATUS EventService::DeRegisterEventHandlerIf(GUID*)
{
    if (const auto status = recorder_.Enter("event.DeRegisterEventHandlerIf"))
        return *status;
    if (handler)
        handler->Release();
    handler = nullptr;
    return TAL_STATUS_SUCCESS;
}
TALSTATUS EventService::PublishEvent(GUID*, UINT32 type, void*)
{
    if (const auto status = recorder_.Enter("event.PublishEvent"))
        return *status;
    return Publish(type);
}

} // namespace harness
