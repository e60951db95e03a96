// SPDX-License-Identifier: Apache-2.0
//
// Names and paths: which names are served at all, and what paths within a volume consist of.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <kest/types.h>

namespace filestore {

inline constexpr size_t kMaxPathBytes = 4095; // of a path within a volume, as the kernel counts
inline constexpr size_t kMaxNameBytes = 255;  // of one component

// The directory in a volume's root directory that holds the store's own files. The name is not
// served anywhere, since one volume can lie inside another.
inline constexpr std::string_view kPrivateDirectory = ".kest";
inline constexpr char kDeletedDirectory[] = ".kest/deleted"; // what is kept
inline constexpr char kPurgeDirectory[] = ".kest/purge";     // what is on its way out

[[nodiscard]] std::string PathOfDeleted(INT64 id); // of a deleted entry

// The text as UTF-8; empty for malformed text, and for none.
[[nodiscard]] std::string Utf8Of(const WCHAR* text, size_t units);
[[nodiscard]] std::string Utf8Of(const UNICODE_STRING* text);

// Whether a component can be sent in a reply and was not made up to mislead: well-formed UTF-8
// without control characters and non-characters, 1 to 255 bytes, not "." or "..".
[[nodiscard]] bool IsServableName(std::string_view name);

// Whether a component is the store's own, in any letter case.
[[nodiscard]] bool IsPrivateName(std::string_view name);

// A path within a volume: components joined by "/", none empty; "" is the volume's root directory.
// Holds its text in place, so that taking a request's path apart allocates nothing.
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
} // namespace filestore
