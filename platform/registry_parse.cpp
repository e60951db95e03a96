// SPDX-License-Identifier: Apache-2.0
//
// The registry file's form: TOML in which each table is a key, headed by its full path, and each
// entry a value. What the registry cannot hold is refused with its line instead of being ignored.
#define TOML_EXCEPTIONS 0
#define TOML_ENABLE_FORMATTERS 0
#include <toml++/toml.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <unordered_map>

#include "platform/caseless.h"
#include "platform/guid_text.h"
#include "platform/registry_tree.h"

namespace tolm {
namespace {

struct Entry {
    const toml::key* key;
    const toml::node* node;
};

// The parser's tables are sorted by name; the registry keeps the file's order.
std::vector<Entry> InFileOrder(const toml::table& table)
{
    std::vector<Entry> entries;
    for (const auto& [key, node] : table)
        entries.push_back({&key, &node});
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
        const auto& pa = a.key->source().begin;
        const auto& pb = b.key->source().begin;
        return pa.line != pb.line ? pa.line < pb.line : pa.column < pb.column;
    });
    return entries;
}

Place At(const toml::source_position& position)
{
    return {position.line, position.column};
}

std::vector<UINT8> EncodeNumber(UINT64 number, bool isLong)
{
    std::vector<UINT8> data(isLong ? sizeof(UINT64) : sizeof(UINT32));
    std::memcpy(data.data(), &number, data.size()); // little-endian, as the contract's processors
    return data;
}

// The line whose name would nest tables deeper than their destructors' recursion can stand, or 0.
// Nothing is lost: the registry has no use for a dot outside of quotes.
UINT32 LineNestedTooDeep(std::string_view text)
{
    constexpr UINT32 kMostDots = 1000;
    UINT32 line = 1;
    UINT32 dots = 0;
    bool inName = true;
    for (const char c : text) {
        if (c == '\n') {
            ++line;
            dots = 0;
            inName = true;
        } else if (c == '=') {
            inName = false;
        } else if (c == '.' && inName && ++dots > kMostDots) {
            return line;
        }
    }
    return 0;
}

class Parser {
  public:
    Parser(const std::string& label, RegistryTree& tree, std::string& error)
        : label_(label), tree_(tree), error_(error)
    {
    }

    bool Run(const std::string& text)
    {
        if (const UINT32 line = LineNestedTooDeep(text))
            return Refuse(line, "a name with too many dots in it");
        toml::parse_result result = toml::parse(std::string_view(text));
        if (!result)
            return Refuse(result.error().source().begin.line,
                          std::string(result.error().description()));
        for (const Entry& entry : InFileOrder(result.table()))
            if (!ReadKey(entry))
                return false;
        return true;
    }

  private:
    bool Refuse(UINT32 line, std::string reason)
    {
        std::replace_if(
            reason.begin(), reason.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
        error_ = label_ + ':' + std::to_string(line) + ": " + reason;
        return false;
    }

    bool ReadKey(const Entry& entry)
    {
        const UINT32 line = entry.key->source().begin.line;
        const std::string text(entry.key->str());
        const toml::table* table = entry.node->as_table();
        if (!table || table->is_inline())
            return Refuse(line, '\'' + text +
                                    "' stands outside of a key; expected a header such as "
                                    "['Kest\\Configuration\\Server'] above it");
        const std::u16string path = Widen(text);
        if (!IsKeyPath(path))
            return Refuse(line, "'" + text +
                                    "' is no key; expected names joined by single backslashes, "
                                    "at most 1024 characters");
        RegistryKey& key = tree_.Ensure(path);
        if (key.line != 0)
            return Refuse(line, "the key '" + text + "' was given before, in line " +
                                    std::to_string(key.line) + "; names compare without case");
        key.line = line;
        std::unordered_map<std::u16string, UINT32> seen; // names to lines
        for (const Entry& value : InFileOrder(*table))
            if (!ReadValue(key, value, seen))
                return false;
        return CheckClass(key);
    }

    bool ReadValue(RegistryKey& key, const Entry& entry,
                   std::unordered_map<std::u16string, UINT32>& seen)
    {
        const UINT32 line = entry.key->source().begin.line;
        const std::string text(entry.key->str());
        RegistryValue value;
        value.name = Widen(text);
        value.folded = Folded(value.name);
        if (value.name.size() > kLongestName || value.name.find(u'\0') != std::u16string::npos)
            return Refuse(line, "a value's name has at most 1024 characters and no NUL");
        if (const auto [before, isNew] = seen.try_emplace(value.folded, line); !isNew)
            return Refuse(line, "the value '" + text + "' was given before, in line " +
                                    std::to_string(before->second) +
                                    "; names compare without case");
        value.begin = At(entry.key->source().begin);
        value.valueBegin = At(entry.node->source().begin);
        value.valueEnd = At(entry.node->source().end);
        const char* wrong = ReadData(value, *entry.node);
        if (wrong)
            return Refuse(line, "the value '" + text + "' " + wrong);
        if (value.data.size() > kLargestValue)
            return Refuse(line, "the value '" + text + "' is larger than 1 MiB");
        key.values.push_back(std::move(value));
        return true;
    }

    // What is wrong with the data, or null.
    static const char* ReadData(RegistryValue& value, const toml::node& node)
    {
        if (const auto* text = node.as_string())
            return ReadString(value, text->get());
        if (const auto* truth = node.as_boolean()) {
            value.type = TALX_REG_UINT32;
            value.data = EncodeNumber(truth->get() ? 1 : 0, false);
            return nullptr;
        }
        if (const auto* number = node.as_integer()) {
            if (number->get() < 0)
                return "is negative; expected a number from 0";
            const auto unsignedNumber = static_cast<UINT64>(number->get());
            const bool isLong = unsignedNumber > std::numeric_limits<UINT32>::max();
            value.type = isLong ? TALX_REG_UINT64 : TALX_REG_UINT32;
            value.data = EncodeNumber(unsignedNumber, isLong);
            return nullptr;
        }
        if (const auto* list = node.as_array())
            return ReadList(value, *list);
        if (node.is_table())
            return "is a table; expected a value (a key below another key has a header of its own "
                   "with its full path)";
        return "has a type that the registry cannot hold; expected a text, a number, true or "
               "false, or a list of texts";
    }

    static const char* ReadString(RegistryValue& value, const std::string& text)
    {
        if (text.find('\0') != std::string::npos)
            return "holds a NUL character";
        value.type = TALX_REG_SZ;
        value.data = EncodeString(Widen(text));
        return nullptr;
    }

    static const char* ReadList(RegistryValue& value, const toml::array& list)
    {
        value.type = TALX_REG_MULTI_SZ;
        for (const toml::node& element : list) {
            const auto* text = element.as_string();
            if (!text)
                return "is a list with something else than texts in it; expected a list of texts";
            if (text->get().empty() || text->get().find('\0') != std::string::npos)
                return "is a list with an empty text or a NUL character in it";
            const std::vector<UINT8> one = EncodeString(Widen(text->get()));
            value.data.insert(value.data.end(), one.begin(), one.end());
        }
        value.data.insert(value.data.end(), sizeof(WCHAR), 0);
        return nullptr;
    }

    // Where classes come from is read when a class is first used, which is too late to hear of a
    // mistake.
    bool CheckClass(const RegistryKey& key)
    {
        static constexpr std::u16string_view kClasses = u"TOLM\\CLASSES\\";
        const std::u16string folded = Folded(key.path);
        if (!folded.starts_with(kClasses))
            return true;
        GUID clazz;
        if (!ParseGuid(std::u16string_view(folded).substr(kClasses.size()), clazz))
            return Refuse(key.line, "'" + Narrow(key.Name()) +
                                        "' is no class; expected "
                                        "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}");
        const RegistryValue* library = key.Find(u"LIBRARY");
        if (!library || library->type != TALX_REG_SZ || library->data.size() <= sizeof(WCHAR))
            return Refuse(library ? library->begin.line : key.line,
                          "a class needs a 'Library': the library's file name as a text");
        return true;
    }

    const std::string& label_;
    RegistryTree& tree_;
    std::string& error_;
};

} // namespace

bool ParseRegistry(const std::string& text, const std::string& label, RegistryTree& tree,
                   std::string& error)
{
    tree.label = label;
    return Parser(label, tree, error).Run(text);
}

} // namespace tolm
