// SPDX-License-Identifier: Apache-2.0
//
// Which names are served, and paths of them.
#include "providers/filestore/names.h"

#include <algorithm>
#include <cstring>

#include "base/ascii.h"
#include "base/percent.h"
#include "base/utf.h"

namespace filestore {

namespace {

// Control characters and non-characters have no place in XML 1.0 (section 2.2), or none that a
// reader could see.
bool IsUnsendable(char32_t c)
{
    return c < 0x20 || (c >= 0x7F && c <= 0x9F) || (c & 0xFFFE) == 0xFFFE;
}

constexpr UINT64 InEveryByte(UINT64 byte)
{
    return byte * 0x0101010101010101;
}
constexpr UINT64 kHighBits = InEveryByte(0x80);

UINT64 LoadEight(const char* from)
{
    UINT64 eight;
    std::memcpy(&eight, from, sizeof eight);
    return eight;
}

// The high bit of some byte is set if any byte is a control character, "/" or not ASCII. Which of
// them it is set in says nothing: a byte may borrow from the next.
UINT64 SuspectBits(UINT64 eight)
{
    const UINT64 slashes = eight ^ InEveryByte('/');
    return (eight | (eight - InEveryByte(0x20)) | (eight + InEveryByte(1)) |
            ((slashes - InEveryByte(1)) & ~slashes)) &
           kHighBits;
}

// Whether a name is, as nearly all are, plain ASCII: eight bytes at a time, the last eight once
// more.
bool IsPlainName(std::string_view name)
{
    if (name.size() < sizeof(UINT64))
        return std::all_of(name.begin(), name.end(),
                           [](char c) { return c >= 0x20 && c < 0x7F && c != '/'; });
    UINT64 suspect = SuspectBits(LoadEight(name.data() + name.size() - sizeof(UINT64)));
    for (size_t i = 0; i + sizeof(UINT64) <= name.size(); i += sizeof(UINT64))
        suspect |= SuspectBits(LoadEight(name.data() + i));
    return suspect == 0;
}

} // namespace

bool IsServableName(std::string_view name)
{
    if (name.empty() || name.size() > kMaxNameBytes || name == "." || name == "..")
        return false;
    if (IsPlainName(name))
        return true;
    while (!name.empty()) {
        char32_t c = 0;
        const size_t bytes = base::DecodeCodePoint(name, c);
        if (bytes == 0 || IsUnsendable(c) || c == U'/')
            return false;
        name.remove_prefix(bytes);
    }
    return true;
}

bool IsPrivateName(std::string_view name)
{
    return base::EqualsIgnoringCase(name, kPrivateDirectory);
}

bool PathBuffer::Assign(std::string_view text)
{
    if (text.size() > kMaxPathBytes)
        return false;
    if (!text.empty())
        std::memmove(text_, text.data(), text.size());
    Cut(text.size());
    return true;
}

bool PathBuffer::Append(std::string_view name)
{
    const size_t separator = length_ ? 1 : 0;
    if (name.size() + separator > kMaxPathBytes - length_)
        return false;
    if (separator)
        text_[length_] = '/';
    std::memcpy(text_ + length_ + separator, name.data(), name.size());
    Cut(length_ + separator + name.size());
    return true;
}

PathFit AppendComponents(std::string_view text, PathBuffer* path)
{
    while (!text.empty()) {
        const size_t slash = std::min(text.find('/'), text.size());
        const std::string_view name = text.substr(0, slash);
        text.remove_prefix(std::min(slash + 1, text.size()));
        if (name.empty())
            continue;
        if (name.size() > kMaxNameBytes)
            return PathFit::TooLong;
        if (!IsServableName(name) || IsPrivateName(name))
            return PathFit::NotServable;
        if (!path->Append(name))
            return PathFit::TooLong;
    }
    return PathFit::Ok;
}

std::string_view ParentOf(std::string_view path)
{
    const size_t slash = path.rfind('/');
    return slash == path.npos ? std::string_view() : path.substr(0, slash);
}

std::string_view LeafOf(std::string_view path)
{
    const size_t slash = path.rfind('/');
    return slash == path.npos ? path : path.substr(slash + 1);
}

bool IsWithin(std::string_view path, std::string_view tree)
{
    return tree.empty() ||
           (path.starts_with(tree) && (path.size() == tree.size() || path[tree.size()] == '/'));
}

bool DecodePercent(std::string_view in, std::string* out)
{
    out->clear();
    bool found = false;
    for (size_t i = 0; i < in.size(); ++i) {
        if (in[i] != '%') {
            out->push_back(in[i]);
            continue;
        }
        const int c = base::EscapedByte(in, i);
        if (c <= 0 || c == '/')
            return false;
        out->push_back(static_cast<char>(c));
        found = true;
        i += 2;
    }
    return found;
}

std::string PathOfDeleted(INT64 id)
{
    return std::string(kDeletedDirectory) + "/" + std::to_string(id);
}

std::string Utf8Of(const WCHAR* text, size_t units)
{
    return base::ToUtf8({text, units}).value_or(std::string());
}

std::string Utf8Of(const UNICODE_STRING* text)
{
    return text && text->Buffer ? Utf8Of(text->Buffer, text->Length / sizeof(WCHAR))
                                : std::string();
}

} // namespace filestore
