// SPDX-License-Identifier: Apache-2.0
//
// A host's digests, scripted.
#pragma once

#include "fixture.h"
#include "referenced.h"

#include <kest/host/digest.h>

namespace standard_tests {

// Digests that a reader can see through: as many bytes as the algorithm's, the first of which is
// the sum of the content.
class ScriptedDigest final : public harness::Referenced<IKestDigest> {
  public:
    explicit ScriptedDigest(harness::Recorder& recorder) : recorder_(recorder) {}
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
    UINT32 size_ = 0;
    UINT8 sum_ = 0;
};

inline void OfferDigests(World& world)
{
    world.Offer(CLSID_KestDigest, [&world](const GUID& iid, void** out) {
        auto* made = new ScriptedDigest(world.recorder);
        const TALSTATUS status = made->QueryInterface(&iid, out);
        made->Release();
        return status;
    });
}

// Of "a" and "b", which sum up to 0xC3.
inline constexpr char kMd5[] = "md5=:wwAAAAAAAAAAAAAAAAAAAA==:";
inline constexpr char kOther[] = "md5=:wgAAAAAAAAAAAAAAAAAAAA==:";
inline constexpr char kChecksum[] = "MD5:c3000000000000000000000000000000";

} // namespace standard_tests
