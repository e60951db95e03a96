// SPDX-License-Identifier: Apache-2.0
//
// UTF-8 and UTF-16: ASCII by hand, sixteen characters at a time, everything else by ICU.
#include "base/utf.h"

#include <unicode/ustring.h>
#include <unicode/utf16.h>
#include <unicode/utf8.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "base/ascii.h"

namespace base {

namespace {

// Copies the ASCII run at the start of a text, at most `most` characters; its length.
size_t WidenAscii(const char* in, char16_t* out, size_t most) noexcept
{
    constexpr uint64_t kHighBits = 0x8080808080808080;
    size_t i = 0;
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
        uint64_t eight = 0;
        std::memcpy(&eight, in + i, 8);
        if (eight & kHighBits)
            break;
        for (size_t k = 0; k < 8; ++k)
            out[i + k] = static_cast<char16_t>(in[i + k]);
    }
    for (; i < most && static_cast<unsigned char>(in[i]) < 0x80; ++i)
        out[i] = static_cast<char16_t>(in[i]);
    return i;
}

size_t NarrowAscii(const char16_t* in, char* out, size_t most) noexcept
{
    constexpr uint64_t kAboveAscii = 0xFF80FF80FF80FF80;
    size_t i = 0;
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
        uint64_t four = 0;
        std::memcpy(&four, in + i, 8);
        if (four & kAboveAscii)
            break;
        for (size_t k = 0; k < 4; ++k)
            out[i + k] = static_cast<char>(in[i + k]);
    }
    for (; i < most && in[i] < 0x80; ++i)
        out[i] = static_cast<char>(in[i]);
    return i;
}

// ICU's outcome: `done` units before it ran, `more` that the rest needs.
Converted Outcome(UErrorCode error, size_t done, int32_t more, size_t& used) noexcept
{
    if (error != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(error))
        return Converted::Malformed;
    used = done + static_cast<size_t>(more);
    return error == U_BUFFER_OVERFLOW_ERROR ? Converted::TooLong : Converted::Whole;
}

// Appends by `convert`, which needs at most `most` units.
template <class In, class Out, class Convert>
bool Append(In text, Out& out, size_t most, Convert convert)
{
    const size_t before = out.size();
    out.resize(before + most);
    size_t used = 0;
    const bool isWhole = convert(text, out.data() + before, most, used) == Converted::Whole;
    out.resize(before + (isWhole ? used : 0));
    return isWhole;
}

} // namespace

Converted Utf8ToUtf16(std::string_view text, char16_t* out, size_t room, size_t& used) noexcept
{
    room = std::min(room, kLongestText);
    const size_t done = WidenAscii(text.data(), out, std::min(text.size(), room));
    if (done == text.size()) {
        used = done;
        return Converted::Whole;
    }
    if (text.size() > kLongestText)
        return Converted::Malformed;
    int32_t more = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8(out ? out + done : nullptr, static_cast<int32_t>(room - done), &more,
                  text.data() + done, static_cast<int32_t>(text.size() - done), &error);
    return Outcome(error, done, more, used);
}

Converted Utf16ToUtf8(std::u16string_view text, char* out, size_t room, size_t& used) noexcept
{
    room = std::min(room, 3 * kLongestText);
    const size_t done = NarrowAscii(text.data(), out, std::min(text.size(), room));
    if (done == text.size()) {
        used = done;
        return Converted::Whole;
    }
    if (text.size() > kLongestText)
        return Converted::Malformed;
    int32_t more = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8(out ? out + done : nullptr, static_cast<int32_t>(room - done), &more,
                text.data() + done, static_cast<int32_t>(text.size() - done), &error);
    return Outcome(error, done, more, used);
}

bool AppendUtf16(std::string_view text, std::u16string& out)
{
    return Append(text, out, text.size(), Utf8ToUtf16); // no text takes more units than bytes
}

bool AppendUtf8(std::u16string_view text, std::string& out)
{
    const bool fits = text.size() <= kLongestText;
    return fits && Append(text, out, 3 * text.size(), Utf16ToUtf8);
}

std::optional<std::u16string> ToUtf16(std::string_view text)
{
    std::u16string out;
    if (!AppendUtf16(text, out))
        return std::nullopt;
    return out;
}

std::optional<std::string> ToUtf8(std::u16string_view text)
{
    std::string out;
    if (!AppendUtf8(text, out))
        return std::nullopt;
    return out;
}

std::u16string ToUtf16Replacing(std::string_view text)
{
    text = text.substr(0, kLongestText);
    std::u16string out(text.size(), u'\0');
    int32_t units = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strFromUTF8WithSub(out.data(), static_cast<int32_t>(out.size()), &units, text.data(),
                         static_cast<int32_t>(text.size()), 0xFFFD, nullptr, &error);
    out.resize(static_cast<size_t>(units));
    return out;
}

std::string ToUtf8Replacing(std::u16string_view text)
{
    text = text.substr(0, kLongestText);
    std::string out(3 * text.size(), '\0');
    int32_t bytes = 0;
    UErrorCode error = U_ZERO_ERROR;
    u_strToUTF8WithSub(out.data(), static_cast<int32_t>(out.size()), &bytes, text.data(),
                       static_cast<int32_t>(text.size()), 0xFFFD, nullptr, &error);
    out.resize(static_cast<size_t>(bytes));
    return out;
}

bool IsUtf8(std::string_view text) noexcept
{
    if (IsAscii(text))
        return true;
    while (!text.empty()) {
        char32_t point = 0;
        const size_t bytes = DecodeCodePoint(text, point);
        if (bytes == 0)
            return false;
        text.remove_prefix(bytes);
    }
    return true;
}

bool IsUtf16(std::u16string_view text) noexcept
{
    for (size_t i = 0; i < text.size(); ++i) {
        if (!U16_IS_SURROGATE(text[i]))
            continue;
        if (!U16_IS_SURROGATE_LEAD(text[i]) || i + 1 == text.size() || !U16_IS_TRAIL(text[i + 1]))
            return false;
        ++i;
    }
    return true;
}

size_t DecodeCodePoint(std::string_view text, char32_t& point) noexcept
{
    if (text.empty())
        return 0;
    text = text.substr(0, U8_MAX_LENGTH);
    size_t bytes = 0;
    UChar32 c = 0;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion" // inside the library's macro
    U8_NEXT(text.data(), bytes, text.size(), c);
#pragma GCC diagnostic pop
    if (c < 0)
        return 0;
    point = static_cast<char32_t>(c);
    return bytes;
}

} // namespace base
