// SPDX-License-Identifier: Apache-2.0
//
// Opened resources of scripted providers of the first and second generation.
#include <algorithm>
#include <cstring>
#include <memory>

#include "opened_base.h"

namespace harness {

namespace {

template <class I> class OpenedResource : public Opened<I> {
  public:
    explicit OpenedResource(Provider& provider) : Opened<I>(provider, "res.") {}

    TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) override
    {
        return this->FirstProperty(size, buffer);
    }
    TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) override
    {
        return this->NextProperty(size, buffer);
    }
    TALSTATUS GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value) override
    {
        return this->NamedProperty(name, length, value);
    }
    TALSTATUS SetNamedProperty(UNICODE_STRING* name, UINT32 length, char* value) override
    {
        return this->SetProperty("SetNamedProperty", name, length, value);
    }
    TALSTATUS GetResourceSize(UINT64* size) override
    {
        return this->WithNode("GetResourceSize", {}, [&](Node& node) {
            *size = node.sizeShown ? node.sizeShown : node.content.size();
        });
    }
    TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) override
    {
        *read = 0;
        if (const auto status =
                this->Note("Read", std::to_string(offset) + ", " + std::to_string(length)))
            return *status;
        if (this->owner_.onRead)
            this->owner_.onRead(Narrow(this->path_), offset);
        const std::lock_guard lock(this->owner_.Mutex());
        const Node* node = this->owner_.Find(this->path_);
        if (!node)
            return ProviderFailure(kCodeNotFound);
        if (offset >= node->content.size())
            return TAL_STATUS_SUCCESS;
        size_t bytes = std::min<size_t>(length, node->content.size() - offset);
        if (this->owner_.readLimit != 0)
            bytes = std::min<size_t>(bytes, this->owner_.readLimit);
        std::memcpy(buffer, node->content.data() + offset, bytes);
        *read = static_cast<UINT32>(bytes);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Write(UINT64 offset, UINT32 length, char* buffer, UINT32* written) override
    {
        *written = 0;
        return this->WithNode(
            "Write", std::to_string(offset) + ", " + std::to_string(length), [&](Node& node) {
                const UINT32 bytes =
                    this->owner_.writeLimit ? std::min(length, this->owner_.writeLimit) : length;
                if (node.content.size() < offset + bytes)
                    node.content.resize(offset + bytes);
                std::memcpy(node.content.data() + offset, buffer, bytes);
                *written = bytes;
            });
    }

  protected:
    TALSTATUS Bind(BOOLEAN create, DAV_OPEN_ACCESS access, DAV_SHARE_MODE share,
                   DAV_OPEN_FLAGS flags, UNICODE_STRING* path, const std::string& more)
    {
        if (const auto status =
                this->Note("Associate", Narrow(path) + ", create=" + std::to_string(create) +
                                            ", access=" + std::to_string(access) +
                                            ", share=" + std::to_string(share) +
                                            ", flags=" + std::to_string(flags) + more))
            return *status;
        const std::lock_guard lock(this->owner_.Mutex());
        const std::u16string target(path->Buffer, path->Length / sizeof(WCHAR));
        Node* node = this->owner_.Find(target);
        if (!node) {
            const size_t slash = target.rfind(u'/');
            if (!create || !this->owner_.Serves(target) || slash == std::u16string::npos)
                return ProviderFailure(kCodeNotFound);
            if (!this->owner_.Find(target.substr(0, slash)))
                return ProviderFailure(kCodeConflict);
            node = &this->owner_.AddFile(Narrow(target));
        } else if (create && node->type == Resource) {
            node->content.clear();
        }
        if (node->type != Resource)
            return ProviderFailure(kCodeInvalidParameter);
        this->path_ = target;
        return TAL_STATUS_SUCCESS;
    }
};

class Resource1 final : public OpenedResource<IKestDAVResource> {
  public:
    using OpenedResource::OpenedResource;
    TALSTATUS Associate(SCHANDLE, BOOLEAN create, DAV_OPEN_ACCESS access, DAV_SHARE_MODE share,
                        DAV_OPEN_FLAGS flags, UNICODE_STRING* path) override
    {
        return Bind(create, access, share, flags, path, {});
    }
};

class Resource2 final
    : public SecondGeneration<OpenedResource<IKestDAVResource2>, IKestDAVResource3, NewResource3> {
  public:
    using SecondGeneration::SecondGeneration;
    TALSTATUS Associate(SCHANDLE, BOOLEAN create, DAV_OPEN_ACCESS access, DAV_SHARE_MODE share,
                        DAV_OPEN_FLAGS flags, UNICODE_STRING* path, DAV_LOCK_TOKEN* token) override
    {
        return Bind(create, access, share, flags, path, ", token=" + Narrow(token));
    }
};

} // namespace

IKestDAVResource* NewResource1(Provider& provider)
{
    return new Resource1(provider);
}
IKestDAVResource2* NewResource2(Provider& provider)
{
    return new Resource2(provider);
}

} // namespace harness
