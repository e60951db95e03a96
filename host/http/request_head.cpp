// SPDX-License-Identifier: Apache-2.0
//
// Finds a head's end and takes it apart.
#include "host/http/request_head.h"

#include <algorithm>
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

// RFC 9112 section 5. A line that begins with a blank goes on with the one before it for some
// readers, and is a field for others (section 5.2): neither here, since a blank is in no name.
bool ReadField(std::string_view line, Field& field) noexcept
{
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos)
        return false;
    field.name = line.substr(0, colon);
    field.value = base::Trimmed(line.substr(colon + 1));
    return base::IsFieldName(field.name) && !base::HasControl(field.value);
}

// Most names differ in their length or in their first letter. A field's name is never empty.
inline bool HasName(const Field& field, std::string_view name) noexcept
{
    constexpr int kCase = 0x20;
    return field.name.size() == name.size() &&
           ((field.name.front() ^ name.front()) & ~kCase) == 0 &&
           base::EqualsIgnoringCase(field.name, name);
}

} // namespace

const Field* RequestHead::FindFrom(const Field* from, std::string_view name) const noexcept
{
    const Field* const end = fields.data() + fields.size();
    for (const Field* field = from; field != end; ++field)
        if (HasName(*field, name))
            return field;
    return nullptr;
}

size_t RequestHead::Count(std::string_view name) const noexcept
{
    if (!names.MayHold(NameKey(name)))
        return 0;
    size_t count = 0;
    for (const Field& field : fields)
        count += base::EqualsIgnoringCase(field.name, name);
    return count;
}

bool RequestHead::ListsToken(std::string_view name, std::string_view token) const noexcept
{
    for (const Field& field : fields) {
        if (!HasName(field, name))
            continue;
        std::string_view list = field.value;
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
        head.names.Add(NameKey(field.name));
    }
    return 400;
}

} // namespace kestd
