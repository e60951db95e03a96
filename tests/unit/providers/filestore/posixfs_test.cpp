// SPDX-License-Identifier: Apache-2.0
//
// The file system over system calls that a signal interrupts, and listings that memory is short
// for.
#include <fstream>
#include <new>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "providers/filestore/posixfs.h"
#include "tests/unit/providers/filestore/scratch.h"
#include "tests/unit/providers/filestore/system_calls.h"

namespace {

using namespace filestore;

class Names final : public NameSink {
  public:
    bool OnName(std::string_view name) override
    {
        names_.emplace(name);
        return true;
    }
    const std::set<std::string>& Sorted() const { return names_; }

  private:
    std::set<std::string> names_;
};

// Uses a file system, and writes down what each operation gave.
class User {
  public:
    explicit User(const std::string& directory)
        : fs_(OpenPosixFileSystem(directory.c_str(), &error_))
    {
        Tell("open", fs_->Open("", OpenFor::Directory, top_.Out(*fs_)));
    }
    void UseContent();
    void UseNames();
    std::string Told() const { return told_.str(); }

  private:
    int Tell(const char* what, int result)
    {
        told_ << what << ' ' << result << '\n';
        return result;
    }
    int error_ = 0;
    const std::unique_ptr<FileSystem> fs_;
    std::ostringstream told_;
    OpenFile top_, file_;
    FileInfo info_;
    char bytes_[64] = {};
    size_t got_ = 0;
};

void User::UseContent()
{
    OpenFile copy;
    Tell("make", fs_->MakeDirectory(top_.Get(), "dir"));
    Tell("create", fs_->CreateFile(top_.Get(), "file", file_.Out(*fs_)));
    Tell("write", fs_->Write(file_.Get(), 0, "content", 7));
    Tell("read", fs_->Read(file_.Get(), 0, bytes_, sizeof bytes_, &got_));
    told_ << std::string_view(bytes_, got_) << '\n';
    Tell("mode", fs_->SetMode(file_.Get(), 0640));
    Tell("date", fs_->SetModified(file_.Get(), 130'000'000'000'000'000));
    Tell("sync", fs_->Sync(file_.Get(), false));
    Tell("sync", fs_->Sync(file_.Get(), true));
    const int tag = fs_->SetTag(file_.Get(), "user.kest.test", "x", 1);
    Tell("tag", tag);
    Tell("tag", fs_->GetTag(file_.Get(), "user.kest.test", bytes_, sizeof bytes_, &got_));
    Tell("tag", fs_->GetTagAt(top_.Get(), "file", "user.kest.test", bytes_, sizeof bytes_, &got_));
    Tell("create", fs_->CreateFile(top_.Get(), "copy", copy.Out(*fs_)));
    Tell("copy", fs_->CopyContent(file_.Get(), copy.Get(), 7, {}));
    Tell("look", fs_->Look("copy", &info_));
    told_ << info_.size << '\n';
    Tell("inspect", fs_->Inspect(file_.Get(), &info_));
    told_ << info_.mode << ' ' << info_.modified << '\n';
    Tell("inspect", fs_->InspectFully(file_.Get(), &info_));
    Tell("inspect", fs_->InspectAt(top_.Get(), "file", &info_));
    Tell("owner", fs_->SetOwner(file_.Get(), info_.owner, info_.group));
}

void User::UseNames()
{
    OpenFile nameless, located, child;
    if (Tell("nameless", fs_->CreateUnnamed(top_.Get(), nameless.Out(*fs_))) == 0)
        Tell("name", fs_->GiveName(nameless.Get(), top_.Get(), "named"));
    Tell("locate", fs_->Open("dir/../file", OpenFor::Locating, located.Out(*fs_)));
    Tell("mode", fs_->SetMode(located.Get(), 0600));
    Tell("date", fs_->SetModified(located.Get(), 131'000'000'000'000'000));
    Tell("tag", fs_->SetTag(located.Get(), "user.kest.test", "y", 1));
    Tell("tag", fs_->GetTag(located.Get(), "user.kest.test", bytes_, sizeof bytes_, &got_));
    Tell("rename", fs_->Rename(top_.Get(), "copy", top_.Get(), "taken", false));
    Tell("rename", fs_->Rename(top_.Get(), "file", top_.Get(), "taken", false));
    Tell("rename", fs_->Rename(top_.Get(), "file", top_.Get(), "taken", true));
    Tell("at", fs_->OpenAt(top_.Get(), "taken", OpenFor::Reading, child.Out(*fs_)));
    Tell("lock", fs_->TryLock(child.Get()));
    Tell("list", [&] {
        Names names;
        const int result = fs_->List(top_.Get(), names);
        for (const std::string& name : names.Sorted())
            told_ << name << '\n';
        return result;
    }());
    Tell("random", fs_->Random(bytes_, 16));
    told_ << fs_->IsInPlace() << '\n';
    Tell("remove", fs_->RemoveFile(top_.Get(), "taken"));
    Tell("remove", fs_->RemoveDirectory(top_.Get(), "dir"));
    Tell("gone", fs_->Open("taken", OpenFor::Reading, child.Out(*fs_)));
}

// Every operation once or more, and what each gave.
std::string UseAll(const std::string& directory)
{
    User user(directory);
    user.UseContent();
    user.UseNames();
    return user.Told();
}

size_t OpenDescriptors()
{
    size_t count = 0;
    for ([[maybe_unused]] const auto& each : std::filesystem::directory_iterator("/proc/self/fd"))
        ++count;
    return count;
}

} // namespace

TEST(FileStorePosixFs, NothingChangesWhenASignalInterruptsAnyCall)
{
    // What all operations gave, when the call of that number was interrupted; 0: none was.
    const auto use = [](int number, int* calls) {
        const TempDirectory scratch;
        system_calls::FailAt(number, EINTR);
        std::string told = UseAll(scratch.Path());
        *calls = system_calls::Made();
        EXPECT_EQ(number != 0, system_calls::HasFailed());
        system_calls::FailAt(0, 0);
        return told;
    };
    int calls = 0;
    int again = 0;
    const std::string undisturbed = use(0, &calls);
    EXPECT_GT(calls, 30);
    for (int n = 1; n <= calls; ++n)
        EXPECT_EQ(undisturbed, use(n, &again)) << "call " << n << " of " << calls;
}

// Below the root of the system "proc" is always another file system, which has no room at all.
TEST(FileStorePosixFs, TellsTheRoomOfWhatIsMountedBelowTheTop)
{
    int error = 0;
    const std::unique_ptr<FileSystem> fs = OpenPosixFileSystem("/", &error);
    const size_t before = OpenDescriptors();
    UINT64 free = 0;
    UINT64 total = 0;
    ASSERT_EQ(0, fs->FreeSpaceAt("", &free, &total));
    EXPECT_LT(0u, total);
    ASSERT_EQ(0, fs->FreeSpaceAt("proc", &free, &total));
    EXPECT_EQ(0u, total);
    EXPECT_EQ(0u, free);
    ASSERT_EQ(0, fs->FreeSpace(&free, &total));
    EXPECT_LT(0u, total);
    EXPECT_EQ(ENOENT, fs->FreeSpaceAt("proc/nothing of this name", &free, &total));
    EXPECT_EQ(before, OpenDescriptors());
}

// Unlike a path that leaves the volume, which finds nothing.
TEST(FileStorePosixFs, TellsThatNoNameLeadsIntoAnotherFileSystem)
{
    int error = 0;
    const TempDirectory scratch;
    std::ofstream(scratch.Path() / "file") << "x";
    const std::unique_ptr<FileSystem> fs = OpenPosixFileSystem("/", &error);
    OpenFile here;
    OpenFile there;
    const std::string top = scratch.Path().string().substr(1);
    ASSERT_EQ(0, fs->Open(top.c_str(), OpenFor::Directory, here.Out(*fs)));
    ASSERT_EQ(0, fs->Open("proc", OpenFor::Directory, there.Out(*fs)));
    for (const bool replace : {true, false})
        EXPECT_EQ(EREMOTE, fs->Rename(here.Get(), "file", there.Get(), "file", replace));
    EXPECT_EQ(EREMOTE, fs->Exchange(here.Get(), "file", there.Get(), "version"));
}

TEST(FileStorePosixFs, AListingThatRunsOutOfMemoryLeavesNothingOpen)
{
    class Short final : public NameSink {
      public:
        bool OnName(std::string_view) override { throw std::bad_alloc(); }
    };
    const TempDirectory scratch;
    std::ofstream(scratch.Path() / "file") << "content";
    int error = 0;
    const std::unique_ptr<FileSystem> fs = OpenPosixFileSystem(scratch.Path().c_str(), &error);
    OpenFile top;
    ASSERT_EQ(0, fs->Open("", OpenFor::Directory, top.Out(*fs)));
    const size_t before = OpenDescriptors();
    for (int i = 0; i < 3; ++i) {
        Short sink;
        EXPECT_THROW((void)fs->List(top.Get(), sink), std::bad_alloc);
    }
    EXPECT_EQ(before, OpenDescriptors());
}
