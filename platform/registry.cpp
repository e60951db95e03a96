// SPDX-License-Identifier: Apache-2.0
//
// The current registry: loaded, overridden, changed, written back.
#include "platform/registry.h"

#include <stdlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <system_error>

#include <kest/tolm.h>

#include "platform/caseless.h"
#include "platform/file_io.h"
#include "platform/internal.h"
#include "platform/registry_edit.h"

namespace tolm {
namespace {

std::string ErrorText(int error)
{
    return std::generic_category().message(error);
}

// What was read before a change counts as read after it.
void CarryUsage(const RegistryTree& from, RegistryTree& to)
{
    for (RegistryKey& key : to.keys) {
        const RegistryKey* old = from.Find(Folded(key.path));
        if (!old)
            continue;
        key.usage = old->usage;
        for (RegistryValue& value : key.values)
            if (const RegistryValue* before = old->Find(value.folded))
                value.usage = before->usage;
    }
}

} // namespace

Registry& Registry::Get() noexcept
{
    // Never destroyed: it outlives every thread.
    alignas(Registry) static unsigned char room[sizeof(Registry)];
    static Registry* const registry = new (room) Registry;
    return *registry;
}

std::shared_ptr<const RegistryTree> Registry::Current() const
{
    const std::lock_guard lock(current_);
    return tree_;
}

void Registry::Publish(std::shared_ptr<RegistryTree>&& tree) noexcept
{
    std::shared_ptr<const RegistryTree> old = std::move(tree);
    {
        const std::lock_guard lock(current_);
        tree_.swap(old);
    }
    // The old tree goes here, outside of the lock, unless a reader still has it.
}

std::shared_ptr<RegistryTree> Registry::Overlay(const RegistryTree& file) const
{
    auto tree = std::make_shared<RegistryTree>(file);
    for (const Override& override : overrides_) {
        RegistryKey& key = tree->Ensure(override.key);
        const auto same = [&](const RegistryValue& v) { return v.folded == override.value.folded; };
        const auto place = std::find_if(key.values.begin(), key.values.end(), same);
        if (place == key.values.end()) {
            key.values.push_back(override.value);
            continue;
        }
        const std::shared_ptr<Usage> usage = place->usage;
        *place = override.value;
        place->usage = usage;
    }
    return tree;
}

TALSTATUS Registry::Load(const char* path, std::string& error)
{
    RegistryTree tree;
    std::string text;
    std::string resolved;
    const std::lock_guard lock(writer_);
    if (path) {
        const std::unique_ptr<char, decltype(&free)> real(realpath(path, nullptr), &free);
        const int cause = real ? ReadWholeFile(real.get(), text, tree.lastWrite) : errno;
        resolved = real ? real.get() : "";
        if (cause != 0) {
            error = std::string(path) + ": cannot be read: " + ErrorText(cause);
            return Fail(cause == ENOENT ? kCodeNotFound : kCodeOpenFailed);
        }
        if (!ParseRegistry(text, path, tree, error))
            return Fail(kCodeInvalidRequest);
    }
    std::shared_ptr<RegistryTree> current = Overlay(tree);
    path_ = std::move(resolved);
    text_ = std::move(text);
    file_ = std::move(tree);
    Publish(std::move(current));
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Registry::SetOverride(std::u16string_view key, std::u16string_view name, UINT32 type,
                                const void* data, UINT32 size)
{
    RegistryValue value;
    value.name = name;
    value.folded = Folded(name);
    value.type = type;
    value.isOverride = true;
    if (data)
        value.data.assign(static_cast<const UINT8*>(data), static_cast<const UINT8*>(data) + size);
    const std::u16string folded = Folded(key);
    const std::lock_guard lock(writer_);
    std::vector<Override> before = overrides_;
    try {
        std::erase_if(overrides_, [&](const Override& o) {
            return o.value.folded == value.folded && Folded(o.key) == folded;
        });
        if (data)
            overrides_.push_back({std::u16string(key), std::move(value)});
        Publish(Overlay(file_));
    } catch (...) {
        overrides_ = std::move(before);
        throw;
    }
    return TAL_STATUS_SUCCESS;
}

// Puts `text` in the file's place, unless somebody edited the file and has not yet asked for it to
// be read again: that edit must neither be lost nor come into force unasked.
TALSTATUS Registry::WriteBack(const std::string& text, UINT64& lastWrite)
{
    std::string onDisk;
    int cause = ReadWholeFile(path_, onDisk, lastWrite);
    if (cause == 0 && onDisk != text_) {
        TolmLog(kLogError, "registry",
                (file_.label + " was edited since it was read; reload it before it is written to")
                    .c_str());
        return Fail(kCodeConflict);
    }
    if (cause == 0)
        cause = ReplaceFile(path_, text, lastWrite);
    if (cause == 0)
        return TAL_STATUS_SUCCESS;
    TolmLog(kLogError, "registry",
            (file_.label + " cannot be written: " + ErrorText(cause)).c_str());
    if (cause == ENOSPC || cause == EDQUOT)
        return Fail(kCodeStorageFull);
    return Fail(cause == EACCES || cause == EPERM || cause == EROFS ? kCodeAccessDenied
                                                                    : kCodeUnsuccessful);
}

// `edit` returns the new text of the file. Everything that can fail for memory comes before the
// file is replaced.
template <class Edit> TALSTATUS Registry::Change(Edit&& edit)
{
    std::string text = edit();
    if (text == text_)
        return TAL_STATUS_SUCCESS;
    RegistryTree tree;
    std::string error;
    if (text.size() > kLargestFile)
        return Fail(kCodeStorageFull);
    if (!ParseRegistry(text, file_.label, tree, error)) {
        TolmLog(kLogError, "registry", ("a change was refused: " + error).c_str());
        return Fail(kCodeInvalidRequest);
    }
    CarryUsage(file_, tree);
    std::shared_ptr<RegistryTree> current = Overlay(tree);
    if (!path_.empty()) {
        UINT64 lastWrite = 0;
        if (const TALSTATUS status = WriteBack(text, lastWrite); Failed(status))
            return status;
        tree.lastWrite = lastWrite;
        current->lastWrite = lastWrite;
    }
    text_ = std::move(text);
    file_ = std::move(tree);
    Publish(std::move(current));
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Registry::CreateKey(std::u16string_view path)
{
    const std::lock_guard lock(writer_);
    if (Current()->Find(Folded(path)))
        return TAL_STATUS_SUCCESS;
    return Change([&] { return WithKey(text_, path); });
}

TALSTATUS Registry::DeleteKey(std::u16string_view path)
{
    const std::lock_guard lock(writer_);
    if (!file_.Find(Folded(path)))
        return Fail(Current()->Find(Folded(path)) ? kCodeAccessDenied : kCodeNotFound);
    return Change([&] { return WithoutKey(text_, file_, path); });
}

TALSTATUS Registry::SetValue(std::u16string_view key, std::u16string_view name, UINT32 type,
                             const void* data, UINT32 size)
{
    const std::lock_guard lock(writer_);
    if (!Current()->Find(Folded(key))) // deleted since it was opened
        return Fail(kCodeNotFound);
    return Change([&] { return WithValue(text_, file_, key, name, type, data, size); });
}

TALSTATUS Registry::DeleteValue(std::u16string_view key, std::u16string_view name)
{
    const std::lock_guard lock(writer_);
    const RegistryKey* found = file_.Find(Folded(key));
    if (!found || !found->Find(Folded(name))) {
        const RegistryKey* current = Current()->Find(Folded(key));
        const bool isOverride = current && current->Find(Folded(name));
        return Fail(isOverride ? kCodeAccessDenied : kCodeNotFound);
    }
    return Change([&] { return WithoutValue(text_, file_, key, name); });
}

std::u16string ReadRegistryString(const std::u16string& foldedKey, std::u16string_view foldedName)
{
    const auto tree = Registry::Get().Current();
    const RegistryKey* key = tree->Find(foldedKey);
    const RegistryValue* value = key ? key->Find(foldedName) : nullptr;
    if (!value || value->type != TALX_REG_SZ || value->data.size() < sizeof(WCHAR))
        return {};
    key->usage->Mark();
    value->usage->Mark();
    std::u16string text(value->data.size() / sizeof(WCHAR) - 1, u'\0');
    std::memcpy(text.data(), value->data.data(), text.size() * sizeof(WCHAR));
    return text;
}

} // namespace tolm
