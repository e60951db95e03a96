// SPDX-License-Identifier: Apache-2.0
//
// Locks through the third generation.
#include "tests/contract/providers/filestore/third.h"

using namespace filestore_test;

using FileStoreLocks3 = ThirdTest;

TEST_F(FileStoreLocks3, HaveAllTheirFields)
{
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    const std::string owner =
        "<D:href xmlns:D=\"DAV:\">mailto:" + std::string(1000, 'm') + "</D:href>";
    Lock lock;
    Change change;
    ASSERT_EQ(0u, TakeLock("/docs/d", -1, &lock, Given(), &change, nullptr, Shared, owner));
    EXPECT_EQ(kOutcomeReplaced, change.Outcome) << "the collection was there";
    EXPECT_EQ(36u, lock.token.size());
    EXPECT_EQ(owner, lock.owner);
    EXPECT_EQ("/docs/d", lock.root);
    EXPECT_EQ(Shared, lock.scope);
    EXPECT_EQ(-1, lock.depth);
    EXPECT_NEAR(600e7, static_cast<double>(lock.timeout), 5e7);
    Lock other;
    ASSERT_EQ(0u, TakeLock("/docs/d", 0, &other, Given(), nullptr, nullptr, Shared));
    for (const UINT32 room : {1400u, 16384u}) {
        const auto locks = Locks("/docs/d", room);
        ASSERT_EQ(2u, locks.size());
        EXPECT_EQ(lock.token, locks[0].token);
        EXPECT_EQ(owner, locks[0].owner);
        EXPECT_EQ(other.token, locks[1].token);
    }
    const auto inherited = Locks("/docs/d/not there yet");
    ASSERT_EQ(1u, inherited.size());
    EXPECT_EQ("/docs/d", inherited[0].root);
    EXPECT_EQ(0u, Unlock("/docs/d", lock.token));
    EXPECT_EQ(0u, Unlock("/docs/d", other.token));
    EXPECT_TRUE(Locks("/docs/d").empty());
}

TEST_F(FileStoreLocks3, MakeAnEmptyResourceWhereNothingIs)
{
    Lock lock;
    Change change;
    ASSERT_EQ(0u, TakeLock("/docs/new", 0, &lock, Given(), &change));
    EXPECT_EQ(kOutcomeCreated, change.Outcome);
    EXPECT_EQ(0u, change.Info.ResourceSize);
    EXPECT_TRUE(std::filesystem::exists(Docs() / "new"));
    EXPECT_EQ(kCodeConflict, Code(TakeLock("/docs/none/new", 0, &lock)));
    Lock again;
    EXPECT_EQ(kCodeLocked, Code(TakeLock("/docs/new", 0, &again)));
    EXPECT_EQ(0u, Unlock("/docs/new", lock.token));
}

// What the module or the host unlocks while a LOCK runs is a lock that its client has not heard of.
TEST_F(FileStoreLocks3, ThatAreTakenBackLeaveNoEmptyFile)
{
    struct Row {
        const char* why;
        UINT32 method; // in which it is unlocked
        std::function<void(const std::string& token)> meanwhile;
        bool stays;
    };
    const auto nothing = [](const std::string&) {};
    const Row rows[] = {
        {"taken back", KestMethodLock, nothing, false},
        {"given up by its holder", KestMethodUnlock, nothing, true},
        {"written meanwhile", KestMethodLock,
         [&](const std::string& token) {
             EXPECT_EQ(0u, Store("/docs/new", "content", Given().Token(token)));
         },
         true},
        {"emptied by somebody meanwhile", KestMethodLock,
         [&](const std::string& token) {
             EXPECT_EQ(0u, Store("/docs/new", "", Given().Token(token)));
         },
         true},
        {"described meanwhile", KestMethodLock,
         [&](const std::string& token) {
             EXPECT_EQ(0u, SetOne("/docs/new", "urn:x", "p", "<p xmlns=\"urn:x\"/>",
                                  Given().Token(token)));
         },
         true},
        {"locked by another, too", KestMethodLock,
         [&](const std::string&) {
             Lock other;
             EXPECT_EQ(0u, TakeLock("/docs/new", 0, &other, Given(), nullptr, nullptr, Shared));
         },
         true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.why);
        SetUp();
        Lock lock;
        ASSERT_EQ(0u, TakeLock("/docs/new", 0, &lock, Given(), nullptr, nullptr, Shared));
        row.meanwhile(lock.token);
        ScriptedRequest request;
        request.method = row.method;
        request.path = "/Ferro/docs/new";
        {
            const RunningRequest running(request);
            EXPECT_EQ(0u, Unlock("/docs/new", lock.token));
        }
        EXPECT_EQ(row.stays, std::filesystem::exists(Docs() / "new"));
        for (const Lock& left : Locks("/docs/new"))
            EXPECT_EQ(0u, Unlock("/docs/new", left.token));
    }
}

TEST_F(FileStoreLocks3, ThatAreTakenBackLeaveWhatWasThere)
{
    ASSERT_EQ(0u, Store("/docs/empty", ""));
    Lock lock;
    ASSERT_EQ(0u, TakeLock("/docs/empty", 0, &lock));
    ScriptedRequest request;
    request.method = KestMethodLock;
    request.path = "/Ferro/docs/empty";
    const RunningRequest running(request);
    EXPECT_EQ(0u, Unlock("/docs/empty", lock.token));
    EXPECT_TRUE(std::filesystem::exists(Docs() / "empty"));
}

TEST_F(FileStoreLocks3, OfDepthInfinityGuardMembersOfTodayAndTomorrow)
{
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    ASSERT_EQ(0u, Store("/docs/d/a", "one"));
    ASSERT_EQ(0u, Store("/docs/b", "two"));
    Lock lock;
    ASSERT_EQ(0u, TakeLock("/docs/d", -1, &lock));
    const auto refused = [&](TALSTATUS status, const Told& told, const char* what) {
        EXPECT_EQ(kCodeLocked, Code(status)) << what;
        EXPECT_EQ((std::map<std::string, UINT16>{{"/docs/d", kCodeLocked}}), told.paths) << what;
    };
    const auto attempt = [&](auto&& change, const char* what) {
        Told told;
        const TALSTATUS status = change(&told);
        refused(status, told, what);
    };
    attempt([&](Told* t) { return Store("/docs/d/a", "x", Given(), nullptr, 0, t); }, "PUT over");
    attempt([&](Told* t) { return Store("/docs/d/new", "x", Given(), nullptr, 0, t); }, "PUT new");
    attempt([&](Told* t) { return Delete("/docs/d/a", Given(), t); }, "DELETE");
    attempt([&](Told* t) { return Copy("/docs/b", "/docs/d/c", 1, Given(), nullptr, t); }, "COPY");
    attempt([&](Told* t) { return Move("/docs/d/a", "/docs/c", 1, Given(), nullptr, t); }, "MOVE");
    attempt([&](Told* t) { return Delete("/docs/d", Given(), t); }, "DELETE of the root");
    Lock other;
    attempt([&](Told* t) { return TakeLock("/docs/d/a", 0, &other, Given(), nullptr, t); }, "LOCK");
    EXPECT_EQ(kCodeLocked, Code(MakeFolder("/docs/d/e")));
    EXPECT_EQ(kCodeLocked, Code(SetOne("/docs/d/a", "", "p", "v")));
    EXPECT_EQ("one", ReadFile(Docs() / "d/a"));

    EXPECT_EQ(0u, Store("/docs/d/new", "x", Given().Token(lock.token)));
    EXPECT_EQ(0u, SetOne("/docs/d/new", "", "p", "v", Given().Token(lock.token)));
    EXPECT_EQ(kCodeLocked, Code(Store("/docs/d/new", "x"))) << "of tomorrow";
    EXPECT_EQ(0u, MakeFolder("/docs/d/e", Given().Token("other").Token(lock.token)));
    EXPECT_EQ(0u, Move("/docs/d/new", "/docs/d/e/new", 0, Given().Token(lock.token)));
    EXPECT_EQ(0u, Delete("/docs/d", Given().Token(lock.token)));
    EXPECT_TRUE(Locks("/docs/d").empty()) << "it goes with the collection";
}

TEST_F(FileStoreLocks3, OfMembersRefuseAChangeOfTheTreeByName)
{
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    ASSERT_EQ(0u, Store("/docs/d/a", "one"));
    ASSERT_EQ(0u, Store("/docs/d/b", "two"));
    Lock a, b;
    ASSERT_EQ(0u, TakeLock("/docs/d/a", 0, &a));
    ASSERT_EQ(0u, TakeLock("/docs/d/b", 0, &b));
    const std::map<std::string, UINT16> both = {{"/docs/d/a", kCodeLocked},
                                                {"/docs/d/b", kCodeLocked}};
    Told deleted, moved, locked, one;
    EXPECT_EQ(kCodeLocked, Code(Delete("/docs/d", Given(), &deleted)));
    EXPECT_EQ(both, deleted.paths);
    EXPECT_EQ(kCodeLocked, Code(Move("/docs/d", "/Other/d", 1, Given(), nullptr, &moved)));
    EXPECT_EQ(both, moved.paths);
    Lock whole;
    EXPECT_EQ(kCodeLocked, Code(TakeLock("/docs/d", -1, &whole, Given(), nullptr, &locked)));
    EXPECT_EQ(both, locked.paths);
    EXPECT_EQ(kCodeLocked, Code(Delete("/docs/d", Given().Token(a.token), &one)));
    EXPECT_EQ((std::map<std::string, UINT16>{{"/docs/d/b", kCodeLocked}}), one.paths);
    EXPECT_EQ(0u, Delete("/docs/d", Given().Token(a.token).Token(b.token)));
}

TEST_F(FileStoreLocks3, AreAskedAgainWhenContentIsPublished)
{
    ASSERT_EQ(0u, Store("/docs/a", "one"));
    Ref<IKestDAVResource3> slow = NewContent();
    Wstr path("/docs/a");
    Change change;
    Told told;
    Lock lock;
    ASSERT_EQ(0u, slow->Open(session_, &path, kOpenReplace, -1, nullptr, nullptr, nullptr));
    ASSERT_EQ(0u, TakeLock("/docs/a", 0, &lock));
    EXPECT_EQ(kCodeLocked, Code(slow->Publish(0, 0, &told, &change)));
    EXPECT_EQ(1u, told.paths.count("/docs/a"));
    EXPECT_EQ("one", ReadFile(Docs() / "a"));
    EXPECT_EQ(0u, Unlock("/docs/a", lock.token));
}

TEST_F(FileStoreLocks3, AreRefreshedByTheFirstTokenThatNamesOne)
{
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    ASSERT_EQ(0u, Store("/docs/d/a", "one"));
    Lock lock;
    ASSERT_EQ(0u, TakeLock("/docs/d", -1, &lock));
    Wstr path("/docs/d/a");
    alignas(8) char buffer[1024];
    auto* const record = reinterpret_cast<DAV_LOCK_INFO_3*>(buffer);
    UINT32 size = sizeof buffer;
    Given given;
    given.Token("unknown").Token(lock.token);
    ASSERT_EQ(0u, third_->RefreshLock(session_, &path, 3000'0000000, &given, &size, record));
    EXPECT_EQ(3000'0000000, LockOf(record).timeout);
    EXPECT_EQ("/docs/d", LockOf(record).root);
    size = sizeof buffer;
    EXPECT_EQ(kCodePreconditionFailed,
              Code(third_->RefreshLock(session_, &path, 1, nullptr, &size, record)));
    EXPECT_EQ(0u, Unlock("/docs/d/a", lock.token)) << "through a member";
}

TEST_F(FileStoreLocks3, AreGivenUpByTheirHolderOnly)
{
    ASSERT_EQ(0u, Store("/docs/a", "one"));
    ASSERT_EQ(0u, Store("/docs/b", "one"));
    Lock lock;
    {
        ScriptedRequest request;
        request.user = "anna";
        const RunningRequest running(request);
        ASSERT_EQ(0u, TakeLock("/docs/a", 0, &lock));
    }
    ScriptedRequest request;
    request.user = "bert";
    const RunningRequest running(request);
    EXPECT_EQ(kCodeAccessDenied, Code(Unlock("/docs/a", lock.token)));
    EXPECT_EQ(kCodeNotFound, Code(Unlock("/docs/b", lock.token)));
    EXPECT_EQ(kCodeNotFound, Code(Unlock("/docs/a", "unknown")));
    EXPECT_EQ(kCodeLocked, Code(Delete("/docs/a", Given().Token(lock.token)))) << "of another";
    request.user = "anna";
    EXPECT_EQ(0u, Unlock("/docs/a", lock.token));
}

TEST_F(FileStoreLocks3, HoldAConditionOfTheIfHeader)
{
    ASSERT_EQ(0u, MakeFolder("/docs/d"));
    ASSERT_EQ(0u, Store("/docs/d/a", "one"));
    Lock lock;
    ASSERT_EQ(0u, TakeLock("/docs/d", -1, &lock));
    Given given, wrong;
    given.Token(lock.token)
        .If("", {given.Holds(kIfToken, lock.token), given.Holds(kIfTag, Tag("/docs/d/a"))});
    wrong.Token(lock.token)
        .If("", {wrong.Holds(kIfToken, lock.token), wrong.Not(kIfTag, Tag("/docs/d/a"))});
    EXPECT_EQ(kCodePreconditionFailed, Code(Delete("/docs/d/a", wrong)));
    EXPECT_EQ(0u, Delete("/docs/d/a", given));
    EXPECT_EQ(0u, Unlock("/docs/d", lock.token));
}

TEST_F(FileStoreLocks3, RefuseWhatCannotBeKeptOrTold)
{
    ASSERT_EQ(0u, Store("/docs/a", "one"));
    Lock lock;
    EXPECT_EQ(kCodeInvalidParameter, Code(TakeLock("/docs/a", 0, &lock, Given(), nullptr, nullptr,
                                                   Exclusive, std::string(8193, 'x'))));
    EXPECT_EQ(kCodeInvalidParameter,
              Code(TakeLock("/docs/a", 0, &lock, Given(), nullptr, nullptr, Exclusive, "a\x01")));
    const DAV_LOCK_REQUEST request{sizeof request, Exclusive, Write, 0, -1, Text("me")};
    Wstr path("/docs/a");
    alignas(8) char buffer[1024];
    UINT32 size = 60;
    EXPECT_EQ(kCodeBufferTooSmall,
              Code(third_->Lock(session_, &path, &request, nullptr, nullptr, &size,
                                reinterpret_cast<DAV_LOCK_INFO_3*>(buffer), nullptr)));
    EXPECT_TRUE(Locks("/docs/a").empty());
    EXPECT_EQ(kCodeAccessDenied, Code(TakeLock("/", 0, &lock)));
}
