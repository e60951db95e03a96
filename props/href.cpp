// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <limits>

#include "core/reply.h"
#include "index/escape.h"
#include "props/propfind.h"
#include "props/scratch.h"

namespace {

constexpr UINT32 kHeaderBytes = 256; // room for the protocol's name and for "Host"
constexpr UINT32 kPathBytes = 512;   // a usual path in UTF-8

void SendScheme(IKestIO_5* io, UINT32 room)
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
    if (Code(status) != kCodeSuccess) {
        Put(io, "http://");
        return;
    }
    PutBytes(io, text, std::min(length, room));
    Put(io, "://");
}

// The client's own name for the server, so that its hrefs compare equal to what it asked for.
void SendHost(IKestIO_5* io)
{
    char host[kHeaderBytes];
    UINT32 length = sizeof(host);
    char name[] = "Host";
    if (Code(io->GetRequestHeader(name, &length, host)) == kCodeSuccess && length < sizeof(host))
        PutBytes(io, host, length);
    else
        Put(io, g_szHost);
}

} // namespace

void SendModuleUrl(IKestIO_5* pKestIo, UINT32 protocolRoom)
{
    SendScheme(pKestIo, std::min(protocolRoom, kHeaderBytes));
    SendHost(pKestIo);
    Put(pKestIo, g_szKestLocation);
    PutBytes(pKestIo, g_MonikerS.Buffer, g_MonikerS.Length);
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

    Put(pKestIo, "<a:href>");
    SendModuleUrl(pKestIo, kHeaderBytes);
    if (escaped.Length == 0 || escaped.Buffer[0] != '/')
        Put(pKestIo, "/");
    PutBytes(pKestIo, escaped.Buffer, escaped.Length);
    Put(pKestIo, "</a:href>\n");
    return status;
}
