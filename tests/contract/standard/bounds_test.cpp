// SPDX-License-Identifier: Apache-2.0
//
// Huge folders and trees: what they cost in memory, and that an answer is whole or none.
#include <map>
#include <mutex>
#include <utility>

#include "fixture.h"

namespace standard_tests {

namespace {

// Notes the most bytes that the module has had at once.
class MeasuringPlatform final : public harness::WatchedPlatform {
  public:
    using WatchedPlatform::WatchedPlatform;

    void* TalxAllocPagedMemory(UINT32 size) override
    {
        void* const memory = WatchedPlatform::TalxAllocPagedMemory(size);
        const std::lock_guard lock(mutex_);
        if (memory)
            sizes_[memory] = size;
        live_ += memory ? size : 0;
        most_ = std::max(most_, live_);
        return memory;
    }
    TALSTATUS TalxFreeMemory(void* memory) override
    {
        {
            const std::lock_guard lock(mutex_);
            if (const auto at = sizes_.find(memory); at != sizes_.end()) {
                live_ -= at->second;
                sizes_.erase(at);
            }
        }
        return WatchedPlatform::TalxFreeMemory(memory);
    }
    // Bytes beyond what is there now.
    size_t MostOf(const std::function<void()>& work)
    {
        const size_t before = live_;
        most_ = live_;
        work();
        return most_ - before;
    }

  private:
    std::mutex mutex_;
    std::map<void*, UINT32> sizes_;
    size_t live_ = 0;
    size_t most_ = 0;
};

class StandardBounds : public testing::Test {
  protected:
    StandardBounds()
        : world({{.name = "gen3", .generations = 6}},
                {.moduleValues = "'Dialect' = 'standard'", .start = false}),
          platform(world.recorder, &world.platform)
    {
        world.Offer(CLSID_HadranTalpl, [this](const GUID& iid, void** out) {
            return platform.QueryInterface(&iid, out);
        });
        world.Start();
        world["gen3"].AddFile("/gen3/f.txt", "hello world");
        world["gen3"].AddFile("/gen3/c/a", "aa");
        world["gen3"].AddFile("/gen3/c/d/b", "bbb");
        world["gen3"].membersPerCall = 1000; // as many as a batch has room for
        world.Remember("/Ferro/gen3");
    }
    // The module uses the platform to its end, which comes before the world's.
    ~StandardBounds() override
    {
        if (auto* const module = std::exchange(world.module, nullptr))
            module->Release();
    }
    void TearDown() override { world.ExpectAtRest(); }
    Request Find(const std::string& name, const std::string& depth)
    {
        return Request(KestMethodPropFind, "/Ferro/gen3/" + name)
            .Header("Depth", depth)
            .Body({"<D:propfind xmlns:D=\"DAV:\"><D:prop><D:resourcetype/></D:prop></D:propfind>"});
    }
    static size_t Responses(const std::string& text)
    {
        size_t count = 0;
        for (size_t at = 0; (at = text.find("<D:response>", at)) != text.npos; ++at)
            ++count;
        return count;
    }

    World world;
    MeasuringPlatform platform;
};

// The buffer of one batch, the path, and what the request asks for: see docs/decisions. A tree of
// more than 'Infinity Entries' is counted once, and nothing of it is told.
TEST_F(StandardBounds, OfAHundredThousandMembers_NoneStaysInMemory)
{
    constexpr size_t kMembers = 100'000;
    constexpr size_t kBound = 128 * 1024;
    constexpr size_t kLeastOfABatch = 300;
    for (size_t i = 0; i < kMembers; ++i)
        world["gen3"].AddFile("/gen3/huge/file number " + std::to_string(i) + ".txt");
    Reply reply;
    const size_t small = platform.MostOf([&] { reply = world.Run(Find("c", "1")); });
    EXPECT_EQ(Responses(reply.text), 3U);
    const size_t huge = platform.MostOf([&] { reply = world.Run(Find("huge", "1")); });
    EXPECT_EQ(Responses(reply.text), kMembers + 1);
    EXPECT_LE(huge, small + 4096);
    EXPECT_LE(huge, kBound);

    world.recorder.Clear();
    const size_t refused = platform.MostOf([&] { reply = world.Run(Find("huge", "infinity")); });
    EXPECT_EQ(reply.text.substr(0, 3), "403") << "the folder itself is one more than may be";
    EXPECT_THAT(reply.text, HasSubstr("<D:propfind-finite-depth/>"));
    EXPECT_EQ(Responses(reply.text), 0U);
    EXPECT_LE(refused, kBound);
    EXPECT_LE(world.Calls({"gen3.col3.GetMembers"}).size(), kMembers / kLeastOfABatch);
}

TEST_F(StandardBounds, OfFolders_OnlyTheNamesThatWaitAreKept)
{
    constexpr size_t kFolders = 500;
    for (size_t i = 0; i < kFolders; ++i)
        world["gen3"].AddFile("/gen3/folders/" + std::to_string(i) + "/file", "x");
    Reply reply;
    const size_t most = platform.MostOf([&] { reply = world.Run(Find("folders", "infinity")); });
    EXPECT_EQ(Responses(reply.text), 2 * kFolders + 1);
    constexpr size_t kPerName = 128; // with what doubling leaves unused
    EXPECT_LE(most, 128 * 1024 + kFolders * kPerName);
}

// RFC 4331 section 1: the properties are defined of collections, and known where there is a volume.
TEST_F(StandardBounds, QuotaOfAFileOrOfTheRoot_IsNotFound)
{
    world["gen3"].quotaUsed = 5;
    world["gen3"].quotaAvailable = 7;
    const auto ask = [&](const std::string& path) {
        return world
            .Run(Request(KestMethodPropFind, path)
                     .Header("Depth", "0")
                     .Body({"<D:propfind xmlns:D=\"DAV:\"><D:prop><D:quota-available-bytes/>"
                            "<D:quota-used-bytes/></D:prop></D:propfind>"}))
            .text;
    };
    for (const char* path : {"/Ferro", "/Ferro/gen3/f.txt"})
        EXPECT_THAT(ask(path), HasSubstr("<D:quota-available-bytes/><D:quota-used-bytes/></D:prop>"
                                         "<D:status>HTTP/1.1 404 Not Found</D:status>"))
            << path;
    EXPECT_TRUE(world.Calls({"gen3.3.GetQuota"}).empty());
    EXPECT_THAT(ask("/Ferro/gen3/c"),
                HasSubstr("<D:quota-available-bytes>7</D:quota-available-bytes>"
                          "<D:quota-used-bytes>5</D:quota-used-bytes>"));
    EXPECT_EQ(world.Calls({"gen3.3.GetQuota"}).size(), 1U) << "asked once for both";
}

} // namespace

} // namespace standard_tests
