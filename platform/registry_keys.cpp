// SPDX-License-Identifier: Apache-2.0
//
// The platform layer's registry operations. A key handle keeps the key's path; each operation looks
// the key up in the registry as it stands, so that a handle sees what was changed after it was
// opened.
#include <cstddef>
#include <cstring>

#include "platform/caseless.h"
#include "platform/internal.h"
#include "platform/registry.h"
#include "platform/registry_edit.h"
#include "platform/talpl.h"

namespace tolm {
namespace {

struct OpenKey : Object {
    static constexpr Kind kKind = Kind::Key;
    OpenKey(std::u16string p, std::u16string f, UINT32 a) noexcept
        : Object(kKind), path(std::move(p)), folded(std::move(f)), access(a)
    {
    }
    bool CanRead() const noexcept { return access != TALX_KEY_WRITE; }
    bool CanWrite() const noexcept { return access != TALX_KEY_READ; }

    const std::u16string path;
    const std::u16string folded;
    const UINT32 access;
};

std::u16string_view View(const WCHAR* text) noexcept
{
    return text ? std::u16string_view(text) : std::u16string_view();
}

bool IsValueName(const WCHAR* name) noexcept
{
    const auto text = View(name);
    return !text.empty() && text.size() <= kLongestName;
}

TALSTATUS MakeHandle(std::u16string_view path, UINT32 access, HANDLE* out)
{
    OpenKey* key = NewObject<OpenKey>(std::u16string(path), Folded(path), access);
    if (!key)
        return Fail(kCodeInsufficientResources);
    *out = static_cast<Object*>(key);
    return TAL_STATUS_SUCCESS;
}

// Runs `use` with the tree and the key that a readable handle stands for.
template <class Use> TALSTATUS WithKeyOf(HANDLE handle, const void* info, UINT32 size, Use&& use)
{
    const auto* open = FromHandle<OpenKey>(handle);
    if (!open || (!info && size != 0))
        return Fail(kCodeInvalidParameter);
    if (!open->CanRead())
        return Fail(kCodeAccessDenied);
    const auto tree = Registry::Get().Current();
    const RegistryKey* key = tree->Find(open->folded);
    if (!key) // deleted since it was opened
        return Fail(kCodeNotFound);
    return use(*tree, *key);
}

TALSTATUS CheckRoom(UINT32 needed, UINT32 size, UINT32* resultLength) noexcept
{
    if (resultLength)
        *resultLength = needed;
    return needed > size ? Fail(kCodeBufferTooSmall) : TAL_STATUS_SUCCESS;
}

TALSTATUS FillKey(const RegistryTree& tree, std::u16string_view name, void* info, UINT32 size,
                  UINT32* resultLength) noexcept
{
    constexpr UINT32 kNameAt = offsetof(TALX_KEY_INFORMATION, KeyName);
    const auto nameBytes = static_cast<UINT32>(name.size() * sizeof(WCHAR));
    if (const TALSTATUS status = CheckRoom(kNameAt + nameBytes, size, resultLength); Failed(status))
        return status;
    TALX_KEY_INFORMATION record{};
    record.LastWriteTime = tree.lastWrite;
    record.KeyNameLength = nameBytes;
    std::memcpy(info, &record, kNameAt); // the caller's room may end before the record does
    std::memcpy(static_cast<char*>(info) + kNameAt, name.data(), nameBytes);
    return TAL_STATUS_SUCCESS;
}

// The data follows the name at the type's own alignment and not more: callers read texts into
// buffers of a fixed size, which should hold as much as can be.
UINT32 AlignmentOf(UINT32 type) noexcept
{
    return type == TALX_REG_UINT64 || type == TALX_REG_BINARY ? 8 : type == TALX_REG_UINT32 ? 4 : 2;
}

TALSTATUS FillValue(const RegistryValue& value, void* info, UINT32 size,
                    UINT32* resultLength) noexcept
{
    constexpr UINT32 kNameAt = offsetof(TALX_KEY_VALUE_INFORMATION, KeyValueName);
    TALX_KEY_VALUE_INFORMATION record{};
    record.ValueType = value.type;
    record.ValueLength = static_cast<UINT32>(value.data.size());
    record.KeyValueNameLength = static_cast<UINT32>(value.name.size() * sizeof(WCHAR));
    const UINT32 nameEnd = kNameAt + record.KeyValueNameLength;
    const UINT32 alignment = AlignmentOf(value.type);
    record.ValueOffset = (nameEnd + alignment - 1) / alignment * alignment;
    const UINT32 needed = record.ValueOffset + record.ValueLength;
    if (const TALSTATUS status = CheckRoom(needed, size, resultLength); Failed(status))
        return status;
    auto* to = static_cast<char*>(info);
    std::memcpy(to, &record, kNameAt);
    std::memcpy(to + kNameAt, value.name.data(), record.KeyValueNameLength);
    std::memset(to + nameEnd, 0, record.ValueOffset - nameEnd);
    if (record.ValueLength != 0)
        std::memcpy(to + record.ValueOffset, value.data.data(), record.ValueLength);
    value.usage->Mark();
    return TAL_STATUS_SUCCESS;
}

} // namespace

TALSTATUS Talpl::TalxCloseKey(HANDLE key)
{
    auto* open = FromHandle<OpenKey>(key);
    if (!open)
        return Fail(kCodeInvalidParameter);
    DeleteObject(open);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxCreateKey(const WCHAR* key, UINT32 access, HANDLE* out)
{
    if (!out || access > TALX_KEY_ALL_ACCESS || !IsKeyPath(View(key)))
        return Fail(kCodeInvalidParameter);
    return Guarded([&] {
        HANDLE made = nullptr; // first, so that a failure leaves the file alone
        TALSTATUS status = MakeHandle(View(key), access, &made);
        if (Failed(status))
            return status;
        status = Guarded([&] { return Registry::Get().CreateKey(View(key)); });
        if (Failed(status))
            TalxCloseKey(made);
        else
            *out = made;
        return status;
    });
}

TALSTATUS Talpl::TalxDeleteKey(const WCHAR* key)
{
    if (!IsKeyPath(View(key)))
        return Fail(kCodeInvalidParameter);
    return Guarded([&] { return Registry::Get().DeleteKey(View(key)); });
}

TALSTATUS Talpl::TalxEnumerateKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                                  UINT32* resultLength)
{
    return WithKeyOf(key, info, size, [&](const RegistryTree& tree, const RegistryKey& parent) {
        if (index >= parent.children.size())
            return Fail(kCodeNoMoreEntries);
        const RegistryKey& child = tree.keys[parent.children[index]];
        const TALSTATUS status = FillKey(tree, child.Name(), info, size, resultLength);
        if (!Failed(status))
            child.usage->Mark();
        return status;
    });
}

TALSTATUS Talpl::TalxEnumerateValueKey(HANDLE key, UINT32 index, void* info, UINT32 size,
                                       UINT32* resultLength)
{
    return WithKeyOf(key, info, size, [&](const RegistryTree&, const RegistryKey& parent) {
        if (index >= parent.values.size())
            return Fail(kCodeNoMoreEntries);
        return FillValue(parent.values[index], info, size, resultLength);
    });
}

TALSTATUS Talpl::TalxOpenKey(const WCHAR* key, UINT32 access, HANDLE* out)
{
    if (!out || access > TALX_KEY_ALL_ACCESS || !IsKeyPath(View(key)))
        return Fail(kCodeInvalidParameter);
    return Guarded([&] {
        const auto tree = Registry::Get().Current();
        const RegistryKey* found = tree->Find(Folded(View(key)));
        if (!found)
            return Fail(kCodeNotFound);
        const TALSTATUS status = MakeHandle(View(key), access, out);
        if (!Failed(status))
            found->usage->Mark();
        return status;
    });
}

TALSTATUS Talpl::TalxQueryValueKey(HANDLE key, const WCHAR* name, void* info, UINT32 size,
                                   UINT32* resultLength)
{
    if (!IsValueName(name))
        return Fail(kCodeInvalidParameter);
    return Guarded([&] {
        return WithKeyOf(key, info, size, [&](const RegistryTree&, const RegistryKey& parent) {
            const RegistryValue* value = parent.Find(Folded(View(name)));
            return value ? FillValue(*value, info, size, resultLength) : Fail(kCodeNotFound);
        });
    });
}

TALSTATUS Talpl::TalxSetValueKey(HANDLE key, const WCHAR* name, UINT32 type, const void* data,
                                 UINT32 size)
{
    const auto* open = FromHandle<OpenKey>(key);
    if (!open || !IsValueName(name) || !data || type > TALX_REG_UINT64 || size > kLargestValue)
        return Fail(kCodeInvalidParameter);
    if (!open->CanWrite())
        return Fail(kCodeAccessDenied);
    if (!CanWrite(type, data, size))
        return Fail(type == TALX_REG_BINARY ? kCodeNotSupported : kCodeInvalidRequest);
    return Guarded(
        [&] { return Registry::Get().SetValue(open->path, View(name), type, data, size); });
}

TALSTATUS Talpl::TalxDeleteValue(HANDLE key, const WCHAR* name)
{
    const auto* open = FromHandle<OpenKey>(key);
    if (!open || !IsValueName(name))
        return Fail(kCodeInvalidParameter);
    if (!open->CanWrite())
        return Fail(kCodeAccessDenied);
    return Guarded([&] { return Registry::Get().DeleteValue(open->path, View(name)); });
}

} // namespace tolm
