// SPDX-License-Identifier: Apache-2.0
//
// Uploads that go on later: over a clock that the test turns, a disk that fills up, and what a
// power cut leaves.
#include "providers/filestore/upload_directory.h"
#include "tests/unit/providers/filestore/failing_filesystem.h"
#include "tests/unit/providers/filestore/scratch.h"
#include "tests/unit/providers/filestore/third_generation.h"

using namespace filestore;
namespace fs = std::filesystem;

namespace {

constexpr UINT64 kNone = ~UINT64{0};
const char* const kPath = "/v/file";

class PendingUploads : public testing::Test {
  protected:
    void Start(SyncLevel sync = SyncLevel::None)
    {
        store_.reset();
        store_ = MakeStore(directory_.Path(), 30, sync, [this](std::unique_ptr<FileSystem> real) {
            auto made = std::make_unique<FailingFileSystem>(std::move(real));
            failing_ = made.get();
            return made;
        });
    }
    void SetUp() override { Start(); }
    void TearDown() override { EXPECT_EQ(open_, failing_->open) << "handles"; }

    void Begin(UINT64 length = kUploadLengthUnknown)
    {
        EXPECT_EQ(0u, third::WithUploads(*store_, [&](IKestDAVUploads3& uploads) {
                      return third::BeginUpload(uploads, kPath, length, &begun_);
                  }));
        open_ = failing_->open;
    }
    TALSTATUS Append(UINT64 offset, std::string_view text, bool isLast = false)
    {
        return third::WithUploads(*store_, [&](IKestDAVUploads3& uploads) {
            return third::AppendToUpload(uploads, kPath, begun_, offset, text, isLast);
        });
    }
    UINT64 Offset()
    {
        UINT64 offset = kNone;
        EXPECT_EQ(0u, third::WithUploads(*store_, [&](IKestDAVUploads3& uploads) {
                      offset = third::OffsetOfUpload(uploads, kPath, begun_);
                      return TAL_STATUS_SUCCESS;
                  }));
        return offset;
    }
    fs::path Uploads() const { return directory_.Path() / ".kest/uploads"; }
    std::string NameOf() const { return {begun_.name, begun_.length}; }
    std::string ContentOf(const fs::path& path) const
    {
        std::ifstream in(path);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    size_t Files() const
    {
        return static_cast<size_t>(
            std::distance(fs::directory_iterator(Uploads()), fs::directory_iterator()));
    }
    Volume& TheVolume() { return *store_->Volumes()[0]; }

    const TempDirectory directory_;
    FailingFileSystem* failing_ = nullptr;
    std::unique_ptr<Store> store_;
    third::Begun begun_;
    int open_ = 0;
};

TEST_F(PendingUploads, ThatArePublished_AreToldSoWhateverALookAtThemSays)
{
    Begin();
    bool isPublished = false;
    failing_->judge = [&](const char* operation) {
        const std::string name = operation;
        if (name == "Rename" || name == "Exchange" || name == "GiveName")
            isPublished = true;
        return isPublished && name == "Inspect" ? EIO : 0;
    };
    EXPECT_EQ(0u, Append(0, "abc", true));
    EXPECT_TRUE(isPublished);
    failing_->judge = nullptr;
    EXPECT_EQ("abc", ContentOf(directory_.Path() / "file"));
}

TEST_F(PendingUploads, EndWhenNothingComesForTheirTime)
{
    Begin();
    ASSERT_EQ(0u, Append(0, "abc"));
    g_now += (86400 - 1) * kTicksPerSecond;
    DropExpiredUploads(*store_, TheVolume());
    EXPECT_EQ(3u, Offset());
    ASSERT_EQ(0u, Append(3, "d")); // which keeps it for as long again
    g_now += (86400 - 1) * kTicksPerSecond;
    EXPECT_EQ(4u, Offset());
    g_now += kTicksPerSecond;
    EXPECT_EQ(kNone, Offset());
    EXPECT_EQ(kCodeNotFound, Code(Append(4, "e")));
    EXPECT_EQ(2u, Files());
    DropExpiredUploads(*store_, TheVolume());
    EXPECT_EQ(0u, Files());
}

TEST_F(PendingUploads, AreFoundByAStoreThatStartsLater)
{
    Begin(6);
    ASSERT_EQ(0u, Append(0, "abc"));
    Start();
    open_ = failing_->open;
    EXPECT_EQ(3u, Offset());
    open_ = failing_->open; // with the directory
    ASSERT_EQ(0u, Append(3, "def", true));
    EXPECT_EQ("abcdef", ContentOf(directory_.Path() / "file"));
    EXPECT_EQ(6u, Offset()) << "complete";
}

// A signal, or another machine's disk, may end a read before its time.
TEST_F(PendingUploads, AreFoundWhereReadsEndShort)
{
    Begin(6);
    ASSERT_EQ(0u, Append(0, "abc"));
    Start();
    failing_->mostPerRead = 7;
    open_ = failing_->open;
    EXPECT_EQ(3u, Offset());
    open_ = failing_->open;
    ASSERT_EQ(0u, Append(3, "def", true));
    EXPECT_EQ("abcdef", ContentOf(directory_.Path() / "file"));
}

TEST_F(PendingUploads, TellOnlyWhatWasSyncedBefore)
{
    Start(SyncLevel::Data);
    Begin();
    std::vector<UINT64> synced; // sizes
    failing_->onSync = [&](FileHandle handle) {
        FileInfo info;
        EXPECT_EQ(0, failing_->Inspect(handle, &info));
        synced.push_back(info.size);
    };
    ASSERT_EQ(0u, Append(0, "abc"));
    failing_->onSync = {};
    ASSERT_EQ(2u, synced.size());
    EXPECT_EQ(3u, synced[0]) << "the content first";
    EXPECT_GE(synced[1], kUploadHeadBytes) << "then the record";
}

TEST_F(PendingUploads, DoNotCountWhatTheRecordDoesNotKnow)
{
    Begin();
    ASSERT_EQ(0u, Append(0, "abc"));
    std::ofstream(Uploads() / NameOf(), std::ios::app) << "never acknowledged";
    EXPECT_EQ(3u, Offset());
    ASSERT_EQ(0u, Append(3, "d", true));
    EXPECT_EQ("abcd", ContentOf(directory_.Path() / "file"));
}

TEST_F(PendingUploads, AreNoneWhenContentWasLost)
{
    Begin();
    ASSERT_EQ(0u, Append(0, "abc"));
    fs::resize_file(Uploads() / NameOf(), 2);
    EXPECT_EQ(kNone, Offset());
    EXPECT_EQ(kCodeNotFound, Code(Append(3, "d", true)));
    EXPECT_FALSE(fs::exists(directory_.Path() / "file"));
}

TEST_F(PendingUploads, AreCompleteWhenTheContentHasItsNameWhateverElseRemained)
{
    Begin();
    ASSERT_EQ(0u, Append(0, "abc"));
    fs::create_hard_link(Uploads() / NameOf(), directory_.Path() / "file");
    EXPECT_EQ(3u, Offset());
    EXPECT_EQ(kCodeConflict, Code(Append(3, "d"))) << "nothing is added to what is published";
    fs::remove(Uploads() / NameOf());
    EXPECT_EQ(3u, Offset());
    EXPECT_EQ("abc", ContentOf(directory_.Path() / "file"));
}

TEST_F(PendingUploads, AreNotTakenForWhatElseBearsTheirName)
{
    Begin();
    ASSERT_EQ(0u, Append(0, "abc"));
    std::ofstream(directory_.Path() / "other") << "what a publication has put aside";
    fs::rename(directory_.Path() / "other", Uploads() / NameOf());
    EXPECT_EQ(kNone, Offset());
}

TEST_F(PendingUploads, KeepWhatCameBeforeTheDiskWasFull)
{
    Begin();
    ASSERT_EQ(0u, Append(0, "abc"));
    bool isFull = true;
    failing_->isFull = [&] { return isFull; };
    EXPECT_EQ(kCodeStorageFull, Code(Append(3, "def")));
    isFull = false;
    EXPECT_EQ(3u, Offset());
    ASSERT_EQ(0u, Append(3, "def", true));
    EXPECT_EQ("abcdef", ContentOf(directory_.Path() / "file"));
}

TEST_F(PendingUploads, AreNotBegunOnAFullDisk)
{
    Begin(); // makes the directory
    failing_->isFull = [] { return true; };
    third::Begun other;
    EXPECT_EQ(kCodeStorageFull, Code(third::WithUploads(*store_, [&](IKestDAVUploads3& uploads) {
                  return third::BeginUpload(uploads, kPath, kUploadLengthUnknown, &other);
              })));
    failing_->isFull = {};
    EXPECT_EQ(2u, Files());
}

TEST_F(PendingUploads, GiveWayToNewOnesCompleteOnesFirst)
{
    Begin();
    ASSERT_EQ(0u, Append(0, "paused"));
    const third::Begun paused = begun_;
    for (int i = 0; i < 70; ++i) {
        g_now += kTicksPerSecond;
        Begin();
        ASSERT_EQ(0u, Append(0, "x", true));
    }
    begun_ = paused;
    EXPECT_EQ(6u, Offset());
}

TEST_F(PendingUploads, LeaveGarbageToTheSweep)
{
    Begin();
    std::ofstream(Uploads() / "0123.state") << "no record";
    std::ofstream(Uploads() / "content without a record") << "x";
    const UINT64 now = g_now;
    g_now = ~UINT64{0} / 4; // their dates are the system's
    DropExpiredUploads(*store_, TheVolume());
    EXPECT_EQ(0u, Files());
    g_now = now;
}

} // namespace
