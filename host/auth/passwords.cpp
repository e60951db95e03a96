// SPDX-License-Identifier: Apache-2.0
//
// Makes and checks password hashes by libcrypt.
#include "host/auth/passwords.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include <crypt.h>
#include <openssl/crypto.h>
#include <sys/random.h>

namespace kestd {
namespace {

constexpr const char* kScheme = "$y$"; // yescrypt

// A copy with a terminator for crypt(3), wiped when it goes.
class Phrase {
  public:
    explicit Phrase(std::string_view password)
    {
        std::copy(password.begin(), password.end(), text_.begin());
    }
    ~Phrase() { OPENSSL_cleanse(text_.data(), text_.size()); }
    Phrase(const Phrase&) = delete;
    Phrase& operator=(const Phrase&) = delete;
    const char* Text() const { return text_.data(); }

  private:
    std::array<char, kLongestPassword + 1> text_{};
};

struct WipeWork {
    void operator()(crypt_data* work) const
    {
        OPENSSL_cleanse(work, sizeof *work);
        delete work;
    }
};

bool CanBeHashed(std::string_view password)
{
    return password.size() <= kLongestPassword && password.find('\0') == std::string_view::npos;
}

// Empty when crypt(3) refuses the setting.
std::string Crypt(std::string_view password, const char* setting)
{
    const Phrase phrase(password);
    const std::unique_ptr<crypt_data, WipeWork> work(new crypt_data{}); // 32 KiB: not on the stack
    const char* const hash = crypt_r(phrase.Text(), setting, work.get());
    return hash && hash[0] != '*' ? std::string(hash) : std::string();
}

} // namespace

std::string HashPassword(std::string_view password, unsigned cost)
{
    if (!CanBeHashed(password))
        return {};
    std::array<char, 32> random{};
    if (getentropy(random.data(), random.size()) != 0)
        return {};
    std::array<char, CRYPT_GENSALT_OUTPUT_SIZE> setting{};
    if (!crypt_gensalt_rn(kScheme, cost, random.data(), static_cast<int>(random.size()),
                          setting.data(), static_cast<int>(setting.size())))
        return {};
    return Crypt(password, setting.data());
}

bool IsPassword(std::string_view password, const std::string& hash)
{
    if (!CanBeHashed(password))
        return false;
    const std::string computed = Crypt(password, hash.c_str());
    return !computed.empty() && computed.size() == hash.size() &&
           CRYPTO_memcmp(computed.data(), hash.data(), hash.size()) == 0;
}

bool IsUsableHash(const std::string& hash)
{
    // Where there is no "$", crypt(5) takes any two characters for a salt. What is not as long as
    // such hashes are fits no password: it is one, by mistake.
    constexpr size_t kTraditional = 13;
    constexpr size_t kExtended = 20; // behind "_"
    if (!hash.starts_with('$') && hash.size() != (hash.starts_with('_') ? kExtended : kTraditional))
        return false;
    const int check = crypt_checksalt(hash.c_str());
    return check == CRYPT_SALT_OK || check == CRYPT_SALT_TOO_CHEAP ||
           check == CRYPT_SALT_METHOD_LEGACY;
}

const std::string& DecoyHash()
{
    static const std::string hash = [] {
        std::array<char, 24> random{};
        if (getentropy(random.data(), random.size()) != 0)
            random.fill('x'); // any password does: it opens nothing
        for (char& c : random)
            c = static_cast<char>('a' + (static_cast<unsigned char>(c) % 26));
        return HashPassword({random.data(), random.size()});
    }();
    return hash;
}

} // namespace kestd
