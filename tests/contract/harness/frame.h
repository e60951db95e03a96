// SPDX-License-Identifier: Apache-2.0
//
// The module's frame inside the test program, over a platform layer whose answers a case can set.
#pragma once

#include <cstring>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "io.h"
#include "platform.h"
#include "provider.h"
#include "services.h"
#include "support/globals.h"
#include "text.h"

class FramePlatform final : public harness::WatchedPlatform {
  public:
    using WatchedPlatform::WatchedPlatform;

    TALSTATUS openStatus = TAL_STATUS_SUCCESS;
    TALSTATUS queryStatus = TAL_STATUS_SUCCESS;
    std::string record;               // what TalxQueryValueKey writes, as long as its room
    std::vector<std::string> queries; // "NAME ROOM" of each
    int openKeys = 0;
    std::vector<std::string> freed; // what paged blocks held when they were freed

    TALSTATUS TalxOpenKey(const WCHAR*, UINT32, HANDLE* out) override
    {
        if (Failed(openStatus))
            return openStatus;
        ++openKeys;
        *out = this;
        return openStatus;
    }
    TALSTATUS TalxCloseKey(HANDLE) override
    {
        --openKeys;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS TalxQueryValueKey(HANDLE, const WCHAR* name, void* info, UINT32 size,
                                UINT32* resultLength) override
    {
        queries.push_back(harness::Narrow(name) + " " + std::to_string(size));
        std::memcpy(info, record.data(), std::min<size_t>(record.size(), size));
        *resultLength = static_cast<UINT32>(record.size());
        return queryStatus;
    }
    void* TalxAllocPagedMemory(UINT32 size) override
    {
        void* memory = WatchedPlatform::TalxAllocPagedMemory(size);
        if (memory) {
            std::memset(memory, 0xEE, size); // new memory holds anything
            sizes_[memory] = size;
        }
        return memory;
    }
    TALSTATUS TalxFreeMemory(void* memory) override
    {
        if (const auto found = sizes_.find(memory); found != sizes_.end()) {
            freed.emplace_back(static_cast<const char*>(memory), found->second);
            sizes_.erase(found);
        }
        return WatchedPlatform::TalxFreeMemory(memory);
    }

  private:
    std::map<void*, UINT32> sizes_;
};

// Puts the globals that stage one sets in place, and takes them away.
class Frame : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_EQ(Create(CLSID_HadranTalpl, real), TAL_STATUS_SUCCESS);
        platform.emplace(recorder, real.Get());
        pITalpl = &*platform;
        pITalpl->TalxInitializeListHead(&g_HandlerList);
        ASSERT_EQ(pITalpl->TalxAllocReadWriteLock(&g_hHandlerLock), TAL_STATUS_SUCCESS);
    }
    void TearDown() override
    {
        EXPECT_EQ(platform->LiveAllocations(), 0);
        EXPECT_EQ(platform->HeldLocks(), 0);
        EXPECT_EQ(platform->openKeys, 0);
        pITalpl->TalxDestroyReadWriteLock(g_hHandlerLock);
        g_hHandlerLock = nullptr;
        pITalpl = nullptr;
    }

    harness::Recorder recorder;
    Ref<ITalpl> real;
    std::optional<FramePlatform> platform;
};
