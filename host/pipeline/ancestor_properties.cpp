// SPDX-License-Identifier: Apache-2.0
//
// Reading what is asked of an ancestor, and writing what there is.
#include "host/pipeline/ancestor_properties.h"

#include <algorithm>
#include <memory>
#include <new>

#include <expat.h>

#include "base/percent.h"

namespace kestd {

namespace {

constexpr std::string_view kDav = "DAV:";
constexpr char kSeparator = '\n'; // between a namespace and a local name: neither can hold it

// -- Reading.

struct FreeParser {
    void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
};

PropertyName NameOf(std::string_view name)
{
    const size_t at = name.rfind(kSeparator);
    if (at == name.npos)
        return {{}, std::string(name)};
    return {std::string(name.substr(0, at)), std::string(name.substr(at + 1))};
}

// Throws std::bad_alloc out of no handler: expat is C.
class Reader {
  public:
    Reader(XML_Parser parser, AskedProperties& asked) : parser_(parser), asked_(asked)
    {
        XML_SetUserData(parser, this);
        XML_SetElementHandler(
            parser,
            [](void* self, const XML_Char* name, const XML_Char**) {
                static_cast<Reader*>(self)->Start(name);
            },
            [](void* self, const XML_Char*) { --static_cast<Reader*>(self)->depth_; });
        XML_SetStartDoctypeDeclHandler(
            parser, [](void* self, const XML_Char*, const XML_Char*, const XML_Char*, int) {
                static_cast<Reader*>(self)->Refuse(); // entities would repeat themselves
            });
    }
    // Throws std::bad_alloc.
    bool Read(std::string_view body)
    {
        const auto status = XML_Parse(parser_, body.data(), static_cast<int>(body.size()), 1);
        if (isShortOfMemory_ || XML_GetErrorCode(parser_) == XML_ERROR_NO_MEMORY)
            throw std::bad_alloc();
        return status == XML_STATUS_OK && isGood_ && forms_ == 1 &&
               (!isIncluding_ || asked_.kind == AskedProperties::Kind::All);
    }

  private:
    void Start(const XML_Char* name) noexcept
    try {
        if (!Take(NameOf(name)))
            Refuse();
        ++depth_;
    } catch (const std::bad_alloc&) {
        isShortOfMemory_ = true;
        Refuse();
    }

    void Refuse() noexcept
    {
        isGood_ = false;
        (void)XML_StopParser(parser_, XML_FALSE);
    }

    bool Take(PropertyName name)
    {
        const bool isDav = name.space == kDav;
        if (depth_ == 0)
            return isDav && name.local == "propfind";
        if (depth_ == 1)
            return TakeForm(isDav ? name.local : std::string_view());
        const auto isSame = [&](const PropertyName& other) {
            return other.local == name.local && other.space == name.space;
        };
        auto& names = asked_.names;
        if (depth_ != 2 || !takesNames_ || std::any_of(names.begin(), names.end(), isSame))
            return true;
        if (names.size() == kMostAncestorNames)
            return false;
        names.push_back(std::move(name));
        return true;
    }

    // What is not known is passed over (RFC 4918 section 17), with what it holds.
    bool TakeForm(std::string_view form)
    {
        takesNames_ = form == "prop" || form == "include";
        if (form == "include") {
            isIncluding_ = true;
            return true;
        }
        if (form == "prop")
            asked_.kind = AskedProperties::Kind::Named;
        else if (form == "allprop")
            asked_.kind = AskedProperties::Kind::All;
        else if (form == "propname")
            asked_.kind = AskedProperties::Kind::Names;
        else
            return true;
        return ++forms_ == 1;
    }

    const XML_Parser parser_;
    AskedProperties& asked_;
    int depth_ = 0;
    int forms_ = 0;
    bool isIncluding_ = false;
    bool takesNames_ = false;
    bool isGood_ = true;
    bool isShortOfMemory_ = false;
};

// -- Writing.

// What such a collection has. Nobody can lock, change or fill it.
struct Property {
    std::string_view local;
    std::string_view value; // of all but "displayname"
    bool isOfAll;           // of RFC 4918: "allprop" asks for it
};
constexpr Property kProperties[] = {
    {"displayname", {}, true},
    {"resourcetype", "<D:collection/>", true},
    {"lockdiscovery", {}, true},
    {"supportedlock", {}, true},
    {"current-user-privilege-set", "<D:privilege><D:read/></D:privilege>", false},
};

void AppendEscaped(std::string& text, std::string_view raw)
{
    for (const char c : raw) {
        if (c == '&')
            text.append("&amp;");
        else if (c == '<')
            text.append("&lt;");
        else if (c == '>')
            text.append("&gt;");
        else if (c == '"')
            text.append("&quot;");
        else
            text.push_back(c);
    }
}

void AppendName(std::string& text, const PropertyName& name)
{
    if (name.space == kDav) {
        text.append("<D:").append(name.local).append("/>");
        return;
    }
    text.append(name.space.empty() ? "<" : "<n:").append(name.local);
    if (!name.space.empty()) {
        text.append(" xmlns:n=\"");
        AppendEscaped(text, name.space);
        text.push_back('"');
    }
    text.append("/>");
}

void AppendValue(std::string& text, const Property& property, std::string_view path)
{
    text.append("<D:").append(property.local).push_back('>');
    if (property.local == "displayname")
        AppendEscaped(text, path.substr(path.rfind('/') + 1));
    else
        text.append(property.value);
    text.append("</D:").append(property.local).push_back('>');
}

bool IsAsked(const AskedProperties& asked, const Property& property)
{
    return asked.kind == AskedProperties::Kind::Names ||
           (asked.kind == AskedProperties::Kind::All && property.isOfAll) ||
           std::any_of(asked.names.begin(), asked.names.end(), [&](const PropertyName& name) {
               return name.space == kDav && name.local == property.local;
           });
}

bool IsMissing(const PropertyName& name)
{
    return name.space != kDav ||
           std::none_of(std::begin(kProperties), std::end(kProperties),
                        [&](const Property& property) { return property.local == name.local; });
}

void AppendPropstat(std::string& text, std::string_view properties, std::string_view status)
{
    text.append("<D:propstat><D:prop>").append(properties);
    text.append("</D:prop><D:status>HTTP/1.1 ").append(status).append("</D:status></D:propstat>");
}

} // namespace

bool ParseAskedProperties(std::string_view body, AskedProperties& asked)
{
    asked = {};
    if (body.empty())
        return true;
    if (body.size() > kMostAncestorBody)
        return false;
    const std::unique_ptr<XML_ParserStruct, FreeParser> parser(
        XML_ParserCreateNS(nullptr, kSeparator));
    if (!parser)
        throw std::bad_alloc();
    return Reader(parser.get(), asked).Read(body);
}

void AppendAncestor(std::string& text, std::string_view path, const AskedProperties& asked)
{
    while (!path.empty() && path.back() == '/')
        path.remove_suffix(1);
    std::string found;
    for (const Property& property : kProperties)
        if (!IsAsked(asked, property))
            continue;
        else if (asked.kind == AskedProperties::Kind::Names)
            AppendName(found, {std::string(kDav), std::string(property.local)});
        else
            AppendValue(found, property, path);
    std::string missing;
    if (asked.kind == AskedProperties::Kind::Named)
        for (const PropertyName& name : asked.names)
            if (IsMissing(name))
                AppendName(missing, name);
    text.append("<D:response><D:href>").append(base::PercentEncode(path)).append("/</D:href>");
    if (!found.empty() || missing.empty())
        AppendPropstat(text, found, "200 OK");
    if (!missing.empty())
        AppendPropstat(text, missing, "404 Not Found");
    text.append("</D:response>\n");
}

} // namespace kestd
