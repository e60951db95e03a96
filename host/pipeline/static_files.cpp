// SPDX-License-Identifier: Apache-2.0
//
// Opens a file beneath the directory and sends it with its validators.
#include "host/pipeline/static_files.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "base/ascii.h"
#include "base/descriptor.h"
#include "base/http_date.h"
#include "base/open_beneath.h"
#include "host/config/settings_holder.h"
#include "host/http/short_reply.h"
#include "host/pipeline/compression.h"

namespace kestd {

namespace {

std::string_view TypeOf(std::string_view name) noexcept
{
    static constexpr struct {
        std::string_view ending;
        std::string_view type;
    } kTypes[] = {
        {".js", "text/javascript; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".html", "text/html; charset=utf-8"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".gif", "image/gif"},
        {".jpg", "image/jpeg"},
        {".ico", "image/x-icon"},
        {".json", "application/json"},
        {".txt", "text/plain; charset=utf-8"},
        {".woff2", "font/woff2"},
        {".xsl", "text/xml"},
    };
    for (const auto& row : kTypes)
        if (name.size() > row.ending.size() &&
            base::EqualsIgnoringCase(name.substr(name.size() - row.ending.size()), row.ending))
            return row.type;
    return "application/octet-stream";
}

// If-None-Match goes before If-Modified-Since (RFC 9110 section 13.2.2). The date is compared as
// text: clients send back what they were given.
bool IsFresh(Request& request, std::string_view tag, std::string_view date)
{
    if (const std::string_view* tags = request.FindHeader("If-None-Match")) {
        std::string_view list = *tags;
        std::string_view element;
        while (base::NextElement(list, element)) {
            if (element.substr(0, 2) == "W/")
                element.remove_prefix(2);
            if (element == tag || element == "*")
                return true;
        }
        return false;
    }
    const std::string_view* since = request.FindHeader("If-Modified-Since");
    return since && *since == date;
}

// A function of its own: errno is another one after a wait for the client.
[[gnu::noinline]] ssize_t ReadAt(int fd, char* bytes, size_t size, uint64_t offset)
{
    ssize_t got = 0;
    do
        got = pread(fd, bytes, size, static_cast<off_t>(offset));
    while (got < 0 && errno == EINTR);
    return got;
}

void SendContent(Response& response, int fd, uint64_t size)
{
    char bytes[64 * 1024];
    for (uint64_t sent = 0; sent < size;) {
        const ssize_t got = ReadAt(fd, bytes, sizeof bytes, sent);
        if (got <= 0 || !response.Append(bytes, static_cast<size_t>(got)))
            return; // short: the reply ends the connection
        sent += static_cast<uint64_t>(got);
    }
}

} // namespace

void ServeStaticFile(Exchange& exchange, const std::string& directory, const std::string& name)
{
    Request& request = exchange.request;
    Response& response = exchange.response;
    if (request.method != KestMethodGet && request.method != KestMethodHead) {
        response.SetHeader("Allow", "GET, HEAD");
        return SendError(response, 405);
    }
    const base::Descriptor root(open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    // Without waiting: a pipe must not hold the thread.
    const base::Descriptor file(root ? base::OpenBeneath(root.Number(), name.c_str(),
                                                         O_RDONLY | O_CLOEXEC | O_NONBLOCK,
                                                         RESOLVE_NO_SYMLINKS)
                                     : -1);
    struct stat info {};
    if (!file || fstat(file.Number(), &info) != 0 || !S_ISREG(info.st_mode))
        return SendError(response, 404);
    char tag[64];
    std::snprintf(tag, sizeof tag, "\"%llx-%llx-%lx\"",
                  static_cast<unsigned long long>(info.st_size),
                  static_cast<unsigned long long>(info.st_mtim.tv_sec),
                  static_cast<unsigned long>(info.st_mtim.tv_nsec));
    char date[base::kHttpDateLength + 1] = {};
    (void)base::FormatHttpDate(base::SystemTimeOf(info.st_mtim), date);
    response.SetHeader("ETag", tag);
    response.SetHeader("Last-Modified", date);
    response.SetHeader("Cache-Control", "public, max-age=3600");
    response.SetHeader("X-Content-Type-Options", "nosniff");
    if (IsFresh(request, tag, date)) {
        response.Begin(304);
        return;
    }
    response.SetHeader("Content-Type", TypeOf(name));
    response.SetHeader("Content-Length", std::to_string(info.st_size));
    if (exchange.settings->server.dialect == Dialect::Standard)
        OfferCompression(exchange);
    response.Begin(200);
    if (request.method == KestMethodGet)
        SendContent(response, file.Number(), static_cast<uint64_t>(info.st_size));
}

} // namespace kestd
