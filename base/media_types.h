// SPDX-License-Identifier: Apache-2.0
//
// Media types by the extension of a file name: the one table.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace base {

// A fixed table, safe to read from any thread.
class MediaTypes {
  public:
    // Reads a table in the form of /etc/mime.types: a type and its extensions per line. Where an
    // extension stands twice, its first line counts. A small built-in list fills what the text
    // leaves out.
    explicit MediaTypes(std::string_view table);

    // The table of this machine, read once. The built-in list alone where there is none.
    static const MediaTypes& System();

    // The type for a name or path by the extension of its last component, compared without case;
    // null when none is known. The text is NUL-terminated and lives as long as this object. A name
    // that only begins with a dot has no extension.
    const char* Find(std::string_view name) const;
    const char* Find(std::u16string_view name) const;
    // The same with what a browser needs beside it: "; charset=utf-8" for text, and
    // "application/octet-stream" where no type is known.
    std::string ForContent(std::string_view name) const;

  private:
    struct Entry {
        std::string_view extension; // lower case; empty for a free place
        const char* type = nullptr;
    };

    void Add(std::string_view extension, const char* type);
    const char* FindExtension(std::string_view lowerCase) const;

    std::vector<std::unique_ptr<std::string>> texts_; // what the entries point at
    std::vector<Entry> entries_;                      // a power of two, open addressing
    size_t used_ = 0;
};

} // namespace base
