// SPDX-License-Identifier: Apache-2.0
//
// The running request, as the host tells of it.
#include "providers/filestore/callcontext.h"

#include <new>

#include <kest/com.h>

#include "providers/filestore/names.h"
#include "providers/filestore/platform.h"

namespace filestore::call {

namespace {

// One object serves every thread: it answers for the thread that asks.
IKestCallContext* Context()
{
    static IKestCallContext* const context = [] {
        Ref<IKestCallContext> made;
        (void)Create(CLSID_KestCallContext, made); // a host without it is fine
        return made.Detach();
    }();
    return context;
}

void TrimSlash(std::string* path)
{
    while (path->ends_with('/'))
        path->pop_back();
}

// `url` is `path` behind some location. The location is not compared: the module removes it by its
// length, and the host routes only what lies below it.
bool EndsWith(std::string url, std::string_view path)
{
    TrimSlash(&url);
    return !path.empty() && path.front() == '/' && url.ends_with(path);
}

// A destination may still carry its escapes.
bool EndsWithEscaped(const std::string& url, std::string_view path)
{
    std::string plain;
    return EndsWith(url, path) || (DecodePercent(url, &plain) && EndsWith(plain, path));
}

} // namespace

IKestIO_5* Request()
{
    IKestIO_5* request = nullptr;
    if (!Context() || Failed(Context()->GetRequest(&request)))
        return nullptr;
    return request;
}

UINT32 Method()
{
    UINT32 method = KestMethodUnknown;
    if (!Context() || Failed(Context()->GetMethod(&method)))
        return KestMethodUnknown;
    return method;
}

bool UploadArrived()
{
    const UINT32 method = Method();
    if (method != KestMethodPut && method != KestMethodPost)
        return true;
    BOOLEAN complete = TRUE;
    if (Failed(Context()->IsBodyComplete(&complete)) || complete)
        return true;
    if (method == KestMethodPut)
        return false;
    // A form's parts end before its body does: a part is whole as long as the body can go on.
    UINT32 available = 0;
    IKestIO_5* const request = Request();
    return request && !Failed(request->IsClientPayloadAvailable(&available)) && available > 0;
}

// Room for it is there from a thread's start: of a library that is loaded later it would be made at
// the thread's first use, and the process ends where that finds no memory.
static constinit thread_local HeldReports* t_held [[gnu::tls_model("initial-exec")]] = nullptr;

HeldReports::HeldReports() noexcept : outer_(t_held)
{
    t_held = this;
}

HeldReports::~HeldReports()
{
    t_held = outer_;
    for (size_t i = 0; i < count_; ++i)
        ReportFailure(held_[i]);
}

void ReportFailure(TALSTATUS failure) noexcept
{
    if (t_held && t_held->count_ < HeldReports::kMost)
        t_held->held_[t_held->count_++] = failure;
    else if (!t_held && Context())
        (void)Context()->ReportFailure(failure); // without a request there is nobody to tell
}

bool IsCancelled()
{
    BOOLEAN cancelled = FALSE;
    return Context() && !Failed(Context()->IsCancelled(&cancelled)) && cancelled;
}

bool Attach(const GUID& key, IUnknown* object)
{
    return Context() && !Failed(Context()->SetAttachment(&key, object));
}

IUnknown* Attached(const GUID& key)
{
    IUnknown* object = nullptr;
    return Context() && !Failed(Context()->GetAttachment(&key, &object)) ? object : nullptr;
}

bool Header(const char* name, std::string* value)
{
    IKestIO_5* const request = Request();
    if (!request)
        return false;
    char* const key = const_cast<char*>(name); // the host only reads it
    value->resize(256);
    auto length = static_cast<UINT32>(value->size());
    TALSTATUS status = request->GetRequestHeader(key, &length, value->data());
    if (Code(status) == kCodeBufferTooSmall) {
        value->resize(size_t{length} + 1);
        length = static_cast<UINT32>(value->size());
        status = request->GetRequestHeader(key, &length, value->data());
    }
    if (Code(status) == kCodeInsufficientResources)
        throw std::bad_alloc(); // whether there is one is not known
    if (Failed(status) || length > value->size())
        return false;
    value->resize(length);
    return true;
}

std::string Path()
{
    UNICODE_STRING* url = nullptr;
    IKestIO_5* const request = Request();
    if (!request)
        return {};
    if (const TALSTATUS status = request->GetUrl(nullptr, &url); Failed(status)) {
        if (Code(status) == kCodeInsufficientResources)
            throw std::bad_alloc();
        return {};
    }
    std::string path = Utf8Of(url);
    TrimSlash(&path);
    return path;
}

// Whether the request is about `path` itself: nothing is made out of what is missing, not even by
// copying it onto itself.
static bool IsSource(std::string_view path)
{
    return Path() == ModulePath().append(path);
}

bool GetConditions(KEST_CONDITIONS* out)
{
    return Context() && !Failed(Context()->GetConditions(out));
}

bool IsAboutToCreate(std::string_view path)
{
    IKestIO_5* const request = Request();
    if (!request)
        return false;
    BOOLEAN overwrite = FALSE;
    INT32 depth = 0;
    UNICODE_STRING* destination = nullptr;
    switch (Method()) {
    case KestMethodPut:
    case KestMethodMkCol:
    case KestMethodLock:
        return EndsWith(Path(), path);
    case KestMethodPost: {
        const size_t slash = path.rfind('/');
        return slash != path.npos && slash > 0 && EndsWith(Path(), path.substr(0, slash));
    }
    case KestMethodCopy:
        return !Failed(request->GetCopyInfo(&overwrite, &depth, &destination)) &&
               EndsWithEscaped(Utf8Of(destination), path) && !IsSource(path);
    case KestMethodMove:
        return !Failed(request->GetMoveInfo(&overwrite, &destination)) &&
               EndsWithEscaped(Utf8Of(destination), path) && !IsSource(path);
    default:
        return false;
    }
}

} // namespace filestore::call
