// SPDX-License-Identifier: Apache-2.0
//
// Finds a head's end and parses it with Beast.
#include "host/http/request_head.h"

#include <cstring>
#include <limits>

#include "base/ascii.h"
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/basic_parser.hpp>

namespace kestd {

namespace {

namespace http = boost::beast::http;
using boost::beast::string_view;
using boost::system::error_code;

// Collects views of what the parser finds: of the text itself, since no value is joined from
// several lines. Only the head is fed to it, so that nothing of a body ever gets here; the
// message's framing is judged elsewhere, more strictly than the parser does.
class Collector final : public http::basic_parser<true> {
  public:
    explicit Collector(RequestHead& head) : head_(head)
    {
        header_limit(std::numeric_limits<std::uint32_t>::max()); // bounded by whoever received it
        body_limit(std::numeric_limits<std::uint64_t>::max());
    }

  private:
    static std::string_view View(string_view text) noexcept { return {text.data(), text.size()}; }

    void on_request_impl(http::verb, string_view method, string_view target, int version,
                         error_code&) override
    {
        head_.method = View(method);
        head_.target = View(target);
        head_.version = static_cast<unsigned>(version);
    }
    void on_field_impl(http::field, string_view name, string_view value, error_code&) override
    {
        head_.fields.push_back({View(name), View(value)});
        head_.names.Add(NameKey(View(name)));
    }
    void on_response_impl(int, string_view, int, error_code&) override {}
    void on_header_impl(error_code&) override {}
    void on_body_init_impl(boost::optional<std::uint64_t> const&, error_code&) override {}
    std::size_t on_body_impl(string_view body, error_code&) override { return body.size(); }
    void on_chunk_header_impl(std::uint64_t, string_view, error_code&) override {}
    std::size_t on_chunk_body_impl(std::uint64_t, string_view body, error_code&) override
    {
        return body.size();
    }
    void on_finish_impl(error_code&) override {}

    RequestHead& head_;
};

// Whether a line begins with a blank. Some parsers take it for the rest of the line before it, some
// for a field (RFC 9112 section 5.2); the one used here does not tell of a fold behind an empty
// line.
bool HasFold(std::string_view text) noexcept
{
    const char* const end = text.data() + text.size();
    for (const char* at = text.data(); at < end; ++at) {
        at = static_cast<const char*>(std::memchr(at, '\n', static_cast<size_t>(end - at)));
        if (!at || at + 1 == end)
            return false;
        if (at[1] == ' ' || at[1] == '\t')
            return true;
    }
    return false;
}

// Whether the request line ends as one of another HTTP version does.
bool NamesOtherVersion(std::string_view text) noexcept
{
    constexpr size_t kSize = 8; // HTTP/d.d
    const std::string_view line = text.substr(0, text.find("\r\n"));
    const std::string_view end = line.size() > kSize ? line.substr(line.size() - kSize) : "";
    return end != "HTTP/1.1" && end != "HTTP/1.0" && end.substr(0, 5) == "HTTP/" &&
           base::IsDigit(end[5]) && end[6] == '.' && base::IsDigit(end[7]);
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

const Field* RequestHead::Find(std::string_view name) const noexcept
{
    if (!names.MayHold(NameKey(name)))
        return nullptr;
    for (const Field& field : fields)
        if (HasName(field, name))
            return &field;
    return nullptr;
}

const Field* RequestHead::FindNext(const Field& field, std::string_view name) const noexcept
{
    const Field* const end = fields.data() + fields.size();
    for (const Field* each = &field + 1; each != end; ++each)
        if (HasName(*each, name))
            return each;
    return nullptr;
}

size_t RequestHead::Count(std::string_view name) const noexcept
{
    size_t count = 0;
    for (const Field& field : fields)
        count += base::EqualsIgnoringCase(field.name, name);
    return count;
}

bool RequestHead::HasToken(std::string_view name, std::string_view token) const noexcept
{
    for (const Field& field : fields) {
        if (!base::EqualsIgnoringCase(field.name, name))
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
    if (HasFold(text))
        return 400;
    Collector parser(head);
    error_code error;
    parser.put(boost::asio::const_buffer(text.data(), text.size()), error);
    if (error == http::error::bad_version && NamesOtherVersion(text))
        return 505;
    if (error || !parser.is_header_done())
        return 400;
    if (head.version != 10 && head.version != 11)
        return 505;
    const size_t lines = text.find("\r\n") + 2;
    head.lines = text.substr(lines, text.size() - lines - 2);
    return 0;
}

} // namespace kestd
