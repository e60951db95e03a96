// SPDX-License-Identifier: Apache-2.0
//
// The body of an XML reply: gathered, escaped for where each piece stands, and sent in blocks.
#pragma once

#include <string_view>

#include <kest/dav/records.h>
#include <kest/io.h>
#include <kest/status.h>

namespace standard {

class ReplyWriter {
  public:
    explicit ReplyWriter(IKestIO_5* io) : io_(io) {}
    ~ReplyWriter() { Flush(); }
    ReplyWriter(const ReplyWriter&) = delete;
    ReplyWriter& operator=(const ReplyWriter&) = delete;

    // Markup, as it is.
    void Put(std::string_view markup);
    // Text between tags, and in an attribute's value. Characters that XML 1.0 cannot hold become
    // "?".
    void PutText(std::string_view text);
    void PutAttribute(std::string_view text);
    // A part of a URL's path, UTF-8: everything but unreserved characters and "/" is escaped.
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

    void PutEscaped(std::string_view text, int place);

    IKestIO_5* io_;
    UINT32 used_ = 0;
    bool failed_ = false;
    char text_[kRoom];
};

// Sends the head of an XML reply and the declaration. The host frames the body: its length is not
// known yet.
void SendXmlHead(IKestIO_5* io, HTTPSTATUS http);

} // namespace standard
