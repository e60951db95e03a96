// SPDX-License-Identifier: Apache-2.0
//
// Tokens, tags and false conditions of the "If" header, as the store judges them.
#include <cstring>
#include <functional>

#include "tests/contract/providers/filestore/locks.h"

using namespace filestore_test;

TEST_F(FileStoreLocks, TokensOfTheIfHeaderCount)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    ASSERT_EQ(0u, Put("/docs/b", "x"));
    const std::string token = MustLock("/docs/a");
    const std::string list = "(<opaquelocktoken:" + token + ">)";
    const std::string tagged = "<http://h:1/Ferro/docs/a> " + list;
    EXPECT_EQ(0u, WithIf("/docs/a", list, [&] { return Put("/docs/a", "y"); }));
    EXPECT_EQ(0u,
              WithIf(
                  "/docs/a", list, [&] { return SetProperty("/docs/a"); }, KestMethodPropPatch));
    EXPECT_EQ(0u,
              WithIf(
                  "/docs/b", tagged, [&] { return Move("/docs/b", "/docs/a"); }, KestMethodMove));
    EXPECT_TRUE(Found("/docs/a").empty()); // it went with what was there
}

TEST_F(FileStoreLocks, AFalseConditionIsNoLock)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    const std::string token = MustLock("/docs/a");
    const std::string good = "<opaquelocktoken:" + token + ">";
    const struct {
        std::string header;
        UINT16 code;
    } rows[] = {{"(" + good + ")", 0},
                {"(<opaquelocktoken:wrong>)", kCodePreconditionFailed},
                {"(<opaquelocktoken:wrong>) (" + good + ")", 0},
                {"(" + good + " [\"wrong\"])", kCodePreconditionFailed},
                {"(Not <DAV:no-lock> " + good + ")", 0},
                {"(Not <DAV:no-lock>)", kCodeLocked},
                {"(<DAV:no-lock>)", kCodePreconditionFailed},
                {"nonsense", kCodeInvalidRequest}};
    for (const auto& row : rows)
        EXPECT_EQ(row.code,
                  Code(WithIf("/docs/a", row.header, [&] { return Put("/docs/a", "y"); })))
            << row.header;
    // The module makes a form's header itself: its tokens count, it poses no condition.
    EXPECT_EQ(0u,
              WithIf(
                  "/docs", "(" + good + ")", [&] { return Put("/docs/a", "z"); }, KestMethodPost));
    EXPECT_EQ(0u, WithIf(
                      "/docs", "(<opaquelocktoken:x>)", [&] { return Put("/docs/new", "z"); },
                      KestMethodPost));
    EXPECT_EQ(0u, Unlock("/docs/a", token));
}

TEST_F(FileStoreLocks, AFalseConditionTakesAndRefreshesNoLockAndSetsNoProperty)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    const std::string token = MustLock("/docs/a");
    const std::string wrong = "(<opaquelocktoken:" + token + "> [\"wrong\"])";
    alignas(DAV_LOCK_2) char buffer[kLockRecordBytes];
    auto* const lock = reinterpret_cast<DAV_LOCK_2*>(buffer);
    const auto refresh = [&] { return Refresh("/docs/a", token, kSecond, lock); };
    EXPECT_EQ(kCodePreconditionFailed, Code(WithIf("/docs/a", wrong, refresh, KestMethodLock)));
    std::string other;
    const auto take = [&] { return Lock("/docs/new", &other); };
    EXPECT_EQ(kCodePreconditionFailed, Code(WithIf("/docs/new", wrong, take, KestMethodLock)));
    EXPECT_FALSE(std::filesystem::exists(Docs() / "new"));
    const auto set = [&] { return SetProperty("/docs/a"); };
    EXPECT_EQ(kCodePreconditionFailed, Code(WithIf("/docs/a", wrong, set, KestMethodPropPatch)));
    EXPECT_EQ(0u, Unlock("/docs/a", token));
}

TEST_F(FileStoreLocks, ATagCountsBelowTheRequestsOwnLocation)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    const std::string token = MustLock("/docs/a");
    const std::string list = " (<opaquelocktoken:" + token + ">)";
    const struct {
        const char* tag;
        UINT16 code;
    } rows[] = {{"</Ferro/docs/a>", 0},
                {"<http://any.host:1/Ferro/docs/a>", 0},
                {"</Other/docs/a>", kCodePreconditionFailed}, // as long as the location
                {"</docs/a>", kCodePreconditionFailed},
                {"</Ferrodocs/a>", kCodePreconditionFailed},
                {"</Ferro>", kCodePreconditionFailed},
                {"</Ferro/docs/b>", kCodePreconditionFailed},
                {"</Fer>", kCodePreconditionFailed}};
    for (const auto& row : rows)
        EXPECT_EQ(row.code,
                  Code(WithIf("/docs/a", row.tag + list, [&] { return Put("/docs/a", "y"); })))
            << row.tag;
    EXPECT_EQ(0u, Unlock("/docs/a", token));
}

TEST_F(FileStoreLocks, AnEntityTagConditionAsksTheResource)
{
    ASSERT_EQ(0u, Put("/docs/a", "x"));
    DAV_ETAG etag{};
    ASSERT_EQ(0u, Opened("/docs/a")->GetETag(&etag));
    std::string text;
    for (const UINT8 byte : etag.Bytes) {
        char hex[3];
        snprintf(hex, sizeof hex, "%02x", byte);
        text += hex;
    }
    const auto put = [&] { return Put("/docs/a", "y"); };
    EXPECT_EQ(0u, WithIf("/docs/a", "([\"" + text + "\"])", put));
    EXPECT_EQ(kCodePreconditionFailed, Code(WithIf("/docs/a", "([\"" + text + "\"])", put)));
    EXPECT_EQ(0u, WithIf("/docs/a", "(Not [\"" + text + "\"])", put));
}
