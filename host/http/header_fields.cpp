// SPDX-License-Identifier: Apache-2.0
//
// Keeps the lines of a reply's head as they will be sent.
#include "host/http/header_fields.h"

#include <cstring>
#include <new>

#include "base/ascii.h"

namespace kestd {

namespace {

// No field of a reply comes near; keeps the sums below from wrapping.
constexpr size_t kLongest = 1U << 24;

} // namespace

const HeaderFields::Line* HeaderFields::FindLine(std::string_view name, uint32_t key) const noexcept
{
    if (!names_.MayHold(key))
        return nullptr;
    for (const Line& line : lines_)
        if (line.key == key && base::EqualsIgnoringCase(line.Name(), name))
            return &line;
    return nullptr;
}

bool HeaderFields::Set(Arena& arena, std::string_view name, std::string_view value)
{
    if (!base::IsFieldName(name) || base::HasControl(value) || name.size() > kLongest ||
        value.size() > kLongest)
        return false;
    const size_t size = name.size() + value.size() + 4;
    auto* const text = static_cast<char*>(arena.Allocate(size));
    if (!text)
        throw std::bad_alloc();
    const uint32_t key = NameKey(name);
    const Line* const known = FindLine(name, key);
    Line& line = known ? lines_[static_cast<size_t>(known - lines_.data())] : lines_.emplace_back();
    if (known)
        name = known->Name(); // written as it was first
    else
        names_.Add(line.key = key);
    std::memcpy(text, name.data(), name.size());
    char* at = text + name.size();
    *at++ = ':';
    *at++ = ' ';
    if (!value.empty())
        std::memcpy(at, value.data(), value.size());
    line.value = {at, value.size()};
    line.text = text;
    line.nameSize = static_cast<uint32_t>(name.size());
    line.size = static_cast<uint32_t>(size);
    at += value.size();
    *at++ = '\r';
    *at = '\n';
    return true;
}

void HeaderFields::Set(Arena& arena, const FixedField& field)
{
    const uint32_t key = NameKey(field.Name());
    if (FindLine(field.Name(), key)) {
        (void)Set(arena, field.Name(), field.Value());
        return;
    }
    const std::string_view line = field.Line();
    lines_.push_back({field.Value(), line.data(), static_cast<uint32_t>(field.Name().size()),
                      static_cast<uint32_t>(line.size()), key});
    names_.Add(key);
}

const std::string_view* HeaderFields::Find(std::string_view name) const noexcept
{
    const Line* const line = FindLine(name, NameKey(name));
    return line ? &line->value : nullptr;
}

void HeaderFields::Remove(std::string_view name) noexcept
{
    if (const Line* line = FindLine(name, NameKey(name)))
        lines_.erase(lines_.begin() + (line - lines_.data()));
}

size_t HeaderFields::TextSize() const noexcept
{
    size_t size = 0;
    for (const Line& line : lines_)
        size += line.size;
    return size;
}

char* HeaderFields::CopyTo(char* to) const noexcept
{
    for (const Line& line : lines_) {
        std::memcpy(to, line.text, line.size);
        to += line.size;
    }
    return to;
}

} // namespace kestd
