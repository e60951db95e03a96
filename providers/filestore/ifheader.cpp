// SPDX-License-Identifier: Apache-2.0
//
// Reading and judging the "If" header.
#include "providers/filestore/ifheader.h"

#include <algorithm>

#include "base/ascii.h"
#include "base/percent.h"

namespace filestore {
namespace {

constexpr std::string_view kLockTokenScheme = "opaquelocktoken:";

bool IsBlank(char c)
{
    return c == ' ' || c == '\t';
}

bool StartsWithIgnoringCase(std::string_view text, std::string_view prefix)
{
    return base::EqualsIgnoringCase(text.substr(0, prefix.size()), prefix);
}

// Takes a text apart from the left. Every step tells whether it found what it looked for.
class Scanner {
  public:
    explicit Scanner(std::string_view rest) : rest_(rest) {}

    void SkipBlanks()
    {
        while (!rest_.empty() && IsBlank(rest_.front()))
            rest_.remove_prefix(1);
    }
    bool AtEnd() const { return rest_.empty(); }
    bool Next(char c) const { return !rest_.empty() && rest_.front() == c; }
    bool Take(char c)
    {
        if (!Next(c))
            return false;
        rest_.remove_prefix(1);
        return true;
    }
    bool TakeWord(std::string_view word)
    {
        if (!StartsWithIgnoringCase(rest_, word))
            return false;
        rest_.remove_prefix(word.size());
        return true;
    }
    // The text up to `end`, which is taken too.
    std::optional<std::string_view> Until(char end)
    {
        const size_t at = rest_.find(end);
        if (at == std::string_view::npos)
            return std::nullopt;
        const std::string_view text = rest_.substr(0, at);
        rest_.remove_prefix(at + 1);
        return text;
    }

  private:
    std::string_view rest_;
};

// A coded URL: "<" URI ">", no blanks inside.
std::optional<std::string_view> TakeCodedUrl(Scanner& in)
{
    if (!in.Take('<'))
        return std::nullopt;
    const auto url = in.Until('>');
    if (!url || url->empty() || std::any_of(url->begin(), url->end(), IsBlank))
        return std::nullopt;
    return url;
}

// An entity tag: an optional "W/" and a quoted text (RFC 9110 section 8.8.3). The quotes stay on.
std::optional<std::string> TakeEntityTag(Scanner& in)
{
    const bool weak = in.TakeWord("W/");
    if (!in.Take('"'))
        return std::nullopt;
    const auto text = in.Until('"');
    if (!text)
        return std::nullopt;
    return (weak ? "W/\"" : "\"") + std::string(*text) + '"';
}

std::optional<IfCondition> TakeCondition(Scanner& in)
{
    IfCondition condition;
    condition.negated = in.TakeWord("Not");
    in.SkipBlanks();
    if (in.Take('[')) {
        in.SkipBlanks();
        auto tag = TakeEntityTag(in);
        in.SkipBlanks();
        if (!tag || !in.Take(']'))
            return std::nullopt;
        condition.kind = IfCondition::Kind::EntityTag;
        condition.value = std::move(*tag);
        return condition;
    }
    const auto url = TakeCodedUrl(in);
    if (!url)
        return std::nullopt;
    if (StartsWithIgnoringCase(*url, kLockTokenScheme)) {
        condition.kind = IfCondition::Kind::LockToken;
        condition.value = url->substr(kLockTokenScheme.size());
    } else {
        condition.value = *url;
    }
    return condition;
}

// A list: "(" 1*Condition ")".
std::optional<IfList> TakeList(Scanner& in)
{
    if (!in.Take('('))
        return std::nullopt;
    IfList list;
    for (in.SkipBlanks(); !in.Take(')'); in.SkipBlanks()) {
        auto condition = TakeCondition(in);
        if (!condition)
            return std::nullopt;
        list.conditions.push_back(std::move(*condition));
    }
    if (list.conditions.empty())
        return std::nullopt;
    return list;
}

bool Holds(const IfCondition& condition, std::string_view path, IfState& state)
{
    bool matches = false;
    switch (condition.kind) {
    case IfCondition::Kind::LockToken:
        matches = state.HasLock(path, condition.value);
        break;
    case IfCondition::Kind::EntityTag:
        matches = state.HasEntityTag(path, condition.value);
        break;
    case IfCondition::Kind::OtherToken: // such as DAV:no-lock, which nothing matches
        break;
    }
    return matches != condition.negated;
}

// Unlike base::PercentDecode, an escaped NUL is no error: it names a path that nothing has.
std::optional<std::string> DecodePath(std::string_view text)
{
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        const int byte = base::EscapedByte(text, i);
        if (byte < 0)
            return std::nullopt;
        out += static_cast<char>(byte);
        i += 2;
    }
    return out;
}

} // namespace

std::optional<std::string> PathOfResourceTag(std::string_view tag)
{
    if (tag.empty())
        return std::nullopt;
    if (tag.front() != '/') {
        const size_t authority = tag.find("://");
        if (authority == std::string_view::npos || authority == 0)
            return std::nullopt;
        const size_t path = tag.find('/', authority + 3);
        tag = path == std::string_view::npos ? "/" : tag.substr(path);
    }
    return DecodePath(tag.substr(0, tag.find_first_of("?#")));
}

std::optional<IfHeader> IfHeader::Parse(std::string_view text)
{
    IfHeader header;
    Scanner in(text);
    std::optional<std::string> resource;
    bool tagWithoutList = false;
    for (in.SkipBlanks(); !in.AtEnd(); in.SkipBlanks()) {
        if (in.Next('<')) {
            const auto tag = TakeCodedUrl(in);
            // A tagged list cannot follow an untagged one, and every tag needs a list.
            if (!tag || tagWithoutList || (!resource && !header.lists_.empty()))
                return std::nullopt;
            resource = PathOfResourceTag(*tag);
            if (!resource)
                return std::nullopt;
            tagWithoutList = true;
            continue;
        }
        auto list = TakeList(in);
        if (!list)
            return std::nullopt;
        list->resource = resource;
        header.lists_.push_back(std::move(*list));
        tagWithoutList = false;
    }
    if (header.lists_.empty() || tagWithoutList)
        return std::nullopt;
    return header;
}

bool IfHeader::Evaluate(std::string_view requestPath, IfState& state) const
{
    return std::any_of(lists_.begin(), lists_.end(), [&](const IfList& list) {
        const std::string_view path =
            list.resource ? std::string_view(*list.resource) : requestPath;
        return std::all_of(list.conditions.begin(), list.conditions.end(),
                           [&](const IfCondition& c) { return Holds(c, path, state); });
    });
}

std::vector<std::string_view> IfHeader::SubmittedTokens() const
{
    std::vector<std::string_view> tokens;
    for (const IfList& list : lists_)
        for (const IfCondition& condition : list.conditions)
            if (condition.kind == IfCondition::Kind::LockToken && !condition.negated)
                tokens.push_back(condition.value);
    return tokens;
}

} // namespace filestore
