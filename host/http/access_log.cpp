// SPDX-License-Identifier: Apache-2.0
#include "host/http/access_log.h"

#include <charconv>
#include <cstdio>
#include <ctime>
#include <new>

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
            constexpr char kHex[] = "0123456789abcdef";
            out.append({'\\', 'x', kHex[byte >> 4], kHex[byte & 0xF]});
        }
    }
}

void PutNumber(std::string& out, uint64_t number)
{
    char digits[24];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

// "[20/Nov/2026:13:55:01 +0000]", formatted once a second by each thread.
std::string_view Stamp(time_t now)
{
    thread_local time_t last = -1;
    thread_local char text[40];
    thread_local size_t size = 0;
    if (now != last) {
        static constexpr const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
        tm t{};
        gmtime_r(&now, &t);
        size = static_cast<size_t>(
            std::snprintf(text, sizeof text, "[%02d/%s/%04d:%02d:%02d:%02d +0000]", t.tm_mday,
                          kMonths[t.tm_mon], t.tm_year + 1900, t.tm_hour, t.tm_min, t.tm_sec));
        last = now;
    }
    return {text, size};
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
    out.append(Stamp(now)).append(" \"");
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
    try {
        thread_local std::string line;
        line.clear();
        FormatAccessLine(record, std::time(nullptr), line);
        line.push_back('\n');
        std::unique_lock lock(mutex_);
        lines_.append(line);
        if (lines_.size() < kBatch)
            return;
    } catch (const std::bad_alloc&) {
        return; // a line is lost, the server is not
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
