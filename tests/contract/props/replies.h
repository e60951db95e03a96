// SPDX-License-Identifier: Apache-2.0
//
// Pieces of expected multistatus replies, as they go over the wire.
#pragma once

#include <string>

// A whole PROPFIND reply around its response elements.
inline std::string MultiStatus(const std::string& elements)
{
    return "207\n"
           "Transfer-Encoding: chunked\n"
           "Content-Type: text/xml\n"
           "\n"
           "<?xml version=\"1.0\" encoding=\"utf-8\" ?>"
           "<a:multistatus xmlns:b=\"urn:uuid:c2f41010-65b3-11d1-a29f-00aa00c14882/\" "
           "xmlns:a=\"DAV:\" xmlns:c=\"xml:\">" +
           elements + "</a:multistatus>\n";
}

// `path` is escaped and begins with "/".
inline std::string HRef(const std::string& path)
{
    return "<a:href>http://server.example:8080/Ferro" + path + "</a:href>\n";
}

inline std::string NotReturned(const std::string& elements)
{
    return "<a:propstat><a:status>HTTP/1.1 404 Not Found</a:status>\n<a:prop>" + elements +
           "</a:prop></a:propstat>";
}

// One resource with its properties, and with what was asked for and is not there.
inline std::string ResourceElement(const std::string& path, const std::string& properties,
                                   const std::string& missing = {})
{
    return "\n<a:response>" + HRef(path) + "<a:propstat><a:prop>" + properties +
           "</a:prop><a:status>HTTP/1.1 200 OK</a:status>\n</a:propstat>" + missing +
           "</a:response>";
}

inline std::string CollectionElement(const std::string& path, const std::string& properties,
                                     const std::string& missing = {})
{
    return "\n<a:response>" + HRef(path) +
           "<a:propstat><a:status>HTTP/1.1 200 OK</a:status>\n<a:prop>" + properties +
           "</a:prop></a:propstat>" + missing + "</a:response>";
}

// What a default request shows of a plain file that was made at the harness's start date.
inline std::string FileProperties(const std::string& size, const std::string& name)
{
    const std::string length = size == "0"
                                   ? "<a:getcontentlength b:dt=\"integer\">0</a:getcontentlength>\n"
                                   : "<a:getcontentlength>" + size + "</a:getcontentlength>\n";
    return length +
           "<a:creationdate b:dt=\"dateTime.tz\">2026-01-31T12:00:00Z</a:creationdate>\n"
           "<a:displayname>" +
           name +
           "</a:displayname>\n"
           "<a:getlastmodified b:dt=\"dateTime.rfc1123\">Sat, 31 Jan 2026 12:00:00 GMT"
           "</a:getlastmodified>\n"
           "<a:resourcetype><a:resource/></a:resourcetype>\n"
           "<a:ishidden b:dt=\"boolean\">0</a:ishidden>\n"
           "<a:isreadonly b:dt=\"boolean\">0</a:isreadonly>\n"
           "<a:iscollection b:dt=\"boolean\">0</a:iscollection>\n";
}

inline std::string CollectionProperties(const std::string& name)
{
    return "<a:getcontentlength b:dt=\"integer\">0</a:getcontentlength>\n"
           "<a:creationdate b:dt=\"dateTime.tz\">2026-01-31T12:00:00Z</a:creationdate>\n"
           "<a:displayname>" +
           name +
           "</a:displayname>\n"
           "<a:getlastmodified b:dt=\"dateTime.rfc1123\">Sat, 31 Jan 2026 12:00:00 GMT"
           "</a:getlastmodified>\n"
           "<a:resourcetype><a:collection/></a:resourcetype>\n"
           "<a:ishidden b:dt=\"boolean\">0</a:ishidden>\n"
           "<a:isreadonly b:dt=\"boolean\">0</a:isreadonly>\n"
           "<a:iscollection b:dt=\"boolean\">1</a:iscollection>\n";
}

inline const std::string kNoContentType = NotReturned("<a:getcontenttype/>\n");

// A default request's element.
inline std::string DefaultFile(const std::string& path, const std::string& size,
                               const std::string& name)
{
    return ResourceElement(path, FileProperties(size, name), kNoContentType);
}
inline std::string DefaultCollection(const std::string& path, const std::string& name)
{
    return CollectionElement(path, CollectionProperties(name));
}

// A PROPFIND body that asks for elements.
inline std::string Asking(const std::string& elements)
{
    return "<?xml version=\"1.0\"?><D:propfind xmlns:D=\"DAV:\" xmlns:x=\"urn:x\"><D:prop>" +
           elements + "</D:prop></D:propfind>";
}
