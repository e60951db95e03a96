// SPDX-License-Identifier: Apache-2.0
//
// Formats access lines and gathers them.
#include "host/http/access_log.h"

#include <charconv>
#include <ctime>
#include <new>

#include "base/hex.h"
#include "base/http_date.h"
#include <kest/tolm.h>

namespace kestd {

namespace {

constexpr size_t kBatch = 16 * 1024;
constexpr size_t kLongestText = 2048; // of one value of the client

void PutEscaped(std::string& out, std::string_view text)
{
    for (const char c : text.substr(0, kLongestText)) {
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
void PutStamp(std::string& out, time_t now)
{
    char text[base::kLogDateLength];
    if (base::FormatLogDate(base::SystemTimeOf(now, 0), text))
        out.append(text, sizeof text);
}

} // namespace

void FormatAccessLine(const AccessRecord& record, time_t now, std::string& out)
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
        out.append(record.version == 10 ? " HTTP/1.0" : " HTTP/1.1");
    }
    out.append("\" ");
    PutNumber(out, static_cast<uint64_t>(record.status));
    out.push_back(' ');
    PutNumber(out, record.bodyBytes);
    out.push_back(' ');
    PutNumber(out, static_cast<uint64_t>(record.duration.count()));
}

void AccessLog::Write(const AccessRecord& record) noexcept
{
    const time_t now = std::time(nullptr);
    {
        const std::lock_guard lock(mutex_);
        const size_t before = lines_.size();
        try {
            FormatAccessLine(record, now, lines_);
            lines_.push_back('\n');
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
        TolmLogAccess(batch.data(), static_cast<UINT32>(batch.size()));
}

} // namespace kestd
