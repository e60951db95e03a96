// SPDX-License-Identifier: Apache-2.0
//
// Writes JSON lines.
#include "host/log/json_line.h"

#include <charconv>
#include <cstdio>

#include "base/hex.h"
#include "base/http_date.h"
#include "base/utf.h"

namespace kestd {

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";

void PutText(std::string& out, std::string_view text)
{
    while (!text.empty()) {
        char32_t point = 0;
        const size_t bytes = base::DecodeCodePoint(text, point);
        if (bytes == 0) {
            out.append(kReplacement);
        } else if (point == '"' || point == '\\') {
            out.append({'\\', static_cast<char>(point)});
        } else if (point < 0x20 || (point >= 0x7F && point < 0xA0)) {
            out.append("\\u00");
            base::AppendHex(out, static_cast<unsigned char>(point), base::kLowerHex);
        } else {
            out.append(text.substr(0, bytes));
        }
        text.remove_prefix(bytes ? bytes : 1);
    }
}

} // namespace

JsonLine::JsonLine(std::string& out, uint64_t systemTime) : out_(out)
{
    char date[base::kIsoDateLength];
    char milliseconds[8];
    out_.append("{\"time\":\"");
    if (base::FormatIsoDate(systemTime, date)) {
        std::snprintf(milliseconds, sizeof milliseconds, ".%03uZ",
                      static_cast<unsigned>(systemTime / 10'000 % 1000));
        out_.append(date, sizeof date - 1).append(milliseconds);
    }
    out_.push_back('"');
}

void JsonLine::Name(std::string_view name)
{
    out_.append(",\"").append(name).append("\":");
}

JsonLine& JsonLine::Text(std::string_view name, std::string_view value)
{
    Name(name);
    out_.push_back('"');
    PutText(out_, value.substr(0, kMostLoggedBytes));
    out_.push_back('"');
    return *this;
}

JsonLine& JsonLine::Number(std::string_view name, uint64_t value)
{
    char digits[24];
    Name(name);
    out_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
    return *this;
}

void JsonLine::End()
{
    out_.append("}\n");
}

} // namespace kestd
