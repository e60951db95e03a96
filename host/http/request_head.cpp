// SPDX-License-Identifier: Apache-2.0
//
// Finds a head's end and takes it apart.
#include "host/http/request_head.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "base/ascii.h"
#include "base/token.h"

namespace kestd {

namespace {

// Takes the next line off `text`, without its line end. False where none ends with CR LF: a bare LF
// ends no line (RFC 9112 section 2.2 lets a server refuse it), and the scans of what is in the line
// find a bare CR.
bool TakeLine(std::string_view& text, std::string_view& line) noexcept
{
    const void* const feed = text.empty() ? nullptr : std::memchr(text.data(), '\n', text.size());
    if (!feed)
        return false;
    const auto size = static_cast<size_t>(static_cast<const char*>(feed) - text.data());
    if (size == 0 || text[size - 1] != '\r')
        return false;
    line = text.substr(0, size - 1);
    text.remove_prefix(size + 1);
    return true;
}

// Takes a word and the space behind it off a request line. False when either is missing.
bool TakeWord(std::string_view& line, std::string_view& word) noexcept
{
    const size_t size = line.find(' ');
    if (size == 0 || size == std::string_view::npos)
        return false;
    word = line.substr(0, size);
    line.remove_prefix(size + 1);
    return true;
}

// "HTTP/1.1" and the like, RFC 9112 section 2.3. 0, or the status to refuse it with.
int ReadVersion(std::string_view text, unsigned& version) noexcept
{
    if (text.size() != 8 || text.substr(0, 5) != "HTTP/" || !base::IsDigit(text[5]) ||
        text[6] != '.' || !base::IsDigit(text[7]))
        return 400;
    version = static_cast<unsigned>(text[5] - '0') * 10 + static_cast<unsigned>(text[7] - '0');
    return version == 10 || version == 11 ? 0 : 505;
}

// RFC 9112 section 3. What the target is made of is judged where it is read.
int ReadRequestLine(std::string_view line, RequestHead& head) noexcept
{
    if (!TakeWord(line, head.method) || !TakeWord(line, head.target) ||
        !base::IsToken(head.method) || base::HasControlOrTab(head.target))
        return 400;
    return ReadVersion(line, head.version);
}

// How many of the first sixteen bytes are letters or "-", which is what names of fields are made
// of. There are as many bytes.
size_t CountUsual(const char* at) noexcept
{
    using Words = uint64_t __attribute__((vector_size(16)));
    using Bytes = uint8_t __attribute__((vector_size(16)));
    Bytes bytes;
    std::memcpy(&bytes, at, sizeof bytes);
    const auto others = reinterpret_cast<Words>((bytes != '-') & ((bytes | 0x20) - 'a' > 25));
    const auto first = [](uint64_t word) {
        return static_cast<size_t>(std::countr_zero(word)) / 8;
    };
    return others[0] ? first(others[0]) : sizeof(uint64_t) + first(others[1]);
}

// RFC 9112 section 5. A line that begins with a blank goes on with the one before it for some
// readers, and is a field for others (section 5.2): neither here, since a blank is in no name.
bool ReadField(std::string_view line, Field& field) noexcept
{
    size_t colon = 0; // stays where the name has to be looked at byte by byte
    if constexpr (std::endian::native == std::endian::little)
        if (line.size() > sizeof(uint64_t) * 2)
            colon = CountUsual(line.data());
    if (colon == 0 || line[colon] != ':') {
        colon = line.find(':');
        if (colon == std::string_view::npos || !base::IsFieldName(line.substr(0, colon)))
            return false;
    }
    field.name = line.substr(0, colon);
    field.value = base::Trimmed(line.substr(colon + 1));
    field.key = NameKey(field.name);
    return !base::HasControl(field.value);
}

inline bool HasName(const Field& field, std::string_view name, uint32_t key) noexcept
{
    return field.key == key && base::EqualsIgnoringCase(field.name, name);
}

} // namespace

const Field* RequestHead::FindFrom(const Field* from, std::string_view name,
                                   uint32_t key) const noexcept
{
    const Field* const end = fields.data() + fields.size();
    for (const Field* field = from; field != end; ++field)
        if (HasName(*field, name, key))
            return field;
    return nullptr;
}

size_t RequestHead::Count(std::string_view name) const noexcept
{
    const uint32_t key = NameKey(name);
    size_t count = 0;
    for (const Field& field : fields)
        count += HasName(field, name, key);
    return count;
}

bool RequestHead::ListsToken(std::string_view name, std::string_view token) const noexcept
{
    const uint32_t key = NameKey(name);
    for (const Field& field : fields) {
        if (!HasName(field, name, key))
            continue;
        std::string_view list = field.value;
        if (list.find(',') == std::string_view::npos) { // mostly: it has one element
            if (base::EqualsIgnoringCase(list, token))
                return true;
            continue;
        }
        std::string_view element;
        while (base::NextElement(list, element))
            if (base::EqualsIgnoringCase(element, token))
                return true;
    }
    return false;
}

size_t FindHeadEnd(std::string_view text, size_t& scanned) noexcept
{
    const size_t from = scanned > 3 ? scanned - 3 : 0; // the end may straddle two receives
    const char* const end = text.data() + text.size();
    // Line by line: the empty line is the end.
    for (const char* at = text.data() + from; end - at >= 4;) {
        const auto* feed =
            static_cast<const char*>(std::memchr(at + 1, '\n', static_cast<size_t>(end - at - 1)));
        if (!feed)
            break;
        if (end - feed >= 3 && feed[-1] == '\r' && feed[1] == '\r' && feed[2] == '\n')
            return static_cast<size_t>(feed + 3 - text.data());
        at = feed;
    }
    scanned = text.size();
    return 0;
}

int ParseHead(std::string_view text, RequestHead& head)
{
    head.Clear();
    std::string_view line;
    if (!TakeLine(text, line))
        return 400;
    if (const int status = ReadRequestLine(line, head))
        return status;
    head.lines = text.substr(0, text.size() - std::min<size_t>(text.size(), 2));
    while (TakeLine(text, line)) {
        if (line.empty())
            return text.empty() ? 0 : 400;
        Field& field = head.fields.emplace_back();
        if (!ReadField(line, field))
            return 400;
        head.names.Add(field.key);
    }
    return 400;
}

} // namespace kestd
