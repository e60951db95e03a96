// SPDX-License-Identifier: Apache-2.0
//
// The code pages of the platform layer: UTF-8 and Latin-1.
#include "base/utf.h"
#include "platform/caseless.h"
#include "platform/internal.h"
#include "platform/talpl.h"

namespace tolm {
namespace {

// How a conversion went, and how many units there are or would be.
TALSTATUS Outcome(base::Converted converted, std::size_t used, UINT32* length) noexcept
{
    if (converted == base::Converted::Malformed)
        return Fail(kCodeInvalidRequest);
    *length = static_cast<UINT32>(used);
    return converted == base::Converted::Whole ? TAL_STATUS_SUCCESS : Fail(kCodeBufferTooSmall);
}

TALSTATUS Utf8ToWide(const char* in, UINT32 bytes, WCHAR* out, UINT32* units) noexcept
{
    std::size_t used = 0;
    const base::Converted converted = base::Utf8ToUtf16({in, bytes}, out, *units, used);
    return Outcome(converted, used, units);
}

TALSTATUS WideToUtf8(const WCHAR* in, UINT32 units, char* out, UINT32* bytes) noexcept
{
    std::size_t used = 0;
    const base::Converted converted = base::Utf16ToUtf8({in, units}, out, *bytes, used);
    return Outcome(converted, used, bytes);
}

TALSTATUS Latin1ToWide(const char* in, UINT32 bytes, WCHAR* out, UINT32* units) noexcept
{
    const UINT32 room = *units;
    *units = bytes;
    if (bytes > room)
        return Fail(kCodeBufferTooSmall);
    for (UINT32 i = 0; i < bytes; ++i)
        out[i] = static_cast<UINT8>(in[i]);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS WideToLatin1(const WCHAR* in, UINT32 units, char* out, UINT32* bytes) noexcept
{
    for (UINT32 i = 0; i < units; ++i)
        if (in[i] > 0xFF)
            return Fail(kCodeInvalidRequest);
    const UINT32 room = *bytes;
    *bytes = units;
    if (units > room)
        return Fail(kCodeBufferTooSmall);
    for (UINT32 i = 0; i < units; ++i)
        out[i] = static_cast<char>(in[i]);
    return TAL_STATUS_SUCCESS;
}

bool ArgumentsFit(const void* in, UINT32 inLength, const void* out, const UINT32* outLength)
{
    // UTF-8 may take three bytes for one unit: the length needed must stay countable.
    return outLength && (in || inLength == 0) && (out || *outLength == 0) &&
           inLength <= base::kLongestText;
}

} // namespace

TALSTATUS Talpl::TalxCharUpperBuff(WCHAR* text, UINT32 units)
{
    if (!text && units != 0)
        return Fail(kCodeInvalidParameter);
    UpperInPlace(text, units);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxMultiByteToWideChar(UINT32 page, const char* in, UINT32 bytes, WCHAR* out,
                                         UINT32* units)
{
    if (!ArgumentsFit(in, bytes, out, units))
        return Fail(kCodeInvalidParameter);
    switch (page) {
    case kCodePageUtf8:
    case kCodePageUtf8Alt:
        return Utf8ToWide(in, bytes, out, units);
    case kCodePageLatin1:
        return Latin1ToWide(in, bytes, out, units);
    default:
        return Fail(kCodeNotSupported);
    }
}

TALSTATUS Talpl::TalxWideCharToMultiByte(UINT32 page, const WCHAR* in, UINT32 units, char* out,
                                         UINT32* bytes)
{
    if (!ArgumentsFit(in, units, out, bytes))
        return Fail(kCodeInvalidParameter);
    switch (page) {
    case kCodePageUtf8:
    case kCodePageUtf8Alt:
        return WideToUtf8(in, units, out, bytes);
    case kCodePageLatin1:
        return WideToLatin1(in, units, out, bytes);
    default:
        return Fail(kCodeNotSupported);
    }
}

} // namespace tolm
