// SPDX-License-Identifier: Apache-2.0
#include "host/header_list.h"

#include <array>
#include <cstring>
#include <new>

#include "host/text.h"

namespace kestd {

namespace {

// The bytes of a token (RFC 9110 section 5.6.2).
constexpr std::array<bool, 256> kTokenBytes = [] {
    std::array<bool, 256> table{};
    for (const char c : std::string_view("!#$%&'*+-.^_`|~0123456789abcdefghijklmnopqrstuvwxyz"
                                         "ABCDEFGHIJKLMNOPQRSTUVWXYZ"))
        table[static_cast<unsigned char>(c)] = true;
    return table;
}();

bool IsName(std::string_view name) noexcept
{
    bool isToken = !name.empty();
    for (const char c : name)
        isToken &= kTokenBytes[static_cast<unsigned char>(c)];
    return isToken;
}

// No field of a reply comes near; keeps the sums below from wrapping.
constexpr size_t kLongest = 1U << 24;

} // namespace

HeaderList::Line* HeaderList::FindLine(std::string_view name) noexcept
{
    for (Line& line : lines_)
        if (EqualsIgnoringCase(line.Name(), name))
            return &line;
    return nullptr;
}

bool HeaderList::Set(Arena& arena, std::string_view name, std::string_view value)
{
    if (!IsName(name) || HasControl(value) || name.size() > kLongest || value.size() > kLongest)
        return false;
    const size_t size = name.size() + value.size() + 4;
    auto* const text = static_cast<char*>(arena.Allocate(size));
    if (!text)
        throw std::bad_alloc();
    Line* line = FindLine(name);
    if (!line)
        line = &lines_.emplace_back();
    else
        name = line->Name(); // written as it was first
    std::memcpy(text, name.data(), name.size());
    char* at = text + name.size();
    *at++ = ':';
    *at++ = ' ';
    if (!value.empty())
        std::memcpy(at, value.data(), value.size());
    *line = {
        {at, value.size()}, text, static_cast<uint32_t>(name.size()), static_cast<uint32_t>(size)};
    at += value.size();
    *at++ = '\r';
    *at = '\n';
    return true;
}

const std::string_view* HeaderList::Find(std::string_view name) const noexcept
{
    for (const Line& line : lines_)
        if (EqualsIgnoringCase(line.Name(), name))
            return &line.value;
    return nullptr;
}

void HeaderList::Remove(std::string_view name) noexcept
{
    if (const Line* line = FindLine(name))
        lines_.erase(lines_.begin() + (line - lines_.data()));
}

size_t HeaderList::TextSize() const noexcept
{
    size_t size = 0;
    for (const Line& line : lines_)
        size += line.size;
    return size;
}

char* HeaderList::CopyTo(char* to) const noexcept
{
    for (const Line& line : lines_) {
        std::memcpy(to, line.text, line.size);
        to += line.size;
    }
    return to;
}

} // namespace kestd
