// SPDX-License-Identifier: Apache-2.0
//
// Takes what proxies say about a request apart.
#include "host/http/forwarded.h"

#include <algorithm>
#include <utility>

#include "base/ascii.h"
#include "base/host_name.h"

namespace kestd {

namespace {

// A text that is read from its front.
class Reader {
  public:
    explicit Reader(std::string_view rest) : rest_(rest) {}

    bool IsAtEnd() const noexcept { return rest_.empty(); }
    bool Take(char wanted) noexcept
    {
        if (rest_.empty() || rest_.front() != wanted)
            return false;
        rest_.remove_prefix(1);
        return true;
    }
    void SkipBlanks() noexcept
    {
        while (!rest_.empty() && base::IsBlank(rest_.front()))
            rest_.remove_prefix(1);
    }
    std::string_view Token() noexcept
    {
        const auto end = std::find_if_not(rest_.begin(), rest_.end(), base::IsTokenChar);
        const std::string_view token = rest_.substr(0, static_cast<size_t>(end - rest_.begin()));
        rest_.remove_prefix(token.size());
        return token;
    }
    // A token or a quoted string (RFC 9110 section 5.6.4), without quotes and escapes.
    bool Value(std::string& value)
    {
        if (!Take('"')) {
            value = Token();
            return !value.empty();
        }
        value.clear();
        while (!rest_.empty() && rest_.front() != '"') {
            if (Take('\\') && rest_.empty())
                return false;
            const char c = rest_.front();
            if (base::IsControl(c) && c != '\t')
                return false;
            value.push_back(c);
            rest_.remove_prefix(1);
        }
        return Take('"');
    }

  private:
    std::string_view rest_;
};

// Section 6.3: what hides a name or a port.
bool IsHidden(std::string_view text) noexcept
{
    return text.size() > 1 && text.front() == '_' &&
           std::all_of(text.begin(), text.end(), [](char c) {
               return base::IsAlphanumeric(c) || c == '.' || c == '_' || c == '-';
           });
}

bool IsNodePort(std::string_view text) noexcept
{
    uint16_t port = 0;
    return IsHidden(text) || base::ParsePort(text, port);
}

// Section 6.
bool ParseNode(std::string_view text, std::optional<base::IpAddress>& node) noexcept
{
    std::string_view name = text.substr(0, text.find(':'));
    base::IpAddress address;
    node.reset();
    if (text.starts_with('[')) {
        name = text.substr(0, std::min(text.find(']'), text.size() - 1) + 1);
        if (!name.ends_with(']') || !base::IsIpv6Address(name.substr(1, name.size() - 2)) ||
            !base::ParseIpAddress(name.substr(1, name.size() - 2), address))
            return false;
        node = address;
    } else if (base::ParseIpAddress(name, address)) { // IPv4: it holds no ":"
        node = address;
    } else if (!base::EqualsIgnoringCase(name, "unknown") && !IsHidden(name)) {
        return false;
    }
    text.remove_prefix(name.size());
    return text.empty() || (text.front() == ':' && IsNodePort(text.substr(1)));
}

// A scheme's name (RFC 3986 section 3.1).
bool IsScheme(std::string_view text) noexcept
{
    return !text.empty() && base::IsAlphanumeric(text.front()) && !base::IsDigit(text.front()) &&
           std::all_of(text.begin(), text.end(), [](char c) {
               return base::IsAlphanumeric(c) || c == '+' || c == '-' || c == '.';
           });
}

// The parameters of one element; which of those that are known have been there.
class ElementReader {
  public:
    // NAME=VALUE, of which nothing has been read. False when it is malformed or there twice.
    bool TakePair(Reader& in, ForwardedHop& hop)
    {
        const std::string_view name = in.Token();
        if (name.empty() || !in.Take('=') || !in.Value(value_) || !IsNew(name))
            return false;
        std::optional<base::IpAddress> by;
        if (base::EqualsIgnoringCase(name, "for"))
            return ParseNode(value_, hop.client);
        if (base::EqualsIgnoringCase(name, "by"))
            return ParseNode(value_, by);
        if (base::EqualsIgnoringCase(name, "host")) {
            hop.host = value_;
            return base::IsValidHost(value_);
        }
        if (base::EqualsIgnoringCase(name, "proto")) {
            hop.scheme = value_;
            return IsScheme(value_);
        }
        return true; // an extension (section 5.5)
    }

  private:
    bool IsNew(std::string_view name)
    {
        for (const std::string_view known : names_)
            if (base::EqualsIgnoringCase(known, name))
                return false;
        // More than anybody has invented: no list of a client's length is compared with itself.
        constexpr size_t kMostParameters = 16;
        names_.push_back(name);
        return names_.size() <= kMostParameters;
    }

    std::vector<std::string_view> names_;
    std::string value_;
};

// Up to the "," or the end.
bool TakeElement(Reader& in, ForwardedHop& hop)
{
    ElementReader element;
    bool wasPair = false;
    for (;;) {
        if (in.Take(';')) {
            wasPair = false;
            continue;
        }
        Reader ahead = in;
        ahead.SkipBlanks();
        if (ahead.IsAtEnd() || ahead.Take(',')) {
            in = ahead;
            return true;
        }
        if (wasPair || !element.TakePair(in, hop))
            return false;
        wasPair = true;
    }
}

} // namespace

bool ParseForwarded(std::string_view value, std::vector<ForwardedHop>& hops)
{
    hops.clear();
    Reader in(value);
    for (;;) {
        in.SkipBlanks();
        while (in.Take(',')) // empty elements of a list count for nothing (RFC 9110 section 5.6.1)
            in.SkipBlanks();
        if (in.IsAtEnd())
            return !hops.empty();
        ForwardedHop hop;
        if (!TakeElement(in, hop))
            return false;
        hops.push_back(std::move(hop));
    }
}

std::optional<base::IpAddress> ParseForwardedAddress(std::string_view text) noexcept
{
    base::IpAddress address;
    if (base::ParseIpAddress(text, address))
        return address;
    std::optional<base::IpAddress> node;
    if (!ParseNode(text, node))
        return std::nullopt;
    return node;
}

} // namespace kestd
