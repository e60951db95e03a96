// SPDX-License-Identifier: Apache-2.0
//
// From the URLs of headers to provider paths.
#include "standard/request_path.h"

#include <cstring>

#include "support/ascii.h"

namespace standard {

namespace {

// No stored name holds a control character.
constexpr std::string_view kNowhere = "/\x01";

// The path of an absolute URL or of an absolute path, without query and fragment. data() is null
// for anything else.
std::string_view PathOf(std::string_view url) noexcept
{
    if (url.empty())
        return {};
    if (url.front() != '/') {
        const size_t authority = url.find("://");
        if (authority == std::string_view::npos || authority == 0)
            return {};
        url.remove_prefix(authority + 3);
        const size_t path = url.find_first_of("/?#");
        url = path == std::string_view::npos || url[path] != '/' ? "/" : url.substr(path);
    }
    return url.substr(0, url.find_first_of("?#"));
}

// Decodes into `out`, which has room for the whole text. False at a "%" without two hexadecimal
// digits behind it, and where a NUL or an encoded "/" would come out.
bool Decode(std::string_view text, char* out, size_t& length) noexcept
{
    length = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            const int high = i + 2 < text.size() ? HexValue(text[i + 1]) : -1;
            const int low = i + 2 < text.size() ? HexValue(text[i + 2]) : -1;
            if (high < 0 || low < 0)
                return false;
            c = static_cast<char>(high * 16 + low);
            if (c == '\0' || c == '/')
                return false;
            i += 2;
        }
        out[length++] = c;
    }
    return true;
}

} // namespace

TALSTATUS ProviderPathOfUrl(IKestIO_5* io, std::string_view url, std::string_view& path)
{
    const std::string_view raw = PathOf(url);
    if (!raw.data())
        return TAL_STATUS_INVALID_REQUEST;
    auto* const text = static_cast<char*>(io->AllocMemory(static_cast<UINT32>(raw.size() + 1)));
    if (!text)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    size_t length = 0;
    if (!Decode(raw, text, length))
        return TAL_STATUS_INVALID_REQUEST;

    const STRING moniker = g_MonikerS; // once: an event may change it meanwhile
    std::string_view decoded(text, length);
    const std::string_view root(moniker.Buffer, moniker.Length);
    if (!decoded.starts_with(root) ||
        (decoded.size() > root.size() && decoded[root.size()] != '/')) {
        path = kNowhere;
        return TAL_STATUS_SUCCESS;
    }
    decoded.remove_prefix(root.size());
    while (decoded.size() > 1 && decoded.back() == '/')
        decoded.remove_suffix(1);
    path = decoded.empty() ? "/" : decoded;
    return TAL_STATUS_SUCCESS;
}

} // namespace standard
