// SPDX-License-Identifier: Apache-2.0
//
// The dispatcher's copy of the request path, seen when it is freed.
#include "core/factory.h"
#include "core/session.h"
#include "frame.h"

using harness::Request;

namespace {

// Hands out a path whose lengths a case sets.
class OddIo final : public harness::ScriptedIo {
  public:
    using ScriptedIo::ScriptedIo;
    UNICODE_STRING path{};
    TALSTATUS GetUrl(UINT32*, UNICODE_STRING** url) override
    {
        *url = &path;
        return TAL_STATUS_SUCCESS;
    }
};

class PathCopy : public Frame {
  protected:
    void SetUp() override
    {
        Frame::SetUp();
        attributes.SARegisterAttribute(&KESTDAV_SESSION_ATTRIBUTE, sizeof(KESTDAV_SESSION),
                                       KestDavSACleanup, nullptr, &g_hSessionAttribute);
        g_pIAttr = &attributes;
    }
    void TearDown() override
    {
        g_pIAttr = nullptr;
        Frame::TearDown();
    }
    // The copy, in code units, that a request with this path works on.
    std::u16string CopyOf(std::u16string text, UINT16 length, UINT16 room)
    {
        OddIo io(recorder, *platform, Request(KestMethodTrace, "/"));
        text.resize(std::max<size_t>(text.size(), room / 2), u'?');
        io.path = {length, room, text.data()};
        platform->freed.clear();
        EXPECT_EQ(KestDavRequestHandler(nullptr, &io, harness::SessionHandle(1), KestMethodTrace),
                  TAL_STATUS_SUCCESS);
        EXPECT_EQ(io.TakeReply().text, "501\n\n");
        if (platform->freed.size() != 1)
            return u"(not one block)";
        const std::string& block = platform->freed[0];
        EXPECT_EQ(block.size(), size_t{room} + 2);
        return {reinterpret_cast<const char16_t*>(block.data()), block.size() / 2};
    }
    harness::AttributeService attributes{recorder};
};

constexpr char16_t kNew = 0xEEEE; // what new memory holds

TEST_F(PathCopy, HasItsTerminatorAndOneUnitMoreThanTheHosts)
{
    EXPECT_EQ(CopyOf(u"/ab", 6, 8), (std::u16string{u'/', u'a', u'b', 0, kNew}));
    EXPECT_EQ(CopyOf(u"/ab/", 8, 8), (std::u16string{u'/', u'a', u'b', 0, kNew}));
    EXPECT_EQ(CopyOf(u"/ab//", 10, 10), (std::u16string{u'/', u'a', u'b', u'/', 0, kNew}));
    EXPECT_EQ(CopyOf(u"/", 2, 2), (std::u16string{0, kNew}));
    EXPECT_EQ(CopyOf(u"", 0, 0), (std::u16string{0}));
}

TEST_F(PathCopy, LongerThanItsRoom_IsCutToIt)
{
    EXPECT_EQ(CopyOf(u"/abcdefgh", 18, 6), (std::u16string{u'/', u'a', u'b', 0}));
}

TEST_F(PathCopy, OfTheGreatestRoom_IsWhole)
{
    const std::u16string longest(0x7FFE, u'p');
    EXPECT_EQ(CopyOf(longest, 0xFFFC, 0xFFFE), longest + u'\0' + kNew);
}

} // namespace
