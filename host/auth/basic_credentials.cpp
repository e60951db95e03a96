// SPDX-License-Identifier: Apache-2.0
//
// Takes a Basic header apart.
#include "host/auth/basic_credentials.h"

#include "base/ascii.h"
#include "base/base64.h"
#include "base/utf.h"

namespace kestd {

bool ReadBasic(std::string_view authorization, std::string& name, std::string& password)
{
    constexpr std::string_view kScheme = "Basic ";
    if (authorization.size() > kLongestCredentials || authorization.size() < kScheme.size() ||
        !base::EqualsIgnoringCase(authorization.substr(0, kScheme.size()), kScheme))
        return false;
    auto decoded = base::DecodeBase64(base::Trimmed(authorization.substr(kScheme.size())));
    if (!decoded)
        return false;
    const WipedText text(std::move(*decoded));
    const std::string_view whole = text.text;
    const size_t colon = whole.find(':');
    if (colon == std::string_view::npos || whole.find('\0') != std::string_view::npos ||
        !base::IsUtf8(whole))
        return false;
    std::string_view user = whole.substr(0, colon);
    if (const size_t domain = user.rfind('\\'); domain != std::string_view::npos)
        user.remove_prefix(domain + 1); // some clients send the machine's or the domain's name
    if (user.empty())
        return false;
    name = user;
    password = whole.substr(colon + 1);
    return true;
}

} // namespace kestd
