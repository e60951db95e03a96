// SPDX-License-Identifier: Apache-2.0
//
// Reading the "If" request header.
#include "standard/if_header.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "standard/request_headers.h"
#include "standard/request_path.h"
#include "standard/scan.h"
#include "support/globals.h"

namespace standard {

namespace {

constexpr std::string_view kScheme = "opaquelocktoken:";

bool TakeChar(std::string_view& text, char c) noexcept
{
    if (text.empty() || text.front() != c)
        return false;
    text.remove_prefix(1);
    return true;
}

// The text up to `end`, which is taken, too. data() is null when there is no `end`.
std::string_view TakeUntil(std::string_view& text, char end) noexcept
{
    const size_t at = text.find(end);
    if (at == std::string_view::npos)
        return {};
    const std::string_view taken = text.substr(0, at);
    text.remove_prefix(at + 1);
    return taken;
}

// "<" URI ">", nothing empty and no blanks inside. data() is null for anything else.
std::string_view TakeCodedUrl(std::string_view& text) noexcept
{
    if (!TakeChar(text, '<'))
        return {};
    const std::string_view url = TakeUntil(text, '>');
    return url.empty() || std::any_of(url.begin(), url.end(), IsBlank) ? std::string_view() : url;
}

DAV_TEXT TextOf(std::string_view text) noexcept
{
    return {text.data(), static_cast<UINT32>(text.size())};
}

// Room for the records of one header: no more than its brackets can open.
template <class T> T* MakeRecords(IKestIO_5* io, size_t count)
{
    void* memory = io->AllocMemory(static_cast<UINT32>(count * sizeof(T)));
    return memory ? new (memory) T[count]() : nullptr;
}

class IfReader {
  public:
    IfReader(IKestIO_5* io, std::string_view text) : io_(io), rest_(text) {}

    TALSTATUS Read(DAV_PRECONDITIONS& out)
    {
        if (!Allocate())
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
        SkipBlanks(rest_);
        const bool isTagged = !rest_.empty() && rest_.front() == '<';
        while (!rest_.empty()) {
            if (const TALSTATUS status = ReadProduction(isTagged); Failed(status))
                return status;
            SkipBlanks(rest_);
        }
        if (listCount_ == 0)
            return TAL_STATUS_INVALID_REQUEST;
        out.If = lists_;
        out.IfCount = listCount_;
        out.Tokens = tokens_;
        out.TokenCount = tokenCount_;
        return TAL_STATUS_SUCCESS;
    }

  private:
    bool Allocate()
    {
        const auto opened = [this](char c) {
            return static_cast<size_t>(std::count(rest_.begin(), rest_.end(), c));
        };
        const size_t conditions = opened('<') + opened('[');
        lists_ = MakeRecords<DAV_IF_LIST>(io_, opened('(') + 1);
        conditions_ = MakeRecords<DAV_IF_CONDITION>(io_, conditions + 1);
        tokens_ = MakeRecords<DAV_TEXT>(io_, conditions + 1);
        return lists_ && conditions_ && tokens_;
    }

    // One resource tag with its lists, or one list without a tag.
    TALSTATUS ReadProduction(bool isTagged)
    {
        std::string_view path;
        if (isTagged) {
            const std::string_view url = TakeCodedUrl(rest_);
            if (!url.data())
                return TAL_STATUS_INVALID_REQUEST;
            if (const TALSTATUS status = ProviderPathOfUrl(io_, url, path); Failed(status))
                return status;
        }
        do {
            SkipBlanks(rest_);
            if (!ReadList(path))
                return TAL_STATUS_INVALID_REQUEST;
            SkipBlanks(rest_);
        } while (!rest_.empty() && rest_.front() == '(');
        return TAL_STATUS_SUCCESS;
    }

    // "(" 1*Condition ")".
    bool ReadList(std::string_view path)
    {
        if (!TakeChar(rest_, '('))
            return false;
        DAV_IF_LIST& list = lists_[listCount_++];
        list.Path = TextOf(path);
        list.Conditions = conditions_ + conditionCount_;
        for (SkipBlanks(rest_); !TakeChar(rest_, ')'); SkipBlanks(rest_)) {
            if (!ReadCondition(conditions_[conditionCount_]))
                return false;
            ++conditionCount_;
            ++list.Count;
        }
        return list.Count != 0;
    }

    bool ReadCondition(DAV_IF_CONDITION& condition)
    {
        condition.Negated = Take(rest_, "Not") ? TRUE : FALSE;
        SkipBlanks(rest_);
        if (TakeChar(rest_, '['))
            return ReadTag(condition);
        const std::string_view url = TakeCodedUrl(rest_);
        if (!url.data())
            return false;
        std::string_view token = url;
        if (!Take(token, kScheme)) { // such as <DAV:no-lock>
            condition.Kind = kIfNever;
            condition.Value = TextOf(url);
            return true;
        }
        condition.Kind = kIfToken;
        condition.Value = TextOf(token);
        if (!condition.Negated)
            tokens_[tokenCount_++] = condition.Value;
        return true;
    }

    // [W/]"text" and "]".
    bool ReadTag(DAV_IF_CONDITION& condition)
    {
        SkipBlanks(rest_);
        const char* const begin = rest_.data();
        (void)Take(rest_, "W/");
        if (!TakeChar(rest_, '"') || !TakeUntil(rest_, '"').data())
            return false;
        condition.Kind = kIfTag;
        condition.Value = TextOf({begin, static_cast<size_t>(rest_.data() - begin)});
        SkipBlanks(rest_);
        return TakeChar(rest_, ']');
    }

    IKestIO_5* io_;
    std::string_view rest_;
    DAV_IF_LIST* lists_ = nullptr;
    DAV_IF_CONDITION* conditions_ = nullptr;
    DAV_TEXT* tokens_ = nullptr;
    UINT32 listCount_ = 0;
    UINT32 conditionCount_ = 0;
    UINT32 tokenCount_ = 0;
};

} // namespace

TALSTATUS ParseIf(IKestIO_5* io, std::string_view text, DAV_PRECONDITIONS& preconditions)
{
    return IfReader(io, text).Read(preconditions);
}

TALSTATUS ReadIf(IKestIO_5* io, DAV_PRECONDITIONS& preconditions)
{
    std::string_view text;
    if (const TALSTATUS status = ReadHeader(io, "If", text); Failed(status))
        return status;
    return text.data() ? ParseIf(io, text, preconditions) : TAL_STATUS_SUCCESS;
}

namespace {

// RFC 3986 section 3.1, with something behind it.
bool HasScheme(std::string_view url) noexcept
{
    const size_t length = std::min(url.find(':'), url.size());
    const auto isLetter = [](char c) { return AsciiLower(c) >= 'a' && AsciiLower(c) <= 'z'; };
    return length != 0 && length + 1 < url.size() && isLetter(url.front()) &&
           std::all_of(url.begin(), url.begin() + static_cast<std::ptrdiff_t>(length), [&](char c) {
               return isLetter(c) || IsDigit(c) || c == '+' || c == '-' || c == '.';
           });
}

} // namespace

LockToken ReadLockToken(std::string_view header) noexcept
{
    std::string_view text = Trimmed(header);
    std::string_view url = text;
    if (text.substr(0, 1) == "<") {
        url = TakeCodedUrl(text);
        if (!url.data() || !text.empty())
            return {};
    }
    if (!HasScheme(url) || url.find_first_of("<> \t") != url.npos)
        return {};
    if (!Take(url, kScheme))
        return {LockToken::Form::Foreign};
    return {LockToken::Form::Ours, url};
}

} // namespace standard
