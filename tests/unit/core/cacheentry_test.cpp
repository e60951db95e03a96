// SPDX-License-Identifier: Apache-2.0
//
// Entries of the resolution cache, and what resolution hands back beside its status.
#include "core/cache.h"
#include "frame.h"
#include "support/resolution.h"

using harness::kInjected;
using harness::Narrow;
using harness::SessionHandle;

namespace {

class CacheEntry : public Frame {
  protected:
    void SetUp() override
    {
        Frame::SetUp();
        platform->fixedTime = 1000;
        objects.Initialize(&KESTDAV_MODULE_ID, sizeof(URI_CACHE_BUFFER), 1, 0, 31,
                           DavUriCacheBufferDestructor, nullptr, nullptr, 6);
        g_pIOM = &objects;
        void* out = nullptr;
        ASSERT_EQ(provider.CreateObject(IID_KestDAV_2, &out), TAL_STATUS_SUCCESS);
        handler.pIKestDav2 = static_cast<IKestDAV2*>(out);
        pITalpl->TalxInsertTailList(&g_HandlerList, &handler.ListLink);
    }
    void TearDown() override
    {
        EXPECT_EQ(objects.Referenced(), 0);
        handler.pIKestDav2->Release();
        pITalpl->TalxInitializeListHead(&g_HandlerList);
        g_pIOM = nullptr;
        Frame::TearDown();
    }
    static UNICODE_STRING Counted(std::u16string& text)
    {
        const auto bytes = static_cast<UINT16>(text.size() * sizeof(WCHAR));
        return {bytes, bytes, text.data()};
    }
    const URI_CACHE_BUFFER* Stored(std::u16string keyText)
    {
        UNICODE_STRING key = Counted(keyText);
        void* object = nullptr;
        if (Failed(objects.FindObject(session, &key, DavCompareUri, 0, 2, &object)))
            return nullptr;
        objects.DereferenceObject(object, 2);
        return static_cast<const URI_CACHE_BUFFER*>(object);
    }

    const SCHANDLE session = SessionHandle(1);
    harness::ObjectService objects{recorder};
    harness::Provider provider{recorder, {.name = "vol"}};
    KESTDAV_HANDLER handler{};
    std::u16string root = u"/vol";
    UNICODE_STRING rootU = Counted(root);
};

TEST_F(CacheEntry, New_HoldsItsFields)
{
    EXPECT_EQ(DavAddUriPrefixToCache(session, &rootU, &handler), TAL_STATUS_SUCCESS);
    const URI_CACHE_BUFFER* entry = Stored(u"/VOL");
    ASSERT_TRUE(entry);
    EXPECT_EQ(entry->Signature, 0xACDC00BAU);
    EXPECT_EQ(entry->Flags, 0U);
    EXPECT_EQ(entry->LastAccess, 1000U);
    EXPECT_EQ(entry->pHandler, &handler);
    EXPECT_EQ(Narrow(&entry->UriU), "/vol");
    EXPECT_EQ(entry->UriU.Buffer, entry->wUriBuffer);
    EXPECT_EQ(entry->UriU.MaximumLength, 4098);
}

TEST_F(CacheEntry, OfARootThatIsThere_IsKept)
{
    EXPECT_EQ(DavAddUriPrefixToCache(session, &rootU, &handler), TAL_STATUS_SUCCESS);
    KESTDAV_HANDLER other{};
    platform->fixedTime = 2000;
    EXPECT_EQ(DavAddUriPrefixToCache(session, &rootU, &other), TAL_STATUS_OBJECT_EXISTS);
    EXPECT_EQ(Stored(u"/vol")->pHandler, &handler);
    EXPECT_EQ(Stored(u"/vol")->LastAccess, 2000U);
    EXPECT_EQ(objects.Objects(1), 1U);
}

TEST_F(CacheEntry, ThatTheStoreRefuses_IsItsStatus)
{
    recorder.Fail("om.CreateObject", kInjected);
    EXPECT_EQ(DavAddUriPrefixToCache(session, &rootU, &handler), kInjected);
}

TEST_F(CacheEntry, Hit_RefreshesTheLastAccess)
{
    DavAddUriPrefixToCache(session, &rootU, &handler);
    platform->fixedTime = 3000;
    std::u16string path = u"/vol/none";
    UNICODE_STRING pathU = Counted(path);
    KESTDAV_HANDLER* found = nullptr;
    EXPECT_EQ(DavUriToHandler(session, &pathU, &found), TAL_STATUS_SUCCESS);
    EXPECT_EQ(found, &handler);
    EXPECT_EQ(Stored(u"/vol")->LastAccess, 3000U);
}

TEST_F(CacheEntry, OfALongRoot_IsCut)
{
    std::u16string longRoot = u"/" + std::u16string(3000, u'r');
    UNICODE_STRING longU = Counted(longRoot);
    URI_CACHE_INIT_DATA init = {&handler, &longU};
    const auto entry = std::make_unique<URI_CACHE_BUFFER>();
    EXPECT_EQ(DavUriCacheBufferConstructor(entry.get(), &init), TAL_STATUS_SUCCESS);
    EXPECT_EQ(entry->UriU.Length, 4098);
    EXPECT_FALSE(DavCompareUri(entry.get(), &longU)) << "so it is never found again";
}

TEST_F(CacheEntry, EndsWithoutWork)
{
    EXPECT_EQ(DavUriCacheBufferDestructor(nullptr), TAL_STATUS_SUCCESS);
    EXPECT_EQ(DavCacheSessionCleanup(session), TAL_STATUS_SUCCESS);
}

TEST_F(CacheEntry, StoreThatIsThere_IsNotMadeAgain)
{
    EXPECT_EQ(DavInitCacheBuffers(), TAL_STATUS_SUCCESS);
    EXPECT_EQ(g_pIOM, &objects);
}

TEST_F(CacheEntry, TypeWithACode_HandsTheProviderBackAndDoesNotResolve)
{
    recorder.Fail("vol.GetType", TAL_STATUS_INFO_END_OF_FILE);
    KESTDAV_HANDLER* found = nullptr;
    EXPECT_EQ(DavUriToHandler(session, &rootU, &found), TAL_STATUS_NOT_FOUND);
    EXPECT_EQ(found, &handler);
    EXPECT_TRUE(Stored(u"/vol"));
}

TEST_F(CacheEntry, ResolutionOfWhatIsMissing_LeavesThePointerAlone)
{
    DavAddUriPrefixToCache(session, &rootU, &handler);
    std::u16string path = u"/vol/none";
    UNICODE_STRING pathU = Counted(path);
    KESTDAV_HANDLER* found = nullptr;
    DAV_TYPE type = Collection;
    EXPECT_EQ(Code(ResolveUriToHandler(session, &pathU, &type, &found)), kCodeNotFound);
    EXPECT_EQ(found, nullptr);
    EXPECT_EQ(ResolveUriToHandler(session, &rootU, &type, &found), TAL_STATUS_SUCCESS);
    EXPECT_EQ(found, &handler);
    EXPECT_EQ(type, Collection);
}

} // namespace
