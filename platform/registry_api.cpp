// SPDX-License-Identifier: Apache-2.0
//
// What the hosting process uses of the registry.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/utf.h"
#include <kest/registry_truth.h>
#include <kest/tolm.h>

#include "platform/caseless.h"
#include "platform/internal.h"
#include "platform/registry.h"
#include "platform/registry_edit.h"

using namespace tolm;

namespace {

bool IsName(const WCHAR* name)
{
    return name && *name && std::u16string_view(name).size() <= kLongestName;
}

// Classes are loaded when they are first used; where they come from is never "unread".
bool IsReadOnDemand(const std::u16string& foldedKey, const RegistryValue* value)
{
    return foldedKey.starts_with(u"TOLM\\CLASSES\\") && (!value || value->folded == u"LIBRARY");
}

std::string PlaceText(const std::string& label, UINT32 line)
{
    return label + ':' + std::to_string(line) + ": ";
}

TALSTATUS Where(const WCHAR* key, const WCHAR* name, char* text, UINT32* length)
{
    const auto tree = Registry::Get().Current();
    const RegistryKey* found = tree->Find(Folded(key));
    const RegistryValue* value = found ? found->Find(Folded(name)) : nullptr;
    if (!value)
        return Fail(kCodeNotFound);
    const std::string where = value->isOverride
                                  ? "the command line"
                                  : tree->label + ':' + std::to_string(value->begin.line);
    const UINT32 room = *length;
    *length = static_cast<UINT32>(where.size());
    if (where.size() > room)
        return Fail(kCodeBufferTooSmall);
    std::memcpy(text, where.data(), where.size());
    if (where.size() < room)
        text[where.size()] = 0;
    return TAL_STATUS_SUCCESS;
}

void ReportKey(const std::string& label, const RegistryKey& key, void (*report)(const char*, void*),
               void* context)
{
    const std::u16string folded = Folded(key.path);
    const bool isClass = IsReadOnDemand(folded, nullptr);
    if (key.line != 0 && !isClass && !key.usage->used) {
        report((PlaceText(label, key.line) + "nobody reads the key '" +
                base::ToUtf8Replacing(key.path) + "'")
                   .c_str(),
               context);
        return;
    }
    for (const RegistryValue& value : key.values)
        if (!value.isOverride && !value.usage->used && !IsReadOnDemand(folded, &value))
            report((PlaceText(label, value.begin.line) + "nobody reads the value '" +
                    base::ToUtf8Replacing(value.name) + "' of '" + base::ToUtf8Replacing(key.path) +
                    "'")
                       .c_str(),
                   context);
}

} // namespace

extern "C" {

TALSTATUS TolmRegistryLoad(const char* path, char* error, UINT32 errorSize)
{
    if (error && errorSize != 0)
        *error = 0;
    std::string reason;
    const TALSTATUS status = Guarded([&] { return Registry::Get().Load(path, reason); });
    if (Failed(status) && error && errorSize != 0)
        std::snprintf(error, errorSize, "%s",
                      reason.empty() ? "the registry file needs more memory than there is"
                                     : reason.c_str());
    return status;
}

TALSTATUS TolmRegistrySetOverride(const WCHAR* key, const WCHAR* name, UINT32 type,
                                  const void* data, UINT32 size)
{
    if (!key || !IsKeyPath(key) || !IsName(name) || type > TALX_REG_UINT64 || size > kLargestValue)
        return Fail(kCodeInvalidParameter);
    if (data && type != TALX_REG_BINARY && !CanWrite(type, data, size))
        return Fail(kCodeInvalidParameter);
    return Guarded([&] { return Registry::Get().SetOverride(key, name, type, data, size); });
}

TALSTATUS TolmRegistryWhere(const WCHAR* key, const WCHAR* name, char* text, UINT32* length)
{
    if (!key || !name || !length || (!text && *length != 0))
        return Fail(kCodeInvalidParameter);
    return Guarded([&] { return Where(key, name, text, length); });
}

UINT32 TolmRegistryIsTruth(const WCHAR* key, const WCHAR* name)
{
    bool isTruth = false;
    if (key && name)
        (void)Guarded([&] { // short of memory, nobody knows
            const auto tree = Registry::Get().Current();
            const RegistryKey* const found = tree->Find(Folded(key));
            const RegistryValue* const value = found ? found->Find(Folded(name)) : nullptr;
            isTruth = value && value->isTruth;
            return TAL_STATUS_SUCCESS;
        });
    return isTruth ? 1 : 0;
}

void TolmRegistryReportUnread(void (*report)(const char* line, void* context), void* context)
{
    if (!report)
        return;
    (void)Guarded([&] { // short of memory, the report is cut
        const auto tree = Registry::Get().Current();
        for (const RegistryKey& key : tree->keys)
            ReportKey(tree->label, key, report, context);
        return TAL_STATUS_SUCCESS;
    });
}

} // extern "C"
