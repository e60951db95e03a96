// SPDX-License-Identifier: Apache-2.0
//
// Content, entity tags and preconditions through the third generation.
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "tests/contract/providers/filestore/third.h"

using namespace filestore_test;

using FileStoreContent3 = ThirdTest;

TEST_F(FileStoreContent3, IsAnotherFaceOfTheSameObjects)
{
    Ref<IKestDAVResource2> resource = NewResource();
    Ref<IKestDAVResource3> third = TearOff<IKestDAVResource3>(resource);
    Ref<IKestDAVResource2> back = TearOff<IKestDAVResource2>(third);
    EXPECT_EQ(resource.Get(), back.Get());
    EXPECT_EQ(TearOff<IUnknown>(resource).Get(), TearOff<IUnknown>(third).Get());
    resource = {};
    back = {};
    UINT32 read = 0;
    EXPECT_EQ(kCodeInvalidParameter, Code(third->Read(0, 0, nullptr, &read))) << "it still lives";
    Ref<IKestDAVCollection3> collection = TearOff<IKestDAVCollection3>(NewCollection());
    UINT32 size = 4096;
    DAV_MEMBER member;
    EXPECT_EQ(kCodeInvalidParameter, Code(collection->GetMembers(&size, &member)));
}

TEST_F(FileStoreContent3, IsInAFileThatCanBeReadBesideIt)
{
    Wstr path("/docs/a");
    Wstr folder("/docs");
    Ref<IKestDAVResource3> third = TearOff<IKestDAVResource3>(NewResource());
    Ref<IKestDAVContentFile3> file = TearOff<IKestDAVContentFile3>(third);
    INT32 descriptor = -1;
    EXPECT_EQ(kCodeInvalidParameter, Code(file->GetDescriptor(&descriptor))) << "nothing is open";
    ASSERT_EQ(0u, Store("/docs/a", "content"));
    ASSERT_EQ(0u, third->Open(session_, &path, kOpenRead, -1, nullptr, nullptr, nullptr));
    EXPECT_EQ(kCodeInvalidParameter, Code(file->GetDescriptor(nullptr)));
    ASSERT_EQ(0u, file->GetDescriptor(&descriptor));
    ASSERT_EQ(0u, Store("/docs/a", "other content"));
    char text[16] = {};
    EXPECT_EQ(7, pread(descriptor, text, sizeof text, 0));
    EXPECT_STREQ("content", text) << "what was opened, whatever has taken its name";
    ASSERT_EQ(0u, third->Open(session_, &folder, kOpenRead, -1, nullptr, nullptr, nullptr));
    EXPECT_EQ(kCodeMethodNotAllowed, Code(file->GetDescriptor(&descriptor)));
    ASSERT_EQ(0u, third->Open(session_, &path, kOpenReplace, -1, nullptr, nullptr, nullptr));
    EXPECT_EQ(kCodeInvalidParameter, Code(file->GetDescriptor(&descriptor))) << "on its way in";
}

TEST_F(FileStoreContent3, SaysWhatAChangeHasComeTo)
{
    Change change;
    ASSERT_EQ(0u, Store("/docs/a", "one", {}, &change));
    EXPECT_EQ(kOutcomeCreated, change.Outcome);
    EXPECT_EQ(3u, change.Info.ResourceSize);
    EXPECT_EQ(Tag("/docs/a"), TagOf(change.Info));
    ASSERT_EQ(0u, Store("/docs/a", "other", {}, &change));
    EXPECT_EQ(kOutcomeReplaced, change.Outcome);
    EXPECT_EQ(5u, change.Info.ResourceSize);
    EXPECT_EQ("other", ReadFile(Docs() / "a"));
    DAV_OBJECT_INFO info;
    ASSERT_EQ(0u, Info("/docs/a", &info));
    EXPECT_EQ(TagOf(change.Info), TagOf(info));
    EXPECT_EQ(change.Info.ModificationDate, info.ModificationDate);
}

TEST_F(FileStoreContent3, FillsNoMoreOfARecordThanItHas)
{
    ASSERT_EQ(0u, Store("/docs/a", "one"));
    Wstr path("/docs/a");
    DAV_OBJECT_INFO info;
    std::memset(&info, 0x55, sizeof info);
    info.Size = offsetof(DAV_OBJECT_INFO, CreationDate);
    ASSERT_EQ(0u, third_->GetInfo(session_, &path, &info));
    EXPECT_EQ(offsetof(DAV_OBJECT_INFO, CreationDate), info.Size);
    EXPECT_EQ(3u, info.ResourceSize);
    EXPECT_EQ(0x5555555555555555u, info.CreationDate);
    DAV_PRECONDITIONS tooShort{};
    tooShort.Size = 4;
    EXPECT_EQ(kCodeInvalidParameter, Code(third_->Delete(session_, &path, &tooShort, nullptr)));
    DAV_PRECONDITIONS unreadable{};
    unreadable.Size = sizeof unreadable;
    unreadable.TokenCount = 1;
    EXPECT_EQ(kCodeInvalidParameter, Code(third_->Delete(session_, &path, &unreadable, nullptr)));
    EXPECT_TRUE(std::filesystem::exists(Docs() / "a"));
}

TEST_F(FileStoreContent3, TellsTheOutcomeOfAChangeAloneWhereNoMoreIsWanted)
{
    ASSERT_EQ(0u, Store("/docs/a", "one"));
    Wstr from("/docs/a"), to("/docs/b"), made("/docs/made");
    DAV_PRECONDITIONS none{};
    none.Size = sizeof none;
    DAV_CHANGE change;
    const auto wantOutcome = [&] {
        std::memset(&change, 0x55, sizeof change);
        change.Size = offsetof(DAV_CHANGE, Info);
        return &change;
    };
    for (const DAV_OUTCOME expected : {kOutcomeCreated, kOutcomeReplaced}) {
        ASSERT_EQ(0u, third_->Copy(session_, &from, &to, kRelocateOverwrite, &none, nullptr,
                                   wantOutcome()));
        EXPECT_EQ(expected, change.Outcome);
        EXPECT_EQ(0x55555555u, change.Info.Size);
    }
    ASSERT_EQ(0u,
              third_->MakeCollection(session_, &made, &none, 0, nullptr, nullptr, wantOutcome()));
    EXPECT_EQ(kOutcomeCreated, change.Outcome);
    EXPECT_EQ(0x55555555u, change.Info.Size);
}

TEST_F(FileStoreContent3, HasAStrongTagOfItsOwnForEveryContentWithinOneTick)
{
    std::set<std::string> tags;
    for (int i = 0; i < 200; ++i) {
        Change change;
        ASSERT_EQ(0u, Store("/docs/a", i % 2 ? "one" : "two", {}, &change));
        EXPECT_EQ('"', TagOf(change.Info).front());
        EXPECT_TRUE(tags.insert(TagOf(change.Info)).second) << i;
    }
    EXPECT_TRUE(tags.contains(Tag("/docs/a")));
}

TEST_F(FileStoreContent3, HasATagOfItsOwnUnderADateThatAClientGives)
{
    constexpr UINT64 kGiven = 13'000'000'000ull * 10'000'000;
    std::set<std::string> tags;
    for (int i = 0; i < 100; ++i) {
        Change change;
        ASSERT_EQ(0u, Store("/docs/a", i % 2 ? "one" : "two", {}, &change, kGiven));
        EXPECT_EQ(kGiven / 10'000'000, change.Info.ModificationDate / 10'000'000);
        EXPECT_EQ('"', TagOf(change.Info).front());
        EXPECT_TRUE(tags.insert(TagOf(change.Info)).second) << i;
    }
}

TEST_F(FileStoreContent3, HasAWeakTagWhileAnotherProgramMayBeWriting)
{
    ASSERT_EQ(0u, Store("/docs/a", "one"));
    EXPECT_EQ('"', Tag("/docs/a").front());
    for (int i = 0; i < 3; ++i) { // one date in a thousand looks like the store's
        WriteFile(Docs() / "a", "two" + std::to_string(i));
        // "Just now" for as long as the test takes.
        std::filesystem::last_write_time(
            Docs() / "a", std::filesystem::file_time_type::clock::now() + std::chrono::hours(1));
        if (Tag("/docs/a").front() != '"')
            break;
    }
    const std::string tag = Tag("/docs/a");
    EXPECT_EQ("W/\"", tag.substr(0, 3));
    EXPECT_EQ(kCodePreconditionFailed, Code(Delete("/docs/a", Given().Match(tag.substr(2)))));
    EXPECT_EQ(kCodePreconditionFailed, Code(Delete("/docs/a", Given().NoneMatch(tag))));
    const auto long_ago = std::filesystem::last_write_time(Docs() / "a") - std::chrono::hours(2);
    std::filesystem::last_write_time(Docs() / "a", long_ago);
    EXPECT_EQ('"', Tag("/docs/a").front());
    EXPECT_EQ(0u, Delete("/docs/a", Given().Match(Tag("/docs/a"))));
}

TEST_F(FileStoreContent3, IsPublishedOnlyUnderItsPreconditions)
{
    EXPECT_EQ(kCodePreconditionFailed, Code(Store("/docs/a", "x", Given().Match("*"))));
    ASSERT_EQ(0u, Store("/docs/a", "one", Given().NoneMatch("*")));
    EXPECT_EQ(kCodePreconditionFailed, Code(Store("/docs/a", "x", Given().NoneMatch("*"))));
    const std::string first = Tag("/docs/a");
    ASSERT_EQ(0u, Store("/docs/a", "two", Given().Match("\"other\", " + first)));
    EXPECT_EQ(kCodePreconditionFailed, Code(Store("/docs/a", "x", Given().Match(first))));
    EXPECT_EQ(kCodePreconditionFailed,
              Code(Store("/docs/a", "x", Given().NoneMatch(Tag("/docs/a")))));
    EXPECT_EQ(kCodePreconditionFailed, Code(Store("/docs/a", "x", Given().UnmodifiedSince(1))));
    EXPECT_EQ("two", ReadFile(Docs() / "a"));
}

TEST_F(FileStoreContent3, IsJudgedInTheStepThatTakesTheName)
{
    ASSERT_EQ(0u, Store("/docs/a", "one"));
    Wstr path("/docs/a"), free("/docs/free");
    Change change;
    for (const bool isListed : {false, true}) {
        ASSERT_EQ(0u, Store("/docs/a", "one"));
        Given current;
        if (isListed)
            current.If("", {current.Holds(kIfTag, Tag("/docs/a"))});
        else
            current.Match(Tag("/docs/a"));
        Ref<IKestDAVResource3> slow = NewContent();
        ASSERT_EQ(0u, slow->Open(session_, &path, kOpenReplace, -1, &current, nullptr, nullptr));
        ASSERT_EQ(0u, slow->Write(0, 4, "slow"));
        ASSERT_EQ(0u, Store("/docs/a", "fast"));
        EXPECT_EQ(kCodePreconditionFailed, Code(slow->Publish(0, 0, nullptr, &change)));
        EXPECT_EQ("fast", ReadFile(Docs() / "a"));
    }
    Given none;
    none.NoneMatch("*");
    Ref<IKestDAVResource3> slow = NewContent();
    ASSERT_EQ(0u, slow->Open(session_, &free, kOpenReplace, -1, &none, nullptr, nullptr));
    ASSERT_EQ(0u, Store("/docs/free", "fast"));
    EXPECT_EQ(kCodePreconditionFailed, Code(slow->Publish(0, 0, nullptr, &change)));
    EXPECT_EQ("fast", ReadFile(Docs() / "free"));
}

TEST_F(FileStoreContent3, JudgesTheListsOfTheIfHeader)
{
    ASSERT_EQ(0u, Store("/docs/a", "one"));
    ASSERT_EQ(0u, Store("/docs/b", "two"));
    const std::string a = Tag("/docs/a"), b = Tag("/docs/b");
    const auto judge = [&](const Given& given) {
        Wstr path("/docs/a");
        return Code(third_->Judge(session_, &path, &given));
    };
    Given given;
    EXPECT_EQ(0u, judge(Given().If("", {given.Holds(kIfTag, a)})));
    EXPECT_EQ(40u, judge(Given().If("", {given.Holds(kIfTag, b)})));
    EXPECT_EQ(0u, judge(Given().If("/docs/b", {given.Holds(kIfTag, b)})));
    EXPECT_EQ(40u, judge(Given().If("/docs/b", {given.Holds(kIfTag, a)})));
    EXPECT_EQ(0u, judge(Given().If("", {given.Not(kIfTag, b)})));
    EXPECT_EQ(40u, judge(Given().If("", {given.Holds(kIfTag, a), given.Holds(kIfTag, b)})));
    EXPECT_EQ(0u, judge(Given().If("", {given.Holds(kIfTag, b)}).If("", {given.Holds(kIfTag, a)})));
    EXPECT_EQ(40u, judge(Given().If("", {given.Holds(kIfNever, "DAV:no-lock")})));
    EXPECT_EQ(0u, judge(Given().If("", {given.Not(kIfNever, "DAV:no-lock")})));
    EXPECT_EQ(40u, judge(Given().If("/nowhere/b", {given.Holds(kIfTag, b)})));
    EXPECT_EQ(40u, judge(Given().If("", {given.Holds(kIfToken, "unknown")})));
    EXPECT_EQ(40u, judge(Given().Match(b)));
    EXPECT_EQ(0u, judge(Given().Match(a)));
    EXPECT_EQ(40u, Code(Delete("/docs/a", Given().If("/docs/b", {given.Holds(kIfTag, a)}))));
    EXPECT_EQ(0u, Delete("/docs/a", Given().If("/docs/b", {given.Holds(kIfTag, b)})));
}

TEST_F(FileStoreContent3, IsReadAtAnyOffset)
{
    std::string content(3'000'000, '\0');
    for (size_t i = 0; i < content.size(); ++i)
        content[i] = static_cast<char>(i * 2654435761u >> 13);
    ASSERT_EQ(0u, Store("/docs/a", content));
    Ref<IKestDAVResource3> resource = NewContent();
    Wstr path("/docs/a");
    DAV_OBJECT_INFO info{};
    info.Size = sizeof info;
    ASSERT_EQ(0u, resource->Open(session_, &path, kOpenRead, -1, nullptr, nullptr, &info));
    EXPECT_EQ(content.size(), info.ResourceSize);
    ASSERT_EQ(0u, Store("/docs/a", "replaced meanwhile"));
    char buffer[1000];
    UINT32 read = 0;
    for (const UINT64 offset : {2'999'500ull, 0ull, 1'234'567ull}) {
        ASSERT_EQ(0u, resource->Read(offset, sizeof buffer, buffer, &read));
        EXPECT_EQ(content.substr(offset, sizeof buffer), std::string(buffer, read));
    }
    for (const UINT64 offset : {3'000'000ull, 1ull << 40, ~0ull}) {
        EXPECT_EQ(0u, resource->Read(offset, sizeof buffer, buffer, &read));
        EXPECT_EQ(0u, read) << offset;
    }
    EXPECT_EQ(kCodeInvalidParameter, Code(resource->Write(0, 1, "x"))) << "opened for reading";
}

TEST_F(FileStoreContent3, OpensACollectionAndHasNoContentThere)
{
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    Ref<IKestDAVResource3> resource = NewContent();
    char buffer[8];
    UINT32 read = 0;
    for (const char* name : {"/docs/d", "/docs", "/"}) {
        Wstr path(name);
        DAV_OBJECT_INFO info{};
        info.Size = sizeof info;
        ASSERT_EQ(0u, resource->Open(session_, &path, kOpenRead, -1, nullptr, nullptr, &info));
        EXPECT_EQ(Collection, info.Type);
        EXPECT_EQ(kCodeMethodNotAllowed, Code(resource->Read(0, 8, buffer, &read)));
    }
    EXPECT_EQ(kCodeMethodNotAllowed, Code(Store("/docs/d", "x")));
    EXPECT_EQ(kCodeMethodNotAllowed, Code(Store("/docs", "x")));
    EXPECT_EQ(kCodeConflict, Code(Store("/docs/none/a", "x")));
    EXPECT_EQ(kCodeAccessDenied, Code(Store("/nowhere", "x")));
    EXPECT_EQ(kCodeInvalidRequest, Code(Store("/docs/a\x01", "x")));
}

TEST_F(FileStoreContent3, IsNotThereWhileTheRequestIsAboutToMakeIt)
{
    ScriptedRequest request;
    request.method = KestMethodPut;
    request.path = "/Ferro/docs/new";
    const RunningRequest running(request);
    DAV_TYPE type;
    ASSERT_EQ(0u, Type("/docs/new", &type));
    DAV_OBJECT_INFO info;
    EXPECT_EQ(kCodeNotFound, Code(Info("/docs/new", &info)));
    Ref<IKestDAVResource3> resource = NewContent();
    Wstr path("/docs/new");
    EXPECT_EQ(kCodeNotFound,
              Code(resource->Open(session_, &path, kOpenRead, -1, nullptr, nullptr, nullptr)));
}

TEST_F(FileStoreContent3, ReplacesARangeWholeOrNotAtAll)
{
    ASSERT_EQ(0u, Store("/docs/a", "0123456789"));
    const std::string before = Tag("/docs/a");
    Wstr path("/docs/a"), missing("/docs/missing");
    DAV_OBJECT_INFO info{};
    info.Size = sizeof info;
    {
        Ref<IKestDAVResource3> dropped = NewContent();
        ASSERT_EQ(0u, dropped->Open(session_, &path, kOpenModify, -1, nullptr, nullptr, &info));
        EXPECT_EQ(10u, info.ResourceSize);
        EXPECT_EQ(before, TagOf(info));
        ASSERT_EQ(0u, dropped->Write(2, 3, "abc"));
        EXPECT_EQ("0123456789", ReadFile(Docs() / "a"));
    }
    EXPECT_EQ("0123456789", ReadFile(Docs() / "a"));
    EXPECT_EQ(before, Tag("/docs/a"));
    Ref<IKestDAVResource3> resource = NewContent();
    ASSERT_EQ(0u, resource->Open(session_, &path, kOpenModify, -1, nullptr, nullptr, nullptr));
    ASSERT_EQ(0u, resource->Write(2, 3, "abc"));
    ASSERT_EQ(0u, resource->Write(12, 2, "zz"));
    Change change;
    ASSERT_EQ(0u, resource->Publish(0, 0, nullptr, &change));
    EXPECT_EQ(kOutcomeReplaced, change.Outcome);
    EXPECT_EQ(std::string("01abc56789\0\0zz", 14), ReadFile(Docs() / "a"));
    EXPECT_NE(before, Tag("/docs/a"));
    EXPECT_EQ(kCodeInvalidParameter, Code(resource->Publish(0, 0, nullptr, &change)));
    ASSERT_EQ(0u, resource->Open(session_, &path, kOpenModify, -1, nullptr, nullptr, nullptr));
    ASSERT_EQ(0u, resource->SetLength(4));
    ASSERT_EQ(0u, resource->Publish(0, 0, nullptr, &change));
    EXPECT_EQ("01ab", ReadFile(Docs() / "a"));
    EXPECT_EQ(kCodeNotFound,
              Code(resource->Open(session_, &missing, kOpenModify, -1, nullptr, nullptr, nullptr)));
    EXPECT_EQ((std::vector<std::string>{}), Entries(Docs() / ".kest/tmp"));
}

TEST_F(FileStoreContent3, LeavesNothingBehindWhenItIsDropped)
{
    Wstr path("/docs/a");
    {
        Ref<IKestDAVResource3> resource = NewContent();
        ASSERT_EQ(0u, resource->Open(session_, &path, kOpenReplace, 3, nullptr, nullptr, nullptr));
        ASSERT_EQ(0u, resource->Write(0, 3, "abc"));
    }
    EXPECT_FALSE(std::filesystem::exists(Docs() / "a"));
    EXPECT_EQ((std::vector<std::string>{}), Entries(Docs() / ".kest/tmp"));
}

TEST_F(FileStoreContent3, IsRefusedBeforeItIsSentWhereItCannotBeKept)
{
    Ref<IKestDAVResource3> resource = NewContent();
    Wstr path("/docs/a");
    EXPECT_EQ(kCodeStorageFull, Code(resource->Open(session_, &path, kOpenReplace, INT64{1} << 60,
                                                    nullptr, nullptr, nullptr)));
    EXPECT_EQ(kCodeInvalidParameter,
              Code(resource->Open(session_, &path, kOpenReplace, -2, nullptr, nullptr, nullptr)));
    EXPECT_EQ(kCodeInvalidParameter,
              Code(resource->Open(session_, &path, 9, -1, nullptr, nullptr, nullptr)));
    ASSERT_EQ(0u, resource->Open(session_, &path, kOpenReplace, -1, nullptr, nullptr, nullptr));
    EXPECT_EQ(kCodeStorageFull, Code(resource->Write(~0ull - 5, 10, "0123456789")));
    EXPECT_FALSE(std::filesystem::exists(Docs() / "a"));
}

TEST_F(FileStoreContent3, KeepsTheDatesThatAClientGives)
{
    constexpr UINT64 kSecond = 10'000'000, kModified = 12'900'000'000 * kSecond,
                     kCreated = 12'800'000'000 * kSecond;
    Wstr path("/docs/a");
    Ref<IKestDAVResource3> resource = NewContent();
    ASSERT_EQ(0u, resource->Open(session_, &path, kOpenReplace, -1, nullptr, nullptr, nullptr));
    Change change;
    ASSERT_EQ(0u, resource->Publish(kModified, kCreated, nullptr, &change));
    DAV_OBJECT_INFO info;
    ASSERT_EQ(0u, Info("/docs/a", &info));
    EXPECT_EQ(kModified / kSecond, info.ModificationDate / kSecond);
    EXPECT_EQ(kCreated / kSecond, info.CreationDate / kSecond);
    ASSERT_EQ(0u, Store("/docs/a", "new"));
    ASSERT_EQ(0u, Info("/docs/a", &info));
    EXPECT_EQ(kCreated / kSecond, info.CreationDate / kSecond) << "of what was replaced";
    EXPECT_LT(kModified, info.ModificationDate);
}

TEST_F(FileStoreContent3, LetsOneOfManyWithTheSameConditionSucceed)
{
    ASSERT_EQ(0u, Store("/docs/a", "one"));
    const std::string tag = Tag("/docs/a");
    std::atomic<int> succeeded{0};
    std::vector<std::jthread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            if (!Failed(Store("/docs/a", "mine", Given().Match(tag))))
                ++succeeded;
        });
    threads.clear();
    EXPECT_EQ(1, succeeded);
    succeeded = 0;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            if (!Failed(MakeFolder("/docs/d", Given().NoneMatch("*"))))
                ++succeeded;
        });
    threads.clear();
    EXPECT_EQ(1, succeeded);
}
