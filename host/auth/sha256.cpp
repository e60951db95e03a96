// SPDX-License-Identifier: Apache-2.0
//
// Digests by OpenSSL, without looking up the algorithm for each.
#include "host/auth/sha256.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

#include <openssl/evp.h>

namespace kestd {
namespace {

// Contexts for digests, which cost more to make than a short text's digest. They are shared: one of
// each thread's own would have to end with it, which takes memory at the thread's first use that
// nobody can refuse.
class DigestContexts {
  public:
    struct Free {
        void operator()(EVP_MD_CTX* context) const noexcept { EVP_MD_CTX_free(context); }
    };
    using Context = std::unique_ptr<EVP_MD_CTX, Free>;

    Context Take()
    {
        {
            const std::lock_guard lock(mutex_);
            if (count_)
                return std::move(spare_[--count_]);
        }
        return Context(EVP_MD_CTX_new());
    }
    void Give(Context context)
    {
        const std::lock_guard lock(mutex_);
        if (count_ < spare_.size())
            spare_[count_++] = std::move(context);
    }

  private:
    std::mutex mutex_; // guards both
    std::array<Context, 16> spare_;
    size_t count_ = 0;
};

// Fetched once: looking the algorithm up costs more than the digest of a short text. It stays until
// the process ends, when threads may still sign in. Null where there is no memory for it now.
const EVP_MD* Sha256Algorithm()
{
    static std::atomic<EVP_MD*> shared{nullptr};
    EVP_MD* known = shared.load(std::memory_order_acquire);
    if (known)
        return known;
    EVP_MD* const fetched = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    if (shared.compare_exchange_strong(known, fetched))
        return fetched;
    EVP_MD_free(fetched); // somebody was faster
    return known;
}

} // namespace

Sha256Digest Sha256(std::string_view first, std::string_view second)
{
    const EVP_MD* const algorithm = Sha256Algorithm();
    static DigestContexts& contexts = *new DigestContexts;
    DigestContexts::Context own = contexts.Take();
    Sha256Digest digest{};
    if (!algorithm || !own || !EVP_DigestInit_ex2(own.get(), algorithm, nullptr) ||
        !EVP_DigestUpdate(own.get(), first.data(), first.size()) ||
        !EVP_DigestUpdate(own.get(), second.data(), second.size()) ||
        !EVP_DigestFinal_ex(own.get(), digest.data(), nullptr))
        throw std::runtime_error("SHA-256 is not available");
    contexts.Give(std::move(own));
    return digest;
}

} // namespace kestd
