// SPDX-License-Identifier: Apache-2.0
//
// Raw memory, NUL-terminated strings and counted strings.
#include <algorithm>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

#include "base/hex.h"
#include "platform/caseless.h"
#include "platform/internal.h"
#include "platform/talpl.h"

namespace tolm {
namespace {

std::string_view View(const STRING* text) noexcept
{
    return text && text->Buffer ? std::string_view(text->Buffer, text->Length) : std::string_view();
}

std::u16string_view View(const UNICODE_STRING* text) noexcept
{
    return text && text->Buffer ? std::u16string_view(text->Buffer, text->Length / sizeof(WCHAR))
                                : std::u16string_view();
}

template <class T> int Compare(std::basic_string_view<T> a, std::basic_string_view<T> b) noexcept
{
    const int order = a.compare(b);
    return order < 0 ? -1 : order > 0 ? 1 : 0;
}

// FNV-1a over the low and, for wide text, the high byte of each unit.
UINT32 HashByte(UINT32 hash, UINT32 byte) noexcept
{
    return (hash ^ byte) * 16777619U;
}
constexpr UINT32 kHashStart = 2166136261U;

// Appends to a string whose length is counted in bytes; all or nothing.
TALSTATUS Append(UNICODE_STRING* to, const WCHAR* from, std::size_t bytes) noexcept
{
    if (bytes == 0)
        return TAL_STATUS_SUCCESS;
    if (!to->Buffer || to->Length > to->MaximumLength)
        return Fail(kCodeInvalidParameter);
    if (bytes > static_cast<std::size_t>(to->MaximumLength - to->Length))
        return Fail(kCodeBufferTooSmall);
    std::memmove(to->Buffer + to->Length / sizeof(WCHAR), from, bytes);
    to->Length = static_cast<UINT16>(to->Length + bytes);
    return TAL_STATUS_SUCCESS;
}

bool IsBase(UINT32 base) noexcept
{
    return base == 2 || base == 8 || base == 10 || base == 16;
}

// Takes "0x", "0o" or "0b" off the front of `text`; without a prefix the base is 10.
UINT32 TakePrefix(std::u16string_view& text) noexcept
{
    if (text.size() < 2 || text[0] != u'0')
        return 10;
    const WCHAR letter = text[1] | 0x20;
    const UINT32 base = letter == u'x' ? 16 : letter == u'o' ? 8 : letter == u'b' ? 2 : 0;
    if (base == 0)
        return 10;
    text.remove_prefix(2);
    return base;
}

} // namespace

INT32 Talpl::TalxCompareMemory(const void* a, const void* b, UINT32 size)
{
    return size == 0 ? 0 : std::memcmp(a, b, size);
}

TALSTATUS Talpl::TalxCopyMemory(void* to, const void* from, UINT32 size)
{
    return TalxMoveMemory(to, from, size);
}

TALSTATUS Talpl::TalxFillMemory(void* to, UINT32 size, UINT8 value)
{
    if (size == 0)
        return TAL_STATUS_SUCCESS;
    if (!to)
        return Fail(kCodeInvalidParameter);
    std::memset(to, value, size);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxMoveMemory(void* to, const void* from, UINT32 size)
{
    if (size == 0)
        return TAL_STATUS_SUCCESS;
    if (!to || !from)
        return Fail(kCodeInvalidParameter);
    std::memmove(to, from, size);
    return TAL_STATUS_SUCCESS;
}

UINT32 Talpl::TalxStrHash(const char* text)
{
    UINT32 hash = kHashStart;
    for (; text && *text; ++text)
        hash = HashByte(hash, static_cast<UINT8>(*text));
    return hash;
}

UINT32 Talpl::TalxStrHashW(const WCHAR* text)
{
    UINT32 hash = kHashStart;
    for (; text && *text; ++text)
        hash = HashByte(HashByte(hash, *text & 0xFFU), *text >> 8U);
    return hash;
}

UINT32 Talpl::TalxStrlen(const char* text)
{
    return text ? static_cast<UINT32>(std::strlen(text)) : 0;
}

UINT32 Talpl::TalxStrlenW(const WCHAR* text)
{
    return text ? static_cast<UINT32>(std::char_traits<WCHAR>::length(text)) : 0;
}

TALSTATUS Talpl::TalxZeroMemory(void* to, UINT32 size)
{
    return TalxFillMemory(to, size, 0);
}

TALSTATUS Talpl::TalxAppendUnicodeStringToString(UNICODE_STRING* to, const UNICODE_STRING* from)
{
    if (!to || !from || (!from->Buffer && from->Length != 0))
        return Fail(kCodeInvalidParameter);
    return Append(to, from->Buffer, from->Length & ~1U);
}

TALSTATUS Talpl::TalxAppendUnicodeToString(UNICODE_STRING* to, const WCHAR* from)
{
    if (!to || !from)
        return Fail(kCodeInvalidParameter);
    return Append(to, from, std::char_traits<WCHAR>::length(from) * sizeof(WCHAR));
}

INT32 Talpl::TalxCompareString(const STRING* a, const STRING* b, BOOLEAN ignoreCase)
{
    return ignoreCase ? CompareIgnoringCase(View(a), View(b)) : Compare(View(a), View(b));
}

INT32 Talpl::TalxCompareUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                      BOOLEAN ignoreCase)
{
    return ignoreCase ? CompareIgnoringCase(View(a), View(b)) : Compare(View(a), View(b));
}

TALSTATUS Talpl::TalxCopyString(STRING* to, const STRING* from)
{
    if (!to || !from)
        return Fail(kCodeInvalidParameter);
    const UINT16 bytes = std::min(from->Length, to->MaximumLength);
    if (bytes != 0 && (!to->Buffer || !from->Buffer))
        return Fail(kCodeInvalidParameter);
    if (bytes != 0)
        std::memmove(to->Buffer, from->Buffer, bytes);
    to->Length = bytes;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxCopyUnicodeString(UNICODE_STRING* to, const UNICODE_STRING* from)
{
    if (!to || !from)
        return Fail(kCodeInvalidParameter);
    const auto bytes = static_cast<UINT16>(std::min(from->Length, to->MaximumLength) & ~1U);
    if (bytes != 0 && (!to->Buffer || !from->Buffer))
        return Fail(kCodeInvalidParameter);
    if (bytes != 0)
        std::memmove(to->Buffer, from->Buffer, bytes);
    to->Length = bytes;
    return TAL_STATUS_SUCCESS;
}

BOOLEAN Talpl::TalxEqualString(const STRING* a, const STRING* b, BOOLEAN ignoreCase)
{
    return ignoreCase ? CompareIgnoringCase(View(a), View(b)) == 0 : View(a) == View(b);
}

BOOLEAN Talpl::TalxEqualUnicodeString(const UNICODE_STRING* a, const UNICODE_STRING* b,
                                      BOOLEAN ignoreCase)
{
    const auto va = View(a);
    const auto vb = View(b);
    if (va.size() != vb.size())
        return FALSE;
    if (va.empty() || std::memcmp(va.data(), vb.data(), va.size() * sizeof(WCHAR)) == 0)
        return TRUE;
    return ignoreCase && CompareIgnoringCase(va, vb) == 0 ? TRUE : FALSE;
}

TALSTATUS Talpl::TalxInitString(STRING* to, const char* text)
{
    if (!to)
        return Fail(kCodeInvalidParameter);
    const std::size_t bytes = text ? std::strlen(text) : 0;
    if (bytes > 0xFFFE) // one more must fit for the terminator
        return Fail(kCodeNameTooLong);
    to->Length = static_cast<UINT16>(bytes);
    to->MaximumLength = static_cast<UINT16>(text ? bytes + 1 : 0);
    to->Buffer = const_cast<char*>(text); // the caller knows whether it may be written to
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxInitUnicodeString(UNICODE_STRING* to, const WCHAR* text)
{
    if (!to)
        return Fail(kCodeInvalidParameter);
    const std::size_t bytes = TalxStrlenW(text) * sizeof(WCHAR);
    if (bytes > 0xFFFC) // one more unit must fit for the terminator
        return Fail(kCodeNameTooLong);
    to->Length = static_cast<UINT16>(bytes);
    to->MaximumLength = static_cast<UINT16>(text ? bytes + sizeof(WCHAR) : 0);
    to->Buffer = const_cast<WCHAR*>(text); // the caller knows whether it may be written to
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxIntegerToUnicodeString(UINT32 value, UINT32 base, UNICODE_STRING* to)
{
    if (base == 0)
        base = 10;
    if (!to || !IsBase(base))
        return Fail(kCodeInvalidParameter);
    WCHAR digits[32]; // base 2 needs all of them
    std::size_t first = std::size(digits);
    do {
        digits[--first] = u"0123456789ABCDEF"[value % base];
        value /= base;
    } while (value != 0);
    const std::size_t bytes = (std::size(digits) - first) * sizeof(WCHAR);
    if (bytes > to->MaximumLength || !to->Buffer)
        return Fail(kCodeBufferTooSmall);
    std::memcpy(to->Buffer, digits + first, bytes);
    to->Length = static_cast<UINT16>(bytes);
    return TAL_STATUS_SUCCESS;
}

TALSTATUS Talpl::TalxUnicodeStringToInteger(const UNICODE_STRING* text, UINT32 base, UINT32* out)
{
    if (!text || !out || (base != 0 && !IsBase(base)))
        return Fail(kCodeInvalidParameter);
    std::u16string_view digits = View(text);
    if (base == 0)
        base = TakePrefix(digits);
    if (digits.empty())
        return Fail(kCodeInvalidRequest);
    UINT64 value = 0;
    for (const WCHAR c : digits) {
        const int digit = ::base::HexValue(c);
        if (digit < 0 || static_cast<UINT32>(digit) >= base)
            return Fail(kCodeInvalidRequest);
        value = value * base + static_cast<UINT32>(digit);
        if (value > std::numeric_limits<UINT32>::max())
            return Fail(kCodeInvalidRequest);
    }
    *out = static_cast<UINT32>(value);
    return TAL_STATUS_SUCCESS;
}

} // namespace tolm
