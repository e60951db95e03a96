// SPDX-License-Identifier: Apache-2.0
//
// Turning properties of one generation into those of another.
#include "providers/filestore/property.h"

#include <algorithm>
#include <utility>

#include "base/utf.h"

namespace filestore {

namespace {

// Characters of XML 1.0 (section 2.2).
bool IsXmlCharacter(char32_t c)
{
    return c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c < 0xD800) ||
           (c >= 0xE000 && c < 0xFFFE) || (c >= 0x10000 && c <= 0x10FFFF);
}

bool IsNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<signed char>(c) < 0;
}

// The content between the start tag and the end tag of an element.
std::string_view ContentOf(std::string_view element)
{
    char quote = 0;
    size_t end = 0;
    for (; end < element.size(); ++end) {
        const char c = element[end];
        if (quote ? c == quote : c == '"' || c == '\'')
            quote = quote ? '\0' : c;
        else if (!quote && c == '>')
            break;
    }
    const size_t close = element.rfind('<');
    if (end == element.size() || close == element.npos || close <= end)
        return {}; // without content
    return element.substr(end + 1, close - end - 1);
}

} // namespace

bool IsLocalName(std::string_view text)
{
    return !text.empty() && IsNameStart(text.front()) && IsXmlText(text) &&
           std::all_of(text.begin(), text.end(), [](char c) {
               return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
           });
}

bool IsXmlText(std::string_view text)
{
    size_t at = 0;
    while (at < text.size()) {
        if (text[at] >= ' ') { // of ASCII, as nearly all are
            ++at;
            continue;
        }
        char32_t c = 0;
        const size_t bytes = base::DecodeCodePoint(text.substr(at), c);
        if (bytes == 0 || !IsXmlCharacter(c))
            return false;
        at += bytes;
    }
    return true;
}

void AppendEscaped(std::string_view text, std::string* out)
{
    while (!text.empty()) {
        char32_t c = 0;
        const size_t bytes = base::DecodeCodePoint(text, c);
        if (bytes == 0 || !IsXmlCharacter(c))
            out->append("\xEF\xBF\xBD");
        else if (c == '&')
            out->append("&amp;");
        else if (c == '<')
            out->append("&lt;");
        else if (c == '>')
            out->append("&gt;");
        else if (c == '"')
            out->append("&quot;");
        else
            out->append(text.substr(0, bytes));
        text.remove_prefix(std::max<size_t>(bytes, 1));
    }
}

std::string ClassicValue(const Property& property)
{
    return property.space == kClassicSpace ? property.value
                                           : std::string(ContentOf(property.value));
}

std::optional<std::string> ClassicName(PropertyName name)
{
    if (name.space.empty())
        return std::string(name.local);
    if (!name.space.starts_with(kPrefixSpace))
        return std::nullopt;
    return std::string(name.space.substr(kPrefixSpace.size())).append(":").append(name.local);
}

std::optional<Property> AsElement(Property property)
{
    if (property.space != kClassicSpace)
        return property;
    const size_t colon = std::min(property.name.find(':'), property.name.size());
    const std::string prefix = property.name.substr(0, colon);
    const bool hasPrefix = colon < property.name.size();
    Property out{property.order, {}, property.name.substr(hasPrefix ? colon + 1 : 0), {}};
    if (!IsLocalName(out.name) || !IsXmlText(prefix))
        return std::nullopt;
    if (hasPrefix)
        out.space = std::string(kPrefixSpace) + prefix;
    out.value = "<" + out.name + " xmlns=\"";
    AppendEscaped(out.space, &out.value);
    out.value += "\">";
    AppendEscaped(property.value, &out.value);
    out.value += "</" + out.name + ">";
    return out;
}

} // namespace filestore
