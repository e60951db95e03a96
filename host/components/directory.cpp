// SPDX-License-Identifier: Apache-2.0
//
// Answers for the directory from the users file, or hands on to LDAP.
#include "host/components/directory.h"

#include <limits>

#include "base/utf.h"
#include "host/component.h"
#include "host/components/directory_names.h"
#include <kest/talpl.h>

namespace kestd {
namespace {

constexpr UINT32 kOpenForReading = 1;
constexpr size_t kLongestName = 4096; // code units of a name or an attribute

ITalpl* Platform()
{
    static ITalpl* const platform = [] {
        Ref<ITalpl> made;
        return Failed(Create(CLSID_HadranTalpl, made)) ? nullptr : made.Detach();
    }();
    return platform;
}

// A caller's text; empty for null and for one without an end within the bound.
std::u16string_view Bounded(const WCHAR* text)
{
    if (!text)
        return {};
    for (size_t length = 0; length <= kLongestName; ++length)
        if (text[length] == 0)
            return {text, length};
    return {};
}

class Results final : public Object<Results, IReadAttrResults> {
  public:
    explicit Results(std::vector<std::u16string> values) : values_(std::move(values)) {}

    TALSTATUS NextValue(UINT32* bytes, WCHAR** value) override
    {
        if (!bytes || !value)
            return HostFailure(kCodeInvalidParameter);
        if (next_ == values_.size())
            return HostFailure(kCodeNoMoreEntries);
        std::u16string& text = values_[next_++];
        *bytes = static_cast<UINT32>(text.size() * sizeof(WCHAR));
        *value = text.data(); // terminated; lives as long as this object
        return TAL_STATUS_SUCCESS;
    }

  private:
    std::vector<std::u16string> values_;
    size_t next_ = 0;
};

class EntryObject final : public Object<EntryObject, IDirectoryObject> {
  public:
    explicit EntryObject(std::shared_ptr<const DirectoryEntry> entry) : entry_(std::move(entry)) {}

    TALSTATUS ReadAttribute(const WCHAR* attribute, const GUID* iid, void** out) override
    {
        if (!out)
            return HostFailure(kCodeInvalidParameter);
        *out = nullptr;
        const std::u16string_view name = Bounded(attribute);
        if (name.empty())
            return HostFailure(kCodeInvalidParameter);
        return AtBoundary([&]() -> TALSTATUS {
            const auto found = entry_->find(FoldedName(name));
            if (found == entry_->end() || found->second.empty())
                return HostFailure(kCodeNotFound);
            return kest::HandOut(new Results(found->second), iid, out);
        });
    }

  private:
    const std::shared_ptr<const DirectoryEntry> entry_;
};

class DirectoryInterface final : public Object<DirectoryInterface, IDirectory> {
  public:
    explicit DirectoryInterface(DirectoryService& service) : service_(service) {}

    TALSTATUS Open(const WCHAR* name, UINT32 flags, SCHANDLE session, const GUID* iid,
                   void** out) override
    {
        if (!out)
            return HostFailure(kCodeInvalidParameter);
        *out = nullptr;
        const std::u16string_view text = Bounded(name);
        if (text.empty() || flags != kOpenForReading)
            return HostFailure(kCodeInvalidParameter);
        return AtBoundary([&]() -> TALSTATUS {
            if (!service_.Sessions().PrincipalOf(session)) // only who is signed in may ask
                return HostFailure(kCodeAccessDenied);
            const auto backend = service_.Backend();
            std::shared_ptr<const DirectoryEntry> entry;
            const TALSTATUS status =
                backend ? backend->Read(text, entry) : HostFailure(kCodeNotFound);
            return Failed(status) ? status : kest::HandOut(new EntryObject(entry), iid, out);
        });
    }

  private:
    DirectoryService& service_;
};

} // namespace

std::u16string FoldedName(std::u16string_view name)
{
    std::u16string folded(name);
    if (ITalpl* const platform = Platform())
        (void)platform->TalxCharUpperBuff(folded.data(), static_cast<UINT32>(folded.size()));
    return folded;
}

UserDirectory::UserDirectory(const UserMap& users)
{
    for (const auto& [name, user] : users) {
        const auto dotted = base::ToUtf16(user->dottedName);
        const auto tree = base::ToUtf16(user->tree);
        const auto wideName = base::ToUtf16(name);
        const auto mail = base::ToUtf16(user->mail);
        if (!dotted || !tree || !wideName || !mail || dotted->empty() || tree->empty())
            continue;
        DirectoryEntry entry;
        entry[FoldedName(u"CN")] = {*wideName};
        if (!mail->empty())
            entry[FoldedName(kMailAttribute)] = {*mail};
        entries_.emplace(FoldedName(FullName(*tree, *dotted)),
                         std::make_shared<const DirectoryEntry>(std::move(entry)));
    }
}

TALSTATUS UserDirectory::Read(std::u16string_view name,
                              std::shared_ptr<const DirectoryEntry>& entry)
{
    if (!ParseFullName(name))
        return HostFailure(kCodeInvalidRequest);
    const auto found = entries_.find(FoldedName(name));
    if (found == entries_.end())
        return HostFailure(kCodeNotFound);
    entry = found->second;
    return TAL_STATUS_SUCCESS;
}

void DirectoryService::Use(std::shared_ptr<DirectoryBackend> backend)
{
    const std::lock_guard lock(mutex_);
    backend_.swap(backend); // the old one goes with the argument, outside of the lock's work
}

std::shared_ptr<DirectoryBackend> DirectoryService::Backend() const
{
    const std::lock_guard lock(mutex_);
    return backend_;
}

IDirectory* MakeDirectoryInterface(DirectoryService& service)
{
    return new DirectoryInterface(service);
}

} // namespace kestd
