// SPDX-License-Identifier: Apache-2.0
//
// Opened collections of scripted providers of the first and second generation.
#include <algorithm>
#include <cstring>
#include <memory>

#include "opened_base.h"

namespace harness {

namespace {

template <class I> class OpenedCollection : public Opened<I> {
  public:
    explicit OpenedCollection(Provider& provider) : Opened<I>(provider, "col.") {}

    TALSTATUS GetFirstChild(UINT32* size, DAV_COMMON_ENUM* buffer) override
    {
        return Child("GetFirstChild", size, buffer);
    }
    TALSTATUS GetNextChild(UINT32* size, DAV_COMMON_ENUM* buffer) override
    {
        return Child("GetNextChild", size, buffer);
    }

  protected:
    TALSTATUS Bind(UNICODE_STRING* path, const std::string& more)
    {
        if (const auto status = this->Note("Associate", Narrow(path) + more))
            return *status;
        const std::lock_guard lock(this->owner_.Mutex());
        this->path_.assign(path->Buffer, path->Length / sizeof(WCHAR));
        if (this->path_ == u"/" && this->owner_.serveRoot) { // above every node, and none itself
            this->path_.clear();
            names_ = this->owner_.Children(this->path_);
            next_ = 0;
            return TAL_STATUS_SUCCESS;
        }
        const Node* node = this->owner_.Find(this->path_);
        if (!node)
            return ProviderFailure(kCodeNotFound);
        if (node->type != Collection)
            return ProviderFailure(kCodeInvalidParameter);
        names_ = this->owner_.Children(this->path_);
        next_ = 0;
        return TAL_STATUS_SUCCESS;
    }

  private:
    // Children as they were at Associate, without those that have gone since.
    TALSTATUS Child(const char* operation, UINT32* size, DAV_COMMON_ENUM* buffer)
    {
        if (const auto status = this->Note(operation, std::to_string(*size)))
            return *status;
        const std::lock_guard lock(this->owner_.Mutex());
        if (operation == std::string_view("GetFirstChild"))
            next_ = 0;
        const Node* node = nullptr;
        while (next_ < names_.size() &&
               !(node = this->owner_.Find(this->path_ + u"/" + names_[next_])))
            ++next_;
        if (!node)
            return ProviderFailure(kCodeNoMoreEntries);
        const std::u16string& name = node->displayName.empty() ? names_[next_] : node->displayName;
        ++next_;
        const size_t nameBytes = name.size() * sizeof(WCHAR);
        const size_t uriAt = offsetof(DAV_COMMON_ENUM, DisplayName) + nameBytes;
        const size_t uriBytes = node->uri.size() * sizeof(WCHAR);
        if (uriAt + uriBytes > *size)
            return ProviderFailure(kCodeBufferTooSmall);
        char* bytes = reinterpret_cast<char*>(buffer);
        buffer->NextEntryOffset = 0;
        buffer->Type = node->type;
        if (this->owner_.listsAttributes)
            buffer->Attributes = node->attributes;
        buffer->CreationDate = node->created;
        buffer->ModificationDate = node->modified;
        buffer->ResourceSize = node->sizeShown ? node->sizeShown : node->content.size();
        buffer->State = node->state;
        buffer->DisplayNameLength =
            node->nameBytesShown ? node->nameBytesShown : static_cast<UINT32>(nameBytes);
        std::memcpy(bytes + offsetof(DAV_COMMON_ENUM, DisplayName), name.data(), nameBytes);
        buffer->URILength = static_cast<UINT32>(uriBytes);
        buffer->pURI = uriBytes ? reinterpret_cast<WCHAR*>(bytes + uriAt) : nullptr;
        std::memcpy(bytes + uriAt, node->uri.data(), uriBytes);
        *size = static_cast<UINT32>(uriAt + uriBytes);
        return TAL_STATUS_SUCCESS;
    }

    std::vector<std::u16string> names_;
    size_t next_ = 0;
};

class Collection1 final : public OpenedCollection<IKestDAVCollection> {
  public:
    using OpenedCollection::OpenedCollection;
    TALSTATUS Associate(SCHANDLE, UNICODE_STRING* path) override { return Bind(path, {}); }
};

class Collection2 final : public SecondGeneration<OpenedCollection<IKestDAVCollection2>,
                                                  IKestDAVCollection3, NewCollection3> {
  public:
    using SecondGeneration::SecondGeneration;
    TALSTATUS Associate(SCHANDLE, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) override
    {
        return Bind(path, ", token=" + Narrow(token));
    }
    TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) override
    {
        return FirstProperty(size, buffer);
    }
    TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) override
    {
        return NextProperty(size, buffer);
    }
    TALSTATUS GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value) override
    {
        return NamedProperty(name, length, value);
    }
};

} // namespace

IKestDAVCollection* NewCollection1(Provider& provider)
{
    return new Collection1(provider);
}
IKestDAVCollection2* NewCollection2(Provider& provider)
{
    return new Collection2(provider);
}

} // namespace harness
