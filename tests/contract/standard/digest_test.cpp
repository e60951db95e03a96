// SPDX-License-Identifier: Apache-2.0
//
// Digests announced with a body, verified with the host's help before anything is published.
#include "digests.h"

namespace standard_tests {

namespace {

class StandardDigest : public Standard {
  protected:
    void SetUp() override
    {
        Standard::SetUp();
        OfferDigests(world);
    }
    std::string Put(const char* header, const std::string& value)
    {
        return Run(Request(KestMethodPut, "/Ferro/gen3/f.txt")
                       .Header(header, value)
                       .Body({"a", "b"}))
            .substr(0, 3);
    }
    std::string Content() { return world["gen3"].Content("/gen3/f.txt"); }
};

TEST_F(StandardDigest, ThatHolds_IsStored)
{
    EXPECT_EQ(Put("Content-Digest", kMd5), "204");
    EXPECT_EQ(Content(), "ab");
    EXPECT_THAT(world.Calls({"digest."}), ElementsAre("digest.Begin(0)", "digest.Add(1)",
                                                      "digest.Add(1)", "digest.Finish()"));
    EXPECT_EQ(Put("Repr-Digest", kMd5), "204");
    EXPECT_EQ(Put("OC-Checksum", kChecksum), "204");
    EXPECT_EQ(Put("Content-Digest", "crc32c=:AAAAAA==:"), "204") << "not known";
}

TEST_F(StandardDigest, ThatDoesNot_ChangesNothing)
{
    for (const char* header : {"Content-Digest", "Repr-Digest"})
        EXPECT_EQ(Put(header, kOther), "400");
    EXPECT_EQ(Put("OC-Checksum", "MD5:c2000000000000000000000000000000"), "400");
    EXPECT_EQ(Put("Content-Digest", std::string(kMd5) + ", " + kOther), "400");
    EXPECT_EQ(Put("Content-Digest", "md5=oops"), "400");
    EXPECT_EQ(Content(), "hello world");
    EXPECT_THAT(Changes(), Not(testing::Contains("gen3.res3.Publish()")));
}

TEST_F(StandardDigest, OfAPart_IsThatOfTheBody)
{
    const auto part = [&](const char* header, const char* value) {
        return Run(Request(KestMethodPut, "/Ferro/gen3/f.txt")
                       .Header("Content-Range", "bytes 0-1/11")
                       .Header(header, value)
                       .Body({"ab"}))
            .substr(0, 3);
    };
    EXPECT_EQ(part("Content-Digest", kOther), "400");
    EXPECT_EQ(part("Content-Digest", kMd5), "204");
    EXPECT_EQ(part("Repr-Digest", kOther), "204") << "is about the whole";
}

TEST_F(StandardDigest, WhereTheHostOffersNone_IsNotVerified)
{
    world.Fail("digest.Begin", ProviderFailure(kCodeNotImplemented));
    EXPECT_EQ(Put("Content-Digest", kOther), "204");
    world.Withdraw(CLSID_KestDigest);
    EXPECT_EQ(Put("Content-Digest", kOther), "204");
}

TEST(StandardDigestFailures, EveryCallMayFail)
{
    harness::ExpectEveryFailureIsSurvived(
        [] {
            auto world = MakeWorld();
            OfferDigests(*world);
            return world;
        },
        Request(KestMethodPut, "/Ferro/gen3/f.txt")
            .Header("Content-Digest", kMd5)
            .Header("OC-Checksum", kChecksum)
            .Body({"ab"}),
        [](World& world, const Reply&) {
            EXPECT_THAT(world["gen3"].Content("/gen3/f.txt"), testing::AnyOf("hello world", "ab"));
        });
}

} // namespace

} // namespace standard_tests
