// SPDX-License-Identifier: Apache-2.0
//
// COPY and MOVE are whole or not done, whatever fails, and whoever is quick.
#include <fstream>

#include <sys/stat.h>

#include "tests/contract/providers/filestore/faults.h"

using namespace faults;
using filestore::Client;
using harness::Request;
namespace fs = std::filesystem;

namespace {

// Sources "one/file" and "one/tree", and things to be replaced in both volumes.
void Fill(Client& client)
{
    ASSERT_EQ(0u, client.Put("/one/file", "content of the file"));
    ASSERT_EQ(0u, client.SetProperty("/one/file", "color", "red"));
    ASSERT_EQ(0u, client.MkCol("/one/tree"));
    ASSERT_EQ(0u, client.MkCol("/one/tree/sub"));
    ASSERT_EQ(0u, client.Put("/one/tree/a", "first"));
    ASSERT_EQ(0u, client.Put("/one/tree/empty", ""));
    ASSERT_EQ(0u, client.Put("/one/tree/sub/b", "second"));
    ASSERT_EQ(0u, client.SetProperty("/one/tree/sub/b", "color", "blue"));
    for (const std::string volume : {"/one", "/two"}) {
        ASSERT_EQ(0u, client.Put(volume + "/old file", "of before"));
        ASSERT_EQ(0u, client.SetProperty(volume + "/old file", "color", "grey"));
        ASSERT_EQ(0u, client.MkCol(volume + "/old folder"));
        ASSERT_EQ(0u, client.Put(volume + "/old folder/member", "of before"));
        ASSERT_EQ(0u, client.SetProperty(volume + "/old folder/member", "color", "grey"));
    }
}

struct Row {
    const char* name;
    UINT32 method;
    const char* source;
    const char* destination;
    bool overwrite = false; // as the host says it: only where something is there
    bool isRefused = false;
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.name;
}

Request Make(const Row& row)
{
    Request request(row.method, std::string("/Ferro") + row.source);
    const std::string path = std::string("/Ferro") + row.destination;
    return request.To(row.method == KestMethodCopy ? "http://server.example:8080" + path : path,
                      row.overwrite ? TRUE : FALSE);
}

constexpr UINT32 kCopy = KestMethodCopy;
constexpr UINT32 kMove = KestMethodMove;

const Row kRows[] = {
    {"CopyFileWithin", kCopy, "/one/file", "/one/new"},
    {"CopyFileAcross", kCopy, "/one/file", "/two/new"},
    {"CopyFileOntoFile", kCopy, "/one/file", "/one/old file", true},
    {"CopyFileOntoFileAcross", kCopy, "/one/file", "/two/old file", true},
    {"CopyFileOntoFolder", kCopy, "/one/file", "/one/old folder", true, true},
    {"CopyTreeWithin", kCopy, "/one/tree", "/one/new"},
    {"CopyTreeAcross", kCopy, "/one/tree", "/two/new"},
    {"CopyTreeOntoFile", kCopy, "/one/tree", "/one/old file", true, true},
    {"CopyTreeOntoFolder", kCopy, "/one/tree", "/one/old folder", true, true},
    {"CopyTreeOntoFolderAcross", kCopy, "/one/tree", "/two/old folder", true, true},
    {"MoveFileWithin", kMove, "/one/file", "/one/new"},
    {"MoveFileAcross", kMove, "/one/file", "/two/new"},
    {"MoveFileOntoFile", kMove, "/one/file", "/one/old file", true},
    {"MoveFileOntoFileAcross", kMove, "/one/file", "/two/old file", true},
    {"MoveFileOntoFolder", kMove, "/one/file", "/one/old folder", true},
    {"MoveFileOntoFolderAcross", kMove, "/one/file", "/two/old folder", true},
    {"MoveTreeWithin", kMove, "/one/tree", "/one/new"},
    {"MoveTreeAcross", kMove, "/one/tree", "/two/new"},
    {"MoveTreeOntoFile", kMove, "/one/tree", "/one/old file", true},
    {"MoveTreeOntoFileAcross", kMove, "/one/tree", "/two/old file", true},
    {"MoveTreeOntoFolder", kMove, "/one/tree", "/one/old folder", true},
    {"MoveTreeOntoFolderAcross", kMove, "/one/tree", "/two/old folder", true},
};

class Relocation : public testing::TestWithParam<Row> {};

TEST_P(Relocation, IsWholeOrNotDoneWhateverFails)
{
    FailEveryCall({.keepDays = 0, .fill = Fill}, Make(GetParam()),
                  {.isRefused = GetParam().isRefused});
}

TEST_P(Relocation, IsWholeOrNotDoneWhateverFailsWhereDeletedEntriesAreKept)
{
    FailEveryCall({.keepDays = 30, .sync = filestore::SyncLevel::Data, .fill = Fill},
                  Make(GetParam()), {.errors = {ENOSPC}, .isRefused = GetParam().isRefused});
}

TEST_P(Relocation, IsWholeOrNotDoneOnADiskThatFillsUpAndStaysFull)
{
    FailEveryCall({.keepDays = 0, .fill = Fill}, Make(GetParam()),
                  {.errors = {ENOSPC}, .isFullAfter = true, .isRefused = GetParam().isRefused});
}

TEST_P(Relocation, IsWholeOrNotDoneOnAFullDiskWhereDeletedEntriesAreKept)
{
    FailEveryCall({.keepDays = 30, .fill = Fill}, Make(GetParam()),
                  {.errors = {ENOSPC}, .isFullAfter = true, .isRefused = GetParam().isRefused});
}

INSTANTIATE_TEST_SUITE_P(Of, Relocation, testing::ValuesIn(kRows),
                         [](const auto& each) { return std::string(each.param.name); });

} // namespace

// -- Cut short: the client has left, or the server stops.

namespace {

const Row kCancelled[] = {
    {"CopyTreeWithin", kCopy, "/one/tree", "/one/new"},
    {"CopyTreeAcross", kCopy, "/one/tree", "/two/new"},
    {"MoveTreeAcross", kMove, "/one/tree", "/two/new"},
    {"MoveTreeOntoFolderAcross", kMove, "/one/tree", "/two/old folder", true},
};

class CutShort : public testing::TestWithParam<Row> {};

TEST_P(CutShort, LeavesNothingBehind)
{
    const faults::Setup setup{.keepDays = 0, .fill = Fill};
    std::string before;
    {
        Installation place(setup);
        place.Restart();
        before = place.Snapshot();
    }
    bool wasCutShort = true;
    int question = 1;
    for (; wasCutShort; ++question) {
        SCOPED_TRACE("question " + std::to_string(question));
        ASSERT_LT(question, 100);
        Installation place(setup);
        int asked = 0;
        place.isCancelled = [&] { return ++asked >= question; };
        const Outcome outcome = place.Run(Make(GetParam()));
        wasCutShort = asked >= question;
        EXPECT_EQ(!wasCutShort, outcome.IsSuccess()) << outcome;
        EXPECT_TRUE(place.Leftovers().empty());
        place.Restart();
        if (wasCutShort) {
            EXPECT_EQ(before, place.Snapshot());
        }
    }
    EXPECT_GT(question, 5) << "it hardly asks";
}

INSTANTIATE_TEST_SUITE_P(Of, CutShort, testing::ValuesIn(kCancelled),
                         [](const auto& each) { return std::string(each.param.name); });

// -- Somebody else is quick: at every call in turn, another client does something.

// Calls `check` after each run with whether the other client has succeeded.
void InterfereAtEveryCall(
    const Row& row, const std::function<TALSTATUS(Client&)>& other,
    const std::function<void(Installation&, const Outcome&, bool hasDone)>& check)
{
    bool hasCome = true;
    for (int at = 1; hasCome; ++at) {
        SCOPED_TRACE("call " + std::to_string(at));
        ASSERT_LT(at, 500);
        Installation place({.keepDays = 0, .fill = Fill});
        int calls = 0;
        TALSTATUS status = TAL_STATUS_UNSUCCESSFUL;
        place.onCall = [&](const std::string&) {
            if (!place.HoldsMetadata() && ++calls == at)
                place.AsAnother([&](Client& client) { status = other(client); });
        };
        const Outcome outcome = place.Run(Make(row));
        hasCome = calls >= at;
        check(place, outcome, hasCome && !Failed(status));
        EXPECT_TRUE(place.Leftovers().empty());
        if (testing::Test::HasFailure())
            return;
    }
}

constexpr char kContent[] = "content of the file";

TEST(AMoveBetweenVolumes, KeepsItsSourceWhereSomebodyMakesTheTargetAFolder)
{
    InterfereAtEveryCall(
        {"", kMove, "/one/file", "/two/new"},
        [](Client& client) { return client.MkCol("/two/new"); },
        [](Installation& place, const Outcome& outcome, bool hasMade) {
            EXPECT_EQ(hasMade, fs::is_directory(place.Two() / "new"));
            EXPECT_EQ(hasMade, !outcome.IsSuccess()) << outcome;
            EXPECT_EQ(kContent,
                      filestore::Contents(hasMade ? place.One() / "file" : place.Two() / "new"));
        });
}

TEST(AMoveBetweenVolumes, KeepsItsSourceWhereSomebodyLocksTheTarget)
{
    InterfereAtEveryCall(
        {"", kMove, "/one/file", "/two/new"},
        [](Client& client) {
            std::string token;
            return client.Lock("/two/new", -1, &token);
        },
        [](Installation& place, const Outcome& outcome, bool hasLocked) {
            if (!outcome.IsSuccess())
                EXPECT_EQ(kContent, filestore::Contents(place.One() / "file")) << outcome;
            else
                EXPECT_EQ(kContent, filestore::Contents(place.Two() / "new"));
            EXPECT_TRUE(!hasLocked || !outcome.IsSuccess() ||
                        !fs::exists(place.One() / "file")); // locked when it was there
        });
}

TEST(AMoveBetweenVolumes, LosesNothingThatSomebodyStoresInItsSource)
{
    InterfereAtEveryCall(
        {"", kMove, "/one/tree", "/two/new"},
        [](Client& client) { return client.Put("/one/tree/sub/late", "arrived late"); },
        [](Installation& place, const Outcome& outcome, bool hasStored) {
            const fs::path tree = outcome.IsSuccess() ? place.Two() / "new" : place.One() / "tree";
            EXPECT_EQ("second", filestore::Contents(tree / "sub/b")) << outcome;
            if (hasStored) {
                EXPECT_EQ("arrived late", filestore::Contents(tree / "sub/late")) << outcome;
            }
            EXPECT_FALSE(
                fs::exists((outcome.IsSuccess() ? place.One() / "tree" : place.Two() / "new")));
        });
}

TEST(AMoveBetweenVolumes, LosesNothingThatSomebodyWritesAnewInItsSource)
{
    InterfereAtEveryCall(
        {"", kMove, "/one/tree", "/two/new"},
        [](Client& client) { return client.Put("/one/tree/a", "written anew"); },
        [](Installation& place, const Outcome& outcome, bool hasStored) {
            const fs::path tree = outcome.IsSuccess() ? place.Two() / "new" : place.One() / "tree";
            EXPECT_EQ(hasStored ? "written anew" : "first", filestore::Contents(tree / "a"))
                << outcome;
        });
}

TEST(ACopyOfAFile, LeavesWhatSomebodyMakesOfItsTarget)
{
    InterfereAtEveryCall(
        {"", kCopy, "/one/file", "/two/new"},
        [](Client& client) { return client.MkCol("/two/new"); },
        [](Installation& place, const Outcome& outcome, bool hasMade) {
            EXPECT_EQ(hasMade, fs::is_directory(place.Two() / "new"));
            EXPECT_EQ(hasMade, !outcome.IsSuccess()) << outcome;
            EXPECT_EQ(kContent, filestore::Contents(place.One() / "file"));
        });
}

// -- What a tree can hold besides files and folders.

TEST(AMoveBetweenVolumes, TakesLinksAlong)
{
    Installation place({.keepDays = 0, .fill = Fill});
    fs::create_symlink("a", place.One() / "tree/to file");
    fs::create_symlink("sub", place.One() / "tree/to folder");
    fs::create_symlink("nowhere", place.One() / "tree/dangling");
    EXPECT_TRUE(place.Run(Make({"", kMove, "/one/tree", "/two/new"})).IsSuccess());
    EXPECT_FALSE(fs::exists(place.One() / "tree"));
    EXPECT_EQ("first", filestore::Contents(place.Two() / "new/to file"));
    EXPECT_EQ("sub", fs::read_symlink(place.Two() / "new/to folder"));
    EXPECT_EQ("nowhere", fs::read_symlink(place.Two() / "new/dangling"));
}

TEST(AMoveBetweenVolumes, IsRefusedWhereAMemberCannotGoAlong)
{
    Installation place({.keepDays = 0, .fill = Fill});
    ASSERT_EQ(0, ::mkfifo((place.One() / "tree/sub/pipe").c_str(), 0644));
    EXPECT_EQ(403, place.Run(Make({"", kMove, "/one/tree", "/two/new"})).said);
    EXPECT_TRUE(fs::exists(place.One() / "tree/sub/pipe"));
    EXPECT_EQ("second", filestore::Contents(place.One() / "tree/sub/b"));
    EXPECT_FALSE(fs::exists(place.Two() / "new"));
}

TEST(AMoveBetweenVolumes, TakesNestedPrivateDirectoriesAlong)
{
    Installation place({.keepDays = 0, .fill = Fill});
    fs::create_directories(place.One() / "tree/sub/.kest/deleted");
    std::ofstream(place.One() / "tree/sub/.kest/deleted/1") << "of a volume within";
    EXPECT_TRUE(place.Run(Make({"", kMove, "/one/tree", "/two/new"})).IsSuccess());
    EXPECT_EQ("of a volume within", filestore::Contents(place.Two() / "new/sub/.kest/deleted/1"));
}

TEST(ACopyOfATree, LeavesOutWhatIsNotServed)
{
    Installation place({.keepDays = 0, .fill = Fill});
    ASSERT_EQ(0, ::mkfifo((place.One() / "tree/pipe").c_str(), 0644));
    fs::create_symlink("sub", place.One() / "tree/to folder");
    fs::create_directories(place.One() / "tree/sub/.kest");
    EXPECT_TRUE(place.Run(Make({"", kCopy, "/one/tree", "/two/new"})).IsSuccess());
    EXPECT_FALSE(fs::exists(place.Two() / "new/pipe"));
    EXPECT_FALSE(fs::exists(fs::symlink_status(place.Two() / "new/to folder")));
    EXPECT_FALSE(fs::exists(place.Two() / "new/sub/.kest"));
    EXPECT_EQ("second", filestore::Contents(place.Two() / "new/sub/b"));
}

TEST(ACopyOfATree, OfAWholeVolumeTakesEverythingButThePrivateDirectory)
{
    Installation place({.keepDays = 0, .fill = Fill});
    EXPECT_TRUE(place.Run(Make({"", kCopy, "/one", "/two/new"})).IsSuccess());
    EXPECT_EQ("second", filestore::Contents(place.Two() / "new/tree/sub/b"));
    EXPECT_EQ(kContent, filestore::Contents(place.Two() / "new/file"));
    EXPECT_FALSE(fs::exists(place.Two() / "new/.kest"));
}

TEST(ACopyOntoAFolder, ThatIsRefusedChangesNothing)
{
    Installation place({.keepDays = 0, .fill = Fill});
    EXPECT_EQ(412, place.Run(Make({"", kCopy, "/one/tree", "/two/old folder", true})).said);
    EXPECT_EQ("of before", filestore::Contents(place.Two() / "old folder/member"));
    EXPECT_FALSE(fs::exists(place.Two() / "old folder/a"));
    EXPECT_FALSE(fs::exists(place.Two() / "old folder/sub"));
}

} // namespace
