// SPDX-License-Identifier: Apache-2.0
//
// XML request bodies: one pass of expat over the whole body, and how element names are compared.
// There is no namespace processing: a name's prefix ends at its first colon and says nothing.
#pragma once

#include <expat.h>

#include <kest/types.h>

// The element name behind its first colon.
const char* LocalName(const char* tag) noexcept;

// Compares ASCII letters without case.
bool SameName(const char* a, const char* b) noexcept;

// Keeps clients from choosing names that collide in a parser's tables. Drawn once: left to itself,
// every parser asks for one of its own, and that is a quarter of what a usual body costs. Without
// randomness it is 0, and parsers are left to themselves.
unsigned long XmlNameSalt() noexcept;

enum class XmlBody {
    NoParser, // none could be made; nothing was parsed
    NoMemory, // memory was short; what the handlers heard is a part of what was asked for
    Broken,   // malformed; what the handlers heard up to there stands
    Whole,
};

// Nobody knows what was asked for: a change does not happen.
[[nodiscard]] constexpr bool WasShortOfMemory(XmlBody result) noexcept
{
    return result == XmlBody::NoParser || result == XmlBody::NoMemory;
}

// Parses `size` bytes as one document, in the encoding that the body itself names. `text` may be
// null. A malformed body is no failure of a request.
[[nodiscard]] XmlBody ParseXmlBody(const char* body, UINT32 size, void* userData,
                                   XML_StartElementHandler start, XML_EndElementHandler end,
                                   XML_CharacterDataHandler text);

// How many bytes of element names a body of `size` bytes can name itself, whatever its encoding.
// Handlers stop recording names beyond that: more can only come from entities that repeat
// themselves, and would cost memory and provider calls without bound.
constexpr UINT64 NameBudget(UINT32 size) noexcept
{
    return UINT64{size} * 2; // a byte of a single-byte encoding is at most two of UTF-8
}

// What one element costs of the budget: its name and the "</>" that the shortest element adds.
inline constexpr UINT32 kElementCost = 3;
