// SPDX-License-Identifier: Apache-2.0
//
// Looks at what is there, while the file system fails: what cannot be told is never said to be
// missing, and a listing that is not whole never ends as one.
#include <algorithm>
#include <cerrno>

#include <kest/com.h>
#include <kest/host.h>
#include <kest/tolm.h>

#include "providers/filestore/collection.h"
#include "providers/filestore/failures.h"
#include "tests/unit/providers/filestore/failing_filesystem.h"
#include "tests/unit/providers/filestore/scratch.h"

using namespace filestore;
namespace fs = std::filesystem;

namespace {

struct World {
    World()
    {
        fs::create_directories(directory.Path() / "dir/sub");
        for (const char* name : {"dir/one", "dir/two"})
            std::ofstream(directory.Path() / name) << "content";
        fs::create_symlink("one", directory.Path() / "dir/link");
        store =
            MakeStore(directory.Path(), 30, SyncLevel::None, [&](std::unique_ptr<FileSystem> real) {
                auto wrapped = std::make_unique<FailingFileSystem>(std::move(real));
                failing = wrapped.get();
                return wrapped;
            });
        EXPECT_EQ(0u, Client(*store).SetProperty("/v/dir/one", "p", "of one"));
        auto* const resource = new FileResource(*store); // one of them keeps a date
        EXPECT_EQ(0u, resource->Associate({}, FALSE, kAccessAttributesOnly, 3, 0,
                                          Path("/v/dir/two").Get(), nullptr));
        EXPECT_EQ(0u, resource->SetCreationDate(120'000'000'000'000'000));
        resource->Release();
    }

    TempDirectory directory;
    FailingFileSystem* failing = nullptr;
    std::unique_ptr<Store> store;
};

struct Found {
    std::vector<std::string> names;
    std::vector<UINT64> dates;
    TALSTATUS end = 0; // how it ended
};

// As the module lists: every failure ends it.
Found List(Store& store, const std::string& path)
{
    Found found;
    auto* const collection = new FileCollection(store);
    found.end = collection->Associate({}, Path(path).Get(), nullptr);
    alignas(DAV_COMMON_ENUM) char buffer[1088];
    auto* const record = reinterpret_cast<DAV_COMMON_ENUM*>(buffer);
    for (bool first = true; !Failed(found.end); first = false) {
        UINT32 size = sizeof buffer;
        found.end = first ? collection->GetFirstChild(&size, record)
                          : collection->GetNextChild(&size, record);
        if (Failed(found.end))
            break;
        found.names.push_back(Utf8Of(record->DisplayName, record->DisplayNameLength / 2));
        found.dates.push_back(record->CreationDate);
    }
    collection->Release();
    return found;
}

} // namespace

TEST(FileStoreLooks, AListingIsWholeOrEndsWithTheFailure)
{
    for (const char* path : {"/", "/v", "/v/dir"}) {
        World world;
        const Found whole = List(*world.store, path);
        ASSERT_EQ(kCodeNoMoreEntries, Code(whole.end));
        for (const int error : {EIO, EMFILE, ENOMEM, EACCES}) {
            int call = 1;
            for (bool hasFailed = true; hasFailed; ++call) {
                SCOPED_TRACE(std::string(path) + ", call " + std::to_string(call) + ", error " +
                             std::to_string(error));
                world.failing->error = error;
                world.failing->hasFailed = false;
                world.failing->failAt = call;
                const int open = world.failing->open;
                const Found found = List(*world.store, path);
                world.failing->failAt = 0;
                hasFailed = world.failing->hasFailed;
                EXPECT_EQ(open, world.failing->open);
                if (Code(found.end) == kCodeNoMoreEntries) {
                    EXPECT_EQ(whole.names, found.names);
                    // A tag that may not be read is one that is not there.
                    EXPECT_TRUE(error == EACCES || whole.dates == found.dates);
                } else {
                    EXPECT_NE(kCodeNotFound, Code(found.end));
                    EXPECT_TRUE(hasFailed);
                }
            }
            EXPECT_GT(call, 3);
        }
    }
}

TEST(FileStoreLooks, AMemberThatIsGoneMeanwhileIsLeftOut)
{
    World world;
    world.failing->error = ENOENT;
    const Found whole = List(*world.store, "/v/dir");
    bool hasFailed = true;
    int shorter = 0;
    for (int call = 1; hasFailed; ++call) {
        world.failing->hasFailed = false;
        world.failing->failAt = call;
        const Found found = List(*world.store, "/v/dir");
        world.failing->failAt = 0;
        hasFailed = world.failing->hasFailed;
        if (Code(found.end) == kCodeNoMoreEntries && found.names.size() + 1 == whole.names.size())
            ++shorter;
    }
    EXPECT_GE(shorter, 4); // a look at each of them, and more at what the link leads to
}
