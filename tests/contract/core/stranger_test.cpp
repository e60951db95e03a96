// SPDX-License-Identifier: Apache-2.0
//
// Hosts and platform layers that keep to the letter of their interfaces and no further: texts that
// are missing although the call succeeded, paths that are shorter than the moniker, header values
// that fill the buffer offered, and lists that give their head when they are empty.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "world.h"

using harness::Reply;
using harness::Request;
using harness::World;
using testing::IsEmpty;

namespace {

constexpr UINT32 kMethods[] = {
    KestMethodGet,       KestMethodPut,   KestMethodPost,  KestMethodDelete, KestMethodOptions,
    KestMethodPropFind,  KestMethodMkCol, KestMethodCopy,  KestMethodMove,   KestMethodLock,
    KestMethodPropPatch, KestMethodHead,  KestMethodUnlock};

// A request of each method as a client could send it.
Request Ask(UINT32 method, const std::string& path)
{
    Request request(method, path);
    request.To(method == KestMethodCopy ? "http://server.example/Ferro/gen2/n" : "/Ferro/gen2/n");
    request.Header("Content-Type", "multipart/form-data; boundary=b");
    request.Header("Lock-Token", "<opaquelocktoken:t>");
    request.Header("Depth", "1");
    if (method == KestMethodPut || method == KestMethodPost)
        request.Body({"--b\r\nfilename=\"a\"\r\n\r\nx\r\n--b--\r\n"});
    return request;
}

// -- Paths shorter than the moniker

// What a provider makes of the path that is left of such a one: nothing.
enum class EmptyPath { kUnknown, kCollection, kResource };

class ShortPath : public testing::TestWithParam<std::tuple<UINT32, EmptyPath, int>> {};

TEST_P(ShortPath, IsAnswered)
{
    const auto [method, emptyPath, generations] = GetParam();
    for (const char* path : {"/", "", "/F", "/Ferr", "/Fer/"}) {
        SCOPED_TRACE(path);
        World world({{.name = "gen2", .generations = generations}});
        world["gen2"].serveRoot = emptyPath == EmptyPath::kCollection;
        if (emptyPath == EmptyPath::kResource)
            world["gen2"].AddFile("", "x");
        world.Remember("/Ferro/gen2");
        for (const size_t spare : {size_t{0}, size_t{1024}}) {
            Request request = Ask(method, path);
            request.spareUnits = spare;
            request.nullBuffers = spare == 0 && *path == '\0';
            const Reply reply = world.Run(request);
            EXPECT_LE(reply.heads, 1);
        }
        EXPECT_TRUE(world["gen2"].Has("/gen2"));
        world.ExpectAtRest();
    }
}

INSTANTIATE_TEST_SUITE_P(Methods, ShortPath,
                         testing::Combine(testing::ValuesIn(kMethods),
                                          testing::Values(EmptyPath::kUnknown,
                                                          EmptyPath::kCollection,
                                                          EmptyPath::kResource),
                                          testing::Values(1, 2)));

// -- Texts that the host does not have

class MissingText : public testing::TestWithParam<UINT32> {};

TEST_P(MissingText, IsAnswered)
{
    for (int text = 0; text < 3; ++text) {
        SCOPED_TRACE(text);
        World world({{.name = "gen2"}});
        world["gen2"].AddFile("/gen2/f", "content");
        world["gen2"].AddFile("/gen2/other", "kept");
        world.Remember("/Ferro/gen2");
        Request request = Ask(GetParam(), "/Ferro/gen2/f");
        request.nullUrl = text == 0;
        request.nullTexts = text == 1;
        request.nullBuffers = text == 2;
        EXPECT_LE(world.Run(request).heads, 1);
        EXPECT_EQ(world["gen2"].Content("/gen2/other"), "kept");
        world.ExpectAtRest();
    }
}

INSTANTIATE_TEST_SUITE_P(Methods, MissingText, testing::ValuesIn(kMethods));

TEST(MissingDestination, IsRefusedAndChangesNothing)
{
    for (const UINT32 method : {UINT32{KestMethodMove}, UINT32{KestMethodCopy}}) {
        for (const bool null : {true, false}) {
            World world({{.name = "gen2"}});
            world["gen2"].serveRoot = true;
            world["gen2"].AddFile("/gen2/f", "content");
            world.Remember("/Ferro/gen2");
            Request request = Ask(method, "/Ferro/gen2/f");
            request.nullTexts = null;
            request.nullBuffers = !null;
            const int status = null || method == KestMethodCopy ? 417 : 400;
            EXPECT_EQ(world.Run(request).text, std::to_string(status) + "\nContent-Length: \n\n")
                << method << null;
            EXPECT_EQ(world["gen2"].Content("/gen2/f"), "content");
            EXPECT_THAT(world.Calls({"gen2.Move", "gen2.Create", "gen2.res"}), IsEmpty());
            world.ExpectAtRest();
        }
    }
}

TEST(MissingUrl, IsRefused)
{
    World world({{.name = "gen2"}});
    Request request(KestMethodDelete, "/Ferro/gen2");
    request.nullUrl = true;
    const Reply reply = world.Run(request);
    EXPECT_EQ(reply.text, "417\n\n");
    EXPECT_EQ(reply.returned, TAL_STATUS_INVALID_PARAMETER);
    EXPECT_THAT(world.Calls({"gen2."}), IsEmpty());
}

// What is left of it would be a provider's root.
TEST(DestinationShorterThanTheMoniker, IsRefusedAndChangesNothing)
{
    for (const char* destination : {"/", "/F", "/Ferr", "n"}) {
        World world({{.name = "gen2"}});
        world["gen2"].serveRoot = true;
        world["gen2"].AddFile("/gen2/f", "content");
        world.Remember("/Ferro/gen2");
        const Reply reply =
            world.Run(Request(KestMethodMove, "/Ferro/gen2/f").To(destination, TRUE));
        EXPECT_EQ(reply.text, "400\nContent-Length: \n\n") << destination;
        EXPECT_EQ(reply.returned, TAL_STATUS_INVALID_REQUEST) << destination;
        EXPECT_THAT(world.Calls({"gen2.Move", "gen2.res"}), IsEmpty()) << destination;
        world.ExpectAtRest();
    }
}

// -- Lists

TEST(ListThatGivesItsHeadWhenItIsEmpty, IsEmptiedOnce)
{
    World world({{.name = "gen2"}, {.name = "gen1", .generations = 1}});
    world.platform.emptyListGivesHead = true;
    for (const char* name : {"gen2", "gen1"}) {
        world[name].moveSupported = false;
        world[name].AddFile(std::string("/") + name + "/c/f", "content");
        world.Remember(std::string("/Ferro/") + name);
    }
    const std::string gone = "\nContent-Length: \n\n";
    EXPECT_EQ(world.Run(Request(KestMethodCopy, "/Ferro/gen2/c").To("/Ferro/gen2/d", FALSE)).text,
              "200" + gone);
    EXPECT_EQ(world.Run(Request(KestMethodMove, "/Ferro/gen1/c").To("/Ferro/gen2/e", FALSE)).text,
              "200" + gone);
    EXPECT_EQ(world.Run(Request(KestMethodDelete, "/Ferro/gen2/c")).heads, 1);
    EXPECT_EQ(world.Run(Request(KestMethodPropFind, "/Ferro/gen2")).heads, 1);
    EXPECT_EQ(world["gen2"].Content("/gen2/e/f"), "content");
    world.ExpectAtRest();
}

// -- Header values that fill the buffer that was offered for them

struct FullBuffer {
    const char* name;
    size_t bytes; // of the buffer
    Request request;
    const char* header;
    std::string begin; // of its value, which is filled up with `fill` before `end`
    char fill;
    std::string end;
    std::string shown; // what the reply or the calls show when nothing was lost
};

class FilledBuffer : public testing::TestWithParam<FullBuffer> {};

TEST_P(FilledBuffer, LosesNothing)
{
    const FullBuffer& row = GetParam();
    World world({{.name = "gen2"}});
    world["gen2"].AddFile("/gen2/f", std::string(1000, 'x'));
    world.Remember("/Ferro/gen2");
    Request request = row.request;
    request.ExactHeaders();
    std::string value = row.begin;
    value.append(row.bytes - row.begin.size() - row.end.size(), row.fill);
    const Reply reply = world.Run(request.Header(row.header, value + row.end));
    std::string seen = reply.text;
    for (const std::string& call : world.Calls())
        seen += call + "\n";
    EXPECT_THAT(seen, testing::HasSubstr(row.shown));
    world.ExpectAtRest();
}

const std::string kToken(32, 't');

INSTANTIATE_TEST_SUITE_P(
    Headers, FilledBuffer,
    testing::Values(
        FullBuffer{"Range", 32, Request(KestMethodGet, "/Ferro/gen2/f"), "Range", "bytes=0-9,", ' ',
                   "11-123", "Content-Range: bytes 0-123/1000\nContent-Length: 123\n"},
        FullBuffer{"LongRange", 1024, Request(KestMethodGet, "/Ferro/gen2/f"), "Range",
                   "bytes=0-9,", ' ', "11-123",
                   "Content-Range: bytes 0-123/1000\nContent-Length: 123\n"},
        FullBuffer{"IfOfPut", 128, Request(KestMethodPut, "/Ferro/gen2/f"), "If",
                   "(<opaquelocktoken:" + kToken + ">)", ' ', "", "token=" + kToken + ")"},
        FullBuffer{"IfOfHead", 128, Request(KestMethodHead, "/Ferro/gen2/f"), "If",
                   "(<opaquelocktoken:" + kToken + ">)", ' ', "", "token=" + kToken + ")"},
        FullBuffer{"IfOfLock", 128, Request(KestMethodLock, "/Ferro/gen2/f"), "If",
                   "(<opaquelocktoken:", 't', ">", "ttt)"},
        FullBuffer{"LockToken", 128, Request(KestMethodUnlock, "/Ferro/gen2/f"), "Lock-Token",
                   "<opaquelocktoken:", 't', "u>", "tu)"},
        FullBuffer{"DepthOfPropFind", 16, Request(KestMethodPropFind, "/Ferro/gen2"), "Depth", "",
                   '0', "1", "/gen2/f</a:href>"},
        FullBuffer{"Timeout", 128, Request(KestMethodLock, "/Ferro/gen2/f"), "Timeout", "Second-",
                   '0', "99", "timeout=1590000000"},
        FullBuffer{"IfModifiedSince", 128, Request(KestMethodGet, "/Ferro/gen2/f"),
                   "If-Modified-Since", "Fri", ' ', "GMT", "  GMT)"}),
    [](const auto& row) { return row.param.name; });

} // namespace
