// SPDX-License-Identifier: Apache-2.0
//
// Writing and reading records of uploads.
#include "providers/filestore/upload_record.h"

#include <charconv>
#include <cstdio>

namespace filestore {

namespace {

constexpr std::string_view kMark = "upload 1"; // the format's version
constexpr size_t kWordDigits = 16;
constexpr size_t kSizeDigits = 5; // of the texts, in hexadecimal digits
constexpr size_t kCheckedBytes = kUploadHeadBytes - kWordDigits - 1;

// FNV-1a: tells a torn write from a whole one, and nothing more.
UINT64 CheckOf(std::string_view text)
{
    UINT64 check = 0xCBF29CE484222325;
    for (const char c : text)
        check = (check ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    return check;
}

bool TakeNumber(std::string_view* text, size_t digits, UINT64* out)
{
    if (text->size() < digits + 1 || (*text)[digits] > ' ')
        return false;
    const char* const end = text->data() + digits;
    const auto parsed = std::from_chars(text->data(), end, *out, 16);
    text->remove_prefix(digits + 1);
    return parsed.ec == std::errc() && parsed.ptr == end;
}

bool TakeText(std::string_view* text, UINT64 size, std::string* out)
{
    if (size > text->size())
        return false;
    *out = text->substr(0, size);
    text->remove_prefix(size);
    return true;
}

} // namespace

std::string UploadHead(const UploadRecord& record)
{
    const auto word = [](UINT64 value) { return static_cast<unsigned long long>(value); };
    char text[kUploadHeadBytes + 1];
    std::snprintf(text, sizeof text, "%.*s %016llx %016llx %016llx %016llx %05zx %05zx %05zx ",
                  static_cast<int>(kMark.size()), kMark.data(), word(record.offset),
                  word(record.touched), word(record.length), word(record.inode), record.user.size(),
                  record.path.size(), record.terms.size());
    std::snprintf(text + kCheckedBytes, sizeof text - kCheckedBytes, "%016llx\n",
                  word(CheckOf({text, kCheckedBytes})));
    return {text, kUploadHeadBytes};
}

std::string UploadText(const UploadRecord& record)
{
    return UploadHead(record) + record.user + record.path + record.terms;
}

bool ReadUploadText(std::string_view text, UploadRecord* out)
{
    static_assert(kCheckedBytes ==
                  kMark.size() + 1 + 4 * (kWordDigits + 1) + 3 * (kSizeDigits + 1));
    if (text.size() < kUploadHeadBytes || !text.starts_with(kMark))
        return false;
    const UINT64 expected = CheckOf(text.substr(0, kCheckedBytes));
    text.remove_prefix(kMark.size() + 1);
    UINT64 user = 0, path = 0, terms = 0, check = 0;
    for (UINT64* const word : {&out->offset, &out->touched, &out->length, &out->inode})
        if (!TakeNumber(&text, kWordDigits, word))
            return false;
    for (UINT64* const size : {&user, &path, &terms})
        if (!TakeNumber(&text, kSizeDigits, size))
            return false;
    return TakeNumber(&text, kWordDigits, &check) && check == expected &&
           TakeText(&text, user, &out->user) && TakeText(&text, path, &out->path) &&
           TakeText(&text, terms, &out->terms) && text.empty();
}

} // namespace filestore
