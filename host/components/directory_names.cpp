// SPDX-License-Identifier: Apache-2.0
//
// Takes names of directory entries apart and puts them together.
#include "host/components/directory_names.h"

#include "base/ascii.h"
#include "base/hex.h"
#include "base/utf.h"
#include <algorithm>

namespace kestd {

std::vector<std::u16string> SplitDottedName(std::u16string_view name)
{
    if (name.starts_with(u'.'))
        name.remove_prefix(1);
    std::vector<std::u16string> components;
    std::u16string current;
    bool isOpen = false; // a component has begun
    for (size_t i = 0; i < name.size(); ++i) {
        if (name[i] == u'.') {
            components.push_back(std::move(current));
            current.clear();
            isOpen = false;
            continue;
        }
        if (name[i] == u'\\' && i + 1 < name.size())
            ++i;
        current += name[i];
        isOpen = true;
    }
    if (isOpen)
        components.push_back(std::move(current));
    return components;
}

std::u16string FullName(std::u16string_view tree, std::u16string_view dottedName)
{
    std::u16string name = u"\\\\";
    name += tree;
    const std::vector<std::u16string> components = SplitDottedName(dottedName);
    for (auto component = components.rbegin(); component != components.rend(); ++component) {
        name += u'\\';
        name += *component;
    }
    return name;
}

std::optional<DirectoryName> ParseFullName(std::u16string_view name)
{
    if (!name.starts_with(u"\\\\"))
        return std::nullopt;
    name.remove_prefix(2);
    DirectoryName parsed;
    for (bool isTree = true;; isTree = false) {
        const size_t end = std::min(name.find(u'\\'), name.size());
        if (end == 0)
            return std::nullopt;
        if (isTree)
            parsed.tree = name.substr(0, end);
        else
            parsed.components.emplace_back(name.substr(0, end));
        if (end == name.size())
            break;
        name.remove_prefix(end + 1);
    }
    if (parsed.components.empty())
        return std::nullopt;
    return parsed;
}

std::string DottedNameOfUser(std::string_view user)
{
    std::string name = "CN=";
    for (const char c : user) {
        if (c == '.' || c == '\\')
            name += '\\';
        name += c;
    }
    return name;
}

namespace {

// An attribute type of RFC 4512 section 1.4: a name or a dotted number.
bool IsAttributeType(std::string_view type)
{
    return !type.empty() && std::all_of(type.begin(), type.end(), [](char c) {
        return base::IsDigit(c) || (base::Lower(c) >= 'a' && base::Lower(c) <= 'z') || c == '-' ||
               c == '.';
    });
}

// RFC 4514 section 2.4; every special character as two hexadecimal digits.
std::string EscapedValue(std::string_view value)
{
    constexpr std::string_view kSpecial = ",+\"\\<>;=#";
    std::string out;
    for (size_t i = 0; i < value.size(); ++i) {
        const auto byte = static_cast<unsigned char>(value[i]);
        const bool isEdgeBlank = byte == ' ' && (i == 0 || i + 1 == value.size());
        if (byte < 0x20 || byte == 0x7F || isEdgeBlank ||
            kSpecial.find(value[i]) != std::string_view::npos) {
            out += '\\';
            base::AppendHex(out, byte, base::kUpperHex);
        } else {
            out += value[i];
        }
    }
    return out;
}

} // namespace

std::optional<std::string> LdapName(const DirectoryName& name, std::string_view base)
{
    std::string out;
    const size_t count = name.components.size();
    for (size_t i = count; i-- > 0;) {
        const auto component = base::ToUtf8(name.components[i]);
        if (!component)
            return std::nullopt;
        const size_t equals = component->find('=');
        std::string type = i + 1 == count ? "CN" : i == 0 ? "O" : "OU";
        std::string_view value = *component;
        if (equals != std::string::npos) {
            type = component->substr(0, equals);
            value.remove_prefix(equals + 1);
        }
        if (!IsAttributeType(type) || value.empty())
            return std::nullopt;
        if (!out.empty())
            out += ',';
        out += type + "=" + EscapedValue(value);
    }
    if (!base.empty())
        out.append(",").append(base);
    return out;
}

} // namespace kestd
