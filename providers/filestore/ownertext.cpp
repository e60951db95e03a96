// SPDX-License-Identifier: Apache-2.0
//
// The owner of a lock as text that every reply can hold.
#include "providers/filestore/ownertext.h"

#include <algorithm>
#include <vector>

#include "base/hex.h"
#include "base/utf.h"

namespace filestore {

namespace {

bool IsBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

bool IsNameStart(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<signed char>(c) < 0;
}

bool IsNamePart(char c)
{
    return IsNameStart(c) || (c >= '0' && c <= '9') || c == '-' || c == '.';
}

// Characters of XML 1.0 (section 2.2).
bool IsAllowed(char32_t c)
{
    return c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c < 0xD800) ||
           (c >= 0xE000 && c < 0xFFFE) || (c >= 0x10000 && c <= 0x10FFFF);
}

class Fragment {
  public:
    explicit Fragment(std::string_view text) : text_(text) {}

    bool IsWellFormed()
    {
        while (at_ < text_.size()) {
            const char c = text_[at_];
            if (c == '<' ? !Tag() : c == '&' ? !Reference() : !Character())
                return false;
        }
        return open_.empty() && text_.find("]]>") == text_.npos;
    }

  private:
    bool Take(char c)
    {
        if (at_ == text_.size() || text_[at_] != c)
            return false;
        ++at_;
        return true;
    }
    bool SkipBlanks()
    {
        const size_t start = at_;
        while (at_ < text_.size() && IsBlank(text_[at_]))
            ++at_;
        return at_ > start;
    }
    std::string_view Name()
    {
        const size_t start = at_;
        if (at_ < text_.size() && IsNameStart(text_[at_]))
            while (at_ < text_.size() && IsNamePart(text_[at_]))
                if (!Character())
                    return {};
        return text_.substr(start, at_ - start);
    }
    bool Character()
    {
        char32_t c = 0;
        const size_t bytes = base::DecodeCodePoint(text_.substr(at_), c);
        at_ += bytes;
        return bytes != 0 && IsAllowed(c);
    }
    bool Reference()
    {
        const size_t end = text_.find(';', at_);
        if (end == text_.npos)
            return false;
        std::string_view name = text_.substr(at_ + 1, end - at_ - 1);
        at_ = end + 1;
        if (!name.starts_with('#'))
            return name == "lt" || name == "gt" || name == "amp" || name == "quot" ||
                   name == "apos";
        name.remove_prefix(1);
        const bool hex = name.starts_with('x');
        name.remove_prefix(hex ? 1 : 0);
        char32_t value = 0;
        for (const char c : name) {
            const int digit = hex || base::IsDigit(c) ? base::HexValue(c) : -1;
            if (digit < 0 || value > 0x10FFFF)
                return false;
            value = value * (hex ? 16 : 10) + static_cast<char32_t>(digit);
        }
        return !name.empty() && IsAllowed(value);
    }
    bool Tag()
    {
        ++at_;
        const bool closes = Take('/');
        const std::string_view name = Name();
        if (name.empty())
            return false;
        if (closes) {
            SkipBlanks();
            if (open_.empty() || open_.back() != name || !Take('>'))
                return false;
            open_.pop_back();
            return true;
        }
        std::vector<std::string_view> attributes;
        for (;;) {
            const bool blank = SkipBlanks();
            if (Take('>')) {
                open_.push_back(name);
                return true;
            }
            if (Take('/'))
                return Take('>');
            if (!blank || !Attribute(&attributes))
                return false;
        }
    }
    bool Attribute(std::vector<std::string_view>* seen)
    {
        const std::string_view name = Name();
        if (name.empty() || std::find(seen->begin(), seen->end(), name) != seen->end())
            return false;
        seen->push_back(name);
        SkipBlanks();
        if (!Take('='))
            return false;
        SkipBlanks();
        const char quote = Take('"') ? '"' : '\'';
        if (quote == '\'' && !Take('\''))
            return false;
        while (at_ < text_.size() && text_[at_] != quote) {
            const char c = text_[at_];
            if (c == '<' || (c == '&' ? !Reference() : !Character()))
                return false;
        }
        return Take(quote);
    }

    const std::string_view text_;
    size_t at_ = 0;
    std::vector<std::string_view> open_;
};

} // namespace

bool IsWellFormedFragment(std::string_view text)
{
    return Fragment(text).IsWellFormed();
}

std::string OwnerForReplies(std::string_view text)
{
    if (text.size() <= kMaxOwnerBytes && IsWellFormedFragment(text))
        return std::string(text);
    std::string out;
    for (size_t at = 0; at < text.size();) {
        char32_t c = 0;
        const size_t bytes = base::DecodeCodePoint(text.substr(at), c);
        std::string_view piece = text.substr(at, bytes);
        if (bytes == 0 || !IsAllowed(c))
            piece = "\xEF\xBF\xBD";
        else if (c == '&')
            piece = "&amp;";
        else if (c == '<')
            piece = "&lt;";
        else if (c == '>')
            piece = "&gt;";
        if (out.size() + piece.size() > kMaxOwnerBytes)
            break;
        out += piece;
        at += bytes ? bytes : 1;
    }
    return out;
}

} // namespace filestore
