// SPDX-License-Identifier: Apache-2.0
//
// Formats access lines and gathers them.
#include "host/log/access_log.h"

#include <charconv>
#include <new>

#include "base/hex.h"
#include "base/http_date.h"
#include "host/log/json_line.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

constexpr size_t kBatch = 16 * 1024;

void PutEscaped(std::string& out, std::string_view text)
{
    for (const char c : text.substr(0, kMostLoggedBytes)) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte != 0x7F && c != '"' && c != '\\') {
            out.push_back(c);
        } else {
            out.append("\\x");
            base::AppendHex(out, byte, base::kLowerHex);
        }
    }
}

void PutNumber(std::string& out, uint64_t number)
{
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

// "[20/Nov/2026:13:55:01 +0000]"
void PutStamp(std::string& out, uint64_t now)
{
    char text[base::kLogDateLength];
    if (base::FormatLogDate(now, text))
        out.append(text, sizeof text);
}

std::string_view VersionOf(const AccessRecord& record)
{
    return record.version == 10 ? "HTTP/1.0" : "HTTP/1.1";
}

} // namespace

void FormatAccessLine(const AccessRecord& record, uint64_t now, std::string& out)
{
    out.append(record.remote).append(" - ");
    if (record.user.empty())
        out.push_back('-');
    else
        PutEscaped(out, record.user);
    out.push_back(' ');
    PutStamp(out, now);
    out.append(" \"");
    if (record.method.empty()) {
        out.push_back('-');
    } else {
        PutEscaped(out, record.method);
        out.push_back(' ');
        PutEscaped(out, record.target);
        out.push_back(' ');
        out.append(VersionOf(record));
    }
    out.append("\" ");
    PutNumber(out, static_cast<uint64_t>(record.status));
    out.push_back(' ');
    PutNumber(out, record.sent);
    out.push_back(' ');
    PutNumber(out, static_cast<uint64_t>(record.duration.count()));
    out.push_back(' ');
    out.append(record.id).push_back('\n');
}

void FormatJsonAccessLine(const AccessRecord& record, uint64_t now, std::string& out)
{
    JsonLine line(out, now);
    line.Text("id", record.id).Text("remote", record.remote).Text("user", record.user);
    line.Text("method", record.method).Text("target", record.target);
    line.Text("protocol", VersionOf(record)).Number("status", static_cast<uint64_t>(record.status));
    line.Number("received", record.received).Number("sent", record.sent);
    line.Number("duration_us", static_cast<uint64_t>(record.duration.count()));
    line.Text("user_agent", record.userAgent).End();
}

void AccessLog::Write(const AccessRecord& record, AccessLogFormat format) noexcept
{
    const uint64_t now = base::SystemTimeNow();
    {
        const std::lock_guard lock(mutex_);
        const size_t before = lines_.size();
        try {
            if (format == AccessLogFormat::Json)
                FormatJsonAccessLine(record, now, lines_);
            else
                FormatAccessLine(record, now, lines_);
        } catch (const std::bad_alloc&) {
            lines_.resize(before); // a line is lost, the server is not
        }
        if (lines_.size() < kBatch)
            return;
    }
    Flush();
}

void AccessLog::Flush() noexcept
{
    const std::lock_guard order(order_);
    std::string batch;
    {
        const std::lock_guard lock(mutex_);
        batch.swap(lines_);
    }
    if (!batch.empty())
        TolmLogLines(kLogRequests, batch.data(), static_cast<UINT32>(batch.size()));
}

} // namespace kestd
