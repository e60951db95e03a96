// SPDX-License-Identifier: Apache-2.0
//
// Names and paths: conversion between the contract's UTF-16 and the disk's UTF-8, which names are
// served at all, and the order of listings.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <kest/types.h>

namespace filestore {

inline constexpr size_t kMaxPathBytes = 4095; // of a path within a volume, as the kernel counts
inline constexpr size_t kMaxNameBytes = 255;  // of one component

// The directory at a volume's top that holds the store's own files. The name is not served
// anywhere, since one volume can lie inside another.
inline constexpr std::string_view kPrivateDirectory = ".kest";

// Strict conversions; false for malformed input and when `room` is short. `used` is set on success.
[[nodiscard]] bool ToUtf8(const WCHAR* in, size_t units, char* out, size_t room, size_t* used);
[[nodiscard]] bool ToUtf16(const char* in, size_t bytes, WCHAR* out, size_t room, size_t* used);
// The text as UTF-8; empty for malformed text, and for none.
[[nodiscard]] std::string Utf8Of(const WCHAR* text, size_t units);
[[nodiscard]] std::string Utf8Of(const UNICODE_STRING* text);

// Reads the first code point of `text` (no overlong forms, no surrogates). The number of its bytes,
// or 0 when there is none or it is malformed.
[[nodiscard]] size_t DecodeCodePoint(std::string_view text, UINT32* out);

// Whether a component can be sent in a reply and was not made up to mislead: well-formed UTF-8
// without control characters and non-characters, 1 to 255 bytes, not "." or "..".
[[nodiscard]] bool IsServableName(std::string_view name);

// Whether a component is the store's own, in any letter case.
[[nodiscard]] bool IsPrivateName(std::string_view name);

// A path within a volume: components joined by "/", none empty; "" is the volume's top. Holds its
// text in place, so that taking a request's path apart allocates nothing.
class PathBuffer {
  public:
    PathBuffer() { text_[0] = '\0'; }
    [[nodiscard]] bool Assign(std::string_view text);
    // Appends "/" (unless empty) and `name`. False when it would grow too long.
    [[nodiscard]] bool Append(std::string_view name);
    void Clear() { Cut(0); }
    void Cut(size_t length)
    {
        length_ = length;
        text_[length] = '\0';
    }
    const char* CStr() const { return text_; }
    size_t Length() const { return length_; }
    std::string_view View() const { return {text_, length_}; }

  private:
    size_t length_ = 0;
    char text_[kMaxPathBytes + 1];
};

// Appends the components of `text` to `path`, leaving out empty ones, so that an object has one
// path only. The result says why it could not.
enum class PathFit { Ok, NotServable, TooLong };
[[nodiscard]] PathFit AppendComponents(std::string_view text, PathBuffer* path);

// The parts of a path: "a/b/c" has the parent "a/b" and the leaf "c"; "c" has the parent "".
[[nodiscard]] std::string_view ParentOf(std::string_view path);
[[nodiscard]] std::string_view LeafOf(std::string_view path);
// Whether `path` is `tree` or lies below it.
[[nodiscard]] bool IsWithin(std::string_view path, std::string_view tree);

// Undoes one layer of percent-encoding. False when there is none, and for "%2F", "%00" and broken
// escapes.
[[nodiscard]] bool DecodePercent(std::string_view in, std::string* out);
// Percent-escapes everything but unreserved characters and "/" (RFC 3986 section 2.3).
[[nodiscard]] std::string EncodePercent(std::string_view in);

// Maps code units to upper case, one to one, in place.
using UpperCase = void (*)(WCHAR* text, UINT32 units);

// The names of one directory, sorted as the platform layer compares without regard to case: by code
// unit after simple upper-casing. Names that differ in case only stand in byte order. Costs about
// 16 bytes per name beside its text, and while it sorts as much again, or the text once more in
// UTF-16 when a name is not ASCII.
class NameList {
  public:
    explicit NameList(UpperCase upper) : upper_(upper) {}
    void Add(std::string_view name);
    void Sort();
    size_t Count() const { return entries_.size(); }
    // Valid until the list changes; NUL-terminated.
    std::string_view At(size_t index) const
    {
        const Entry& e = entries_[index];
        return {arena_.data() + e.offset, e.length};
    }

    // The same as UTF-16: how many units it has, and the units themselves.
    size_t UnitsAt(size_t index) const;
    void WideAt(size_t index, WCHAR* out) const;
    // The name will be asked for soon. Sorted names lie scattered in memory.
    void Expect(size_t index) const
    {
        if (index < entries_.size())
            __builtin_prefetch(arena_.data() + entries_[index].offset);
    }

  private:
    struct Entry {
        UINT64 key;
        UINT32 offset;
        UINT16 length;
        bool ascii;
    };
    bool Less(const Entry& a, const Entry& b) const;
    size_t SharedPrefix() const;
    void SetKeys();
    void SortByKeys();
    void SortAscii();
    void SortWide();

    UpperCase upper_;
    std::vector<char> arena_;
    std::vector<Entry> entries_;
};

} // namespace filestore
