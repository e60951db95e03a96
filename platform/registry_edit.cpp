// SPDX-License-Identifier: Apache-2.0
//
// Changes to the text of a registry file that leave the rest of it as it is.
#include "platform/registry_edit.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/ascii.h"
#include "base/utf.h"
#include "platform/caseless.h"

namespace tolm {
namespace {

// Offsets of the lines' starts; line 1 is at [1], and the text's end follows the last.
std::vector<std::size_t> LineStarts(const std::string& text)
{
    std::vector<std::size_t> starts{0, 0};
    for (std::size_t i = 0; i < text.size(); ++i)
        if (text[i] == '\n')
            starts.push_back(i + 1);
    if (starts.back() != text.size())
        starts.push_back(text.size());
    return starts;
}

// Of a value's end or beginning. A key's header stands on a line before, so that a byte-order mark
// is never in the way.
std::size_t OffsetOf(const std::string& text, const std::vector<std::size_t>& lines, Place place)
{
    std::size_t at = lines[place.line];
    for (UINT32 column = 1; column < place.column && at < text.size(); ++column)
        do
            ++at;
        while (at < text.size() && (static_cast<UINT8>(text[at]) & 0xC0) == 0x80);
    return at;
}

// A TOML string: literal where that can hold the text, else with escapes.
std::string Quote(std::u16string_view wide)
{
    const std::string text = base::ToUtf8Replacing(wide);
    if (text.find('\'') == std::string::npos && !base::HasControlOrTab(text))
        return '\'' + text + '\'';
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            quoted += '\\';
            quoted += c;
        } else if (base::IsControl(c)) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04X", static_cast<UINT8>(c));
            quoted += escape;
        } else {
            quoted += c;
        }
    }
    return quoted + '"';
}

std::u16string_view AsText(const void* data, UINT32 size) noexcept
{
    return {static_cast<const WCHAR*>(data), size / sizeof(WCHAR)};
}

std::string Render(UINT32 type, const void* data, UINT32 size)
{
    if (type == TALX_REG_UINT32 || type == TALX_REG_UINT64) {
        UINT64 number = 0;
        std::memcpy(&number, data, size);
        return std::to_string(number);
    }
    std::u16string_view text = AsText(data, size);
    if (type == TALX_REG_SZ)
        return Quote(text.substr(0, text.size() - 1));
    std::string list = "[";
    while (text.front() != 0) {
        const std::size_t end = text.find(u'\0');
        list += list.size() > 1 ? ", " : "";
        list += Quote(text.substr(0, end));
        text.remove_prefix(end + 1);
    }
    return list + ']';
}

// The text with a line of its own at the end.
void AppendLine(std::string& text, const std::string& line)
{
    if (!text.empty() && text.back() != '\n')
        text += '\n';
    text += line;
    text += '\n';
}

// The line after which a new value of `key` goes.
UINT32 LastLineOf(const RegistryKey& key)
{
    UINT32 last = key.line;
    for (const RegistryValue& value : key.values)
        last = std::max(last, value.valueEnd.line);
    return last;
}

} // namespace

bool CanWrite(UINT32 type, const void* data, UINT32 size) noexcept
{
    const std::u16string_view text = AsText(data, size);
    UINT64 number = 0;
    switch (type) {
    case TALX_REG_UINT32:
        return size == sizeof(UINT32);
    case TALX_REG_UINT64:
        if (size != sizeof number)
            return false;
        std::memcpy(&number, data, size);
        return number >> 63 == 0;
    case TALX_REG_SZ:
        return size >= sizeof(WCHAR) && size % sizeof(WCHAR) == 0 &&
               text.find(u'\0') == text.size() - 1 && base::IsUtf16(text);
    case TALX_REG_MULTI_SZ: // ends at the first empty text, which is the last
        if (size < sizeof(WCHAR) || size % sizeof(WCHAR) != 0 || text.back() != 0)
            return false;
        return (text.size() == 1 ||
                (text.front() != 0 && text[text.size() - 2] == 0 &&
                 text.find(std::u16string_view(u"\0\0", 2)) == text.size() - 2)) &&
               base::IsUtf16(text);
    default:
        return false;
    }
}

std::string WithKey(const std::string& text, std::u16string_view path)
{
    std::string changed = text;
    if (!changed.empty())
        AppendLine(changed, "");
    AppendLine(changed, '[' + Quote(path) + ']');
    return changed;
}

std::string WithoutKey(const std::string& text, const RegistryTree& tree, std::u16string_view path)
{
    const std::u16string folded = Folded(path);
    const std::u16string below = folded + u'\\';
    const std::vector<std::size_t> lines = LineStarts(text);
    std::vector<const RegistryKey*> doomed;
    for (const RegistryKey& key : tree.keys) {
        const std::u16string name = Folded(key.path);
        if (key.line != 0 && (name == folded || name.starts_with(below)))
            doomed.push_back(&key);
    }
    // From the end, so that the lines before keep their places.
    std::sort(doomed.begin(), doomed.end(), [](auto* a, auto* b) { return a->line > b->line; });
    std::string changed = text;
    for (const RegistryKey* key : doomed) {
        const std::size_t begin = lines[key->line];
        const std::size_t next = LastLineOf(*key) + 1;
        const std::size_t end = next < lines.size() ? lines[next] : text.size();
        changed.erase(begin, end - begin);
    }
    return changed;
}

std::string WithValue(const std::string& text, const RegistryTree& tree, std::u16string_view key,
                      std::u16string_view name, UINT32 type, const void* data, UINT32 size)
{
    const std::string rendered = Render(type, data, size);
    const RegistryKey* found = tree.Find(Folded(key));
    std::string changed = text;
    if (!found || found->line == 0) {
        changed = WithKey(text, found ? std::u16string_view(found->path) : key);
        AppendLine(changed, Quote(name) + " = " + rendered);
        return changed;
    }
    const std::vector<std::size_t> lines = LineStarts(text);
    if (const RegistryValue* value = found->Find(Folded(name))) {
        const std::size_t begin = OffsetOf(text, lines, value->valueBegin);
        const std::size_t end = OffsetOf(text, lines, value->valueEnd);
        changed.replace(begin, end - begin, rendered);
        return changed;
    }
    const std::size_t next = LastLineOf(*found) + 1;
    const std::size_t at = next < lines.size() ? lines[next] : text.size();
    const bool needsBreak = at > 0 && text[at - 1] != '\n';
    changed.insert(at, (needsBreak ? "\n" : "") + Quote(name) + " = " + rendered + '\n');
    return changed;
}

std::string WithoutValue(const std::string& text, const RegistryTree& tree, std::u16string_view key,
                         std::u16string_view name)
{
    std::string changed = text;
    const RegistryKey* found = tree.Find(Folded(key));
    const RegistryValue* value = found ? found->Find(Folded(name)) : nullptr;
    if (!value)
        return changed;
    const std::vector<std::size_t> lines = LineStarts(text);
    const std::size_t begin = lines[value->begin.line];
    const std::size_t next = value->valueEnd.line + 1;
    const std::size_t end = next < lines.size() ? lines[next] : text.size();
    changed.erase(begin, end - begin);
    return changed;
}

} // namespace tolm
