// SPDX-License-Identifier: Apache-2.0
#include "services.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "text.h"

namespace harness {

namespace {

constexpr TALSTATUS HostFailure(UINT16 code)
{
    return MakeStatus(kFacilityHost, code);
}

// For what no module calls: noted and refused.
TALSTATUS NotScripted(Recorder& recorder, const char* name)
{
    return recorder.Enter(name).value_or(HostFailure(kCodeNotImplemented));
}

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

std::uintptr_t Key(SCHANDLE session)
{
    return reinterpret_cast<std::uintptr_t>(session.hId);
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

// -- Session attributes.

void AttributeService::EndSession(int number)
{
    bool has = false;
    {
        const std::lock_guard lock(mutex_);
        has = held_.contains(Key(SessionHandle(number)));
    }
    if (has && cleanup_)
        cleanup_(SessionHandle(number));
}

void* AttributeService::Data(int number)
{
    const std::lock_guard lock(mutex_);
    const auto found = held_.find(Key(SessionHandle(number)));
    return found == held_.end() ? nullptr : found->second->data.data();
}

TALSTATUS AttributeService::SARegisterAttribute(const GUID* id, UINT32 size,
                                                SA_CLEANUP_CALLBACK cleanup, SA_FREE_CALLBACK,
                                                HANDLE* registration)
{
    if (const auto status =
            recorder_.Enter("sa.SARegisterAttribute",
                            std::string(*id == KESTDAV_SESSION_ATTRIBUTE ? "kestdav" : "?") + ", " +
                                std::to_string(size)))
        return *status;
    size_ = size;
    cleanup_ = cleanup;
    *registration = this;
    return TAL_STATUS_SUCCESS;
}
TALSTATUS AttributeService::SADeregisterAttribute(HANDLE)
{
    return NotScripted(recorder_, "sa.SADeregisterAttribute");
}
TALSTATUS AttributeService::SACreate(SCHANDLE session, HANDLE registration, void* data,
                                     SA_INIT_CALLBACK init, UINT32 createMode, UINT32 openMode,
                                     Attribute** out, UINT32* mode)
{
    if (const auto status = recorder_.Enter(
            "sa.SACreate", "session=" + std::to_string(Key(session)) + ", " +
                               std::to_string(createMode) + ", " + std::to_string(openMode)))
        return *status;
    if (registration != this)
        return HostFailure(kCodeInvalidParameter);
    const std::lock_guard lock(mutex_);
    auto& held = held_[Key(session)];
    *mode = held ? openMode : createMode;
    if (!held) {
        held = std::make_unique<Held>();
        held->data.resize((size_ + 7) / 8);
        held->attribute = {session, held->data.data()};
        if (const TALSTATUS status = init(&held->attribute, data); Failed(status)) {
            held_.erase(Key(session));
            return status;
        }
    }
    ++referenced_;
    *out = &held->attribute;
    return TAL_STATUS_SUCCESS;
}
TALSTATUS AttributeService::SADelete(UINT32 mode, Attribute* attribute)
{
    if (const auto status = recorder_.Enter("sa.SADelete", std::to_string(mode)))
        return *status;
    const std::lock_guard lock(mutex_);
    --referenced_;
    held_.erase(Key(attribute->hSC));
    return TAL_STATUS_SUCCESS;
}
TALSTATUS AttributeService::SAReference(SCHANDLE session, HANDLE registration, UINT32 mode,
                                        Attribute** out)
{
    if (const auto status = recorder_.Enter("sa.SAReference", std::to_string(mode)))
        return *status;
    if (registration != this)
        return HostFailure(kCodeInvalidParameter);
    const std::lock_guard lock(mutex_);
    const auto found = held_.find(Key(session));
    if (found == held_.end())
        return HostFailure(kCodeNotFound);
    ++referenced_;
    *out = &found->second->attribute;
    return TAL_STATUS_SUCCESS;
}
TALSTATUS AttributeService::SADereference(UINT32 mode, Attribute*)
{
    --referenced_;
    return recorder_.Enter("sa.SADereference", std::to_string(mode)).value_or(TAL_STATUS_SUCCESS);
}
TALSTATUS AttributeService::SAGetSCHandle(Attribute* attribute, SCHANDLE* session)
{
    *session = attribute->hSC;
    return recorder_.Enter("sa.SAGetSCHandle").value_or(TAL_STATUS_SUCCESS);
}
TALSTATUS AttributeService::SAEnumerate(SCHANDLE, UINT32, GUID*)
{
    return NotScripted(recorder_, "sa.SAEnumerate");
}
TALSTATUS AttributeService::SAAcquire(UINT32 mode, Attribute*)
{
    return recorder_.Enter("sa.SAAcquire", std::to_string(mode)).value_or(TAL_STATUS_SUCCESS);
}
TALSTATUS AttributeService::SARelease(Attribute*)
{
    return recorder_.Enter("sa.SARelease").value_or(TAL_STATUS_SUCCESS);
}

// -- Object store.

size_t ObjectService::Objects(int session) const
{
    const std::lock_guard lock(mutex_);
    const auto found = objects_.find(Key(SessionHandle(session)));
    return found == objects_.end() ? 0 : found->second.size();
}

TALSTATUS ObjectService::Initialize(const GUID* owner, UINT32 size, UINT16 version, UINT32 flags,
                                    UINT32 buckets, SC_DESTRUCTOR destructor,
                                    SC_CONSTRUCTOR constructor, SC_SESSION_CLEANUP cleanup,
                                    UINT32 options)
{
    const auto present = [](bool is) { return is ? "set" : "null"; };
    if (const auto status = recorder_.Enter(
            "om.Initialize", std::string(*owner == KESTDAV_MODULE_ID ? "module" : "?") + ", " +
                                 std::to_string(version) + ", " + std::to_string(flags) + ", " +
                                 std::to_string(buckets) + ", " + present(destructor) + ", " +
                                 present(constructor) + ", " + present(cleanup) + ", " +
                                 std::to_string(options)))
        return *status;
    size_ = size;
    return TAL_STATUS_SUCCESS;
}
TALSTATUS ObjectService::CreateObject(SCHANDLE session, void* initData, SC_CONSTRUCTOR constructor,
                                      void* key, SC_COMPARE compare, UINT32 flags, UINT32 options,
                                      UINT32 reference, void** object, UINT32* mode)
{
    if (const auto status = recorder_.Enter(
            "om.CreateObject", Narrow(static_cast<UNICODE_STRING*>(key)) + ", " +
                                   std::to_string(flags) + ", " + std::to_string(options) + ", " +
                                   std::to_string(reference)))
        return *status;
    const std::lock_guard lock(mutex_);
    auto& held = objects_[Key(session)];
    for (const auto& candidate : held)
        if (compare(candidate.get(), key)) {
            ++referenced_;
            *object = candidate.get();
            *mode = kObjectExisted;
            return TAL_STATUS_SUCCESS;
        }
    auto made = std::make_unique<UINT64[]>((size_ + 7) / 8);
    if (const TALSTATUS status = constructor(made.get(), initData); Failed(status))
        return status;
    ++referenced_;
    *object = made.get();
    *mode = kObjectCreated;
    held.push_back(std::move(made));
    return TAL_STATUS_SUCCESS;
}
TALSTATUS ObjectService::FindObject(SCHANDLE session, void* key, SC_COMPARE compare, UINT32 flags,
                                    UINT32 reference, void** object)
{
    if (const auto status = recorder_.Enter(
            "om.FindObject", Narrow(static_cast<UNICODE_STRING*>(key)) + ", " +
                                 std::to_string(flags) + ", " + std::to_string(reference)))
        return *status;
    const std::lock_guard lock(mutex_);
    for (const auto& candidate : objects_[Key(session)])
        if (compare(candidate.get(), key)) {
            ++referenced_;
            *object = candidate.get();
            return TAL_STATUS_SUCCESS;
        }
    return HostFailure(kCodeNotFound);
}
TALSTATUS ObjectService::DereferenceObject(void*, UINT32 reference)
{
    --referenced_;
    return recorder_.Enter("om.DereferenceObject", std::to_string(reference))
        .value_or(TAL_STATUS_SUCCESS);
}
TALSTATUS ObjectService::DeleteObject(void*)
{
    return NotScripted(recorder_, "om.DeleteObject");
}
TALSTATUS ObjectService::ReferenceObjectByHandle(HANDLE, void**)
{
    return NotScripted(recorder_, "om.ReferenceObjectByHandle");
}
TALSTATUS ObjectService::EnumerateObjects(SCHANDLE, UINT32, void**)
{
    return NotScripted(recorder_, "om.EnumerateObjects");
}
TALSTATUS ObjectService::GetObjectHandle(void*, HANDLE*)
{
    return NotScripted(recorder_, "om.GetObjectHandle");
}
TALSTATUS ObjectService::AcquireObject(void*)
{
    return NotScripted(recorder_, "om.AcquireObject");
}
TALSTATUS ObjectService::ReleaseObject(void*)
{
    return NotScripted(recorder_, "om.ReleaseObject");
}
TALSTATUS ObjectService::IncrementReference(void*)
{
    return NotScripted(recorder_, "om.IncrementReference");
}
TALSTATUS ObjectService::DecrementReference(void*)
{
    return NotScripted(recorder_, "om.DecrementReference");
}
TALSTATUS ObjectService::GetObjectSecurityContext(void*, SCHANDLE*)
{
    return NotScripted(recorder_, "om.GetObjectSecurityContext");
}
TALSTATUS ObjectService::AllocateObject(void**)
{
    return NotScripted(recorder_, "om.AllocateObject");
}
TALSTATUS ObjectService::DeallocateObject(void*)
{
    return NotScripted(recorder_, "om.DeallocateObject");
}
TALSTATUS ObjectService::OpenObject(SCHANDLE, HANDLE, void**)
{
    return NotScripted(recorder_, "om.OpenObject");
}
TALSTATUS ObjectService::GetObjectStats(UINT32*, UINT64*)
{
    return NotScripted(recorder_, "om.GetObjectStats");
}

} // namespace harness
