// SPDX-License-Identifier: Apache-2.0
//
// Small text files that several processes read and change.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace kestd {

// Reads a whole file of at most so many bytes; a missing file is an empty text. Empty on success,
// else "FILE: reason", and `text` as it was.
std::string ReadTextFile(const std::string& path, size_t most, std::string& text);

// "FILE:LINE: reason".
std::string AtLine(const std::string& path, size_t line, const std::string& reason);

// Calls `visit` with each line, without its break, and its number; stops at the first text.
template <class Visit> std::string ForEachLine(std::string_view text, Visit&& visit)
{
    for (size_t number = 1; !text.empty(); ++number) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (std::string problem = visit(number, line); !problem.empty())
            return problem;
    }
    return {};
}

// What stands between the colons of a line; one field at least.
std::vector<std::string> FieldsOf(std::string_view line);

// A file that is changed in one step: what is written stands beside it and is renamed over it.
class LockedFile {
  public:
    // Opens the file for changing, waits until no other process changes it, and reads it; makes it
    // when it is missing.
    LockedFile(std::string path, size_t most);
    ~LockedFile();
    LockedFile(const LockedFile&) = delete;
    LockedFile& operator=(const LockedFile&) = delete;

    const std::string& Problem() const { return problem_; } // empty: it can be used
    const std::string& Path() const { return path_; }
    const std::string& Text() const { return text_; } // as read
    // Empty on success; else the file is as it was. Its mode becomes 0600, its owner stays.
    std::string Replace(const std::string& text);

  private:
    std::string path_;
    std::string text_;
    std::string problem_;
    int lock_ = -1;
};

} // namespace kestd
