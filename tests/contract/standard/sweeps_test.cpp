// SPDX-License-Identifier: Apache-2.0
//
// Every method with every one of its calls failing in turn: what fails on the server's side is
// never told as the client's mistake, nor as "nothing there".
#include "uploads.h"

namespace standard_tests {

namespace {

struct Swept {
    const char* name;
    Request request;
    std::function<void(World&)> prepare = {};
};

void PrintTo(const Swept& swept, std::ostream* out)
{
    *out << swept.name;
}

constexpr char kNamed[] = "<D:propfind xmlns:D=\"DAV:\"><D:prop><D:getetag/><p/><D:lockdiscovery/>"
                          "<D:quota-used-bytes/></D:prop></D:propfind>";

void Lock(World& world)
{
    world["gen3"].Find("/gen3/f.txt")->locks.push_back({.owner = "o", .token = "t"});
}

void BeginUpload(World& world)
{
    world.Run(Begin("f.txt", {"hello"}));
}

std::vector<Swept> Everything()
{
    const std::string token = "(<opaquelocktoken:t>)";
    const std::string place = PlaceOf("f.txt");
    return {
        {"OPTIONS", Of(KestMethodOptions)},
        {"OPTIONS of the root", Request(KestMethodOptions, "/Ferro")},
        {"OPTIONS of a collection", Of(KestMethodOptions, "c/")},
        {"GET", Of(KestMethodGet)},
        {"GET of a part", Of(KestMethodGet).Header("Range", "bytes=1-2")},
        {"GET of parts", Of(KestMethodGet).Header("Range", "bytes=1-2,5-6")},
        {"GET under conditions",
         Of(KestMethodGet).Header("If-None-Match", "\"v9\"").Header("If", "([\"v1\"])")},
        {"HEAD", Of(KestMethodHead)},
        {"HEAD of a collection", Of(KestMethodHead, "c/")},
        {"PUT", Of(KestMethodPut).Body({"new"})},
        {"PUT of a new file", Of(KestMethodPut, "n").Header("If-None-Match", "*").Body({"new"})},
        {"PUT of a part", Of(KestMethodPut).Header("Content-Range", "bytes 0-0/11").Body({"H"})},
        {"PUT under a lock", Of(KestMethodPut).Header("If", token).Body({"new"}), Lock},
        {"PATCH", Of(KestMethodPatch)
                      .Header("Content-Type", "application/x-sabredav-partialupdate")
                      .Header("X-Update-Range", "append")
                      .Body({"!"})},
        {"PUT that begins an upload", Begin("f.txt", {"hello"})},
        {"PATCH of an upload", Append(place, 5, {"!"}), BeginUpload},
        {"PATCH that ends an upload", Append(place, 5, {"!"}, "?1"), BeginUpload},
        {"HEAD of an upload", Request(KestMethodHead, place), BeginUpload},
        {"DELETE of an upload", Request(KestMethodDelete, place), BeginUpload},
        {"DELETE", Of(KestMethodDelete)},
        {"DELETE of a collection", Of(KestMethodDelete, "c")},
        {"DELETE under a lock", Of(KestMethodDelete).Header("If", token), Lock},
        {"MKCOL", Of(KestMethodMkCol, "n")},
        {"COPY", Of(KestMethodCopy).To("http://server.example:8080/Ferro/gen3/g")},
        {"COPY without replacing",
         Of(KestMethodCopy).To("http://server.example:8080/Ferro/gen3/g", FALSE)},
        {"COPY of a collection",
         Of(KestMethodCopy, "c").To("http://server.example:8080/Ferro/gen3/d")},
        {"MOVE", Of(KestMethodMove).To("/Ferro/gen3/g")},
        {"MOVE of a collection", Of(KestMethodMove, "c").To("/Ferro/gen3/d")},
        {"PROPFIND", Of(KestMethodPropFind).Header("Depth", "0")},
        {"PROPFIND by names", Of(KestMethodPropFind).Header("Depth", "0").Body({kNamed}), Lock},
        {"PROPFIND of members", Of(KestMethodPropFind, "c").Header("Depth", "1")},
        {"PROPPATCH", Of(KestMethodPropPatch).Body({kPatch})},
        {"LOCK", Of(KestMethodLock).Body({kExclusiveLock})},
        {"LOCK of a new name", Of(KestMethodLock, "n").Body({kExclusiveLock})},
        {"LOCK that refreshes", Of(KestMethodLock).Header("If", token), Lock},
        {"UNLOCK", Of(KestMethodUnlock).Header("Lock-Token", "<opaquelocktoken:t>"), Lock},
    };
}

std::unique_ptr<World> WorldFor(const Swept& swept)
{
    auto world = MakeUploadWorld();
    if (swept.prepare)
        swept.prepare(*world);
    world->Remember("/Ferro/gen3");
    return world;
}

class StandardSweep : public testing::TestWithParam<Swept> {};

TEST_P(StandardSweep, NoFailureIsToldAsTheClientsMistake)
{
    const Swept& swept = GetParam();
    const std::string usual = WorldFor(swept)->Run(swept.request).text.substr(0, 3);
    ASSERT_EQ(usual[0], '2') << usual;
    std::vector<std::string> lies;
    harness::ExpectEveryFailureIsSurvived(
        [&] { return WorldFor(swept); }, swept.request,
        [&](World& world, const Reply& reply) {
            const std::string status = reply.text.substr(0, 3);
            const std::string failed = world.recorder.FailedCall();
            // The client is told that its own body has not arrived, or its path is no text.
            const bool isAboutTheRequest = failed == "io.ReadClientPayload" ||
                                           failed == "io.IsClientPayloadAvailable" ||
                                           failed == "platform.TalxWideCharToMultiByte";
            const bool isTrue = status == usual || status[0] == '5' ||
                                (failed == "io.SendHeader" && status == "non") ||
                                (isAboutTheRequest && status == "400");
            if (!isTrue)
                lies.push_back(status + " when " + failed + " failed");
        });
    EXPECT_THAT(lies, IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Every, StandardSweep, testing::ValuesIn(Everything()));

} // namespace

} // namespace standard_tests
