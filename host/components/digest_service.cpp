// SPDX-License-Identifier: Apache-2.0
//
// Digests by OpenSSL.
#include "host/components/digest_service.h"

#include <memory>

#include <openssl/evp.h>

#include "host/component.h"

namespace kestd {
namespace {

const EVP_MD* AlgorithmOf(UINT32 number) noexcept
{
    switch (number) {
    case KestDigestMd5:
        return EVP_md5();
    case KestDigestSha1:
        return EVP_sha1();
    case KestDigestSha256:
        return EVP_sha256();
    case KestDigestSha512:
        return EVP_sha512();
    default:
        return nullptr;
    }
}

class DigestComponent final : public Object<DigestComponent, IKestDigest> {
  public:
    TALSTATUS Begin(UINT32 algorithm) override
    {
        context_.reset();
        const EVP_MD* const known = AlgorithmOf(algorithm);
        if (!known)
            return HostFailure(kCodeNotImplemented);
        Context context(EVP_MD_CTX_new());
        if (!context)
            return HostFailure(kCodeInsufficientResources);
        // A library that is told to offer approved algorithms only may refuse one.
        if (EVP_DigestInit_ex(context.get(), known, nullptr) != 1)
            return HostFailure(kCodeNotImplemented);
        context_ = std::move(context);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Add(UINT32 size, const void* data) override
    {
        if (size && !data)
            return HostFailure(kCodeInvalidParameter);
        if (!context_)
            return HostFailure(kCodeInvalidRequest);
        return EVP_DigestUpdate(context_.get(), data, size) == 1 ? TAL_STATUS_SUCCESS
                                                                 : HostFailure(kCodeUnsuccessful);
    }
    TALSTATUS Finish(UINT32* size, UINT8* digest) override
    {
        static_assert(kMostDigestBytes >= EVP_MAX_MD_SIZE);
        if (!size || !digest)
            return HostFailure(kCodeInvalidParameter);
        if (!context_)
            return HostFailure(kCodeInvalidRequest);
        const int length = EVP_MD_CTX_size(context_.get());
        if (length < 0 || static_cast<UINT32>(length) > *size)
            return HostFailure(kCodeBufferTooSmall);
        unsigned int written = 0;
        const bool isDone = EVP_DigestFinal_ex(context_.get(), digest, &written) == 1;
        context_.reset();
        *size = written;
        return isDone ? TAL_STATUS_SUCCESS : HostFailure(kCodeUnsuccessful);
    }

  private:
    struct Free {
        void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
    };
    using Context = std::unique_ptr<EVP_MD_CTX, Free>;

    Context context_;
};

} // namespace

IKestDigest* MakeDigest()
{
    return new DigestComponent;
}

} // namespace kestd
