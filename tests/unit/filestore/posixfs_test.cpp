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
#include "tests/unit/filestore/scratch.h"
#include "tests/unit/filestore/system_calls.h"

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

// Every operation once or more, and what each gave.
std::string UseAll(const std::string& directory)
{
    std::ostringstream told;
    int error = 0;
    const std::unique_ptr<FileSystem> fs = OpenPosixFileSystem(directory.c_str(), &error);
    const auto tell = [&](const char* what, int result) {
        told << what << ' ' << result << '\n';
        return result;
    };
    OpenFile top, file, copy, nameless, located, child;
    FileInfo info;
    char bytes[64] = {};
    size_t got = 0;
    tell("open", fs->Open("", OpenFor::Directory, top.Out(*fs)));
    tell("make", fs->MakeDirectory(top.Get(), "dir"));
    tell("create", fs->CreateFile(top.Get(), "file", file.Out(*fs)));
    tell("write", fs->Write(file.Get(), 0, "content", 7));
    tell("read", fs->Read(file.Get(), 0, bytes, sizeof bytes, &got));
    told << std::string_view(bytes, got) << '\n';
    tell("mode", fs->SetMode(file.Get(), 0640));
    tell("date", fs->SetModified(file.Get(), 130'000'000'000'000'000));
    tell("sync", fs->Sync(file.Get(), false));
    tell("sync", fs->Sync(file.Get(), true));
    const int tag = fs->SetTag(file.Get(), "user.kest.test", "x", 1);
    tell("tag", tag);
    tell("tag", fs->GetTag(file.Get(), "user.kest.test", bytes, sizeof bytes, &got));
    tell("tag", fs->GetTagAt(top.Get(), "file", "user.kest.test", bytes, sizeof bytes, &got));
    tell("create", fs->CreateFile(top.Get(), "copy", copy.Out(*fs)));
    tell("copy", fs->CopyContent(file.Get(), copy.Get(), 7, {}));
    tell("look", fs->Look("copy", &info));
    told << info.size << '\n';
    tell("inspect", fs->Inspect(file.Get(), &info));
    told << info.mode << ' ' << info.modified << '\n';
    tell("inspect", fs->InspectFully(file.Get(), &info));
    tell("inspect", fs->InspectAt(top.Get(), "file", &info));
    tell("owner", fs->SetOwner(file.Get(), info.owner, info.group));
    if (tell("nameless", fs->CreateUnnamed(top.Get(), nameless.Out(*fs))) == 0)
        tell("name", fs->GiveName(nameless.Get(), top.Get(), "named"));
    tell("locate", fs->Open("dir/../file", OpenFor::Locating, located.Out(*fs)));
    tell("mode", fs->SetMode(located.Get(), 0600));
    tell("date", fs->SetModified(located.Get(), 131'000'000'000'000'000));
    tell("tag", fs->SetTag(located.Get(), "user.kest.test", "y", 1));
    tell("tag", fs->GetTag(located.Get(), "user.kest.test", bytes, sizeof bytes, &got));
    tell("rename", fs->Rename(top.Get(), "copy", top.Get(), "taken", false));
    tell("rename", fs->Rename(top.Get(), "file", top.Get(), "taken", false));
    tell("rename", fs->Rename(top.Get(), "file", top.Get(), "taken", true));
    tell("at", fs->OpenAt(top.Get(), "taken", OpenFor::Reading, child.Out(*fs)));
    tell("lock", fs->TryLock(child.Get()));
    tell("list", [&] {
        Names names;
        const int result = fs->List(top.Get(), names);
        for (const std::string& name : names.Sorted())
            told << name << '\n';
        return result;
    }());
    tell("random", fs->Random(bytes, 16));
    told << fs->IsInPlace() << '\n';
    tell("remove", fs->RemoveFile(top.Get(), "taken"));
    tell("remove", fs->RemoveDirectory(top.Get(), "dir"));
    tell("gone", fs->Open("taken", OpenFor::Reading, child.Out(*fs)));
    return told.str();
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
