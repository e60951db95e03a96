// SPDX-License-Identifier: Apache-2.0
//
// The module's session: an attribute of the host's.
#include "core/session.h"

#include <new>

#include "core/config.h"
#include "core/lifecycle.h"
#include "support/list.h"
#include "support/memory.h"
#include "support/provider.h"
#include "support/registry_key.h"

ISA* g_pIAttr;
HANDLE g_hSessionAttribute;

const WCHAR kProviderKey[] = u"Kest\\Policies\\DAV Handlers\\Configured";

namespace {

constexpr UINT32 kKeyRecordBytes = 546;

// The text form of a class identifier, without a terminator.
constexpr UINT32 kGuidTextUnits = 38;

struct FreeEntry {
    void operator()(KESTDAV_HANDLER* entry) const { pITalpl->TalxFreeMemory(entry); }
};

// Creates the provider named by a subkey and appends it to the list. A class that offers neither
// generation is left out.
void AddProvider(const TALX_KEY_INFORMATION& info, const WCHAR* name)
{
    if (info.KeyNameLength < kGuidTextUnits * sizeof(WCHAR))
        return; // no class identifier; reading on would leave the record
    void* memory = pITalpl->TalxAllocPagedMemory(sizeof(KESTDAV_HANDLER));
    if (!memory)
        return;
    std::unique_ptr<KESTDAV_HANDLER, FreeEntry> entry(new (memory) KESTDAV_HANDLER{});
    RegistryKeyToGUID(name, &entry->ClassId);

    Ref<IKestDAV2> second;
    Ref<IKestDAV> first;
    if (Failed(Create(entry->ClassId, second)) && Failed(Create(entry->ClassId, first)))
        return;
    entry->pIKestDav2 = second.Detach();
    entry->pIKestDav = first.Detach();
    if (!entry->pIKestDav2 && !entry->pIKestDav)
        return; // a factory that reports success without an object
    Ref<IKestDAV3> third;
    if (entry->pIKestDav2 && !Failed(Query(entry->pIKestDav2, third)))
        entry->pIKestDav3 = third.Detach();
    (void)DavNamespace(*entry).GetDAVSupport(&entry->Caps);
    pITalpl->TalxInsertTailList(&g_HandlerList, &entry.release()->ListLink);
}

// Calls `visit` with every entry in list order.
template <class F> void ForEachProvider(F visit)
{
    for (LIST_ENTRY* link = g_HandlerList.Flink; link != &g_HandlerList; link = link->Flink)
        visit(*reinterpret_cast<KESTDAV_HANDLER*>(link));
}

} // namespace

TALSTATUS InstantiateDavHandlers()
{
    RegistryKey key;
    if (!Failed(key.Open(kProviderKey))) {
        if (const Paged<char> record = AllocPaged<char>(kKeyRecordBytes)) {
            auto* info = reinterpret_cast<TALX_KEY_INFORMATION*>(record.get());
            UINT32 used = 0;
            for (UINT32 index = 0;
                 !Failed(pITalpl->TalxEnumerateKey(key.Get(), index, info, kKeyRecordBytes, &used));
                 ++index)
                AddProvider(*info, info->KeyName);
        }
    }
    return pITalpl->TalxIsListEmpty(&g_HandlerList) ? TAL_STATUS_NOT_FOUND : TAL_STATUS_SUCCESS;
}

void KestDavReleaseHandlers()
{
    pITalpl->TalxAcquireLockForWriteAccess(g_hHandlerLock, TRUE);
    while (LIST_ENTRY* link = pITalpl->TalxRemoveHeadList(&g_HandlerList)) {
        auto* entry = reinterpret_cast<KESTDAV_HANDLER*>(link);
        if (entry->pIKestDav3)
            entry->pIKestDav3->Release();
        if (entry->pIKestDav2)
            entry->pIKestDav2->Release();
        else if (entry->pIKestDav)
            entry->pIKestDav->Release();
        FreeListEntry(&entry->ListLink);
    }
    pITalpl->TalxReleaseReadWriteLock(g_hHandlerLock);
}

TALSTATUS KestDavSAInit()
{
    if (g_pIAttr)
        return TAL_STATUS_SUCCESS;
    Ref<ISA> service;
    if (const TALSTATUS status = Create(CLSID_SecurityAttributeManager, service); Failed(status))
        return status;
    const TALSTATUS status =
        service->SARegisterAttribute(&KESTDAV_SESSION_ATTRIBUTE, sizeof(KESTDAV_SESSION),
                                     KestDavSACleanup, nullptr, &g_hSessionAttribute);
    if (!Failed(status)) // on failure the next CreateInstance tries again
        g_pIAttr = service.Detach();
    return status;
}

TALSTATUS KestDavCreateSession(SCHANDLE hSc)
{
    SCHANDLE session = hSc;
    Attribute* attribute = nullptr;
    UINT32 mode = 0;
    const TALSTATUS status =
        g_pIAttr->SACreate(hSc, g_hSessionAttribute, &session, KestDavSAInitObject,
                           kAttributeExclusive, kAttributeShared, &attribute, &mode);
    if (Failed(status))
        return status;
    if (mode == kAttributeExclusive) { // made now: this is the session's first request
        {
            const ProviderGuard providers;
            ForEachProvider(
                [hSc](KESTDAV_HANDLER& entry) { (void)DavNamespace(entry).BeginSession(hSc); });
        }
        g_pIAttr->SADereference(kAttributeExclusive, attribute);
    } else {
        g_pIAttr->SADereference(kAttributeShared, attribute);
    }
    return status;
}

TALSTATUS KestDavSAInitObject(Attribute* pAttribute, void* pData)
{
    auto* data = static_cast<KESTDAV_SESSION*>(pAttribute->pData);
    data->Signature = kSessionSignature;
    data->Flags = 0;
    data->hSc = *static_cast<const SCHANDLE*>(pData);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS KestDavSACleanup(SCHANDLE hSc)
{
    Attribute* attribute = nullptr;
    if (!Failed(g_pIAttr->SAReference(hSc, g_hSessionAttribute, kAttributeExclusive, &attribute)))
        g_pIAttr->SADelete(kAttributeExclusive, attribute);
    const ProviderGuard providers;
    ForEachProvider([hSc](KESTDAV_HANDLER& entry) { (void)DavNamespace(entry).EndSession(hSc); });
    return TAL_STATUS_SUCCESS;
}
