// SPDX-License-Identifier: Apache-2.0
//
// What the factory counts, and what a failed start gives back.
#include "core/cache.h"
#include "core/factory.h"
#include "core/lifecycle.h"
#include "frame.h"

namespace {

using Factory = Frame;

TEST_F(Factory, LockServer_CountsUpForOneAndDownForAnythingElse)
{
    g_IClassFactory.cLock = 5;
    EXPECT_EQ(g_IClassFactory.LockServer(1), TAL_STATUS_SUCCESS);
    EXPECT_EQ(g_IClassFactory.cLock, 6U);
    EXPECT_EQ(g_IClassFactory.LockServer(0), TAL_STATUS_SUCCESS);
    EXPECT_EQ(g_IClassFactory.LockServer(2), TAL_STATUS_SUCCESS);
    EXPECT_EQ(g_IClassFactory.cLock, 4U);
    g_IClassFactory.cLock = 0;
}

TEST(Cleanup, GivesBackWhatTheStartMade)
{
    harness::Recorder recorder;
    Ref<ITalpl> real;
    ASSERT_EQ(Create(CLSID_HadranTalpl, real), TAL_STATUS_SUCCESS);
    FramePlatform platform(recorder, real.Get());
    harness::UtilService util(recorder);
    harness::ObjectService objects(recorder);
    platform.AddRef();
    util.AddRef();
    objects.AddRef();
    pITalpl = &platform;
    g_pIKestUtil = &util;
    g_pIOM = &objects;
    ASSERT_EQ(pITalpl->TalxAllocReadWriteLock(&g_hHandlerLock), TAL_STATUS_SUCCESS);

    EXPECT_EQ(KestDavCleanup(), TAL_STATUS_SUCCESS);
    EXPECT_TRUE(g_KestDavUnloading);
    EXPECT_EQ(platform.References(), 0);
    EXPECT_EQ(util.References(), 0);
    EXPECT_EQ(objects.References(), 0);
    EXPECT_EQ(platform.LiveLocks(), 0);
    EXPECT_EQ(pITalpl, nullptr);
    EXPECT_EQ(g_pIKestUtil, nullptr);
    EXPECT_EQ(g_pIOM, nullptr);
    EXPECT_EQ(KestDavCleanup(), TAL_STATUS_SUCCESS) << "with nothing left";
    g_KestDavUnloading = false;
}

} // namespace
