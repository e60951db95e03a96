// SPDX-License-Identifier: Apache-2.0
//
// Services of the host process: configuration, user sessions, dates and MIME types, events, session
// attributes, the per-session object store, and the running call. All are implemented by the host,
// created with TolmCreateInstance, and callable from any thread.
#pragma once

#include <ctime>

#include <kest/io.h>
#include <kest/types.h>
#include <kest/unknown.h>

// CLSID_KestSrv as IID_KestConfig_1. Lengths: the buffer's room on entry (terminator included), the
// text's length on return; code 7 when it does not fit.
struct IKestConfig : IUnknown {
    virtual TALSTATUS SetLocation(GUID* module, KEST_LOCATION_ACCESS access,
                                  UNICODE_STRING* location) = 0;
    // The name the server is known under, with the port unless it is the protocol's own.
    virtual TALSTATUS GetHostname(UINT32* length, char* buffer) = 0;
    // The path under which all modules are mounted: empty, or "/…" without a trailing "/".
    virtual TALSTATUS GetLocation(UINT32* length, char* buffer) = 0;
    virtual TALSTATUS GetPort(UINT32* length, char* buffer) = 0;
    virtual TALSTATUS GetSessionTimeout(UINT32* seconds) = 0;
    virtual TALSTATUS GetProxyInformation(UNICODE_STRING** proxy) = 0;
    virtual TALSTATUS EnumAuthenticationDomains(UINT32 index, UNICODE_STRING** domain) = 0;
    virtual TALSTATUS EnumDomainContexts(UNICODE_STRING* domain, UINT32 index,
                                         UNICODE_STRING** context) = 0;
    virtual TALSTATUS SetProxyCredentials(UNICODE_STRING* user, UNICODE_STRING* password) = 0;

  protected:
    ~IKestConfig() = default;
};

// CLSID_KestSrv as IID_KestSession_1. One object per use.
struct IKestSession : IUnknown {
    // Binds the object to a session; must come first. Code 11 for a session that has ended.
    virtual TALSTATUS Associate(SCHANDLE session) = 0;
    // The user's dotted name and the domain (directory tree). Either pointer may be null. The
    // strings belong to the object and live as long as it does. Code 11 for the local user, who has
    // no directory name.
    virtual TALSTATUS GetPrimaryCredentials(UNICODE_STRING** user, UNICODE_STRING** domain) = 0;

  protected:
    ~IKestSession() = default;
};

// CLSID_KestUtil as IID_KestUtil_1. Times are as TalxGetSystemTime gives them. Output STRINGs come
// with Buffer and MaximumLength set; the text is NUL-terminated, the terminator not counted in
// Length, and must fit with it (else code 7).
struct IKestUtil : IUnknown {
    virtual TALSTATUS SystemTimeTo8601Time(UINT64* time, STRING* out) = 0; // 2026-01-31T12:00:00Z
    virtual TALSTATUS SystemTimeToHttpTime(UINT64* time, STRING* out) = 0; // RFC 9110 section 5.6.7
    // All three forms of RFC 9110 section 5.6.7. Code 16 for anything else.
    virtual TALSTATUS HttpTimeToSystemTime(STRING* text, UINT64* time) = 0;
    virtual TALSTATUS SystemTimeToTime_t(UINT64* time, time_t* out) = 0;
    virtual TALSTATUS SystemTimeToTm(UINT64* time, struct tm* out) = 0; // UTC
    virtual TALSTATUS Time_tToSystemTime(time_t time, UINT64* out) = 0;
    // Percent-escapes everything but unreserved characters and "/" (RFC 3986 section 2.3).
    virtual TALSTATUS EscapeUri(STRING* in, STRING* out) = 0;
    virtual TALSTATUS EscapeUnicodeUri(UNICODE_STRING* in, UINT32 flags, STRING* out) = 0;
    // The MIME type for a name's extension. The text is static. Code 11 when none is known.
    virtual TALSTATUS GetMimeTypeFromUnicodeObject(UNICODE_STRING* name, char** type) = 0;
    virtual TALSTATUS GetMimeTypeFromUTF8Object(STRING* name, char** type) = 0;
    virtual TALSTATUS UnescapeUri(STRING* in, STRING* out) = 0;
    virtual TALSTATUS MapPlatformErrorToTalStatus(UINT32 error) = 0; // an errno value

  protected:
    ~IKestUtil() = default;
};

// Implemented by whoever listens to events.
struct IEventHandler : IUnknown {
    // Called on the host's event thread. `data` is valid during the call.
    virtual TALSTATUS ConsumeEvent(GUID* eventClass, UINT32 type, void* data) = 0;

  protected:
    ~IEventHandler() = default;
};

inline constexpr UINT32 kEventConfigurationChanged = 1; // type, in Global_Event_Class

// CLSID_EventMgr as IID_Event_1. An object carries at most one subscription per event class.
struct IEvent : IUnknown {
    // The manager takes over the caller's reference to `handler`.
    virtual TALSTATUS RegisterEventHandlerIf(GUID* eventClass, IEventHandler* handler) = 0;
    // Takes this object's subscription back and releases the handler.
    virtual TALSTATUS DeRegisterEventHandlerIf(GUID* eventClass) = 0;
    virtual TALSTATUS PublishEvent(GUID* eventClass, UINT32 type, void* data) = 0;

  protected:
    ~IEvent() = default;
};

// One attribute of one session, kept by the attribute service.
struct Attribute {
    SCHANDLE hSC;
    void* pData; // of the registered size, zeroed when made
};
static_assert(sizeof(Attribute) == 24 && offsetof(Attribute, pData) == 16);

using SA_CLEANUP_CALLBACK = TALSTATUS (*)(SCHANDLE session);
using SA_FREE_CALLBACK = TALSTATUS (*)(Attribute* attribute);
using SA_INIT_CALLBACK = TALSTATUS (*)(Attribute* attribute, void* data);

// Access modes of the attribute service: 1 is exclusive (a writer), 2 is shared (readers). The mode
// given to SADereference is the one the reference was taken with.
inline constexpr UINT32 kAttributeExclusive = 1;
inline constexpr UINT32 kAttributeShared = 2;

// CLSID_SecurityAttributeManager as IID_IPassiveContextAttribute_1: typed data that a component
// keeps per session. The service serialises access to one attribute.
struct ISA : IUnknown {
    // `cleanup` is called once for each session that ends and has the attribute; `freeData` (may be
    // null) before an attribute's memory goes.
    virtual TALSTATUS SARegisterAttribute(const GUID* id, UINT32 size, SA_CLEANUP_CALLBACK cleanup,
                                          SA_FREE_CALLBACK freeData, HANDLE* registration) = 0;
    virtual TALSTATUS SADeregisterAttribute(HANDLE registration) = 0;
    // References the session's attribute, making it with `init` when there is none. *mode is the
    // mode of the reference that the caller now holds: `createMode` when the attribute was made by
    // this call, else `openMode`. Code 11 for a session that has ended; a failure of `init` is
    // returned and leaves no attribute.
    virtual TALSTATUS SACreate(SCHANDLE session, HANDLE registration, void* data,
                               SA_INIT_CALLBACK init, UINT32 createMode, UINT32 openMode,
                               Attribute** out, UINT32* mode) = 0;
    // Gives the reference back and removes the attribute.
    virtual TALSTATUS SADelete(UINT32 mode, Attribute* attribute) = 0;
    virtual TALSTATUS SAReference(SCHANDLE session, HANDLE registration, UINT32 mode,
                                  Attribute** out) = 0;
    virtual TALSTATUS SADereference(UINT32 mode, Attribute* attribute) = 0;
    virtual TALSTATUS SAGetSCHandle(Attribute* attribute, SCHANDLE* session) = 0;
    // The session's `index`-th attribute. Code 9 past the last.
    virtual TALSTATUS SAEnumerate(SCHANDLE session, UINT32 index, GUID* id) = 0;
    // Takes (again) and gives back access to an attribute that the caller has referenced.
    virtual TALSTATUS SAAcquire(UINT32 mode, Attribute* attribute) = 0;
    virtual TALSTATUS SARelease(Attribute* attribute) = 0;

  protected:
    ~ISA() = default;
};

using SC_DESTRUCTOR = TALSTATUS (*)(void* object);
using SC_CONSTRUCTOR = TALSTATUS (*)(void* object, void* data);
using SC_COMPARE = BOOLEAN (*)(void* object, void* key);
using SC_SESSION_CLEANUP = TALSTATUS (*)(SCHANDLE session);

// Results of CreateObject's mode.
inline constexpr UINT32 kObjectCreated = 1;
inline constexpr UINT32 kObjectExisted = 2;

// CLSID_ObjectManagerDataStore as IID_ISCObjectManager_1: fixed-size objects that a component keeps
// per session, found by a compare callback. An object lives until the session ends or, when the
// session holds more than the host's bound, until it is the least recently used one that nobody
// references. The store serialises its operations; objects' contents are the component's.
struct ISCOM : IUnknown {
    virtual TALSTATUS Initialize(const GUID* owner, UINT32 size, UINT16 version, UINT32 flags,
                                 UINT32 buckets, SC_DESTRUCTOR destructor,
                                 SC_CONSTRUCTOR constructor, SC_SESSION_CLEANUP cleanup,
                                 UINT32 options) = 0;
    // Finds the object for `key` or makes it (`constructor` gets the zeroed object and `initData`).
    // The caller holds a reference in either case; *mode says which it was.
    virtual TALSTATUS CreateObject(SCHANDLE session, void* initData, SC_CONSTRUCTOR constructor,
                                   void* key, SC_COMPARE compare, UINT32 flags, UINT32 options,
                                   UINT32 reference, void** object, UINT32* mode) = 0;
    virtual TALSTATUS DeleteObject(void* object) = 0;
    virtual TALSTATUS ReferenceObjectByHandle(HANDLE handle, void** object) = 0;
    virtual TALSTATUS DereferenceObject(void* object, UINT32 reference) = 0;
    virtual TALSTATUS EnumerateObjects(SCHANDLE session, UINT32 index, void** object) = 0;
    virtual TALSTATUS GetObjectHandle(void* object, HANDLE* handle) = 0;
    // Code 11 when there is none.
    virtual TALSTATUS FindObject(SCHANDLE session, void* key, SC_COMPARE compare, UINT32 flags,
                                 UINT32 reference, void** object) = 0;
    virtual TALSTATUS AcquireObject(void* object) = 0;
    virtual TALSTATUS ReleaseObject(void* object) = 0;
    virtual TALSTATUS IncrementReference(void* object) = 0;
    virtual TALSTATUS DecrementReference(void* object) = 0;
    virtual TALSTATUS GetObjectSecurityContext(void* object, SCHANDLE* session) = 0;
    virtual TALSTATUS AllocateObject(void** object) = 0;
    virtual TALSTATUS DeallocateObject(void* object) = 0;
    virtual TALSTATUS OpenObject(SCHANDLE session, HANDLE handle, void** object) = 0;
    virtual TALSTATUS GetObjectStats(UINT32* objects, UINT64* bytes) = 0;

  protected:
    ~ISCOM() = default;
};

// Conditions under which a client wants its change to happen. Texts are as they were sent and valid
// until the call ends; with Length 0 the client sent none.
struct KEST_CONDITIONS {
    // "If-Match", "If-None-Match" and "If-Unmodified-Since" (RFC 9110 section 13) of a request that
    // changes something, for what bears the request's own path.
    STRING Match;
    STRING NoneMatch;
    UINT64 UnmodifiedSince; // as TalxGetSystemTime counts, whole seconds; 0: none
    // COPY and MOVE: whether the client lets them replace what is at the destination ("Overwrite",
    // RFC 4918 section 10.6). The flag of GetCopyInfo and GetMoveInfo is also clear where nothing
    // was there to replace.
    BOOLEAN MayReplace;
};
static_assert(sizeof(KEST_CONDITIONS) == 48 && offsetof(KEST_CONDITIONS, MayReplace) == 40);

// CLSID_KestCallContext as IID_KestCallContext_1: the request that runs on the calling thread.
// Every operation fails with code 11 on a thread that runs none. Components may use it; none may
// need it.
struct IKestCallContext : IUnknown {
    // Borrowed: no reference is added, valid until the call ends.
    virtual TALSTATUS GetRequest(IKestIO_5** request) = 0;
    virtual TALSTATUS GetMethod(UINT32* method) = 0; // a KEST_METHOD
    // 1 when the request's body has arrived whole (also when it has none).
    virtual TALSTATUS IsBodyComplete(BOOLEAN* complete) = 0;
    // Reports a failure that came too late for the module, such as a commit that failed when an
    // object was released. If no reply has left yet, the host sends its status in place of a
    // success.
    virtual TALSTATUS ReportFailure(TALSTATUS failure) = 0;
    // 1 when the reply can reach nobody any more: the client has left, or the server is stopping.
    // Long work (a copy, a walk, a long read) asks between two steps and ends with a failure; it
    // has at most a second for that. Costs no system call in the usual case.
    virtual TALSTATUS IsCancelled(BOOLEAN* cancelled) = 0;
    // Ties an object to the running request under a key of the caller's choice, such as its class
    // identifier, in place of one that was there; null takes that away. The request holds a
    // reference from here on and releases it on the thread on which the handler returns, after it
    // has returned. Code 5 without memory, or with more than 8 keys.
    virtual TALSTATUS SetAttachment(const GUID* key, IUnknown* object) = 0;
    // Borrowed: no reference is added, valid until the call ends or another takes its place. Null
    // with success when there is none.
    virtual TALSTATUS GetAttachment(const GUID* key, IUnknown** object) = 0;
    // The host has judged the conditions before the call, which says nothing about what others do
    // meanwhile: a provider that judges them again in the step that takes or changes the name fails
    // it, or reports, with code 40.
    virtual TALSTATUS GetConditions(KEST_CONDITIONS* conditions) = 0;

  protected:
    ~IKestCallContext() = default;
};
