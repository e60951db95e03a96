// SPDX-License-Identifier: Apache-2.0
//
// The body of an XML reply: gathered, escaped for where each piece stands, and sent in blocks.
#pragma once

#include <cstring>
#include <string_view>

#include <kest/dav/records.h>
#include <kest/io.h>
#include <kest/status.h>

#include "support/ascii.h"

namespace standard {

// A text of the program, whose length the compiler knows wherever it is written.
class Literal {
  public:
    template <size_t N>
    consteval Literal(const char (&text)[N]) // NOLINT: stands for the text
        : text_(text), size_(N - 1)
    {
    }
    constexpr std::string_view Text() const { return {text_, size_}; }

  private:
    const char* text_;
    size_t size_;
};

class ReplyWriter {
  public:
    explicit ReplyWriter(IKestIO_5* io) : io_(io) {}
    ~ReplyWriter() { Flush(); }
    ReplyWriter(const ReplyWriter&) = delete;
    ReplyWriter& operator=(const ReplyWriter&) = delete;

    // Markup, as it is.
    void Put(std::string_view markup)
    {
        if (markup.size() > kRoom - used_)
            return PutLong(markup);
        if (!markup.empty())
            std::memcpy(text_ + used_, markup.data(), markup.size());
        used_ += static_cast<UINT32>(markup.size());
    }
    // The same for what every member of a listing has: moves of a known length in place of a call.
    [[gnu::always_inline]] void PutMarkup(Literal markup) { Put(markup.Text()); }
    // Text between tags, and in an attribute's value. Characters that XML 1.0 cannot hold become
    // "?".
    void PutText(std::string_view text);
    void PutAttribute(std::string_view text);
    // A part of a URL's path, UTF-8: see EscapePath.
    void PutPath(std::string_view path);
    void PutNumber(UINT64 number);
    // As "Sat, 31 Jan 2026 12:00:00 GMT"; nothing for a date that has no such form.
    void PutHttpDate(DAV_DATETIME date);
    // As "2026-01-31T12:00:00Z".
    void PutIsoDate(DAV_DATETIME date);

    // Sends what was gathered.
    void Flush();
    // True once the client has gone: nothing more can reach it.
    bool HasFailed() const { return failed_; }
    IKestIO_5* Host() const { return io_; }

  private:
    static constexpr UINT32 kRoom = 8192;
    static constexpr UINT32 kDateRoom = 64;

    // A date as it was written last: many members of a listing have the same, to the second.
    struct Written {
        UINT64 second = ~UINT64{0};
        UINT32 length = 0;
        char text[kDateRoom];
    };

    void PutLong(std::string_view markup);
    void PutEscaped(std::string_view text, int place);
    template <class Format> void PutDate(Written& written, DAV_DATETIME date, Format format);

    IKestIO_5* io_;
    UINT32 used_ = 0;
    bool failed_ = false;
    Written http_;
    Written iso_;
    char text_[kRoom];
};

// How many bytes at the front of a path need no escape.
size_t PlainPathLength(std::string_view path) noexcept;

// Hands a path of a URL, UTF-8, piece by piece to `take(std::string_view)`: everything but
// unreserved characters and "/" is escaped. Goes on while that says true, and says whether it
// always did.
template <class Take> bool EscapePath(std::string_view path, Take take)
{
    while (!path.empty()) {
        const size_t plain = PlainPathLength(path);
        if (!take(path.substr(0, plain)))
            return false;
        if (plain == path.size())
            return true;
        const auto c = static_cast<UINT8>(path[plain]);
        const char escape[] = {'%', kUpperHex[c >> 4], kUpperHex[c & 15]};
        if (!take(std::string_view(escape, sizeof escape)))
            return false;
        path.remove_prefix(plain + 1);
    }
    return true;
}

// Sends the head of an XML reply and the declaration. The host frames the body: its length is not
// known yet. Fails when the client cannot have got them, which most callers need not know.
TALSTATUS SendXmlHead(IKestIO_5* io, HTTPSTATUS http);

} // namespace standard
