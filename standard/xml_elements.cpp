// SPDX-License-Identifier: Apache-2.0
//
// Reading XML bodies with their namespaces.
#include "standard/xml_elements.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <memory>

#include <expat.h>

#include "support/xml_body.h"

namespace standard {

namespace {

// Between the parts of a name; no name and no namespace name holds it.
constexpr char kSeparator = '\n';
constexpr std::string_view kXmlSpace = "http://www.w3.org/XML/1998/namespace";

// What taking elements out of a body may write per byte of it: a body of nothing but declarations
// and properties would else be written with every declaration in every property.
constexpr UINT64 kWrittenPerByte = 16;
constexpr UINT64 kLeastBudget = 65536;

// Declarations in scope at once: clients have a handful.
constexpr size_t kMostBindings = 256;

// How often a parser has asked for memory in vain: not every such failure is told as one. Of all
// threads, since a parser's functions for memory do not know whose they are; a body that was read
// whole while another lacked memory is answered as that one, and may be sent again.
std::atomic<UINT64> g_inVain{0};

void* Noted(void* memory)
{
    if (!memory)
        g_inVain.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

constexpr XML_Memory_Handling_Suite kMemory{
    [](size_t size) { return Noted(std::malloc(size)); },
    [](void* memory, size_t size) { return Noted(std::realloc(memory, size)); }, std::free};

struct FreeParser {
    void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
};

XmlReader& ReaderOf(void* data)
{
    return *static_cast<XmlReader*>(data);
}

void OnStart(void* data, const char* name, const char** attributes)
{
    ReaderOf(data).Start(name, attributes);
}
void OnEnd(void* data, const char* name)
{
    ReaderOf(data).End(name);
}
void OnCharacters(void* data, const char* text, int length)
{
    ReaderOf(data).Characters({text, static_cast<size_t>(length)});
}
void OnNamespace(void* data, const char* prefix, const char* space)
{
    ReaderOf(data).Declare(prefix, space);
}
void OnDoctype(void* data, const char*, const char*, const char*, int)
{
    ReaderOf(data).Refuse();
}

std::string_view TextOf(const char* text)
{
    return text ? std::string_view(text) : std::string_view();
}

} // namespace

// The parser tells a name as its namespace, the local name and the prefix, the last only where
// there is one, and the first only where the name is in a namespace.
struct XmlReader::Names {
    XmlName name;
    std::string_view prefix;

    explicit Names(const char* text)
    {
        std::string_view rest(text);
        const size_t space = rest.find(kSeparator);
        if (space == std::string_view::npos) {
            name.local = rest;
            return;
        }
        name.space = rest.substr(0, space);
        rest.remove_prefix(space + 1);
        const size_t local = rest.find(kSeparator);
        name.local = rest.substr(0, local);
        if (local != std::string_view::npos)
            prefix = rest.substr(local + 1);
    }
};

XmlResult XmlReader::Read(std::string_view body)
{
    if (body.size() > static_cast<size_t>(std::numeric_limits<int>::max()))
        return XmlResult::Malformed;
    const std::unique_ptr<XML_ParserStruct, FreeParser> parser(
        XML_ParserCreate_MM(nullptr, &kMemory, &kSeparator));
    if (!parser)
        return XmlResult::NoMemory;
    const UINT64 before = g_inVain.load(std::memory_order_relaxed);
    budget_ = std::max(kLeastBudget, body.size() * kWrittenPerByte);
    parser_ = parser.get();
    (void)XML_SetHashSalt(parser.get(), XmlNameSalt()); // nothing was parsed yet: it cannot fail
    XML_SetReturnNSTriplet(parser.get(), 1);
    XML_SetUserData(parser.get(), this);
    XML_SetElementHandler(parser.get(), OnStart, OnEnd);
    XML_SetCharacterDataHandler(parser.get(), OnCharacters);
    XML_SetStartNamespaceDeclHandler(parser.get(), OnNamespace);
    XML_SetStartDoctypeDeclHandler(parser.get(), OnDoctype);
    const XML_Status status =
        XML_Parse(parser.get(), body.data(), static_cast<int>(body.size()), 1);
    parser_ = nullptr;
    if (g_inVain.load(std::memory_order_relaxed) !=
        before) // also where the parser has gone on without it
        return XmlResult::NoMemory;
    if (status == XML_STATUS_OK || result_ != XmlResult::Whole)
        return result_;
    return XML_GetErrorCode(parser.get()) == XML_ERROR_NO_MEMORY ? XmlResult::NoMemory
                                                                 : XmlResult::Malformed;
}

void XmlReader::Stop(XmlResult result)
{
    if (result_ == XmlResult::Whole)
        result_ = result;
    (void)XML_StopParser(static_cast<XML_Parser>(parser_), XML_FALSE);
}

void XmlReader::Take(Capture what)
{
    takesFrom_ = depth_;
    takesWhat_ = what;
    taken_.Cut(0);
    isTagOpen_ = false;
}

bool XmlReader::IsOutermost(unsigned depth) const
{
    return depth == (takesWhat_ == Capture::Element ? takesFrom_ : takesFrom_ + 1);
}

// -- What is in scope.

void XmlReader::Declare(const char* prefix, const char* space)
{
    const std::string_view prefixText = TextOf(prefix);
    const std::string_view spaceText = TextOf(space);
    const Binding binding = {static_cast<UINT32>(scopeText_.size()),
                             static_cast<UINT32>(prefixText.size()),
                             static_cast<UINT32>(spaceText.size()), depth_};
    if (bindings_.size() >= kMostBindings)
        Stop(XmlResult::Malformed);
    else if (!scopeText_.Put(prefixText) || !scopeText_.Put(spaceText) ||
             !bindings_.Append(binding))
        Stop(XmlResult::NoMemory);
}

void XmlReader::EnterScope(const char** attributes)
{
    declared_ = bindings_.size();
    for (; *attributes; attributes += 2) {
        const Names names(attributes[0]);
        if (names.name.space != kXmlSpace || names.name.local != "lang")
            continue;
        const std::string_view value(attributes[1]);
        const Language language = {static_cast<UINT32>(scopeText_.size()),
                                   static_cast<UINT32>(value.size()), depth_};
        if (!scopeText_.Put(value) || !languages_.Append(language))
            Stop(XmlResult::NoMemory);
    }
}

void XmlReader::LeaveScope()
{
    size_t text = scopeText_.size();
    while (!languages_.empty() && languages_.back().depth == depth_) {
        text = std::min<size_t>(text, languages_.back().at);
        languages_.Cut(languages_.size() - 1);
    }
    while (!bindings_.empty() && bindings_.back().depth == depth_) {
        text = std::min<size_t>(text, bindings_.back().prefixAt);
        bindings_.Cut(bindings_.size() - 1);
    }
    scopeText_.Cut(text);
    declared_ = bindings_.size();
}

// -- The parser's callbacks. One that was stopped may still be told of an end.

void XmlReader::Start(const char* name, const char** attributes)
{
    if (result_ != XmlResult::Whole)
        return;
    const Names names(name);
    EnterScope(attributes);
    if (!IsTaking() && !handler_.OnStart(*this, names.name, depth_))
        return Stop(XmlResult::Malformed);
    if (IsTaking() && (takesWhat_ == Capture::Element || depth_ != takesFrom_))
        WriteStart(names, attributes);
    ++depth_;
}

void XmlReader::End(const char* name)
{
    if (result_ != XmlResult::Whole)
        return;
    const Names names(name);
    --depth_;
    if (IsTaking() && (takesWhat_ == Capture::Element || depth_ != takesFrom_))
        WriteEnd(names);
    if (depth_ == takesFrom_)
        takesFrom_ = kNoDepth;
    if (!IsTaking() && result_ == XmlResult::Whole && !handler_.OnEnd(*this, names.name, depth_))
        Stop(XmlResult::Malformed);
    LeaveScope();
}

void XmlReader::Characters(std::string_view text)
{
    if (result_ == XmlResult::Whole && IsTaking()) {
        CloseTag();
        WriteEscaped(text, false);
    }
}

// -- Writing what is taken.

void XmlReader::Write(std::string_view text)
{
    if (text.size() > budget_ || !taken_.Put(text))
        return Stop(XmlResult::NoMemory);
    budget_ -= text.size();
}

void XmlReader::WriteEscaped(std::string_view text, bool isAttribute)
{
    const std::string_view special = isAttribute ? "&<>\"\t\n\r" : "&<>\r";
    while (!text.empty()) {
        const size_t plain = text.find_first_of(special);
        Write(text.substr(0, plain));
        if (plain == std::string_view::npos)
            return;
        switch (text[plain]) {
        case '&':
            Write("&amp;");
            break;
        case '<':
            Write("&lt;");
            break;
        case '>':
            Write("&gt;");
            break;
        case '"':
            Write("&quot;");
            break;
        case '\t':
            Write("&#9;");
            break;
        case '\n':
            Write("&#10;");
            break;
        default:
            Write("&#13;");
            break;
        }
        text.remove_prefix(plain + 1);
    }
}

void XmlReader::CloseTag()
{
    if (isTagOpen_)
        Write(">");
    isTagOpen_ = false;
}

void XmlReader::WriteBinding(const Binding& binding)
{
    const std::string_view prefix = scopeText_.Text(binding.prefixAt, binding.prefixLength);
    const std::string_view space =
        scopeText_.Text(binding.prefixAt + binding.prefixLength, binding.spaceLength);
    Write(prefix.empty() ? " xmlns" : " xmlns:");
    Write(prefix);
    Write("=\"");
    WriteEscaped(space, true);
    Write("\"");
}

// Those of the element, or of all elements around it as well, the inner before the outer.
void XmlReader::WriteDeclarations(bool all)
{
    for (size_t i = bindings_.size(); i-- > 0;) {
        const Binding& binding = bindings_[i];
        if (!all && binding.depth != depth_)
            return;
        const std::string_view prefix = scopeText_.Text(binding.prefixAt, binding.prefixLength);
        bool isHidden = false;
        for (size_t inner = i + 1; inner < bindings_.size() && !isHidden; ++inner)
            isHidden =
                scopeText_.Text(bindings_[inner].prefixAt, bindings_[inner].prefixLength) == prefix;
        const bool saysNothing = all && prefix.empty() && binding.spaceLength == 0;
        if (!isHidden && !saysNothing)
            WriteBinding(binding);
    }
}

void XmlReader::WriteStart(const Names& names, const char** attributes)
{
    CloseTag();
    Write("<");
    Write(names.prefix);
    Write(names.prefix.empty() ? "" : ":");
    Write(names.name.local);
    WriteDeclarations(IsOutermost(depth_));
    if (IsOutermost(depth_) && !languages_.empty() && languages_.back().depth != depth_) {
        const Language& language = languages_.back();
        Write(" xml:lang=\"");
        WriteEscaped(scopeText_.Text(language.at, language.length), true);
        Write("\"");
    }
    for (; *attributes; attributes += 2) {
        const Names attribute(attributes[0]);
        Write(" ");
        if (attribute.name.space == kXmlSpace)
            Write("xml:");
        else if (!attribute.prefix.empty()) {
            Write(attribute.prefix);
            Write(":");
        }
        Write(attribute.name.local);
        Write("=\"");
        WriteEscaped(attributes[1], true);
        Write("\"");
    }
    isTagOpen_ = true;
}

void XmlReader::WriteEnd(const Names& names)
{
    if (isTagOpen_) {
        Write("/>");
        isTagOpen_ = false;
        return;
    }
    Write("</");
    Write(names.prefix);
    Write(names.prefix.empty() ? "" : ":");
    Write(names.name.local);
    Write(">");
}

} // namespace standard
