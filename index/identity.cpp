// SPDX-License-Identifier: Apache-2.0
//
// Who is signed in, and where a folder really lives.
#include "index/identity.h"

#include <algorithm>
#include <cstring>

#include "index/text.h"
#include "support/memory.h"
#include "support/reply.h"
#include "support/utf8.h"
#include <kest/com.h>
#include <kest/directory.h>
#include <kest/host.h>

namespace {

// One component of a dotted name, and where the next one begins.
struct Component {
    const WCHAR* begin;
    const WCHAR* end; // at its separator or at the name's terminator
};

Component ComponentAt(const WCHAR* begin)
{
    const WCHAR* end = begin;
    while (*end != 0 && *end != u'.')
        end += end[0] == u'\\' && end[1] != 0 ? 2 : 1;
    return {begin, end};
}

// A separator at the very end opens no component.
bool HasNext(const Component& component)
{
    return component.end[0] != 0 && component.end[1] != 0;
}

WCHAR* CopyUnescaped(WCHAR* out, const Component& component)
{
    for (const WCHAR* c = component.begin; c != component.end; ++c) {
        if (*c == u'\\' && ++c == component.end)
            break;
        *out++ = *c;
    }
    return out;
}

bool OnlySeparators(const WCHAR* name)
{
    while (*name == u'.')
        ++name;
    return *name == 0;
}

// Writes the components from the last to the first. Names are short, so each is found from the
// start again instead of keeping a list.
WCHAR* CopyReversed(WCHAR* out, const WCHAR* name)
{
    size_t count = 1;
    for (Component c = ComponentAt(name); HasNext(c); c = ComponentAt(c.end + 1))
        ++count;
    for (size_t wanted = count; wanted-- > 0;) {
        Component c = ComponentAt(name);
        for (size_t i = 0; i < wanted; ++i)
            c = ComponentAt(c.end + 1);
        out = CopyUnescaped(out, c);
        if (wanted > 0)
            *out++ = u'\\';
    }
    return out;
}

Paged<WCHAR> UserFdn(SCHANDLE session, TALSTATUS& status)
{
    WCHAR* fdn = nullptr;
    status = getKestsrvUserDN(session, &fdn);
    return Paged<WCHAR>(fdn);
}

template <class I> I* As(void* object)
{
    return static_cast<I*>(object);
}

} // namespace

TALSTATUS makeFDN(const WCHAR* pDomain, const WCHAR* pDN, WCHAR** ppFDN)
{
    *ppFDN = nullptr;
    if (pDomain == nullptr || pDN == nullptr || *pDomain == 0 || *pDN == 0)
        return kFdnBadArgument;

    const UINT32 domainUnits = pITalpl->TalxStrlenW(pDomain);
    const UINT32 nameUnits = pITalpl->TalxStrlenW(pDN);
    Paged<WCHAR> fdn = AllocPaged<WCHAR>(size_t{domainUnits} + nameUnits + 4);
    if (!fdn)
        return kFdnNoMemory;

    WCHAR* out = fdn.get();
    *out++ = u'\\';
    *out++ = u'\\';
    std::memcpy(out, pDomain, domainUnits * sizeof(WCHAR));
    out += domainUnits;
    *out++ = u'\\';
    const WCHAR* name = *pDN == u'.' ? pDN + 1 : pDN;
    if (!OnlySeparators(name))
        out = CopyReversed(out, name);
    *out = 0;
    *ppFDN = fdn.release();
    return TAL_STATUS_SUCCESS;
}

TALSTATUS getKestsrvUserDN(SCHANDLE hSc, WCHAR** ppUserFDN)
{
    constexpr size_t kWorkBytes = 512;
    constexpr size_t kNameLimit = 510; // bytes, not reached
    *ppUserFDN = nullptr;

    Ref<IKestSession> session;
    if (const TALSTATUS status = Create(CLSID_KestSrv, session); Failed(status))
        return status;
    const Paged<WCHAR> work = AllocPaged<WCHAR>(kWorkBytes / sizeof(WCHAR));
    if (!work)
        return kUserNoMemory;
    if (const TALSTATUS status = session->Associate(hSc); Failed(status))
        return status;
    UNICODE_STRING* user = nullptr;
    UNICODE_STRING* domain = nullptr;
    if (const TALSTATUS status = session->GetPrimaryCredentials(&user, &domain); Failed(status))
        return status;
    if (user == nullptr || domain == nullptr)
        return TAL_STATUS_NOT_FOUND;

    // Both texts with their terminators, the name first.
    if (user->Length >= kNameLimit ||
        user->Length + sizeof(WCHAR) + domain->Length + sizeof(WCHAR) > kWorkBytes)
        return kUserNameTooLong;
    WCHAR* name = work.get();
    std::copy_n(user->Buffer, user->Length / sizeof(WCHAR), name);
    name[user->Length / sizeof(WCHAR)] = 0;
    WCHAR* tree = name + user->Length / sizeof(WCHAR) + 1;
    std::copy_n(domain->Buffer, domain->Length / sizeof(WCHAR), tree);
    tree[domain->Length / sizeof(WCHAR)] = 0;
    return makeFDN(tree, name, ppUserFDN);
}

TALSTATUS getEmailAddress(SCHANDLE hSc, UNICODE_STRING* emailAddressU)
{
    constexpr UINT32 kForReading = 1;
    emailAddressU->Length = 0;
    TALSTATUS status = TAL_STATUS_SUCCESS;
    const Paged<WCHAR> fdn = UserFdn(hSc, status);
    if (Failed(status))
        return status;

    Ref<IDirectory> directory;
    if (status = Create(CLSID_Directory_1, directory); Failed(status))
        return status;
    void* object = nullptr;
    status = directory->Open(fdn.get(), kForReading, hSc, &IID_IDirectoryObject_1, &object);
    if (Failed(status))
        return status;
    const auto entry = Ref<IDirectoryObject>::Adopt(As<IDirectoryObject>(object));
    object = nullptr;
    status =
        entry->ReadAttribute(u"Internet EMail Address", &IID_IDmReadAttributeResults_1, &object);
    if (Failed(status))
        return status;
    const auto results = Ref<IReadAttrResults>::Adopt(As<IReadAttrResults>(object));

    UINT32 bytes = 0;
    WCHAR* value = nullptr;
    if (status = results->NextValue(&bytes, &value); Failed(status))
        return status;
    if (bytes >= emailAddressU->MaximumLength)
        return kEmailTooLong;
    if (bytes > 0)
        std::memcpy(emailAddressU->Buffer, value, bytes);
    emailAddressU->Length = static_cast<UINT16>(bytes);
    return status;
}

void PutEmailAddress(IKestIO_5* io, SCHANDLE hSession)
{
    constexpr UINT16 kAddressBytes = 4096;
    const Paged<WCHAR> buffer = AllocPaged<WCHAR>(kAddressBytes / sizeof(WCHAR));
    if (!buffer)
        return;
    UNICODE_STRING address = {0, kAddressBytes, buffer.get()};
    if (!Failed(getEmailAddress(hSession, &address)))
        PutWide(io, address.Buffer, address.Length / sizeof(WCHAR));
}

void PutUserName(IKestIO_5* io, SCHANDLE hSession)
{
    constexpr size_t kMostBytesPerUnit = 3;
    TALSTATUS status = TAL_STATUS_SUCCESS;
    const Paged<WCHAR> fdn = UserFdn(hSession, status);
    if (Failed(status))
        return;
    const size_t units = pITalpl->TalxStrlenW(fdn.get());
    const size_t room = units * kMostBytesPerUnit + 1;
    const Paged<char> text = AllocPaged<char>(room);
    if (!text)
        return;
    WideToUtf8Cut(fdn.get(), units, text.get(), room);

    // The backslash in front of the domain is the second of the two at the start.
    for (;;) {
        char* component = std::strrchr(text.get(), '\\');
        if (component == nullptr || component == text.get())
            return;
        char* shown = std::strchr(component, '=');
        if (shown == nullptr)
            shown = component;
        *shown = '.';
        Put(io, shown);
        *component = '\0';
    }
}
