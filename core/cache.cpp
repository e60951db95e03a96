// SPDX-License-Identifier: Apache-2.0
//
// The resolution cache, in the session's object store.
#include "core/cache.h"

#include <atomic>

#include "support/provider.h"
#include "support/resolution.h"

ISCOM* g_pIOM;

namespace {

// What the object store is told; the meaning of each number is the store's.
constexpr UINT16 kStoreVersion = 1;
constexpr UINT32 kStoreFlags = 0;
constexpr UINT32 kStoreBuckets = 31;
constexpr UINT32 kStoreOptions = 6;
constexpr UINT32 kReferenceNew = 1;
constexpr UINT32 kReferenceFound = 2;

UINT64 Now()
{
    UINT64 now = 0;
    (void)pITalpl->TalxGetSystemTime(&now); // a failed clock leaves 0: the oldest possible access
    return now;
}

// Requests of one session touch an entry at the same time.
void Touch(URI_CACHE_BUFFER* entry)
{
    std::atomic_ref(entry->LastAccess).store(Now(), std::memory_order_relaxed);
}

// The path up to its second "/", sharing its buffer; at least one code unit.
UNICODE_STRING StoreRoot(const UNICODE_STRING& uri)
{
    static WCHAR empty[1]; // the root's key: one code unit, never written
    if (uri.Length < sizeof(WCHAR))
        return {sizeof(WCHAR), sizeof(WCHAR), empty};
    const size_t units = uri.Length / sizeof(WCHAR);
    size_t length = 1;
    while (length < units && uri.Buffer[length] != u'/')
        ++length;
    const auto bytes = static_cast<UINT16>(length * sizeof(WCHAR));
    return {bytes, bytes, uri.Buffer};
}

// The provider remembered for a store root; null when the session has none.
KESTDAV_HANDLER* FindRemembered(SCHANDLE session, UNICODE_STRING* storeRoot)
{
    void* object = nullptr;
    if (!g_pIOM ||
        Code(g_pIOM->FindObject(session, storeRoot, DavCompareUri, 0, kReferenceFound, &object)))
        return nullptr;
    auto* entry = static_cast<URI_CACHE_BUFFER*>(object);
    Touch(entry);
    KESTDAV_HANDLER* handler = entry->pHandler;
    g_pIOM->DereferenceObject(entry, kReferenceFound);
    return handler;
}

} // namespace

TALSTATUS DavInitCacheBuffers()
{
    if (g_pIOM)
        return TAL_STATUS_SUCCESS;
    Ref<ISCOM> store;
    if (const TALSTATUS status = Create(CLSID_ObjectManagerDataStore, store); Failed(status))
        return status;
    const TALSTATUS status = store->Initialize(
        &KESTDAV_MODULE_ID, sizeof(URI_CACHE_BUFFER), kStoreVersion, kStoreFlags, kStoreBuckets,
        DavUriCacheBufferDestructor, nullptr, nullptr, kStoreOptions);
    if (Code(status) == 0)
        g_pIOM = store.Detach();
    return status;
}

void DavCleanupCacheBuffers()
{
    if (g_pIOM)
        g_pIOM->Release();
    g_pIOM = nullptr;
}

TALSTATUS DavUriToHandler(SCHANDLE hSession, UNICODE_STRING* pUri, KESTDAV_HANDLER** ppHandler)
{
    UNICODE_STRING storeRoot = StoreRoot(*pUri);
    if (KESTDAV_HANDLER* remembered = FindRemembered(hSession, &storeRoot)) {
        *ppHandler = remembered;
        return TAL_STATUS_SUCCESS;
    }
    for (LIST_ENTRY* link = g_HandlerList.Flink; link != &g_HandlerList; link = link->Flink) {
        auto* handler = reinterpret_cast<KESTDAV_HANDLER*>(link);
        DAV_TYPE type = Resource;
        const TALSTATUS status = DavNamespace(*handler).GetType(hSession, pUri, &type);
        if (Failed(status))
            continue;
        *ppHandler = handler;
        (void)DavAddUriPrefixToCache(hSession, &storeRoot,
                                     handler); // on failure the next request asks again
        return Code(status) == 0 ? status : TAL_STATUS_NOT_FOUND;
    }
    return TAL_STATUS_NOT_FOUND;
}

TALSTATUS ResolveUriToHandler(SCHANDLE hSession, UNICODE_STRING* pUri, DAV_TYPE* pDavType,
                              KESTDAV_HANDLER** ppHandler)
{
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = DavUriToHandler(hSession, pUri, &handler); Failed(status))
        return status;
    const TALSTATUS status = DavNamespace(*handler).GetType(hSession, pUri, pDavType);
    if (!Failed(status))
        *ppHandler = handler;
    return status;
}

TALSTATUS DavAddUriPrefixToCache(SCHANDLE hSc, UNICODE_STRING* pUriU, KESTDAV_HANDLER* pHandler)
{
    if (!g_pIOM)
        return TAL_STATUS_NOT_FOUND;
    URI_CACHE_INIT_DATA init = {pHandler, pUriU};
    void* object = nullptr;
    UINT32 mode = 0;
    const TALSTATUS status =
        g_pIOM->CreateObject(hSc, &init, DavUriCacheBufferConstructor, pUriU, DavCompareUri, 0, 1,
                             kReferenceNew, &object, &mode);
    if (Failed(status))
        return status;
    Touch(static_cast<URI_CACHE_BUFFER*>(object));
    g_pIOM->DereferenceObject(object, kReferenceNew);
    return mode == kObjectExisted ? TAL_STATUS_OBJECT_EXISTS : status;
}

TALSTATUS DavUriCacheBufferConstructor(void* pData1, void* pData2)
{
    auto* entry = static_cast<URI_CACHE_BUFFER*>(pData1);
    const auto* init = static_cast<const URI_CACHE_INIT_DATA*>(pData2);
    entry->Signature = kCacheSignature;
    entry->UriU = {0, sizeof entry->wUriBuffer, entry->wUriBuffer};
    entry->pHandler = init->pHandler;
    pITalpl->TalxCopyUnicodeString(&entry->UriU, init->pUriU);
    Touch(entry);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS DavUriCacheBufferDestructor(void*)
{
    return TAL_STATUS_SUCCESS; // an entry owns nothing
}

TALSTATUS DavCacheSessionCleanup(SCHANDLE)
{
    return TAL_STATUS_SUCCESS; // the store takes the session's entries with it
}

BOOLEAN DavCompareUri(void* object, void* key)
{
    const auto* entry = static_cast<const URI_CACHE_BUFFER*>(object);
    return pITalpl->TalxCompareUnicodeString(static_cast<const UNICODE_STRING*>(key), &entry->UriU,
                                             TRUE) == 0;
}
