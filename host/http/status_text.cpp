// SPDX-License-Identifier: Apache-2.0
//
// The table of reason phrases.
#include "host/http/status_text.h"

#include <algorithm>
#include <iterator>

namespace kestd {

namespace {

struct Row {
    int status;
    std::string_view text;
};

// RFC 9110 section 15, RFC 4918 section 11, RFC 6585, and
// 104 of resumable uploads; in the order of the numbers.
constexpr Row kRows[] = {
    {104, "Upload Resumption Supported"},
    {200, "OK"},
    {201, "Created"},
    {204, "No Content"},
    {206, "Partial Content"},
    {207, "Multi-Status"},
    {301, "Moved Permanently"},
    {302, "Found"},
    {304, "Not Modified"},
    {307, "Temporary Redirect"},
    {400, "Bad Request"},
    {401, "Unauthorized"},
    {403, "Forbidden"},
    {404, "Not Found"},
    {405, "Method Not Allowed"},
    {408, "Request Timeout"},
    {409, "Conflict"},
    {410, "Gone"},
    {412, "Precondition Failed"},
    {413, "Content Too Large"},
    {414, "URI Too Long"},
    {415, "Unsupported Media Type"},
    {416, "Range Not Satisfiable"},
    {417, "Expectation Failed"},
    {421, "Misdirected Request"},
    {422, "Unprocessable Content"},
    {423, "Locked"},
    {424, "Failed Dependency"},
    {429, "Too Many Requests"},
    {431, "Request Header Fields Too Large"},
    {500, "Internal Server Error"},
    {501, "Not Implemented"},
    {502, "Bad Gateway"},
    {503, "Service Unavailable"},
    {505, "HTTP Version Not Supported"},
    {507, "Insufficient Storage"},
};

} // namespace

std::string_view ReasonPhrase(int status) noexcept
{
    if (status == 200) // mostly
        return "OK";
    const Row* const row =
        std::lower_bound(std::begin(kRows), std::end(kRows), status,
                         [](const Row& each, int wanted) { return each.status < wanted; });
    return row != std::end(kRows) && row->status == status ? row->text : std::string_view();
}

} // namespace kestd
