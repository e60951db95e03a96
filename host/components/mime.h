// SPDX-License-Identifier: Apache-2.0
//
// MIME types by file name extension.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kestd {

// A fixed table, safe to read from any thread.
class MimeTypes {
  public:
    // Reads a table in the form of /etc/mime.types: a type and its extensions per line. Where an
    // extension stands twice, its first line counts. A small built-in list fills what the text
    // leaves out.
    explicit MimeTypes(std::string_view table);

    // The table of this machine, read once. The built-in list alone where there is none.
    static const MimeTypes& System();

    // The type for a name or path by the extension of its last component, compared without case;
    // null when none is known. The text is NUL-terminated and lives as long as this object. A name
    // that only begins with a dot has no extension.
    const char* Find(std::string_view name) const;
    const char* Find(std::u16string_view name) const;

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

} // namespace kestd
