// SPDX-License-Identifier: Apache-2.0
//
// Opened collections of scripted providers, third generation.
#include <cstring>

#include "provider3.h"
#include "text.h"

namespace harness {

namespace {

class Collection3 final : public IKestDAVCollection3 {
  public:
    explicit Collection3(Provider& provider) : owner_(provider)
    {
        const std::lock_guard lock(owner_.Mutex());
        owner_.Count(1);
    }
    virtual ~Collection3()
    {
        const std::lock_guard lock(owner_.Mutex());
        owner_.Count(-1);
    }

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (*iid != IidOf<IKestDAVCollection3>::value && *iid != IID_IUnknown)
            return ProviderFailure(kCodeNoInterface);
        AddRef();
        *out = static_cast<IKestDAVCollection3*>(this);
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return ++references_; }
    UINT32 Release() override
    {
        const UINT32 left = --references_;
        if (left == 0)
            delete this;
        return left;
    }

    TALSTATUS Open(SCHANDLE, UNICODE_STRING* path, DAV_OBJECT_INFO* info) override
    {
        if (const auto status = Note("Open", Narrow(path)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        path_ = std::u16string(path->Buffer, path->Length / sizeof(WCHAR));
        if (path_ == u"/") { // the provider's root, which no node stands for
            path_.clear();
            names_ = {Wide(owner_.Spec().name)};
            isOpen_ = true;
            return TAL_STATUS_SUCCESS;
        }
        const Node* node = owner_.Find(path_);
        if (!node)
            return ProviderFailure(kCodeNotFound);
        if (node->type != Collection)
            return ProviderFailure(kCodeMethodNotAllowed);
        Describe(*node, info);
        names_ = owner_.Children(path_);
        isOpen_ = true;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS GetMembers(UINT32* size, DAV_MEMBER* buffer) override
    {
        if (const auto status = Note("GetMembers", ""))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        if (!isOpen_)
            return ProviderFailure(kCodeInvalidParameter);
        if (next_ == names_.size())
            return ProviderFailure(kCodeNoMoreEntries);
        UINT32 used = 0;
        DAV_MEMBER* last = nullptr;
        for (size_t i = 0; i < owner_.membersPerCall && next_ < names_.size(); ++i) {
            auto* member = reinterpret_cast<DAV_MEMBER*>(reinterpret_cast<char*>(buffer) + used);
            const UINT32 bytes = Pack(*size - used, *member);
            if (bytes == 0)
                break;
            if (last)
                last->NextEntryOffset = static_cast<UINT32>(reinterpret_cast<char*>(member) -
                                                            reinterpret_cast<char*>(last));
            last = member;
            used += bytes;
            ++next_;
        }
        if (!last)
            return ProviderFailure(kCodeBufferTooSmall);
        *size = used;
        return TAL_STATUS_SUCCESS;
    }

  private:
    std::optional<TALSTATUS> Note(const char* operation, const std::string& arguments)
    {
        return owner_.Log().Enter(owner_.Name("col3.") + operation, arguments);
    }
    // 0 when it does not fit.
    UINT32 Pack(UINT32 room, DAV_MEMBER& member)
    {
        const std::string name = Narrow(names_[next_]);
        const auto bytes =
            static_cast<UINT32>((offsetof(DAV_MEMBER, Name) + name.size() + 7) / 8 * 8);
        if (bytes > room)
            return 0;
        member = {};
        member.NameLength = static_cast<UINT32>(name.size());
        member.Info.Size = sizeof member.Info;
        Describe(*owner_.Find(path_ + u"/" + names_[next_]), &member.Info);
        std::memcpy(reinterpret_cast<char*>(&member) + offsetof(DAV_MEMBER, Name), name.data(),
                    name.size());
        return bytes;
    }

    Provider& owner_;
    std::u16string path_;
    std::vector<std::u16string> names_;
    size_t next_ = 0;
    bool isOpen_ = false;
    UINT32 references_ = 1;
};

} // namespace

IKestDAVCollection3* NewCollection3(Provider& provider)
{
    return new Collection3(provider);
}

} // namespace harness
