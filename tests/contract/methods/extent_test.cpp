// SPDX-License-Identifier: Apache-2.0
//
// How far a request's hold on the provider list reaches, and what is given back before the reply.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../index/site.h"
#include "world.h"

using harness::Request;
using harness::World;

namespace {

// One call of a request, the locks held while it was made and the provider objects open then.
struct Moment {
    std::string call;
    int locks;
    int objects;
};

struct ExtentRow {
    const char* name;
    Request request;
    bool heldToTheEnd; // else the reply goes out without the lock
};

class Extent : public testing::TestWithParam<ExtentRow> {
  protected:
    Extent()
    {
        for (const std::string name : {"gen2", "gen1"}) {
            world[name].AddFile("/" + name + "/f", "0123456789");
            world[name].AddFile("/" + name + "/c/d/g", "deep");
            world.Remember("/Ferro/" + name);
        }
    }
    std::vector<Moment> Run(const Request& request)
    {
        std::vector<Moment> moments;
        world.recorder.onCall = [&](std::string_view name) {
            moments.push_back({std::string(name), world.platform.HeldLocks(),
                               world["gen2"].LiveObjects() + world["gen1"].LiveObjects()});
        };
        world.Run(request);
        world.recorder.onCall = {};
        return moments;
    }
    World world{{{.name = "gen2"}, {.name = "gen1", .generations = 1}}};
};

bool OfAProvider(const std::string& call)
{
    return call.starts_with("gen");
}

bool OfTheReply(const std::string& call)
{
    return call == "io.SendHeader" || call == "io.Write" || call == "io.PutString";
}

TEST_P(Extent, OfTheProviderLock)
{
    int providerCalls = 0;
    for (const Moment& moment : Run(GetParam().request)) {
        SCOPED_TRACE(moment.call);
        if (OfAProvider(moment.call)) {
            ++providerCalls;
            EXPECT_EQ(moment.locks, 1) << "held from the resolution on";
        }
        if (moment.call == "io.ReadClientPayload") {
            EXPECT_EQ(moment.locks, 1) << "held during the whole transfer";
        }
        if (OfTheReply(moment.call)) {
            EXPECT_EQ(moment.locks, GetParam().heldToTheEnd ? 1 : 0);
            if (!GetParam().heldToTheEnd) {
                EXPECT_EQ(moment.objects, 0) << "the provider has committed before the reply";
            }
        }
        if (moment.call == "om.FindObject") {
            EXPECT_EQ(moment.locks, 1) << "taken before the resolution";
        }
    }
    EXPECT_GT(providerCalls, 0);
    world.ExpectAtRest();
}

INSTANTIATE_TEST_SUITE_P(
    Methods, Extent,
    testing::Values(
        ExtentRow{"Put", Request(KestMethodPut, "/Ferro/gen2/n").Body({"a", "b"}), false},
        ExtentRow{"PutFirst", Request(KestMethodPut, "/Ferro/gen1/n").Body({"a", "b"}), false},
        ExtentRow{"MkCol", Request(KestMethodMkCol, "/Ferro/gen2/n"), false},
        ExtentRow{"Get", Request(KestMethodGet, "/Ferro/gen2/f"), true},
        ExtentRow{"Head", Request(KestMethodHead, "/Ferro/gen2/f"), true},
        ExtentRow{"HeadOfACollection", Request(KestMethodHead, "/Ferro/gen1/c"), true},
        ExtentRow{"Delete", Request(KestMethodDelete, "/Ferro/gen2/f"), false},
        ExtentRow{"DeleteOfATree", Request(KestMethodDelete, "/Ferro/gen1/c"), false},
        ExtentRow{"Copy", Request(KestMethodCopy, "/Ferro/gen2/f").To("/Ferro/gen1/n", FALSE),
                  false},
        ExtentRow{"CopyOfATree",
                  Request(KestMethodCopy, "/Ferro/gen1/c").To("/Ferro/gen2/n", FALSE), false},
        ExtentRow{"Move", Request(KestMethodMove, "/Ferro/gen2/f").To("/Ferro/gen2/n", FALSE),
                  false},
        ExtentRow{"MoveOfATree",
                  Request(KestMethodMove, "/Ferro/gen2/c").To("/Ferro/gen1/n", FALSE), false},
        ExtentRow{
            "Upload",
            Request(KestMethodPost, "/Ferro/gen2/c")
                .Header("Content-Type", "multipart/form-data; boundary=B")
                .Body({"--B\r\nContent-Disposition: form-data; filename=\"n\"\r\n\r\nx\r\n--B--"}),
            false}),
    [](const auto& row) { return row.param.name; });

// The copy's destination is committed, and the source no longer open, before the source goes.
TEST_F(Extent, OfOpenedObjectsInAMove)
{
    for (const Moment& moment :
         Run(Request(KestMethodMove, "/Ferro/gen1/f").To("/Ferro/gen2/n", FALSE)))
        if (moment.call == "gen1.Delete") {
            EXPECT_EQ(moment.objects, 0);
        }
    EXPECT_FALSE(world["gen1"].Has("/gen1/f"));
}

// A broken copy's destination is no longer open when it is deleted again.
TEST_F(Extent, OfTheDestinationOfABrokenCopy)
{
    world.Fail("gen2.res.Write", harness::ProviderFailure(kCodeStorageFull));
    bool deleted = false;
    for (const Moment& moment :
         Run(Request(KestMethodCopy, "/Ferro/gen1/f").To("/Ferro/gen2/n", FALSE)))
        if (moment.call == "gen2.Delete") {
            deleted = true;
            EXPECT_EQ(moment.objects, 1) << "the source alone";
        }
    EXPECT_TRUE(deleted);
}

// A collection is closed before it is deleted, its parents are still open.
TEST_F(Extent, OfOpenedCollectionsInADelete)
{
    std::vector<int> open;
    for (const Moment& moment : Run(Request(KestMethodDelete, "/Ferro/gen2/c")))
        if (moment.call == "gen2.Delete")
            open.push_back(moment.objects);
    EXPECT_THAT(open, testing::ElementsAre(2, 1, 0)) << "g, d, c";
}

// How many locks each call of a request was made under, in the world of a site.
std::vector<Moment> RunOn(site::Site& site, const Request& request)
{
    std::vector<Moment> moments;
    site.world.recorder.onCall = [&](std::string_view name) {
        moments.push_back({std::string(name), site.world.platform.HeldLocks(), 0});
    };
    const harness::Reply reply = site.world.Run(request);
    site.world.recorder.onCall = {};
    EXPECT_THAT(reply.text, testing::StartsWith("200\nCache-Control: no-store\n"));
    site.world.ExpectAtRest();
    return moments;
}

// The root and the index documents go to the index without the lock, which takes it for itself.
TEST(IndexExtent, OfTheRootAndOfIndexDocuments)
{
    site::Site site;
    site.dir.Write("index.xml", "<index/>");
    site.world["vol"].serveRoot = true;
    for (const char* path : {"/Ferro", "/Ferro/vol/.index_xml"}) {
        SCOPED_TRACE(path);
        for (const Moment& moment : RunOn(site, site::Site::Asks(path)))
            EXPECT_LE(moment.locks, OfTheReply(moment.call) ? 0 : 1) << moment.call;
    }
}

TEST(IndexExtent, OfACollection)
{
    site::Site site;
    for (const Moment& moment : RunOn(site, site::Site::Asks("/Ferro/vol")))
        if (OfTheReply(moment.call)) {
            EXPECT_EQ(moment.locks, 1) << moment.call;
        }
}

// The preference form gives the lock back before the page takes it.
TEST(IndexExtent, OfThePreferenceForm)
{
    site::Site site;
    site.dir.Write("index.xml", "<index/>");
    for (const Moment& moment :
         RunOn(site, Request(KestMethodPost, "/Ferro/vol/.index_xml")
                         .Header("Content-Type", "application/x-www-form-urlencoded")
                         .Header("User-Agent", site::kModern)
                         .Body({"Sort=2"}))) {
        if (moment.call == "io.ReadClientPayload") {
            EXPECT_EQ(moment.locks, 1);
        }
        if (OfTheReply(moment.call)) {
            EXPECT_EQ(moment.locks, 0) << moment.call;
        }
    }
}

} // namespace
