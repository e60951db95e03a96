// SPDX-License-Identifier: Apache-2.0
#include "xml_reply.h"

#include <map>
#include <memory>
#include <regex>
#include <set>
#include <vector>

#include <expat.h>

namespace harness {

namespace {

// What may stand in an element of "DAV:"; of what is not named here nothing is known.
const std::map<std::string, std::set<std::string>>& Children()
{
    static const std::map<std::string, std::set<std::string>> children = {
        {"", {"multistatus", "error", "prop", "mkcol-response"}},
        {"multistatus", {"response"}},
        {"mkcol-response", {"propstat"}},
        {"response", {"href", "propstat", "status", "error"}},
        {"propstat", {"prop", "status", "error"}},
        {"href", {}},
        {"status", {}},
        {"lockdiscovery", {"activelock"}},
        {"activelock",
         {"lockscope", "locktype", "depth", "owner", "timeout", "locktoken", "lockroot"}},
        {"locktoken", {"href"}},
        {"lockroot", {"href"}},
        {"resourcetype", {"collection"}},
    };
    return children;
}

// Of a text in which every "%" has two digits behind it.
std::string Unescaped(const std::string& text)
{
    std::string result;
    for (size_t i = 0; i < text.size(); ++i)
        if (text[i] == '%') {
            result += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            result += text[i];
        }
    return result;
}

struct Reader {
    std::vector<std::string> open; // elements of the protocol, without their namespace
    int ofClient = 0;              // how deep in what is the client's own
    std::string text;
    std::string fault;
    std::vector<std::string> paths; // of the hrefs
    bool isFirst = false;           // the next child is its parent's first

    void Fail(const std::string& what)
    {
        if (fault.empty())
            fault = what;
    }

    void Begin(const std::string& name)
    {
        static const std::string kSpace = "DAV:\n";
        const std::string parent = open.empty() ? "" : open.back();
        const bool isOurs = name.starts_with(kSpace);
        const std::string local = isOurs ? name.substr(kSpace.size()) : name;
        if (ofClient != 0 || parent == "owner" || (parent == "prop" && !isOurs)) {
            ++ofClient;
            return;
        }
        if (!isOurs)
            Fail(name + " in " + parent);
        const auto known = Children().find(parent);
        if (known != Children().end() && !known->second.contains(local))
            Fail(local + " in " + parent);
        if (isFirst && parent == "response" && local != "href")
            Fail("no href in front of " + local);
        open.push_back(local);
        text.clear();
        isFirst = true;
    }

    void End()
    {
        if (ofClient != 0) {
            --ofClient;
            return;
        }
        static const std::regex status("HTTP/1\\.1 [1-5][0-9][0-9] [ -~]*");
        static const std::regex path("/([A-Za-z0-9._~/-]|%[0-9A-F]{2})*");
        const std::string name = open.back();
        open.pop_back();
        if (name == "status" && !std::regex_match(text, status))
            Fail("a status of " + text);
        if (name == "href" && open.back() != "locktoken") {
            if (!std::regex_match(text, path))
                return Fail("an href of " + text);
            paths.push_back(Unescaped(text));
        }
        if (name == "response" && isFirst)
            Fail("an empty response");
        isFirst = false;
    }
};

Reader& Of(void* data)
{
    return *static_cast<Reader*>(data);
}

} // namespace

std::string FaultOfXml(std::string_view body, std::vector<std::string>* paths)
{
    Reader reader;
    const std::unique_ptr<XML_ParserStruct, void (*)(XML_Parser)> parser(
        XML_ParserCreateNS("UTF-8", '\n'), XML_ParserFree);
    XML_SetUserData(parser.get(), &reader);
    XML_SetElementHandler(
        parser.get(),
        [](void* data, const XML_Char* name, const XML_Char**) { Of(data).Begin(name); },
        [](void* data, const XML_Char*) { Of(data).End(); });
    XML_SetCharacterDataHandler(parser.get(), [](void* data, const XML_Char* text, int size) {
        Of(data).text.append(text, static_cast<size_t>(size));
    });
    XML_SetStartDoctypeDeclHandler(parser.get(),
                                   [](void* data, const XML_Char*, const XML_Char*, const XML_Char*,
                                      int) { Of(data).Fail("a document type"); });
    if (XML_Parse(parser.get(), body.data(), static_cast<int>(body.size()), XML_TRUE) !=
        XML_STATUS_OK)
        return XML_ErrorString(XML_GetErrorCode(parser.get()));
    if (paths)
        *paths = std::move(reader.paths);
    return reader.fault;
}

} // namespace harness
