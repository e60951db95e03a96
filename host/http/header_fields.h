// SPDX-License-Identifier: Apache-2.0
//
// The header fields of a reply.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "base/token.h"
#include "host/http/name_filter.h"
#include "host/net/buffer.h"

namespace kestd {

// A field that never changes, written as the line that goes out. What stands in it is judged where
// it is compiled.
class FixedField {
  public:
    template <size_t N>
    consteval explicit FixedField(const char (&line)[N]) // "Name: value\r\n"
        : line_(line, N - 1), nameSize_(static_cast<uint32_t>(line_.find(": ")))
    {
        if (!base::IsToken(Name()) || !line_.ends_with("\r\n"))
            throw "not a field";
        for (const char c : Value())
            if (base::IsControl(c))
                throw "not a value";
    }
    constexpr std::string_view Line() const noexcept { return line_; }
    constexpr std::string_view Name() const noexcept { return line_.substr(0, nameSize_); }
    constexpr std::string_view Value() const noexcept
    {
        return line_.substr(nameSize_ + 2, line_.size() - nameSize_ - 4);
    }

  private:
    std::string_view line_;
    uint32_t nameSize_;
};

// Fields in the order in which they were set first. Each is kept as the line that goes out, in
// request memory, so that sending is one copy per field.
class HeaderFields {
  public:
    // Sets a field, in place of an earlier one of that name (compared without case). False for a
    // name or value that no field can have: RFC 9110 section 5. Throws std::bad_alloc.
    bool Set(Arena& arena, std::string_view name, std::string_view value);
    // The same of one that can always be set, and takes no request memory unless it is set already.
    void Set(Arena& arena, const FixedField& field);
    // Takes the memory for a list of so many. Throws std::bad_alloc.
    void Reserve(size_t count) { lines_.reserve(count); }
    // Null when it is not set. Valid until the list changes.
    const std::string_view* Find(std::string_view name) const noexcept;
    void Remove(std::string_view name) noexcept;
    void Clear() noexcept
    {
        lines_.clear();
        names_.Clear();
    }

    // The bytes of all lines, and their text. CopyTo returns the end of what it wrote.
    size_t TextSize() const noexcept;
    char* CopyTo(char* to) const noexcept;

  private:
    struct Line {
        std::string_view value;
        const char* text; // "Name: value\r\n"
        uint32_t nameSize;
        uint32_t size;
        uint32_t key; // of the name: see NameKey
        std::string_view Name() const noexcept { return {text, nameSize}; }
    };
    const Line* FindLine(std::string_view name, uint32_t key) const noexcept;

    std::vector<Line> lines_;
    NameFilter names_; // of the lines, and of some that were removed
};

} // namespace kestd
