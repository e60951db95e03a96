// SPDX-License-Identifier: Apache-2.0
//
// Media types by the extension of a name.
#include "base/media_types.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <utility>

#include "base/ascii.h"

namespace base {
namespace {

constexpr const char* kSystemTable = "/etc/mime.types";
constexpr size_t kLongestTable = 4 * 1024 * 1024; // bytes; Debian's has 72 KiB
constexpr size_t kLongestExtension = 32;          // no registered one is longer

constexpr std::array<std::pair<std::string_view, const char*>, 53> kBuiltIn = {{
    {"7z", "application/x-7z-compressed"},
    {"aac", "audio/aac"},
    {"avi", "video/x-msvideo"},
    {"avif", "image/avif"},
    {"bmp", "image/bmp"},
    {"bz2", "application/x-bzip2"},
    {"css", "text/css"},
    {"csv", "text/csv"},
    {"doc", "application/msword"},
    {"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    {"epub", "application/epub+zip"},
    {"flac", "audio/flac"},
    {"gif", "image/gif"},
    {"gz", "application/gzip"},
    {"htm", "text/html"},
    {"html", "text/html"},
    {"ico", "image/vnd.microsoft.icon"},
    {"ics", "text/calendar"},
    {"jpeg", "image/jpeg"},
    {"jpg", "image/jpeg"},
    {"js", "text/javascript"},
    {"json", "application/json"},
    {"log", "text/plain"},
    {"m4a", "audio/mp4"},
    {"md", "text/markdown"},
    {"mjs", "text/javascript"},
    {"mkv", "video/x-matroska"},
    {"mov", "video/quicktime"},
    {"mp3", "audio/mpeg"},
    {"mp4", "video/mp4"},
    {"odp", "application/vnd.oasis.opendocument.presentation"},
    {"ods", "application/vnd.oasis.opendocument.spreadsheet"},
    {"odt", "application/vnd.oasis.opendocument.text"},
    {"ogg", "audio/ogg"},
    {"pdf", "application/pdf"},
    {"png", "image/png"},
    {"ppt", "application/vnd.ms-powerpoint"},
    {"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    {"rtf", "application/rtf"},
    {"svg", "image/svg+xml"},
    {"tar", "application/x-tar"},
    {"tif", "image/tiff"},
    {"tiff", "image/tiff"},
    {"txt", "text/plain"},
    {"wasm", "application/wasm"},
    {"wav", "audio/x-wav"},
    {"webm", "video/webm"},
    {"webp", "image/webp"},
    {"woff2", "font/woff2"},
    {"xls", "application/vnd.ms-excel"},
    {"xml", "application/xml"},
    {"xsl", "application/xslt+xml"},
    {"zip", "application/zip"},
}};

size_t HashOf(std::string_view text)
{
    uint64_t hash = 14695981039346656037U; // FNV-1a
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
    return static_cast<size_t>(hash ^ hash >> 32);
}

// The next word of `line`, which loses it; empty at the end.
std::string_view TakeWord(std::string_view& line)
{
    constexpr std::string_view kBlanks = " \t\r";
    const size_t begin = line.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos) {
        line = {};
        return {};
    }
    const size_t end = std::min(line.find_first_of(kBlanks, begin), line.size());
    const std::string_view word = line.substr(begin, end - begin);
    line.remove_prefix(end);
    return word;
}

// Writes the extension of the last component in lower case; its length, 0 for none.
template <class Char>
size_t ExtensionOf(std::basic_string_view<Char> name, std::array<char, kLongestExtension>& out)
{
    size_t dot = name.size();
    while (dot > 0 && name[dot - 1] != Char('.') && name[dot - 1] != Char('/'))
        --dot;
    if (dot < 2 || name[dot - 1] != Char('.') || name[dot - 2] == Char('/'))
        return 0;
    const size_t length = name.size() - dot;
    if (length > out.size())
        return 0;
    for (size_t i = 0; i < length; ++i) {
        const Char unit = name[dot + i];
        if (unit <= Char(0x20) || unit > Char(0x7E)) // char is signed here: the rest is negative
            return 0;
        out[i] = Lower(static_cast<char>(unit));
    }
    return length;
}

} // namespace

MediaTypes::MediaTypes(std::string_view table) : entries_(512)
{
    while (!table.empty()) {
        const size_t end = std::min(table.find('\n'), table.size());
        std::string_view line = table.substr(0, end);
        table.remove_prefix(std::min(end + 1, table.size()));
        line = line.substr(0, line.find('#'));
        const std::string_view type = TakeWord(line);
        std::string_view extension = TakeWord(line);
        if (extension.empty() || type.find('/') == std::string_view::npos)
            continue;
        texts_.push_back(std::make_unique<std::string>(type));
        const char* const kept = texts_.back()->c_str();
        for (; !extension.empty(); extension = TakeWord(line))
            if (extension.size() <= kLongestExtension)
                Add(extension, kept);
    }
    for (const auto& [extension, type] : kBuiltIn)
        Add(extension, type);
}

const MediaTypes& MediaTypes::System()
{
    static const MediaTypes* const table = [] {
        std::string text;
        std::ifstream file(kSystemTable, std::ios::binary);
        if (file) {
            text.assign(std::istreambuf_iterator<char>(file), {});
            if (text.size() > kLongestTable)
                text.clear();
        }
        return new MediaTypes(text); // lives as long as the process: types are handed out
    }();
    return *table;
}

void MediaTypes::Add(std::string_view extension, const char* type)
{
    if ((used_ + 1) * 2 > entries_.size()) {
        std::vector<Entry> old(entries_.size() * 2);
        old.swap(entries_);
        for (const Entry& entry : old)
            if (entry.type) {
                size_t at = HashOf(entry.extension) & (entries_.size() - 1);
                while (entries_[at].type)
                    at = (at + 1) & (entries_.size() - 1);
                entries_[at] = entry;
            }
    }
    std::string lower(extension);
    for (char& c : lower)
        c = Lower(c);
    if (FindExtension(lower))
        return;
    texts_.push_back(std::make_unique<std::string>(std::move(lower)));
    const std::string_view kept = *texts_.back();
    size_t at = HashOf(kept) & (entries_.size() - 1);
    while (entries_[at].type)
        at = (at + 1) & (entries_.size() - 1);
    entries_[at] = {kept, type};
    ++used_;
}

const char* MediaTypes::FindExtension(std::string_view lowerCase) const
{
    size_t at = HashOf(lowerCase) & (entries_.size() - 1);
    while (entries_[at].type) { // never full: at most half of the places are taken
        if (entries_[at].extension == lowerCase)
            return entries_[at].type;
        at = (at + 1) & (entries_.size() - 1);
    }
    return nullptr;
}

const char* MediaTypes::Find(std::string_view name) const
{
    std::array<char, kLongestExtension> extension{};
    const size_t length = ExtensionOf(name, extension);
    return length ? FindExtension({extension.data(), length}) : nullptr;
}

const char* MediaTypes::Find(std::u16string_view name) const
{
    std::array<char, kLongestExtension> extension{};
    const size_t length = ExtensionOf(name, extension);
    return length ? FindExtension({extension.data(), length}) : nullptr;
}

std::string MediaTypes::ForContent(std::string_view name) const
{
    const char* const found = Find(name);
    std::string type = found ? found : "application/octet-stream";
    if (type.starts_with("text/"))
        type += "; charset=utf-8";
    return type;
}

} // namespace base
