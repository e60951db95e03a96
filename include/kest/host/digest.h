// SPDX-License-Identifier: Apache-2.0
//
// IKestDigest: the digest of bytes as they pass. Implemented by the host, CLSID_KestDigest as
// IID_KestDigest_1: one object per computation, used by one thread at a time. A host need not offer
// it.
#pragma once

#include <kest/types.h>
#include <kest/unknown.h>

enum KEST_DIGEST : UINT32 {
    KestDigestMd5 = 0,
    KestDigestSha1 = 1,
    KestDigestSha256 = 2,
    KestDigestSha512 = 3,
};

inline constexpr UINT32 kMostDigestBytes = 64;

struct IKestDigest : IUnknown {
    // Begins a computation, in place of one that runs. `algorithm` is a KEST_DIGEST; code 13 for
    // one that is not offered, 5 without memory. [any thread; one at a time; no reply]
    virtual TALSTATUS Begin(UINT32 algorithm) = 0;
    // Adds `size` bytes. Code 16 before Begin. [any thread; one at a time; no reply]
    virtual TALSTATUS Add(UINT32 size, const void* data) = 0;
    // The digest of what has been added, which ends the computation. *size is the room in bytes on
    // entry (kMostDigestBytes always suffices), the digest's length on return. Code 7 when it does
    // not fit, and the computation goes on; 16 before Begin. [any thread; one at a time; no reply]
    virtual TALSTATUS Finish(UINT32* size, UINT8* digest) = 0;

  protected:
    ~IKestDigest() = default;
};
