// SPDX-License-Identifier: Apache-2.0
//
// Finds the token in the module's reply to a LOCK.
#include "host/pipeline/lock_reply.h"

#include <algorithm>
#include <cstring>

namespace kestd {

namespace {

constexpr std::string_view kScheme = "opaquelocktoken:";

// The last token, from the scheme with which `opening` ends up to `end`; empty for none, and for
// one without an end.
std::string_view LastToken(std::string_view text, std::string_view opening, char end) noexcept
{
    const size_t at = text.rfind(opening);
    if (at == std::string_view::npos)
        return {};
    text.remove_prefix(at + opening.size() - kScheme.size());
    const size_t size = text.find(end);
    return size == std::string_view::npos ? std::string_view() : text.substr(0, size);
}

} // namespace

void LockReply::NoteHead(int status, std::string_view header) noexcept
{
    status_ = status;
    hasHeader_ = !header.empty();
    Keep(LastToken(header, "<opaquelocktoken:", '>'));
}

void LockReply::NoteBody(std::string_view bytes) noexcept
{
    constexpr size_t kPiece = 256; // with what is before it, it fits
    for (; !hasHeader_ && !bytes.empty(); bytes.remove_prefix(std::min(kPiece, bytes.size())))
        NotePiece(bytes.substr(0, kPiece));
}

// The token stands behind the owner's text, which is the client's: the last one counts. What stands
// behind the token is escaped, or no token.
void LockReply::NotePiece(std::string_view bytes) noexcept
{
    const size_t kept = std::min(tailSize_, tail_.size() - bytes.size());
    std::memmove(tail_.data(), tail_.data() + (tailSize_ - kept), kept);
    std::copy(bytes.begin(), bytes.end(), tail_.data() + kept);
    tailSize_ = kept + bytes.size();
    Keep(LastToken({tail_.data(), tailSize_}, "href>opaquelocktoken:", '<'));
}

void LockReply::Keep(std::string_view token) noexcept
{
    if (token.empty() || token.size() > token_.size())
        return;
    tokenSize_ = token.size();
    std::copy(token.begin(), token.end(), token_.begin());
}

} // namespace kestd
