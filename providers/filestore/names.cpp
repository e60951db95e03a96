// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/names.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace filestore {

namespace {

// Reads one code point of well-formed UTF-8 (no overlong forms, no surrogates). Returns the number
// of bytes, or 0.
size_t DecodeOne(const unsigned char* p, size_t left, UINT32* out)
{
    const UINT32 first = p[0];
    if (first < 0x80) {
        *out = first;
        return 1;
    }
    const size_t bytes = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || left < bytes)
        return 0;
    UINT32 value = first & (0x7Fu >> bytes);
    for (size_t i = 1; i < bytes; ++i) {
        if ((p[i] & 0xC0) != 0x80)
            return 0;
        value = value << 6 | (p[i] & 0x3Fu);
    }
    constexpr UINT32 kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < kLeast[bytes] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
        return 0;
    *out = value;
    return bytes;
}

// Control characters and non-characters have no place in XML 1.0 (section 2.2), or none that a
// reader could see.
bool IsUnsendable(UINT32 c)
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

bool IsAscii(std::string_view text)
{
    size_t i = 0;
    UINT64 high = 0;
    for (; i + sizeof(UINT64) <= text.size(); i += sizeof(UINT64))
        high |= LoadEight(text.data() + i);
    for (; i < text.size(); ++i)
        high |= static_cast<unsigned char>(text[i]);
    return (high & kHighBits) == 0;
}

constexpr size_t kManyNames = 500; // from here on sorting by keys pays for its passes

char AsciiLower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
}

unsigned char AsciiUpper(char c)
{
    return static_cast<unsigned char>(c >= 'a' && c <= 'z' ? c - 32 : c);
}

int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    const char lower = AsciiLower(c);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

} // namespace

size_t DecodeCodePoint(std::string_view text, UINT32* out)
{
    return text.empty()
               ? 0
               : DecodeOne(reinterpret_cast<const unsigned char*>(text.data()), text.size(), out);
}

bool ToUtf8(const WCHAR* in, size_t units, char* out, size_t room, size_t* used)
{
    size_t n = 0;
    for (size_t i = 0; i < units; ++i) {
        UINT32 c = in[i];
        if (c < 0x80) {
            if (n == room)
                return false;
            out[n++] = static_cast<char>(c);
            continue;
        }
        if (c >= 0xD800 && c <= 0xDFFF) {
            if (c >= 0xDC00 || i + 1 == units || in[i + 1] < 0xDC00 || in[i + 1] > 0xDFFF)
                return false;
            c = 0x10000 + ((c - 0xD800) << 10) + (in[++i] - 0xDC00u);
        }
        const size_t bytes = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
        if (room - n < bytes)
            return false;
        constexpr UINT32 kMark[] = {0, 0, 0xC0, 0xE0, 0xF0};
        for (size_t k = bytes; k-- > 1; c >>= 6)
            out[n + k] = static_cast<char>(0x80 | (c & 0x3F));
        out[n] = static_cast<char>(kMark[bytes] | c);
        n += bytes;
    }
    *used = n;
    return true;
}

bool ToUtf16(const char* in, size_t bytes, WCHAR* out, size_t room, size_t* used)
{
    const auto* p = reinterpret_cast<const unsigned char*>(in);
    size_t n = 0;
    for (size_t i = 0; i < bytes;) {
        UINT32 c = 0;
        const size_t step = DecodeOne(p + i, bytes - i, &c);
        if (step == 0 || room - n < (c >= 0x10000 ? 2u : 1u))
            return false;
        i += step;
        if (c >= 0x10000) {
            c -= 0x10000;
            out[n++] = static_cast<WCHAR>(0xD800 + (c >> 10));
            c = 0xDC00 + (c & 0x3FF);
        }
        out[n++] = static_cast<WCHAR>(c);
    }
    *used = n;
    return true;
}

bool IsServableName(std::string_view name)
{
    if (name.empty() || name.size() > kMaxNameBytes || name == "." || name == "..")
        return false;
    if (IsPlainName(name))
        return true;
    const auto* p = reinterpret_cast<const unsigned char*>(name.data());
    for (size_t i = 0; i < name.size();) {
        UINT32 c = 0;
        const size_t step = DecodeOne(p + i, name.size() - i, &c);
        if (step == 0 || IsUnsendable(c) || c == '/')
            return false;
        i += step;
    }
    return true;
}

bool IsPrivateName(std::string_view name)
{
    return name.size() == kPrivateDirectory.size() &&
           std::equal(name.begin(), name.end(), kPrivateDirectory.begin(),
                      [](char a, char b) { return AsciiLower(a) == b; });
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
        const int high = in.size() - i > 2 ? HexDigit(in[i + 1]) : -1;
        const int low = high >= 0 ? HexDigit(in[i + 2]) : -1;
        const int c = high * 16 + low;
        if (low < 0 || c == 0 || c == '/')
            return false;
        out->push_back(static_cast<char>(c));
        found = true;
        i += 2;
    }
    return found;
}

std::string Utf8Of(const WCHAR* text, size_t units)
{
    std::string out(units * 3, '\0');
    size_t used = 0;
    if (!ToUtf8(text, units, out.data(), out.size(), &used))
        used = 0;
    out.resize(used);
    return out;
}

std::string Utf8Of(const UNICODE_STRING* text)
{
    return text && text->Buffer ? Utf8Of(text->Buffer, text->Length / sizeof(WCHAR))
                                : std::string();
}

std::string EncodePercent(std::string_view in)
{
    std::string out;
    out.reserve(in.size());
    for (const char c : in) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || std::strchr("-._~/", c) != nullptr;
        if (plain && c != '\0') {
            out.push_back(c);
            continue;
        }
        constexpr char kHex[] = "0123456789ABCDEF";
        const auto byte = static_cast<unsigned char>(c);
        out.push_back('%');
        out.push_back(kHex[byte >> 4]);
        out.push_back(kHex[byte & 15]);
    }
    return out;
}

void NameList::Add(std::string_view name)
{
    // The order's key and the offsets are 32 bits; a directory of that size does not exist.
    if (arena_.size() + name.size() + 1 > 0xFFFFFFFFu)
        throw std::bad_alloc();
    entries_.push_back(
        {0, static_cast<UINT32>(arena_.size()), static_cast<UINT16>(name.size()), IsAscii(name)});
    arena_.insert(arena_.end(), name.begin(), name.end());
    arena_.push_back('\0');
}

size_t NameList::UnitsAt(size_t index) const
{
    const std::string_view name = At(index);
    if (entries_[index].ascii)
        return name.size();
    size_t units = 0;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        // One for each first byte of a code point, two where it has four bytes.
        units += (byte & 0xC0) != 0x80 ? 1 + size_t{byte >= 0xF0} : 0;
    }
    return units;
}

void NameList::WideAt(size_t index, WCHAR* out) const
{
    const std::string_view name = At(index);
    if (entries_[index].ascii) {
        for (size_t i = 0; i < name.size(); ++i)
            out[i] = static_cast<WCHAR>(name[i]);
        return;
    }
    size_t units = 0;
    (void)ToUtf16(name.data(), name.size(), out, kMaxNameBytes, &units); // only servable names
}

// How many leading bytes all names have in common but for their case, so that the keys start where
// names differ. All names are ASCII.
size_t NameList::SharedPrefix() const
{
    const std::string_view first = At(0);
    size_t shared = first.size();
    for (size_t i = 0; i < entries_.size(); ++i) {
        const std::string_view name = At(i);
        shared = std::min(shared, name.size());
        for (size_t k = 0; k < shared; ++k)
            if (AsciiUpper(name[k]) != AsciiUpper(first[k]))
                shared = k;
    }
    return shared;
}

// The full comparison, for ASCII names whose keys are equal.
bool NameList::Less(const Entry& a, const Entry& b) const
{
    const std::string_view x(arena_.data() + a.offset, a.length);
    const std::string_view y(arena_.data() + b.offset, b.length);
    const size_t shared = std::min(x.size(), y.size());
    for (size_t i = 0; i < shared; ++i)
        if (const int order = AsciiUpper(x[i]) - AsciiUpper(y[i]))
            return order < 0;
    return x.size() != y.size() ? x.size() < y.size() : x < y;
}

// Eight bytes from where the names begin to differ decide nearly every comparison without a look at
// the text. A short name is filled up with zeros, which no name contains.
void NameList::SetKeys()
{
    const size_t shared = SharedPrefix();
    for (size_t i = 0; i < entries_.size(); ++i) {
        const std::string_view rest = At(i).substr(shared);
        UINT64 key = 0;
        for (size_t k = 0; k < 8; ++k)
            key = key << 8 | (k < rest.size() ? AsciiUpper(rest[k]) : 0u);
        entries_[i].key = key;
    }
}

// One pass for each byte in which keys differ, from the last to the first: for thousands of names a
// fraction of the time that comparisons take.
void NameList::SortByKeys()
{
    UINT64 differing = 0;
    for (const Entry& entry : entries_)
        differing |= entry.key ^ entries_.front().key;
    std::vector<Entry> sorted(entries_.size());
    for (int shift = 0; shift < 64; shift += 8) {
        const auto byteOf = [shift](const Entry& e) { return e.key >> shift & 0xFF; };
        if ((differing >> shift & 0xFF) == 0)
            continue;
        UINT32 next[257] = {}; // where the first entry with a byte goes, counted one further up
        for (const Entry& entry : entries_)
            ++next[byteOf(entry) + 1];
        for (size_t i = 1; i < std::size(next); ++i)
            next[i] += next[i - 1];
        for (const Entry& entry : entries_)
            sorted[next[byteOf(entry)]++] = entry;
        entries_.swap(sorted);
    }
}

// The order of ASCII names, in which bytes compare as code units do.
void NameList::SortAscii()
{
    SetKeys();
    const auto less = [this](const Entry& a, const Entry& b) {
        return a.key != b.key ? a.key < b.key : Less(a, b);
    };
    if (entries_.size() < kManyNames) {
        std::sort(entries_.begin(), entries_.end(), less);
        return;
    }
    SortByKeys();
    for (auto first = entries_.begin(); first != entries_.end();) {
        const auto last = std::find_if(first + 1, entries_.end(),
                                       [first](const Entry& e) { return e.key != first->key; });
        if (last - first > 1)
            std::sort(first, last, less);
        first = last;
    }
}

// The order of any names: all of them are converted once, and not for every comparison.
void NameList::SortWide()
{
    struct Folded {
        size_t offset; // in `text`
        size_t units;
        Entry entry;
    };
    std::vector<WCHAR> text;
    std::vector<Folded> names;
    names.reserve(entries_.size());
    for (size_t i = 0; i < entries_.size(); ++i) {
        const size_t offset = text.size();
        names.push_back({offset, UnitsAt(i), entries_[i]});
        text.resize(offset + names.back().units);
        WideAt(i, text.data() + offset);
    }
    for (const Folded& name : names) // no name is longer than a count of 32 bits
        upper_(text.data() + name.offset, static_cast<UINT32>(name.units));
    std::sort(names.begin(), names.end(), [&](const Folded& a, const Folded& b) {
        const std::u16string_view x(text.data() + a.offset, a.units);
        const std::u16string_view y(text.data() + b.offset, b.units);
        if (const int order = x.compare(y))
            return order < 0;
        return std::string_view(arena_.data() + a.entry.offset, a.entry.length) <
               std::string_view(arena_.data() + b.entry.offset, b.entry.length);
    });
    std::transform(names.begin(), names.end(), entries_.begin(),
                   [](const Folded& name) { return name.entry; });
}

void NameList::Sort()
{
    if (entries_.size() < 2)
        return;
    if (std::all_of(entries_.begin(), entries_.end(), [](const Entry& e) { return e.ascii; }))
        SortAscii();
    else
        SortWide();
}

} // namespace filestore
