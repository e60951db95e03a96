// SPDX-License-Identifier: Apache-2.0
//
// Conversions between 8-bit text and UTF-16. Most texts are ASCII, whole or at their start: that
// run is copied directly, and the rest goes through ICU, which is strict about both forms.
#include <unicode/ustring.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cstring>
#include <limits>

#include "platform/caseless.h"
#include "platform/internal.h"
#include "platform/talpl.h"

namespace tolm {
namespace {

constexpr UINT32 kLongest = std::numeric_limits<INT32>::max(); // what ICU counts to

UINT32 WidenAscii(const char* in, WCHAR* out, UINT32 most) noexcept
{
    constexpr UINT64 kHighBits = 0x8080808080808080;
    UINT32 i = 0;
#if defined(__SSE2__)
    for (; most - i >= 16; i += 16) {
        const __m128i sixteen = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + i));
        if (_mm_movemask_epi8(sixteen) != 0)
            break;
        auto* to = reinterpret_cast<__m128i*>(out + i);
        _mm_storeu_si128(to, _mm_unpacklo_epi8(sixteen, _mm_setzero_si128()));
        _mm_storeu_si128(to + 1, _mm_unpackhi_epi8(sixteen, _mm_setzero_si128()));
    }
#endif
    for (; most - i >= 8; i += 8) {
        UINT64 eight = 0;
        std::memcpy(&eight, in + i, 8);
        if (eight & kHighBits)
            break;
        for (UINT32 k = 0; k < 8; ++k)
            out[i + k] = static_cast<WCHAR>(in[i + k]);
    }
    for (; i < most && static_cast<UINT8>(in[i]) < 0x80; ++i)
        out[i] = static_cast<WCHAR>(in[i]);
    return i;
}

UINT32 NarrowAscii(const WCHAR* in, char* out, UINT32 most) noexcept
{
    constexpr UINT64 kAboveAscii = 0xFF80FF80FF80FF80;
    UINT32 i = 0;
#if defined(__SSE2__)
    for (; most - i >= 16; i += 16) {
        const auto* from = reinterpret_cast<const __m128i*>(in + i);
        const __m128i low = _mm_loadu_si128(from);
        const __m128i high = _mm_loadu_si128(from + 1);
        const __m128i above =
            _mm_and_si128(_mm_or_si128(low, high), _mm_set1_epi16(static_cast<short>(0xFF80)));
        if (_mm_movemask_epi8(_mm_cmpeq_epi16(above, _mm_setzero_si128())) != 0xFFFF)
            break;
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packus_epi16(low, high));
    }
#endif
    for (; most - i >= 4; i += 4) {
        UINT64 four = 0;
        std::memcpy(&four, in + i, 8);
        if (four & kAboveAscii)
            break;
        for (UINT32 k = 0; k < 4; ++k)
            out[i + k] = static_cast<char>(in[i + k]);
    }
    for (; i < most && in[i] < 0x80; ++i)
        out[i] = static_cast<char>(in[i]);
    return i;
}

// ICU's outcome: `done` units before it ran, `more` that the rest needs.
TALSTATUS Outcome(UErrorCode error, UINT32 done, INT32 more, UINT32* length) noexcept
{
    if (error == U_BUFFER_OVERFLOW_ERROR) {
        *length = done + static_cast<UINT32>(more);
        return Fail(kCodeBufferTooSmall);
    }
    if (error == U_MEMORY_ALLOCATION_ERROR)
        return Fail(kCodeInsufficientResources);
    if (U_FAILURE(error))
        return Fail(kCodeInvalidRequest);
    *length = done + static_cast<UINT32>(more);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Utf8ToWide(const char* in, UINT32 bytes, WCHAR* out, UINT32* units) noexcept
{
    const UINT32 room = std::min(*units, kLongest);
    const UINT32 done = WidenAscii(in, out, std::min(bytes, room));
    if (done == bytes) {
        *units = done;
        return TAL_STATUS_SUCCESS;
    }
    INT32 more = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8(out ? out + done : nullptr, static_cast<INT32>(room - done), &more, in + done,
                  static_cast<INT32>(bytes - done), &error);
    return Outcome(error, done, more, units);
}

TALSTATUS WideToUtf8(const WCHAR* in, UINT32 units, char* out, UINT32* bytes) noexcept
{
    const UINT32 room = std::min(*bytes, kLongest);
    const UINT32 done = NarrowAscii(in, out, std::min(units, room));
    if (done == units) {
        *bytes = done;
        return TAL_STATUS_SUCCESS;
    }
    INT32 more = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8(out ? out + done : nullptr, static_cast<INT32>(room - done), &more, in + done,
                static_cast<INT32>(units - done), &error);
    return Outcome(error, done, more, bytes);
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
           inLength <= kLongest / 3;
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
