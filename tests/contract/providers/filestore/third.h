// SPDX-License-Identifier: Apache-2.0
//
// The store through the third generation of the provider interface, as a handler uses it.
#pragma once

#include <list>
#include <map>
#include <set>

#include "tests/contract/providers/filestore/fixture.h"

namespace filestore_test {

inline DAV_TEXT Text(std::string_view text)
{
    return {text.data(), static_cast<UINT32>(text.size())};
}

inline std::string TagOf(const DAV_OBJECT_INFO& info)
{
    return {info.Tag.Text, info.Tag.Length};
}

// Preconditions whose texts live as long as the object. Conversions make calls read well.
class Given {
  public:
    Given() { record_.Size = sizeof record_; }
    Given(const Given&) = delete;
    Given& operator=(const Given&) = delete;
    Given& Match(const std::string& tags)
    {
        record_.Match = Keep(tags);
        return *this;
    }
    Given& NoneMatch(const std::string& tags)
    {
        record_.NoneMatch = Keep(tags);
        return *this;
    }
    Given& UnmodifiedSince(UINT64 date)
    {
        record_.UnmodifiedSince = date;
        return *this;
    }
    Given& Token(const std::string& token)
    {
        tokens_.push_back(Keep(token));
        return *this;
    }
    // One list of the "If" header; `path` empty for none of its own.
    Given& If(const std::string& path, std::vector<DAV_IF_CONDITION> conditions)
    {
        conditions_.push_back(std::move(conditions));
        lists_.push_back({Keep(path), conditions_.back().data(),
                          static_cast<UINT32>(conditions_.back().size())});
        return *this;
    }
    DAV_IF_CONDITION Holds(UINT32 kind, const std::string& value)
    {
        return {kind, FALSE, Keep(value)};
    }
    DAV_IF_CONDITION Not(UINT32 kind, const std::string& value)
    {
        return {kind, TRUE, Keep(value)};
    }

    const DAV_PRECONDITIONS* operator&() const
    {
        record_.Tokens = tokens_.data();
        record_.TokenCount = static_cast<UINT32>(tokens_.size());
        record_.If = lists_.data();
        record_.IfCount = static_cast<UINT32>(lists_.size());
        return &record_;
    }

  private:
    DAV_TEXT Keep(const std::string& text)
    {
        texts_.push_back(text);
        return Text(texts_.back());
    }
    std::list<std::string> texts_;
    std::list<std::vector<DAV_IF_CONDITION>> conditions_;
    std::vector<DAV_TEXT> tokens_;
    std::vector<DAV_IF_LIST> lists_;
    mutable DAV_PRECONDITIONS record_{};
};

// Takes note of what failed.
class Told final : public IKestDAVFailures3 {
  public:
    TALSTATUS QueryInterface(const GUID*, void**) override { return TAL_STATUS_NO_INTERFACE; }
    UINT32 AddRef() override { return 1; }
    UINT32 Release() override { return 1; }
    TALSTATUS OnFailure(UNICODE_STRING* path, TALSTATUS failure) override
    {
        paths[Narrow(path->Buffer, path->Length / 2)] = Code(failure);
        return 0;
    }
    std::map<std::string, UINT16> paths;
};

struct Change : DAV_CHANGE {
    Change() : DAV_CHANGE{} { Size = sizeof(DAV_CHANGE); }
};

struct Lock {
    std::string token, owner, root;
    DAV_LOCK_SCOPE scope;
    INT32 depth;
    INT64 timeout;
};

// Another face of an object; the object lives as long as one of its faces is held.
template <class I, class J> Ref<I> TearOff(const Ref<J>& object)
{
    Ref<I> out;
    EXPECT_EQ(0u, Query(object.Get(), out));
    return out;
}

class ThirdTest : public FileStoreTest {
  protected:
    void SetUp() override
    {
        FileStoreTest::SetUp();
        third_ = TearOff<IKestDAV3>(Namespace());
        ASSERT_TRUE(third_);
    }

    TALSTATUS Info(std::string_view path, DAV_OBJECT_INFO* info)
    {
        *info = {};
        info->Size = sizeof *info;
        Wstr wide(path);
        return third_->GetInfo(session_, &wide, info);
    }
    std::string Tag(std::string_view path)
    {
        DAV_OBJECT_INFO info;
        return Failed(Info(path, &info)) ? "(none)" : TagOf(info);
    }
    Ref<IKestDAVResource3> NewContent() { return TearOff<IKestDAVResource3>(NewResource()); }
    TALSTATUS Store(std::string_view path, std::string_view content, const Given& given = Given(),
                    Change* change = nullptr, UINT64 modified = 0, Told* told = nullptr)
    {
        Wstr wide(path);
        Change own;
        Ref<IKestDAVResource3> resource = NewContent();
        TALSTATUS status =
            resource->Open(session_, &wide, kOpenReplace, static_cast<INT64>(content.size()),
                           &given, told, nullptr);
        if (!Failed(status) && !content.empty())
            status = resource->Write(0, static_cast<UINT32>(content.size()), content.data());
        return Failed(status) ? status
                              : resource->Publish(modified, 0, told, change ? change : &own);
    }
    TALSTATUS MakeFolder(std::string_view path, const Given& given = Given(),
                         Change* change = nullptr)
    {
        Wstr wide(path);
        return third_->MakeCollection(session_, &wide, &given, 0, nullptr, nullptr, change);
    }
    TALSTATUS Delete(std::string_view path, const Given& given = Given(), Told* told = nullptr)
    {
        Wstr wide(path);
        return third_->Delete(session_, &wide, &given, told);
    }
    TALSTATUS Copy(std::string_view from, std::string_view to, UINT32 flags = kRelocateOverwrite,
                   const Given& given = Given(), Change* change = nullptr, Told* told = nullptr)
    {
        Wstr source(from), destination(to);
        return third_->Copy(session_, &source, &destination, flags, &given, told, change);
    }
    TALSTATUS Move(std::string_view from, std::string_view to, UINT32 flags = kRelocateOverwrite,
                   const Given& given = Given(), Change* change = nullptr, Told* told = nullptr)
    {
        Wstr source(from), destination(to);
        return third_->Move(session_, &source, &destination, flags, &given, told, change);
    }
    TALSTATUS Patch(std::string_view path, std::vector<DAV_PROPERTY_CHANGE>& changes,
                    const Given& given = Given())
    {
        Wstr wide(path);
        return third_->PatchProperties(session_, &wide, &given, static_cast<UINT32>(changes.size()),
                                       changes.data(), nullptr, nullptr);
    }
    static DAV_PROPERTY_CHANGE Set(std::string_view space, std::string_view name,
                                   std::string_view value)
    {
        return {sizeof(DAV_PROPERTY_CHANGE),
                kPropertySet,
                Text(space),
                Text(name),
                Text(value),
                0,
                0xC0000001};
    }
    static DAV_PROPERTY_CHANGE Remove(std::string_view space, std::string_view name)
    {
        return {sizeof(DAV_PROPERTY_CHANGE),
                kPropertyRemove,
                Text(space),
                Text(name),
                {},
                0,
                0xC0000001};
    }
    static DAV_PROPERTY_CHANGE Live(UINT32 kind, UINT64 number)
    {
        return {sizeof(DAV_PROPERTY_CHANGE), kind, {}, {}, {}, number, 0xC0000001};
    }
    TALSTATUS SetOne(std::string_view path, std::string_view space, std::string_view name,
                     std::string_view value, const Given& given = Given())
    {
        std::vector changes = {Set(space, name, value)};
        return Patch(path, changes, given);
    }
    // "{space}name=value", in their order.
    std::vector<std::string> Properties(std::string_view path, UINT32 room = 4096)
    {
        std::vector<std::string> out;
        std::vector<UINT64> buffer(room / 8);
        UINT64 place = 0;
        Wstr wide(path);
        for (;;) {
            UINT32 size = room;
            const TALSTATUS status = third_->GetProperties(
                session_, &wide, &place, &size, reinterpret_cast<DAV_PROPERTY*>(buffer.data()));
            if (Failed(status)) {
                EXPECT_EQ(kCodeNoMoreEntries, Code(status));
                return out;
            }
            const char* at = reinterpret_cast<const char*>(buffer.data());
            for (UINT32 step = 1; step; at += step) {
                const auto* const record = reinterpret_cast<const DAV_PROPERTY*>(at);
                const char* const text = at + offsetof(DAV_PROPERTY, Text);
                out.push_back("{" + std::string(text, record->NamespaceLength) + "}" +
                              std::string(text + record->NamespaceLength, record->NameLength) +
                              "=" +
                              std::string(text + record->NamespaceLength + record->NameLength,
                                          record->ValueLength));
                step = record->NextEntryOffset;
            }
        }
    }
    static Lock LockOf(const DAV_LOCK_INFO_3* record)
    {
        const char* text = reinterpret_cast<const char*>(record) + offsetof(DAV_LOCK_INFO_3, Text);
        Lock lock;
        lock.token.assign(text, record->TokenLength);
        lock.owner.assign(text += record->TokenLength, record->OwnerLength);
        lock.root.assign(text + record->OwnerLength, record->RootLength);
        lock.scope = record->Scope;
        lock.depth = record->Depth;
        lock.timeout = record->Timeout;
        return lock;
    }
    TALSTATUS TakeLock(std::string_view path, INT32 depth, Lock* lock, const Given& given = Given(),
                       Change* change = nullptr, Told* told = nullptr,
                       DAV_LOCK_SCOPE scope = Exclusive, std::string_view owner = "me")
    {
        const DAV_LOCK_REQUEST request{sizeof request, scope,       Write,
                                       depth,          600'0000000, Text(owner)};
        std::vector<UINT64> buffer(2048);
        auto* const record = reinterpret_cast<DAV_LOCK_INFO_3*>(buffer.data());
        UINT32 size = 16384;
        Wstr wide(path);
        const TALSTATUS status =
            third_->Lock(session_, &wide, &request, &given, told, &size, record, change);
        if (!Failed(status))
            *lock = LockOf(record);
        return status;
    }
    TALSTATUS Unlock(std::string_view path, const std::string& token)
    {
        Wstr wide(path);
        const DAV_TEXT text = Text(token);
        return third_->Unlock(session_, &wide, &text, nullptr);
    }
    std::vector<Lock> Locks(std::string_view path, UINT32 room = 16384)
    {
        std::vector<Lock> out;
        std::vector<UINT64> buffer(room / 8);
        UINT64 place = 0;
        Wstr wide(path);
        for (;;) {
            UINT32 size = room;
            const TALSTATUS status = third_->GetLocks(
                session_, &wide, &place, &size, reinterpret_cast<DAV_LOCK_INFO_3*>(buffer.data()));
            if (Failed(status)) {
                EXPECT_EQ(kCodeNoMoreEntries, Code(status));
                return out;
            }
            const char* at = reinterpret_cast<const char*>(buffer.data());
            for (UINT32 step = 1; step; at += step) {
                out.push_back(LockOf(reinterpret_cast<const DAV_LOCK_INFO_3*>(at)));
                step = reinterpret_cast<const DAV_LOCK_INFO_3*>(at)->NextEntryOffset;
            }
        }
    }
    std::map<std::string, DAV_OBJECT_INFO> Members(std::string_view path, UINT32 room = 4096)
    {
        std::map<std::string, DAV_OBJECT_INFO> out;
        std::vector<UINT64> buffer(room / 8);
        Ref<IKestDAVCollection3> collection = TearOff<IKestDAVCollection3>(NewCollection());
        Wstr wide(path);
        EXPECT_EQ(0u, collection->Open(session_, &wide, nullptr));
        for (;;) {
            UINT32 size = room;
            const TALSTATUS status =
                collection->GetMembers(&size, reinterpret_cast<DAV_MEMBER*>(buffer.data()));
            if (Failed(status)) {
                EXPECT_EQ(kCodeNoMoreEntries, Code(status));
                return out;
            }
            const char* at = reinterpret_cast<const char*>(buffer.data());
            for (UINT32 step = 1; step; at += step) {
                const auto* const member = reinterpret_cast<const DAV_MEMBER*>(at);
                EXPECT_TRUE(
                    out.emplace(std::string(at + offsetof(DAV_MEMBER, Name), member->NameLength),
                                member->Info)
                        .second);
                step = member->NextEntryOffset;
            }
        }
    }

    Ref<IKestDAV3> third_;
};

} // namespace filestore_test
