// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <cstring>
#include <limits>

#include "index/escape.h"
#include "props/line.h"
#include "props/propfind.h"
#include "props/scratch.h"

namespace {

constexpr UINT32 kHeaderBytes = 256;      // room for the protocol's name and for "Host"
constexpr UINT32 kRootProtocolBytes = 32; // for the protocol's name in the root's href
constexpr UINT32 kPathBytes = 512;        // a usual path in UTF-8

using Url = Line<1024>; // an href, unless its parts are unusually long

void AddScheme(IKestIO_5* io, UINT32 room, Url& url)
{
    char text[kHeaderBytes];
    UINT32 length = room;
    TALSTATUS status = TAL_STATUS_UNSUCCESSFUL;
    {
        Ref<IKestIO_3> io3;
        (void)Query(io, io3); // an object of an older version leaves io3 empty
        if (io3)
            status = io3->GetProtocolName(&length, text);
    }
    if (Code(status) != kCodeSuccess)
        url << "http://";
    else
        url.Add(text, std::min(length, room)) << "://";
}

// The client's own name for the server, so that its hrefs compare equal to what it asked for.
void AddHost(IKestIO_5* io, Url& url)
{
    char host[kHeaderBytes];
    UINT32 length = sizeof(host);
    char name[] = "Host";
    if (Code(io->GetRequestHeader(name, &length, host)) == kCodeSuccess && length < sizeof(host))
        url.Add(host, length);
    else
        url.Add(g_szHost, static_cast<UINT32>(std::strlen(g_szHost)));
}

// Scheme, host and the path under which the module is mounted, without a "/" at the end.
void AddModuleUrl(IKestIO_5* io, UINT32 protocolRoom, Url& url)
{
    AddScheme(io, protocolRoom, url);
    AddHost(io, url);
    url.Add(g_szKestLocation, static_cast<UINT32>(std::strlen(g_szKestLocation)));
    url.Add(g_MonikerS.Buffer, g_MonikerS.Length);
}

} // namespace

void SendRootHRef(IKestIO_5* pKestIo)
{
    Url url(pKestIo);
    url << "<a:href>";
    AddModuleUrl(pKestIo, kRootProtocolBytes, url);
    url << "/</a:href>\n";
}

TALSTATUS PropFindBuildAndSendHRef(IKestIO_5* pKestIo, UNICODE_STRING* pRefU)
{
    const UINT32 units = pRefU->Length / UINT32{sizeof(WCHAR)};
    Scratch<kPathBytes * 3 + 1> pathRoom;
    UINT32 bytes = units * 3 + 1;
    char* const path = pathRoom.Get(bytes);
    if (!path)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    if (const TALSTATUS status =
            pITalpl->TalxWideCharToMultiByte(kCodePageUtf8Alt, pRefU->Buffer, units, path, &bytes);
        Code(status) != kCodeSuccess)
        return status;
    constexpr UINT32 kLongest = std::numeric_limits<UINT16>::max();
    if (bytes > kLongest)
        return TAL_STATUS_NAME_TOO_LONG;

    // Kept: a name of which every byte is escaped needs one byte more than three times its size, so
    // such a name without a "/" has no href. An empty one does fit.
    const UINT32 room = std::clamp<UINT32>(bytes * 3, 1, kLongest);
    Scratch<kPathBytes * 3> escapedRoom;
    STRING pathS = {static_cast<UINT16>(bytes), static_cast<UINT16>(bytes), path};
    STRING escaped = {0, static_cast<UINT16>(room), escapedRoom.Get(room)};
    if (!escaped.Buffer)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    const TALSTATUS status = ConvertUTF8PathToUTF8EscapedUri(&pathS, &escaped);
    if (Failed(status))
        return status;

    Url url(pKestIo);
    url << "<a:href>";
    AddModuleUrl(pKestIo, kHeaderBytes, url);
    if (escaped.Length == 0 || escaped.Buffer[0] != '/')
        url << "/";
    url.Add(escaped.Buffer, escaped.Length);
    url << "</a:href>\n";
    return status;
}
