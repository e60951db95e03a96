// SPDX-License-Identifier: Apache-2.0
//
// The page of a folder with a million entries: each is looked at once, and of them all no more is
// held than the page shows.
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../harness/opened_base.h"
#include "site.h"

namespace {

using harness::ProviderFailure;

constexpr int kMany = 1'000'000;

// What reading a folder has come to.
struct Reading {
    int entries = 0;         // in the folder
    int asked = 0;           // calls for one entry
    size_t mostBytes = 0;    // on the heap of the process
    int mostAllocations = 0; // of the platform layer
};

// An opened collection whose children are made as they are asked for, in an order that no sort
// likes: "9000000" and below, every seventh first.
class GeneratedCollection final : public harness::Opened<IKestDAVCollection2> {
  public:
    GeneratedCollection(harness::Provider& provider, const harness::WatchedPlatform& platform,
                        Reading& reading)
        : Opened(provider, "col."), platform_(platform), reading_(reading)
    {
    }
    TALSTATUS Associate(SCHANDLE, UNICODE_STRING* path, DAV_LOCK_TOKEN*) override
    {
        path_.assign(path->Buffer, path->Length / sizeof(WCHAR));
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS GetFirstChild(UINT32* size, DAV_COMMON_ENUM* buffer) override
    {
        next_ = 0;
        return GetNextChild(size, buffer);
    }
    TALSTATUS GetNextChild(UINT32* size, DAV_COMMON_ENUM* buffer) override
    {
        Look();
        if (next_ == reading_.entries)
            return ProviderFailure(kCodeNoMoreEntries);
        constexpr int kStride = 7; // no divisor of the counts
        const auto number =
            static_cast<int>((static_cast<long long>(next_++) * kStride) % reading_.entries);
        char name[16];
        const int length = std::snprintf(name, sizeof name, "%d", 9'000'000 - number);
        const auto bytes = static_cast<UINT32>(static_cast<size_t>(length) * sizeof(WCHAR));
        if (offsetof(DAV_COMMON_ENUM, DisplayName) + bytes > *size)
            return ProviderFailure(kCodeBufferTooSmall);
        *buffer = {};
        buffer->Type = Resource;
        buffer->ResourceSize = 1;
        buffer->DisplayNameLength = bytes;
        std::copy(name, name + length, buffer->DisplayName);
        *size = static_cast<UINT32>(offsetof(DAV_COMMON_ENUM, DisplayName)) + bytes;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS IoctlRequest(SCHANDLE, UINT32, UINT32, void*, UINT32*, void*) override
    {
        return ProviderFailure(kCodeNotImplemented);
    }
    TALSTATUS GetFirstProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) override
    {
        return FirstProperty(size, buffer);
    }
    TALSTATUS GetNextProperty(UINT32* size, DAV_NAMED_PROPERTY* buffer) override
    {
        return NextProperty(size, buffer);
    }
    TALSTATUS GetNamedProperty(UNICODE_STRING* name, UINT32* length, char* value) override
    {
        return NamedProperty(name, length, value);
    }
    TALSTATUS SetNamedPropertyEnh(UNICODE_STRING* name, UINT32 length, char* value,
                                  UINT32* resultLength, char* result) override
    {
        return SetPropertyEnh(name, length, value, resultLength, result);
    }

  private:
    void Look()
    {
        if (++reading_.asked % 1000 != 0)
            return;
        reading_.mostBytes = std::max(reading_.mostBytes, mallinfo2().uordblks);
        reading_.mostAllocations = std::max(reading_.mostAllocations, platform_.LiveAllocations());
    }

    const harness::WatchedPlatform& platform_;
    Reading& reading_;
    int next_ = 0;
};

class LargeFolder : public testing::Test {
  protected:
    LargeFolder()
    {
        site.world["vol"].AddCollection("/vol/large");
        site.Page("<!--OlmDAV:SetMaxFiles:2--><!--OlmDAV:Files--><!--OlmDAV:NumberOfFiles-->");
    }
    // The body of the page that begins at an entry.
    std::string Read(int entries, int start)
    {
        reading = {.entries = entries};
        site.world.Offer(harness::World::ProviderClass(0), [&](const GUID& iid, void** out) {
            if (iid != IID_KestCollection_2)
                return site.world["vol"].CreateObject(iid, out);
            *out = static_cast<IKestDAVCollection2*>(
                new GeneratedCollection(site.world["vol"], site.world.platform, reading));
            return TAL_STATUS_SUCCESS;
        });
        return site.Body("/Ferro/vol/large", "start=" + std::to_string(start));
    }

    site::Site site;
    Reading reading;
};

TEST_F(LargeFolder, OfAMillionEntries_HoldsNoMoreThanThePageShows)
{
    constexpr size_t kMostBytes = size_t{1} << 20;   // one for each entry
    EXPECT_EQ(Read(10, 1), "2[8999991][8999992]10"); // what is made once is there
    const size_t before = mallinfo2().uordblks;
    EXPECT_EQ(Read(kMany, 1), "2[8000001][8000002]1000000");
    EXPECT_LT(reading.mostBytes, before + kMostBytes);
    const int ofMany = reading.mostAllocations;
    EXPECT_EQ(Read(kMany / 100, 1), "2[8990001][8990002]10000");
    constexpr int kBatch = 100; // entries that come and go while the folder is read
    EXPECT_LT(ofMany, reading.mostAllocations + kBatch) << "as for a hundredth of them";
    EXPECT_EQ(Read(kMany / 10, 1001), "2[8901001][8901002]100000");
    EXPECT_LT(reading.mostBytes, before + kMostBytes) << "far into it, too";
    site.world.ExpectAtRest();
}

TEST_F(LargeFolder, AsksForEachEntryOnce)
{
    for (const int entries : {1000, 4000, 16'000}) {
        (void)Read(entries, 1);
        EXPECT_EQ(reading.asked, entries + 1) << "and for the one that is not there";
    }
}

} // namespace
