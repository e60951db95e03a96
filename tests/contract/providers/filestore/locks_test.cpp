// SPDX-License-Identifier: Apache-2.0
//
// Locks: what they are given, what they keep from others, how they end.
#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include "tests/contract/providers/filestore/locks.h"

using namespace filestore_test;

TEST_F(FileStoreLocks, ALockIsFoundWithWhatItWasGiven)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    EXPECT_TRUE(Found("/docs/a").empty());
    std::string token;
    ASSERT_EQ(0u, Lock("/docs/a", &token, Exclusive, "<href>mailto:me</href>"));
    EXPECT_EQ(36u, token.size());
    DAV_LOCK_2 lock{};
    EXPECT_EQ(std::vector<std::string>{token}, Found("/docs/a", &lock));
    EXPECT_EQ(Write, lock.Type);
    EXPECT_EQ(Exclusive, lock.Scope);
    EXPECT_EQ(0, lock.Depth);
    EXPECT_GT(lock.Timeout, 90 * kSecond);
    EXPECT_LE(lock.Timeout, 100 * kSecond);
    EXPECT_EQ("<href>mailto:me</href>", std::string(lock.Owner, lock.OwnerLength));
    EXPECT_EQ(0u, Unlock("/docs/a", token));
    EXPECT_TRUE(Found("/docs/a").empty());
    EXPECT_EQ(kCodeNotFound, Code(Unlock("/docs/a", token)));
    EXPECT_EQ(kCodeNotFound, Code(Unlock("/docs/a", "")));
}

TEST_F(FileStoreLocks, OwnersThatAreNotWellFormedAreEscaped)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    std::string token;
    DAV_LOCK_2 lock{};
    ASSERT_EQ(0u, Lock("/docs/a", &token, Shared, "</a:owner>&<"));
    ASSERT_EQ(1u, Found("/docs/a", &lock).size());
    EXPECT_EQ("&lt;/a:owner&gt;&amp;&lt;", std::string(lock.Owner, lock.OwnerLength));
    EXPECT_EQ(0u, Unlock("/docs/a", token));
}

TEST_F(FileStoreLocks, ExclusiveAndSharedExcludeEachOther)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    std::string first, second, other;
    ASSERT_EQ(0u, Lock("/docs/a", &first, Shared));
    ASSERT_EQ(0u, Lock("/docs/a", &second, Shared));
    EXPECT_NE(first, second);
    EXPECT_EQ(kCodeLocked, Code(Lock("/docs/a", &other, Exclusive)));
    EXPECT_EQ((std::vector<std::string>{first, second}), Found("/docs/a"));
    EXPECT_EQ(kCodeLocked, Code(Put("/docs/a", "y")));
    EXPECT_EQ(0u, PutWith("/docs/a", second)); // either holder may write
    EXPECT_EQ(0u, Unlock("/docs/a", first));
    EXPECT_EQ(0u, Unlock("/docs/a", second));
    ASSERT_EQ(0u, Lock("/docs/a", &other, Exclusive));
    EXPECT_EQ(kCodeLocked, Code(Lock("/docs/a", &first, Shared)));
    EXPECT_EQ(0u, Unlock("/docs/a", other));
}

TEST_F(FileStoreLocks, ALockedResourceIsNotChangedWithoutItsToken)
{
    ASSERT_EQ(0u, MkCol("/docs/dir"));
    ASSERT_EQ(0u, Put("/docs/dir/a", "x"));
    ASSERT_EQ(0u, Put("/docs/b", "x"));
    const std::string token = MustLock("/docs/dir/a");
    EXPECT_EQ(kCodeLocked, Code(Put("/docs/dir/a", "y")));
    EXPECT_EQ(kCodeLocked, Code(PutWith("/docs/dir/a", "wrong")));
    EXPECT_EQ(kCodeLocked, Code(SetProperty("/docs/dir/a")));
    EXPECT_EQ(kCodeLocked, Code(Opened("/docs/dir/a")->SetLiveAttributes(1)));
    EXPECT_EQ(kCodeLocked, Code(Opened("/docs/dir/a")->SetModificationDate(1)));
    EXPECT_EQ(kCodeLocked, Code(Delete("/docs/dir/a")));
    EXPECT_EQ(kCodeLocked, Code(Delete("/docs/dir")));
    EXPECT_EQ(kCodeLocked, Code(Move("/docs/dir", "/docs/moved")));
    EXPECT_EQ(kCodeLocked, Code(Move("/docs/b", "/docs/dir/a")));
    EXPECT_EQ("x", Get("/docs/dir/a")); // reading is free
    EXPECT_EQ(0u, Put("/docs/dir/other", "y"));
    EXPECT_TRUE(Entries(Docs() / ".kest/tmp").empty());
    EXPECT_EQ(0u, Unlock("/docs/dir/a", token));
    EXPECT_EQ(0u, Delete("/docs/dir"));
}

TEST_F(FileStoreLocks, ALockOnAFreeNameMakesAnEmptyFile)
{
    std::string token;
    ASSERT_EQ(0u, Lock("/docs/new", &token));
    EXPECT_EQ("", Get("/docs/new"));
    EXPECT_EQ(kCodeConflict, Code(Lock("/docs/none/new", &token)));
    EXPECT_EQ(kCodeAccessDenied, Code(Lock("/new", &token)));
    EXPECT_EQ(kCodeInvalidParameter, Code(Lock("/docs/b", &token, Exclusive, "", 0)));
    EXPECT_FALSE(std::filesystem::exists(Docs() / "b"));
    EXPECT_EQ(0u, Unlock("/docs/new", token));
}

TEST_F(FileStoreLocks, ACollectionsLockKeepsItsMembersNamesTogether)
{
    ASSERT_EQ(0u, MkCol("/docs/dir"));
    ASSERT_EQ(0u, Put("/docs/dir/a", "x"));
    const std::string token = MustLock("/docs/dir");
    EXPECT_EQ(kCodeLocked, Code(Put("/docs/dir/new", "x")));
    EXPECT_EQ(kCodeLocked, Code(MkCol("/docs/dir/sub")));
    EXPECT_EQ(kCodeLocked, Code(Delete("/docs/dir/a")));
    EXPECT_EQ(kCodeLocked, Code(Move("/docs/dir/a", "/docs/a")));
    std::string other;
    EXPECT_EQ(kCodeLocked, Code(Lock("/docs/dir/new", &other)));
    EXPECT_EQ(0u, Put("/docs/dir/a", "y")); // a member's content is not the collection's
    EXPECT_EQ(0u, PutWith("/docs/dir/new", token));
    EXPECT_EQ(0u, Unlock("/docs/dir", token));
}

TEST_F(FileStoreLocks, ADeepLockCoversAllBelow)
{
    ASSERT_EQ(0u, MkCol("/docs/dir"));
    ASSERT_EQ(0u, MkCol("/docs/dir/sub"));
    ASSERT_EQ(0u, Put("/docs/dir/sub/a", "x"));
    std::string token, other;
    ASSERT_EQ(0u, Lock("/docs/dir", &token, Exclusive, "", -1, -1));
    EXPECT_EQ(kCodeLocked, Code(Put("/docs/dir/sub/a", "y")));
    EXPECT_EQ(kCodeLocked, Code(Lock("/docs/dir/sub/a", &other)));
    DAV_LOCK_2 lock{};
    EXPECT_EQ(std::vector<std::string>{token}, Found("/docs/dir/sub/a", &lock));
    EXPECT_EQ(-1, lock.Timeout);
    EXPECT_EQ(-1, lock.Depth);
    EXPECT_EQ(0u, PutWith("/docs/dir/sub/a", token));
    EXPECT_EQ(0u, Unlock("/docs/dir/sub/a", token)); // by any name that it covers
    ASSERT_EQ(0u, Lock("/docs/dir/sub/a", &other));
    EXPECT_EQ(kCodeLocked, Code(Lock("/docs/dir", &token, Exclusive, "", -1, -1)));
    EXPECT_EQ(0u, Unlock("/docs/dir/sub/a", other));
}

TEST_F(FileStoreLocks, RefreshExtendsAndDescribes)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    const std::string token = MustLock("/docs/a");
    alignas(DAV_LOCK_2) char buffer[kLockRecordBytes];
    auto* const lock = reinterpret_cast<DAV_LOCK_2*>(buffer);
    EXPECT_EQ(0u, Refresh("/docs/a", token, 5000 * kSecond, lock));
    EXPECT_EQ(5000 * kSecond, lock->Timeout) << "what was granted, not what is left of it";
    DAV_LOCK_2 kept{};
    EXPECT_EQ(1u, Found("/docs/a", &kept).size());
    EXPECT_GT(kept.Timeout, 4990 * kSecond);
    EXPECT_EQ("me", std::string(lock->Owner, lock->OwnerLength));
    EXPECT_EQ(token, std::string(buffer + offsetof(DAV_LOCK_2, Token), lock->TokenLength));
    EXPECT_EQ(kCodePreconditionFailed, Code(Refresh("/docs/a", "wrong", kSecond, lock)));
    EXPECT_EQ(kCodePreconditionFailed, Code(Refresh("/docs/b", token, kSecond, lock)));
    EXPECT_EQ(kCodeInvalidParameter, Code(Refresh("/docs/a", token, 0, lock)));
    ASSERT_EQ(0u, Put("/docs/b", "x"));
    EXPECT_EQ(kCodePreconditionFailed, Code(Refresh("/docs/b", token, kSecond, lock)));
    EXPECT_EQ(kCodeNotFound, Code(Unlock("/docs/b", token))) << "a lock of something else";
    EXPECT_EQ(0u, Unlock("/docs/a", token));
}

TEST_F(FileStoreLocks, AnothersLockIsNotGivenUpRefreshedOrUsed)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    std::string token;
    ScriptedRequest alice;
    alice.method = KestMethodLock;
    alice.user = "alice.org";
    {
        const RunningRequest running(alice);
        token = MustLock("/docs/a");
    }
    ScriptedRequest bob;
    bob.method = KestMethodUnlock;
    bob.user = "bob.org";
    {
        const RunningRequest running(bob);
        alignas(DAV_LOCK_2) char buffer[kLockRecordBytes];
        EXPECT_EQ(kCodeAccessDenied, Code(Unlock("/docs/a", token)));
        EXPECT_EQ(kCodeAccessDenied,
                  Code(Refresh("/docs/a", token, kSecond, reinterpret_cast<DAV_LOCK_2*>(buffer))));
        EXPECT_EQ(kCodeLocked, Code(PutWith("/docs/a", token)));
    }
    const RunningRequest running(alice);
    EXPECT_EQ(0u, PutWith("/docs/a", token));
    EXPECT_EQ(0u, Unlock("/docs/a", token));
}

TEST_F(FileStoreLocks, LocksDoNotMoveOrCopy)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    const std::string token = MustLock("/docs/a");
    Wstr from("/docs/a"), copy("/docs/copy");
    EXPECT_EQ(0u, Namespace()->Copy(session_, TRUE, -1, &from, &copy, nullptr, nullptr));
    EXPECT_TRUE(Found("/docs/copy").empty());
    EXPECT_EQ(0u, WithIf(
                      "/docs/a", "(<opaquelocktoken:" + token + ">)",
                      [&] { return Move("/docs/a", "/docs/moved"); }, KestMethodMove));
    EXPECT_TRUE(Found("/docs/moved").empty());
    EXPECT_EQ(0u, Put("/docs/a", "free again"));
}

TEST_F(FileStoreLocks, AnUploadUnderWayLosesAgainstALockTakenMeanwhile)
{
    ASSERT_EQ(0u, Put("/docs/a", "old"));
    ScriptedRequest request;
    request.method = KestMethodPut;
    const RunningRequest running(request);
    std::string token;
    {
        Ref<IKestDAVResource2> resource = NewResource();
        Wstr path("/docs/a");
        ASSERT_EQ(0u, resource->Associate(session_, TRUE, 7, 1, 0, &path, nullptr));
        char text[] = "new";
        UINT32 written = 0;
        ASSERT_EQ(0u, resource->Write(0, 3, text, &written));
        token = MustLock("/docs/a");
    }
    ASSERT_EQ(1u, request.failures.size());
    EXPECT_EQ(kCodeLocked, Code(request.failures[0]));
    EXPECT_EQ("old", Get("/docs/a"));
    EXPECT_EQ(0u, Unlock("/docs/a", token));
}

// Each call goes on where the last one stopped: none looks through the locks before.
TEST_F(FileStoreLocks, AllVolumesLocksAreListedInTheOrderInWhichTheyWereMade)
{
    std::vector<std::string> expected;
    std::vector<std::string> tokens;
    for (const char* volume : {"/docs/", "/Other/"})
        for (int i = 0; i < 3; ++i) {
            const std::string path = volume + std::to_string(9 - i);
            ASSERT_EQ(0u, Put(path, "x"));
            tokens.push_back(MustLock(path));
            expected.push_back(path);
        }
    alignas(DAV_LOCK_INFO) char buffer[1024];
    const auto* const info = reinterpret_cast<const DAV_LOCK_INFO*>(buffer);
    DAV_LOCK_PLACE place{};
    std::vector<std::string> paths;
    for (UINT32 size = sizeof buffer;
         !Failed(Namespace()->IoctlRequest(session_, kIoctlListLocks, sizeof place, &place, &size,
                                           buffer)) &&
         paths.size() < 100;
         size = sizeof buffer)
        paths.emplace_back(buffer + offsetof(DAV_LOCK_INFO, Text) + info->TokenLength,
                           info->PathLength);
    EXPECT_EQ(expected, paths);
    for (size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(0u, Unlock(expected[i], tokens[i]));
}

TEST_F(FileStoreLocks, AdministratorsListAndBreakLocks)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    const std::string token = MustLock("/docs/a");
    alignas(DAV_LOCK_INFO) char buffer[1024];
    auto* const info = reinterpret_cast<DAV_LOCK_INFO*>(buffer);
    DAV_LOCK_PLACE place{};
    UINT32 size = 8;
    const auto list = [&] {
        return Namespace()->IoctlRequest(session_, kIoctlListLocks, sizeof place, &place, &size,
                                         buffer);
    };
    EXPECT_EQ(kCodeBufferTooSmall, Code(list()));
    EXPECT_EQ(0, place.Lock) << "it is told of again";
    size = sizeof buffer;
    ASSERT_EQ(0u, list());
    const char* const text = buffer + offsetof(DAV_LOCK_INFO, Text);
    EXPECT_EQ(token, std::string(text, info->TokenLength));
    EXPECT_EQ("/docs/a", std::string(text + info->TokenLength, info->PathLength));
    size = sizeof buffer;
    EXPECT_EQ(kCodeNoMoreEntries, Code(list()));
    EXPECT_EQ(0u, Namespace()->IoctlRequest(session_, kIoctlBreakLock,
                                            static_cast<UINT32>(token.size()),
                                            const_cast<char*>(token.data()), nullptr, nullptr));
    EXPECT_TRUE(Found("/docs/a").empty());
    EXPECT_EQ(kCodeNotFound,
              Code(Namespace()->IoctlRequest(session_, kIoctlBreakLock, 3, const_cast<char*>("abc"),
                                             nullptr, nullptr)));
}

TEST_F(FileStoreLocks, ManyContendersNeverHoldOneLockTogether)
{
    constexpr int kThreads = 16, kRounds = 12, kFiles = 3;
    for (int i = 0; i < kFiles; ++i)
        ASSERT_EQ(0u, Put("/docs/c" + std::to_string(i), "0"));
    std::atomic<int> holders[kFiles]{}, gained[kFiles]{};
    std::atomic<int> broken{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&, t] {
            ScriptedRequest request;
            request.method = KestMethodPut;
            const RunningRequest running(request);
            for (int round = 0; round < kRounds; ++round) {
                const int f = (t + round) % kFiles;
                const std::string path = "/docs/c" + std::to_string(f);
                std::string token;
                const TALSTATUS status = Lock(path, &token);
                if (Code(status) == kCodeLocked)
                    continue;
                broken += Failed(status) ? 1 : 0;
                broken += holders[f].fetch_add(1) != 0 ? 1 : 0;
                // Read, add one, write: no update is lost while the lock holds.
                const std::optional<std::string> content = Get(path);
                const std::string next = std::to_string(std::stoi(content.value_or("-1000")) + 1);
                {
                    Token given(token);
                    Wstr wide(path);
                    Ref<IKestDAVResource2> resource = NewResource();
                    UINT32 written = 0;
                    broken +=
                        Failed(resource->Associate(session_, TRUE, 7, 1, 0, &wide, &given.value));
                    broken += Failed(resource->Write(0, static_cast<UINT32>(next.size()),
                                                     const_cast<char*>(next.data()), &written));
                }
                ++gained[f];
                --holders[f];
                broken += Failed(Unlock(path, token)) ? 1 : 0;
            }
            broken += static_cast<int>(request.failures.size());
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(0, broken);
    for (int i = 0; i < kFiles; ++i)
        EXPECT_EQ(std::to_string(gained[i]), Get("/docs/c" + std::to_string(i)));
}
