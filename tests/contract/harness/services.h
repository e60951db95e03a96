// SPDX-License-Identifier: Apache-2.0
//
// The host's services as the module sees them, scripted: configuration, utilities, events, session
// attributes and the per-session object store. Calls go through the recorder as "config.", "util.",
// "event.", "sa." and "om.".
#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "recorder.h"
#include <kest/com.h>
#include <kest/host.h>

namespace harness {

// The handle of a numbered session.
inline SCHANDLE SessionHandle(int number)
{
    return {reinterpret_cast<HANDLE>(std::uintptr_t{0x5E55}),
            reinterpret_cast<HANDLE>(static_cast<std::uintptr_t>(number))};
}

// Reference counting for a scripted service, which the world owns.
template <class I> class Service : public I {
  public:
    explicit Service(Recorder& recorder) : recorder_(recorder) {}
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (*iid != IidOf<I>::value && *iid != IID_IUnknown)
            return MakeStatus(kFacilityHost, kCodeNoInterface);
        AddRef();
        *out = static_cast<I*>(this);
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return static_cast<UINT32>(++references_); }
    UINT32 Release() override { return static_cast<UINT32>(--references_); }
    int References() const { return references_; }

  protected:
    ~Service() = default;
    Recorder& recorder_;

  private:
    std::atomic<int> references_{0};
};

class ConfigService final : public Service<IKestConfig> {
  public:
    using Service::Service;
    std::string hostname = "server.example:8080";
    std::string location;

    TALSTATUS SetLocation(GUID*, KEST_LOCATION_ACCESS, UNICODE_STRING*) override;
    TALSTATUS GetHostname(UINT32* length, char* buffer) override;
    TALSTATUS GetLocation(UINT32* length, char* buffer) override;
    TALSTATUS GetPort(UINT32* length, char* buffer) override;
    TALSTATUS GetSessionTimeout(UINT32* seconds) override;
    TALSTATUS GetProxyInformation(UNICODE_STRING**) override;
    TALSTATUS EnumAuthenticationDomains(UINT32, UNICODE_STRING**) override;
    TALSTATUS EnumDomainContexts(UNICODE_STRING*, UINT32, UNICODE_STRING**) override;
    TALSTATUS SetProxyCredentials(UNICODE_STRING*, UNICODE_STRING*) override;
};

// Dates are real conversions; MIME types come from `types` by extension.
class UtilService final : public Service<IKestUtil> {
  public:
    using Service::Service;
    std::map<std::string, std::string> types = {
        {".txt", "text/plain"}, {".html", "text/html"}, {".png", "image/png"}};

    TALSTATUS SystemTimeTo8601Time(UINT64* time, STRING* out) override;
    TALSTATUS SystemTimeToHttpTime(UINT64* time, STRING* out) override;
    TALSTATUS HttpTimeToSystemTime(STRING* text, UINT64* time) override;
    TALSTATUS SystemTimeToTime_t(UINT64* time, time_t* out) override;
    TALSTATUS SystemTimeToTm(UINT64* time, struct tm* out) override;
    TALSTATUS Time_tToSystemTime(time_t time, UINT64* out) override;
    TALSTATUS EscapeUri(STRING* in, STRING* out) override;
    TALSTATUS EscapeUnicodeUri(UNICODE_STRING* in, UINT32 flags, STRING* out) override;
    TALSTATUS GetMimeTypeFromUnicodeObject(UNICODE_STRING* name, char** type) override;
    TALSTATUS GetMimeTypeFromUTF8Object(STRING* name, char** type) override;
    TALSTATUS UnescapeUri(STRING* in, STRING* out) override;
    TALSTATUS MapPlatformErrorToTalStatus(UINT32 error) override;

  private:
    TALSTATUS MimeType(const std::string& name, char** type);
};

class EventService final : public Service<IEvent> {
  public:
    using Service::Service;
    ~EventService();
    IEventHandler* handler = nullptr; // the subscriber, with the reference handed over

    // Publishes to the subscriber, if any.
    TALSTATUS Publish(UINT32 type);

    TALSTATUS RegisterEventHandlerIf(GUID* eventClass, IEventHandler* subscriber) override;
    TALSTATUS DeRegisterEventHandlerIf(GUID* eventClass) override;
    TALSTATUS PublishEvent(GUID* eventClass, UINT32 type, void* data) override;
};

class AttributeService final : public Service<ISA> {
  public:
    using Service::Service;
    // Ends a session: calls the clean-up callback if the session has the attribute.
    void EndSession(int number);
    // The data of a session's attribute; null when there is none.
    void* Data(int number);
    int Referenced() const { return referenced_; } // references not given back

    TALSTATUS SARegisterAttribute(const GUID* id, UINT32 size, SA_CLEANUP_CALLBACK cleanup,
                                  SA_FREE_CALLBACK freeData, HANDLE* registration) override;
    TALSTATUS SADeregisterAttribute(HANDLE registration) override;
    TALSTATUS SACreate(SCHANDLE session, HANDLE registration, void* data, SA_INIT_CALLBACK init,
                       UINT32 createMode, UINT32 openMode, Attribute** out, UINT32* mode) override;
    TALSTATUS SADelete(UINT32 mode, Attribute* attribute) override;
    TALSTATUS SAReference(SCHANDLE session, HANDLE registration, UINT32 mode,
                          Attribute** out) override;
    TALSTATUS SADereference(UINT32 mode, Attribute* attribute) override;
    TALSTATUS SAGetSCHandle(Attribute* attribute, SCHANDLE* session) override;
    TALSTATUS SAEnumerate(SCHANDLE session, UINT32 index, GUID* id) override;
    TALSTATUS SAAcquire(UINT32 mode, Attribute* attribute) override;
    TALSTATUS SARelease(Attribute* attribute) override;

  private:
    struct Held {
        Attribute attribute;
        std::vector<UINT64> data;
    };
    mutable std::mutex mutex_;
    std::map<std::uintptr_t, std::unique_ptr<Held>> held_;
    UINT32 size_ = 0;
    SA_CLEANUP_CALLBACK cleanup_ = nullptr;
    std::atomic<int> referenced_{0};
};

class ObjectService final : public Service<ISCOM> {
  public:
    using Service::Service;
    size_t Objects(int session) const;
    int Referenced() const { return referenced_; }

    TALSTATUS Initialize(const GUID* owner, UINT32 size, UINT16 version, UINT32 flags,
                         UINT32 buckets, SC_DESTRUCTOR destructor, SC_CONSTRUCTOR constructor,
                         SC_SESSION_CLEANUP cleanup, UINT32 options) override;
    TALSTATUS CreateObject(SCHANDLE session, void* initData, SC_CONSTRUCTOR constructor, void* key,
                           SC_COMPARE compare, UINT32 flags, UINT32 options, UINT32 reference,
                           void** object, UINT32* mode) override;
    TALSTATUS DeleteObject(void* object) override;
    TALSTATUS ReferenceObjectByHandle(HANDLE handle, void** object) override;
    TALSTATUS DereferenceObject(void* object, UINT32 reference) override;
    TALSTATUS EnumerateObjects(SCHANDLE session, UINT32 index, void** object) override;
    TALSTATUS GetObjectHandle(void* object, HANDLE* handle) override;
    TALSTATUS FindObject(SCHANDLE session, void* key, SC_COMPARE compare, UINT32 flags,
                         UINT32 reference, void** object) override;
    TALSTATUS AcquireObject(void* object) override;
    TALSTATUS ReleaseObject(void* object) override;
    TALSTATUS IncrementReference(void* object) override;
    TALSTATUS DecrementReference(void* object) override;
    TALSTATUS GetObjectSecurityContext(void* object, SCHANDLE* session) override;
    TALSTATUS AllocateObject(void** object) override;
    TALSTATUS DeallocateObject(void* object) override;
    TALSTATUS OpenObject(SCHANDLE session, HANDLE handle, void** object) override;
    TALSTATUS GetObjectStats(UINT32* objects, UINT64* bytes) override;

  private:
    mutable std::mutex mutex_;
    std::map<std::uintptr_t, std::vector<std::unique_ptr<UINT64[]>>> objects_;
    UINT32 size_ = 0;
    std::atomic<int> referenced_{0};
};

} // namespace harness
