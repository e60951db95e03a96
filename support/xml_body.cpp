// SPDX-License-Identifier: Apache-2.0
//
// Reading the XML body of a request.
#include "support/xml_body.h"

#include <cstring>
#include <limits>
#include <memory>

#include <sys/random.h>

#include "support/ascii.h"
#include "support/failure_report.h"

namespace {

struct FreeParser {
    void operator()(XML_Parser parser) const noexcept { XML_ParserFree(parser); }
};

} // namespace

unsigned long XmlNameSalt() noexcept
{
    static const unsigned long salt = [] {
        unsigned long drawn = 0;
        return getrandom(&drawn, sizeof(drawn), 0) == ssize_t{sizeof(drawn)} ? drawn : 0;
    }();
    return salt;
}

const char* LocalName(const char* tag) noexcept
{
    const char* colon = std::strchr(tag, ':');
    return colon ? colon + 1 : tag;
}

bool SameName(const char* a, const char* b) noexcept
{
    while (*a && AsciiLower(*a) == AsciiLower(*b)) {
        ++a;
        ++b;
    }
    return AsciiLower(*a) == AsciiLower(*b);
}

XmlBody ParseXmlBody(const char* body, UINT32 size, void* userData, XML_StartElementHandler start,
                     XML_EndElementHandler end, XML_CharacterDataHandler text)
{
    const std::unique_ptr<XML_ParserStruct, FreeParser> parser(XML_ParserCreate(nullptr));
    if (!parser) {
        ReportFailure(TAL_STATUS_INSUFFICIENT_RESOURCES);
        return XmlBody::NoParser;
    }
    // A body beyond what one call takes is a malformed one.
    if (size > static_cast<UINT32>(std::numeric_limits<int>::max()))
        return XmlBody::Broken;

    (void)XML_SetHashSalt(parser.get(), XmlNameSalt()); // nothing was parsed yet: it cannot fail
    XML_SetUserData(parser.get(), userData);
    XML_SetElementHandler(parser.get(), start, end);
    if (text)
        XML_SetCharacterDataHandler(parser.get(), text);
    if (XML_Parse(parser.get(), body, static_cast<int>(size), 1) == XML_STATUS_OK)
        return XmlBody::Whole;
    if (XML_GetErrorCode(parser.get()) != XML_ERROR_NO_MEMORY)
        return XmlBody::Broken;
    ReportFailure(TAL_STATUS_INSUFFICIENT_RESOURCES);
    return XmlBody::NoMemory;
}
