// SPDX-License-Identifier: Apache-2.0
//
// What opened resources and collections of scripted providers share.
#pragma once

#include <algorithm>
#include <cstring>
#include <memory>

#include "opened.h"
#include "provider3.h"
#include "referenced.h"
#include "text.h"

namespace harness {

inline constexpr UINT32 Align8(size_t bytes)
{
    return static_cast<UINT32>((bytes + 7) / 8 * 8);
}

// What opened resources and collections declare alike. `kind` is "res." or "col.".
template <class I> class Opened : public Referenced<I> {
  public:
    Opened(Provider& provider, std::string kind) : owner_(provider), kind_(std::move(kind))
    {
        const std::lock_guard lock(owner_.Mutex());
        owner_.Count(1);
    }

    TALSTATUS GetFirstLock(UINT32* size, DAV_LOCK_2* buffer) override
    {
        nextLock_ = 0;
        return Locks("GetFirstLock", size, buffer);
    }
    TALSTATUS GetNextLock(UINT32* size, DAV_LOCK_2* buffer) override
    {
        return Locks("GetNextLock", size, buffer);
    }
    TALSTATUS GetCreationDate(DAV_DATETIME* date) override
    {
        return WithNode("GetCreationDate", {}, [&](Node& node) { *date = node.created; });
    }
    TALSTATUS GetModificationDate(DAV_DATETIME* date) override
    {
        return WithNode("GetModificationDate", {}, [&](Node& node) { *date = node.modified; });
    }
    TALSTATUS SetCreationDate(DAV_DATETIME date) override
    {
        return WithNode("SetCreationDate", std::to_string(date),
                        [&](Node& node) { node.created = date; });
    }
    TALSTATUS SetModificationDate(DAV_DATETIME date) override
    {
        return WithNode("SetModificationDate", std::to_string(date),
                        [&](Node& node) { node.modified = date; });
    }
    TALSTATUS GetLiveAttributes(UINT32* attributes) override
    {
        return WithNode("GetLiveAttributes", {},
                        [&](Node& node) { *attributes = node.attributes; });
    }
    TALSTATUS SetLiveAttributes(UINT32 attributes) override
    {
        return WithNode("SetLiveAttributes", std::to_string(attributes),
                        [&](Node& node) { node.attributes = attributes; });
    }
    TALSTATUS GetETag(DAV_ETAG* etag) override
    {
        return WithNode("GetETag", {}, [&](Node& node) { *etag = node.etag; });
    }
    TALSTATUS GetDisplayName(UNICODE_STRING* name) override
    {
        if (const auto status = Note("GetDisplayName"))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const Node* node = owner_.Find(path_);
        if (!node)
            return ProviderFailure(kCodeNotFound);
        const std::u16string shown =
            node->displayName.empty() ? std::u16string(LastSegment(path_)) : node->displayName;
        const size_t bytes = shown.size() * sizeof(WCHAR);
        if (bytes > name->MaximumLength)
            return ProviderFailure(kCodeBufferTooSmall);
        std::memcpy(name->Buffer, shown.data(), bytes);
        name->Length = static_cast<UINT16>(bytes);
        return TAL_STATUS_SUCCESS;
    }

  protected:
    ~Opened() override
    {
        const std::lock_guard lock(owner_.Mutex());
        owner_.Count(-1);
    }

    std::optional<TALSTATUS> Note(const std::string& operation, std::string_view arguments = {})
    {
        return owner_.Log().Enter(owner_.Name((kind_ + operation).c_str()), arguments);
    }
    template <class F>
    TALSTATUS WithNode(const char* operation, const std::string& arguments, F use)
    {
        if (const auto status = Note(operation, arguments))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        Node* node = owner_.Find(path_);
        if (!node)
            return ProviderFailure(kCodeNotFound);
        use(*node);
        return TAL_STATUS_SUCCESS;
    }
    // Packs up to recordsPerCall records with `packOne(index, room, at)`, which gives the bytes
    // used or 0 when the record does not fit.
    template <class Record, class F>
    TALSTATUS Pack(size_t& next, size_t count, UINT32* size, Record* buffer, F packOne)
    {
        if (next >= count)
            return ProviderFailure(kCodeNoMoreEntries);
        UINT32 used = 0;
        Record* last = nullptr;
        for (size_t packed = 0; packed < owner_.recordsPerCall && next < count; ++packed) {
            const UINT32 at = Align8(used);
            auto* record = reinterpret_cast<Record*>(reinterpret_cast<char*>(buffer) + at);
            const UINT32 bytes = at < *size ? packOne(next, *size - at, record) : 0;
            if (bytes == 0)
                break;
            if (last)
                last->NextEntryOffset = static_cast<UINT32>(reinterpret_cast<char*>(record) -
                                                            reinterpret_cast<char*>(last));
            record->NextEntryOffset = 0;
            last = record;
            used = at + bytes;
            ++next;
        }
        if (!last)
            return ProviderFailure(kCodeBufferTooSmall);
        *size = used;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Locks(const char* operation, UINT32* size, DAV_LOCK_2* buffer)
    {
        if (const auto status = Note(operation, std::to_string(*size)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const Node* node = owner_.Find(path_);
        if (!node)
            return ProviderFailure(kCodeNotFound);
        return Pack(nextLock_, node->locks.size(), size, buffer,
                    [&](size_t index, UINT32 room, DAV_LOCK_2* record) {
                        return Failed(PackLock(node->locks[index], &room, record)) ? 0 : room;
                    });
    }
    TALSTATUS Properties(const char* operation, UINT32* size, DAV_NAMED_PROPERTY* buffer)
    {
        if (const auto status = Note(operation, std::to_string(*size)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const Node* node = owner_.Find(path_);
        if (!node)
            return ProviderFailure(kCodeNotFound);
        return Pack(nextProperty_, node->properties.size(), size, buffer,
                    [&](size_t index, UINT32 room, DAV_NAMED_PROPERTY* record) {
                        return PackProperty(node->properties[index], room, record);
                    });
    }
    static UINT32 PackProperty(const std::pair<std::u16string, std::string>& property, UINT32 room,
                               DAV_NAMED_PROPERTY* record)
    {
        const auto& [name, value] = property;
        const size_t nameAt =
            (offsetof(DAV_NAMED_PROPERTY, Value) + value.size() + 1) / 2 * 2; // aligned for WCHAR
        const size_t needed = nameAt + name.size() * sizeof(WCHAR);
        if (needed > room)
            return 0;
        record->ValueLength = static_cast<UINT32>(value.size());
        record->NameLength = static_cast<UINT32>(name.size() * sizeof(WCHAR));
        record->NameOffset = static_cast<UINT32>(nameAt);
        char* bytes = reinterpret_cast<char*>(record);
        std::memcpy(bytes + offsetof(DAV_NAMED_PROPERTY, Value), value.data(), value.size());
        std::memcpy(bytes + nameAt, name.data(), name.size() * sizeof(WCHAR));
        return static_cast<UINT32>(needed);
    }
    TALSTATUS FirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer)
    {
        nextProperty_ = 0;
        return Properties("GetFirstProperty", size, buffer);
    }
    TALSTATUS NextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer)
    {
        return Properties("GetNextProperty", size, buffer);
    }
    TALSTATUS NamedProperty(UNICODE_STRING* name, UINT32* length, char* value)
    {
        if (const auto status = Note("GetNamedProperty", Narrow(name)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const Node* node = owner_.Find(path_);
        if (!node)
            return ProviderFailure(kCodeNotFound);
        for (const auto& [key, text] : node->properties)
            if (Narrow(key) == Narrow(name)) {
                if (text.size() > *length) {
                    *length = static_cast<UINT32>(text.size());
                    return ProviderFailure(kCodeBufferTooSmall);
                }
                std::memcpy(value, text.data(), text.size());
                *length = static_cast<UINT32>(text.size());
                return TAL_STATUS_SUCCESS;
            }
        return ProviderFailure(kCodeNotFound);
    }
    TALSTATUS SetProperty(const char* operation, UNICODE_STRING* name, UINT32 length, char* value)
    {
        const std::string shown =
            value ? "\"" + std::string(value, length) + "\"" : std::string("null");
        const std::u16string key(name->Buffer, name->Length / sizeof(WCHAR));
        return WithNode(operation, Narrow(name) + ", " + shown, [&](Node& node) {
            std::erase_if(node.properties, [&](const auto& p) { return p.first == key; });
            if (value)
                node.properties.emplace_back(key, std::string(value, length));
        });
    }
    TALSTATUS SetPropertyEnh(UNICODE_STRING* name, UINT32 length, char* value, UINT32* resultLength,
                             char* result)
    {
        const TALSTATUS status = SetProperty("SetNamedPropertyEnh", name, length, value);
        const UINT32 room = *resultLength;
        *resultLength = static_cast<UINT32>(std::min<size_t>(owner_.enhResult.size(), room));
        if (result)
            std::memcpy(result, owner_.enhResult.data(), *resultLength);
        return status;
    }
    TALSTATUS Ioctl(UINT32 code, UINT32* size, void* output)
    {
        if (const auto status = Note("IoctlRequest", Hex(code)))
            return *status;
        return owner_.onIoctl ? owner_.onIoctl(Narrow(path_), code, size, output)
                              : ProviderFailure(kCodeNotImplemented);
    }

    Provider& owner_;
    std::string kind_;
    std::u16string path_;
    size_t nextLock_ = 0;
    size_t nextProperty_ = 0;
};

// What the objects of the second generation have beside those of the first, the third among it
// where the provider has one.
template <class First, class Third, Third* (*NewThird)(Provider&)>
class SecondGeneration : public First {
  public:
    using First::First;
    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        if (*iid != IidOf<Third>::value || !this->owner_.HasThird())
            return First::QueryInterface(iid, out);
        *out = NewThird(this->owner_);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS IoctlRequest(SCHANDLE, UINT32 code, UINT32, void*, UINT32* size,
                           void* output) override
    {
        return this->Ioctl(code, size, output);
    }
    TALSTATUS SetNamedPropertyEnh(UNICODE_STRING* name, UINT32 length, char* value,
                                  UINT32* resultLength, char* result) override
    {
        return this->SetPropertyEnh(name, length, value, resultLength, result);
    }
};

} // namespace harness
