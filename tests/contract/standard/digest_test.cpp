// SPDX-License-Identifier: Apache-2.0
//
// Digests announced with a body, verified with the host's help before anything is published.
#include "fixture.h"

#include <kest/host/digest.h>

namespace standard_tests {

namespace {

// Digests that a reader can see through: as many bytes as the algorithm's, the first of which is
// the sum of the content.
class ScriptedDigest final : public IKestDigest {
  public:
    explicit ScriptedDigest(harness::Recorder& recorder) : recorder_(recorder) {}
    virtual ~ScriptedDigest() = default;

    TALSTATUS QueryInterface(const GUID* iid, void** out) override
    {
        *out = nullptr;
        if (*iid != IidOf<IKestDigest>::value)
            return ProviderFailure(kCodeNoInterface);
        AddRef();
        *out = static_cast<IKestDigest*>(this);
        return TAL_STATUS_SUCCESS;
    }
    UINT32 AddRef() override { return ++references_; }
    UINT32 Release() override
    {
        const UINT32 left = --references_;
        if (left == 0)
            delete this;
        return left;
    }
    TALSTATUS Begin(UINT32 algorithm) override
    {
        if (const auto status = recorder_.Enter("digest.Begin", std::to_string(algorithm)))
            return *status;
        size_ = algorithm == KestDigestMd5 ? 16 : 32;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Add(UINT32 size, const void* data) override
    {
        if (const auto status = recorder_.Enter("digest.Add", std::to_string(size)))
            return *status;
        for (UINT32 i = 0; i < size; ++i)
            sum_ = static_cast<UINT8>(sum_ + static_cast<const UINT8*>(data)[i]);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Finish(UINT32* size, UINT8* digest) override
    {
        if (const auto status = recorder_.Enter("digest.Finish"))
            return *status;
        std::fill(digest, digest + size_, UINT8{0});
        digest[0] = sum_;
        *size = size_;
        return TAL_STATUS_SUCCESS;
    }

  private:
    harness::Recorder& recorder_;
    UINT32 references_ = 1;
    UINT32 size_ = 0;
    UINT8 sum_ = 0;
};

void OfferDigests(World& world)
{
    world.Offer(CLSID_KestDigest, [&world](const GUID& iid, void** out) {
        auto* made = new ScriptedDigest(world.recorder);
        const TALSTATUS status = made->QueryInterface(&iid, out);
        made->Release();
        return status;
    });
}

// Of "a" and "b", which sum up to 0xC3.
constexpr char kMd5[] = "md5=:wwAAAAAAAAAAAAAAAAAAAA==:";
constexpr char kOther[] = "md5=:wgAAAAAAAAAAAAAAAAAAAA==:";
constexpr char kChecksum[] = "MD5:c3000000000000000000000000000000";

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
