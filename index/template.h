// SPDX-License-Identifier: Apache-2.0
//
// Template files: where they are, how they are read, and how their directives are found.
//
// A template is read in lines of at most 1023 bytes; a longer line is handled as several. In a
// line, "<!--OlmDAV:KEYWORD…-->" is a directive: what stands before it is written to the page as it
// is, the directive acts, and output goes on behind its "-->". A directive does not span lines: one
// whose "-->" is not on its line does nothing, and the rest of that line is dropped.
#pragma once

#include <cstdio>
#include <cstring>
#include <memory>

#include "index/context.h"
#include "support/memory.h"
#include "support/reply.h"

inline constexpr char kDirectiveMark[] = "<!--OlmDAV:";
inline constexpr size_t kDirectiveMarkLength = sizeof(kDirectiveMark) - 1;
inline constexpr char kDirectiveEnd[] = "-->";
inline constexpr size_t kDirectiveEndLength = sizeof(kDirectiveEnd) - 1;

// The configured template directory, with its separator at the end, goes to `directory`
// (kTemplateDirBytes). The first value that is not empty is kept for the life of the process.
inline constexpr size_t kTemplateDirBytes = 256;
void TemplateDirectory(char* directory);

// Reads the configured directory: "/" when none is configured. Fails when the configured one cannot
// be converted or is longer than the buffer (kTemplateDirBytes).
[[nodiscard]] TALSTATUS GetTemplateDir(char* directory);

// False when there is certainly no template of a name; any other doubt is for whoever opens it.
[[nodiscard]] bool HasTemplate(const char* name);

// One open template.
class TemplateFile {
  public:
    // Opens `name` in the template directory. Fails with code 15 when there is no such file and
    // with code 5 when there is no memory for the line buffer.
    [[nodiscard]] TALSTATUS Open(const char* name);
    // The next line (with its line break), NUL-terminated, valid until the next call; null at the
    // end of the file.
    char* NextLine();

  private:
    struct Close {
        void operator()(std::FILE* file) const noexcept { (void)std::fclose(file); }
    };
    std::unique_ptr<std::FILE, Close> file_;
    Paged<char> line_;
};

// True when the text begins with the directive's name, compared without case over `prefix`
// characters, or over the whole name where that is shorter. Longer spellings match too.
bool IsDirective(const char* text, const char* name, size_t prefix);

// What follows a name in a directive's text; empty when the text is shorter.
const char* ArgumentOf(const char* text, const char* name);

// Renders a template to its end. `directive` acts on one directive: it gets the text between the
// mark and "-->", terminated, and the place behind "-->"; it returns where output goes on, which
// may be in a later line, or null at the end of the file. `unclosed` does so for a directive whose
// "-->" is not on its line; it gets the text behind the mark.
template <class OnDirective, class OnUnclosed>
void RenderTemplate(IKestIO_5* io, TemplateFile& file, OnDirective directive, OnUnclosed unclosed)
{
    char* text = file.NextLine();
    while (text != nullptr) {
        char* mark = std::strstr(text, kDirectiveMark);
        if (mark == nullptr) {
            if (*text != '\0')
                Put(io, text);
            text = file.NextLine();
            continue;
        }
        *mark = '\0';
        if (*text != '\0')
            Put(io, text);
        char* keyword = mark + kDirectiveMarkLength;
        if (char* end = std::strstr(keyword, kDirectiveEnd)) {
            *end = '\0';
            text = directive(keyword, end + kDirectiveEndLength);
        } else {
            text = unclosed(keyword);
        }
    }
}

// The usual rule for a directive without "-->": the rest of its line is dropped.
inline char* DropRestOfLine(char* keyword)
{
    return keyword + std::strlen(keyword);
}
