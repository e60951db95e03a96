// SPDX-License-Identifier: Apache-2.0
//
// Opened collections of scripted providers, third generation.
#include <cstring>

#include "opened3.h"
#include "text.h"

namespace harness {

namespace {

class Collection3 final : public Opened3<IKestDAVCollection3> {
  public:
    explicit Collection3(Provider& provider) : Opened3(provider, "col3.") {}

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

    std::u16string path_;
    std::vector<std::u16string> names_;
    size_t next_ = 0;
    bool isOpen_ = false;
};

} // namespace

IKestDAVCollection3* NewCollection3(Provider& provider)
{
    return new Collection3(provider);
}

} // namespace harness
