// SPDX-License-Identifier: Apache-2.0
//
// Entry points, initialization, dispatcher, OPTIONS, PUT and MKCOL.
#include <algorithm>
#include <array>
#include <cstdio>
#include <iterator>
#include <optional>

#include "core/cache.h"
#include "core/config.h"
#include "core/eventhandler.h"
#include "core/factory.h"
#include "core/lifecycle.h"
#include "core/session.h"
#include "standard/answer.h"
#include "standard/handlers.h"
#include "support/failure_report.h"
#include "support/handlers.h"
#include "support/lock_header.h"
#include "support/memory.h"
#include "support/provider.h"
#include "support/reply.h"
#include "support/resolution.h"
#include "support/uri.h"

ITalpl* pITalpl;
IKestUtil* g_pIKestUtil;
UINT64 g_StartupTime;
HANDLE g_hHandlerLock;
LIST_ENTRY g_HandlerList;
char g_szHost[kConfigTextBytes + 1];
char g_szKestLocation[kConfigTextBytes + 1];

pthread_mutex_t g_hModuleMutex = PTHREAD_MUTEX_INITIALIZER;
std::atomic<bool> g_bInitialized;
std::atomic<bool> g_vtInitialized;
bool g_bDavInitialized;
TALSTATUS g_InitStatus;
bool g_KestDavUnloading;

// -- Entry points.

extern "C" {

__attribute__((visibility("default"))) int DllGetClassObject(const GUID* pClassID, const GUID* pIID,
                                                             void** ppInterface)
{
    if (!g_bInitialized) {
        const ModuleMutex lock;
        if (!g_bInitialized) {
            if (Code(KestDavInitialization()) != 0) // an informational code fails the start, too
                std::fputs("KestDav -DllGetClassObject- Module initialization failed\n", stderr);
            else
                g_bInitialized = true;
        }
    }
    if (!g_bInitialized)
        return -1;
    if (*pClassID != CLSID_KestDavHandler)
        return 0; // kept: no failure, and the out pointer stays as it was
    return Failed(FactoryQueryInterface(nullptr, pIID, ppInterface)) ? -1 : 0;
}

// Registration is the installer's work; both exist because hosts call them.
__attribute__((visibility("default"))) int DllRegisterServer()
{
    return 0;
}
__attribute__((visibility("default"))) int DllUnregisterServer()
{
    return 0;
}

} // extern "C"

// -- Initialization.

namespace {

// Stage one up to the first failure.
TALSTATUS MakePlatform()
{
    Ref<ITalpl> platform;
    if (const TALSTATUS status = Create(CLSID_HadranTalpl, platform); Code(status) != 0)
        return status;
    pITalpl = platform.Detach();
    (void)pITalpl->TalxRegisterModuleName("KEST-DAV"); // the name is for diagnostics only
    (void)pITalpl->TalxGetSystemTime(&g_StartupTime);
    pITalpl->TalxInitializeListHead(&g_HandlerList);
    return pITalpl->TalxAllocReadWriteLock(&g_hHandlerLock);
}

// Stage two without its mutex.
TALSTATUS MakeServices()
{
    GetGlobalConfiguration();
    if (const TALSTATUS status = KestDavSAInit(); Failed(status))
        return status;
    Ref<IKestUtil> util;
    const TALSTATUS status = Create(CLSID_KestUtil, util);
    if (Failed(status))
        return status;
    g_pIKestUtil = util.Detach();

    pITalpl->TalxAcquireLockForWriteAccess(g_hHandlerLock, TRUE);
    (void)InstantiateDavHandlers(); // without providers the module runs and resolves nothing
    pITalpl->TalxReleaseReadWriteLock(g_hHandlerLock);
    GetDialectConfiguration();
    g_vtInitialized = true;
    return status;
}

} // namespace

TALSTATUS KestDavInitialization()
{
    if (g_bDavInitialized)
        return g_InitStatus;
    g_bDavInitialized = true;
    if (const TALSTATUS status = MakePlatform(); Code(status) != 0) {
        g_KestDavUnloading = true;
        KestDavCleanup();
        g_InitStatus = status;
        return g_InitStatus;
    }
    g_IClassFactory.cReference = 0;
    g_IClassFactory.cLock = 0;
    (void)DavInitCacheBuffers(); // without a store every request asks the providers
    g_InitStatus = TAL_STATUS_SUCCESS;
    return g_InitStatus;
}

TALSTATUS KestDavCleanup()
{
    g_KestDavUnloading = true;
    UnRegisterEventHandler();
    DavCleanupCacheBuffers();
    if (g_pIKestUtil)
        g_pIKestUtil->Release();
    g_pIKestUtil = nullptr;
    if (pITalpl) {
        if (g_hHandlerLock)
            pITalpl->TalxDestroyReadWriteLock(g_hHandlerLock);
        g_hHandlerLock = nullptr;
        pITalpl->Release();
    }
    pITalpl = nullptr;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS KestDavStageTwo()
{
    if (g_vtInitialized)
        return TAL_STATUS_SUCCESS;
    const ModuleMutex lock;
    return g_vtInitialized ? TAL_STATUS_SUCCESS : MakeServices();
}

// -- Dispatcher.

namespace {

using MethodHandler = TALSTATUS (*)(SCHANDLE, UNICODE_STRING*, IKestIO_5*);

TALSTATUS Refused(SCHANDLE, UNICODE_STRING*, IKestIO_5* pKestIo)
{
    return ReplyEmpty(pKestIo, 400, TAL_STATUS_NOT_SUPPORTED);
}

TALSTATUS Post(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    return KestDavPost(pKestIo, hSession, pUrl);
}

// By method code. Null for what the host numbers and nobody serves; what is not in the table is
// refused.
using MethodTable = std::array<MethodHandler, KestMethodPatch + 1>;

constexpr MethodTable MakeClassicTable()
{
    MethodTable table{};
    table.fill(Refused);
    table[KestMethodGet] = KestDavGet;
    table[KestMethodPut] = KestDavPut;
    table[KestMethodPost] = Post;
    table[KestMethodDelete] = KestDavDelete;
    table[4] = nullptr;
    table[KestMethodOptions] = KestDavOptions;
    table[6] = nullptr;
    table[7] = KestDavPropPatch;
    table[KestMethodPropFind] = KestDavPropFind;
    table[KestMethodPropPatch] = KestDavPropPatch;
    table[KestMethodMkCol] = KestDavMkCol;
    table[KestMethodCopy] = KestDavCopy;
    table[KestMethodMove] = KestDavMove;
    table[KestMethodLock] = KestDavLock;
    table[KestMethodUnlock] = KestDavUnlock;
    table[KestMethodHead] = KestDavHead;
    return table;
}

// What the standard dialect answers in its own way; the browser index is shared.
constexpr MethodTable MakeStandardTable()
{
    MethodTable table = MakeClassicTable();
    table[KestMethodGet] = standard::Get;
    table[KestMethodPut] = standard::Put;
    table[KestMethodPost] = standard::Post;
    table[KestMethodDelete] = standard::Delete;
    table[KestMethodOptions] = standard::Options;
    table[KestMethodPropFind] = standard::PropFind;
    table[7] = standard::PropPatch;
    table[KestMethodPropPatch] = standard::PropPatch;
    table[KestMethodMkCol] = standard::MkCol;
    table[KestMethodLock] = standard::Lock;
    table[KestMethodUnlock] = standard::Unlock;
    table[KestMethodCopy] = standard::Copy;
    table[KestMethodMove] = standard::Move;
    table[KestMethodHead] = standard::Head;
    table[KestMethodPatch] = standard::Patch;
    return table;
}

constexpr MethodTable kClassicHandlers = MakeClassicTable();
constexpr MethodTable kStandardHandlers = MakeStandardTable();

MethodHandler FindHandler(UINT32 method)
{
    const MethodTable& table =
        g_Dialect == Dialect::Standard ? kStandardHandlers : kClassicHandlers;
    return method < table.size() ? table[method] : Refused;
}

constexpr UINT32 kTerminatorBytes = sizeof(WCHAR);

// The largest even number of bytes that a counted string can name.
constexpr UINT32 kLongestString = 0xFFFE;

// Copies the host's path without one trailing "/". `path` gets `bytes` bytes of room at `buffer`,
// of which the last code unit is kept for the terminator.
UNICODE_STRING CopyPath(const UNICODE_STRING& from, WCHAR* buffer, UINT32 bytes)
{
    UNICODE_STRING path = {0, static_cast<UINT16>(std::min(bytes, kLongestString)), buffer};
    pITalpl->TalxCopyUnicodeString(&path, &from);
    path.Length = static_cast<UINT16>(std::min<UINT32>(path.Length, bytes - kTerminatorBytes) /
                                      sizeof(WCHAR) * sizeof(WCHAR));
    const size_t units = path.Length / sizeof(WCHAR);
    if (units != 0 && buffer[units - 1] == u'/')
        path.Length = static_cast<UINT16>((units - 1) * sizeof(WCHAR));
    buffer[path.Length / sizeof(WCHAR)] = 0;
    return path;
}

// Of a request that no handler gets.
TALSTATUS RefuseRequest(IKestIO_5* io, TALSTATUS status)
{
    return g_Dialect == Dialect::Standard ? standard::RefuseMapped(io, status)
                                          : ReplyMapped(io, status);
}

} // namespace

TALSTATUS KestDavRequestHandler(IKestReq_2*, IKestIO_5* pKestIo, SCHANDLE hSession, UINT32 Method)
{
    if (!pKestIo)
        return TAL_STATUS_INVALID_PARAMETER;
    UNICODE_STRING* url = nullptr;
    if (const TALSTATUS status = RequestUrl(pKestIo, &url); Code(status) != 0)
        return RefuseRequest(pKestIo, status);

    const UINT32 bytes = url->MaximumLength + kTerminatorBytes;
    const Paged<WCHAR> buffer = AllocPaged<WCHAR>((bytes + 1) / sizeof(WCHAR));
    if (!buffer)
        return RefuseRequest(pKestIo, TAL_STATUS_INSUFFICIENT_RESOURCES);
    UNICODE_STRING path = CopyPath(*url, buffer.get(), bytes);

    const TALSTATUS status = KestDavCreateSession(hSession);
    if (Failed(status)) {
        ReportFailure(status);
        if (g_Dialect == Dialect::Standard)
            return standard::RefuseMapped(pKestIo, status);
        return Reply(pKestIo, 405, status); // kept: as if the method were at fault
    }
    const MethodHandler handler = FindHandler(Method);
    return handler ? handler(hSession, &path, pKestIo) : Reply(pKestIo, 501, status);
}

TALSTATUS KestDavOptions(SCHANDLE, UNICODE_STRING*, IKestIO_5* pKestIo)
{
    SetNoContent(pKestIo);
    // Kept: the two lists differ; clients have learnt to read them as they are.
    SetHeader(pKestIo, "Public",
              "OPTIONS, TRACE, GET, HEAD, DELETE, PUT, POST, COPY, MOVE, MKCOL, PROPFIND, "
              "PROPPATCH, LOCK, UNLOCK, SEARCH");
    SetHeader(pKestIo, "Allow",
              "OPTIONS, TRACE, GET, HEAD, DELETE, COPY, MOVE, PROPFIND, PROPPATCH, SEARCH, MKCOL, "
              "LOCK, UNLOCK");
    SetHeader(pKestIo, "DAV", "1, 2");
    return pKestIo->SendHeader(200);
}

// -- PUT and MKCOL.

namespace {

// Writes the request's body to the resource, from offset 0. `stored` is set, and the status the
// last write's, when the body ended; else the status says what stopped the transfer, which from the
// host may be one that does not fail.
TALSTATUS StoreBody(IKestIO_5* io, DavResource& resource, bool& stored)
{
    const TransferBuffer buffer = TransferBuffer::Allocate();
    if (!buffer)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    TALSTATUS last = TAL_STATUS_SUCCESS;
    for (UINT64 offset = 0;;) {
        UINT32 read = 0;
        const TALSTATUS status =
            io->ReadClientPayload(buffer.size, reinterpret_cast<UINT8*>(buffer.data.get()), &read);
        if (Code(status) == kCodeEndOfFile) {
            stored = true;
            return last;
        }
        if (Code(status) != 0)
            return status;
        UINT32 written = 0;
        last = resource.Write(offset, read, buffer.data.get(), &written);
        if (Failed(last))
            return last;
        offset += written;
    }
}

// Opens the resource for replacement and stores the body. The object is gone when this returns, so
// that the provider has committed before the reply.
TALSTATUS PutResource(SCHANDLE session, UNICODE_STRING* path, IKestIO_5* io, bool& stored)
{
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = DavUriToHandler(session, path, &handler); Failed(status))
        return status;
    DavResource resource;
    if (const TALSTATUS status = resource.Open(*handler); Failed(status))
        return status;
    std::optional<RequestToken> token;
    if (resource.Second())
        token.emplace(io);
    if (const TALSTATUS status = resource.Associate(session, TRUE, kAccessReplaceContent, 1, path,
                                                    token ? token->Get() : nullptr);
        Failed(status))
        return status;
    return StoreBody(io, resource, stored);
}

TALSTATUS MakeCollection(SCHANDLE session, UNICODE_STRING* path)
{
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = DavUriToHandler(session, path, &handler); Failed(status))
        return status;
    return DavNamespace(*handler).MkCol(session, nullptr, path); // kept: never a token
}

} // namespace

TALSTATUS KestDavPut(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    if (IsMonikerRoot(*pUrl))
        return ReplyEmptyMapped(pKestIo, TAL_STATUS_ACCESS_DENIED);
    UNICODE_STRING path = ProviderPath(*pUrl);
    bool stored = false;
    const TALSTATUS status = PutResource(hSession, &path, pKestIo, stored);
    // Kept: 201 also when the resource existed.
    return stored ? ReplyEmpty(pKestIo, 201, status) : ReplyEmptyMapped(pKestIo, status);
}

TALSTATUS KestDavMkCol(SCHANDLE hSession, UNICODE_STRING* pUrl, IKestIO_5* pKestIo)
{
    if (IsMonikerRoot(*pUrl))
        return ReplyMapped(pKestIo, TAL_STATUS_ACCESS_DENIED);
    UNICODE_STRING path = ProviderPath(*pUrl);
    const TALSTATUS status = MakeCollection(hSession, &path);
    if (!Failed(status))
        return Reply(pKestIo, 201, status);
    if (Code(status) == kCodeObjectExists)
        return Reply(pKestIo, 405, status);
    return ReplyMapped(pKestIo, status);
}
