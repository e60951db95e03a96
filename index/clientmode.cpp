// SPDX-License-Identifier: Apache-2.0
//
// Which set of templates a client gets.
#include "index/clientmode.h"

#include <cstdlib>
#include <cstring>
#include <strings.h>

const char* const mainTemplateFiles[kModeCount] = {"index.xml",    "ecmaindex.html",
                                                   "nsindex.html", "txindex.html",
                                                   "ceindex.html", "ecmaindex.html"};
const char* const fileTemplateFiles[kModeCount] = {"fileentry.xml", "ecmaentry.html",
                                                   "nsentry.html",  "txentry.html",
                                                   "ceentry.html",  "ecmaentry.html"};

namespace {

bool Contains(const char* text, const char* part)
{
    return std::strstr(text, part) != nullptr;
}

InterfaceMode ModeOfMsie(const char* agent, const char* name)
{
    constexpr long kScripts = 5;
    const long major = std::strtol(name + std::strlen("MSIE"), nullptr, 10);
    if (major >= kScripts)
        return Contains(agent, "Mac") ? kModeModern : kModeScripted;
    return Contains(agent, "Windows CE") ? kModeSmall : kModeUndecided;
}

InterfaceMode ModeOfMozilla(const char* name)
{
    long major = 0;
    long minor = 0;
    const char* version = name + std::strlen("Mozilla");
    if (*version == '/') {
        char* dot = nullptr;
        major = std::strtol(version + 1, &dot, 10);
        if (*dot == '.')
            minor = std::strtol(dot + 1, nullptr, 10);
    }
    if (major > 4)
        return kModeModern;
    return major == 4 && minor > 6 ? kModeLayers : kModeUndecided;
}

} // namespace

void ReadHeader(IKestIO_5* pKestIo, const char* name, char* value)
{
    UINT32 length = kIndexBuffer;
    if (Code(pKestIo->GetRequestHeader(const_cast<char*>(name), &length, value)) != 0 ||
        length > kIndexBuffer)
        length = 0;
    value[length] = '\0';
}

InterfaceMode ModeOfAgent(const char* agent)
{
    InterfaceMode mode = kModeUndecided;
    if (const char* name = std::strstr(agent, "MSIE"))
        mode = ModeOfMsie(agent, name);
    else if (Contains(agent, "Blazer"))
        mode = kModeSmall;
    else if (const char* mozilla = std::strstr(agent, "Mozilla"))
        mode = ModeOfMozilla(mozilla);
    return mode == kModeUndecided ? kModeText : mode;
}

InterfaceMode SelectMode(IKestIO_5* pKestIo, char* agent)
{
    // The agent's buffer serves for the cookie first; it must not keep the cookie's text.
    ReadHeader(pKestIo, "Cookie", agent);
    const bool textMode = Contains(agent, "TextMode=1");
    agent[0] = '\0';
    if (textMode)
        return kModeText;
    ReadHeader(pKestIo, "user-agent", agent);
    return ModeOfAgent(agent);
}

bool AcceptsOnlyXml(IKestIO_5* pKestIo)
{
    char accept[kIndexBuffer + 1];
    ReadHeader(pKestIo, "Accept", accept);
    return strcasecmp(accept, "text/xml") == 0;
}
