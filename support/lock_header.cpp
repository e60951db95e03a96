// SPDX-License-Identifier: Apache-2.0
//
// The lock tokens of a request's headers.
#include <algorithm>
#include <cstring>

#include "support/lock_header.h"
#include "support/memory.h"

namespace {

constexpr UINT32 kShortHeaderBytes = 128;

// More than any host's bound on a request head; also keeps the sum below from wrapping.
constexpr UINT32 kLongestHeader = 1U << 24;
constexpr UINT32 kSpareBytes = 64;

char kIf[] = "If";

} // namespace

std::string_view FindLockToken(const char* text, size_t size)
{
    const char* end = text + strnlen(text, size);
    const char* colon = std::find(text, end, ':');
    if (colon == end)
        return {};
    const char* token = colon + 1;
    return {token, static_cast<size_t>(std::find(token, end, '>') - token)};
}

TALSTATUS GetLockTokenFromRequestHeader(IKestIO_5* pKestIo, STRING* pToken)
{
    // Zeroed: a host may leave it untouched when the value does not fit.
    char head[kShortHeaderBytes + 1] = {};
    UINT32 length = kShortHeaderBytes;
    Paged<char> longer;
    char* value = head;
    UINT32 room = kShortHeaderBytes;

    TALSTATUS status = pKestIo->GetRequestHeader(kIf, &length, head);
    if (Code(status) == kCodeBufferTooSmall) {
        if (length > kLongestHeader)
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
        room = length + kSpareBytes;
        longer = AllocPaged<char>(room + 1);
        if (!longer)
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
        value = longer.get();
        length = room;
        status = pKestIo->GetRequestHeader(kIf, &length, value);
    }
    if (Failed(status))
        return status;
    value[std::min(length, room)] = 0;
    if (!std::strstr(value, "opaquelocktoken"))
        return TAL_STATUS_NOT_FOUND;

    // Kept: the token is looked for in what the first reading left, also when the value was longer.
    const std::string_view token = FindLockToken(head, kShortHeaderBytes);
    if (!token.data())
        return TAL_STATUS_NOT_FOUND;
    const auto tokenLength = static_cast<UINT16>(token.size());
    if (pToken->MaximumLength <= tokenLength)
        return TAL_STATUS_BUFFER_TOO_SMALL;
    const STRING source = {tokenLength, tokenLength, const_cast<char*>(token.data())};
    pITalpl->TalxCopyString(pToken, &source);
    return TAL_STATUS_SUCCESS;
}
