// SPDX-License-Identifier: Apache-2.0
//
// Writes the href of an object in a multistatus: origin, location, escaped path.
#include <algorithm>
#include <cstring>
#include <limits>

#include "props/propfind.h"
#include "support/escape.h"
#include "support/stack_or_heap_buffer.h"

namespace {

constexpr UINT32 kHeaderBytes = 256; // room for the protocol's name, and for the host header
constexpr UINT32 kHostBytes = std::max(kHeaderBytes, kConfigTextBytes);
constexpr UINT32 kRootProtocolBytes = 32; // for the protocol's name in the root's href
constexpr UINT32 kPathBytes = 512;        // a usual path in UTF-8

// Writes the scheme and "://" at `out`, which has room for `room` bytes and those three. Returns
// the end.
char* AddScheme(IKestIO_5* io, UINT32 room, char* out)
{
    UINT32 length = room;
    TALSTATUS status = TAL_STATUS_UNSUCCESSFUL;
    {
        Ref<IKestIO_3> io3;
        (void)Query(io, io3); // an object of an older version leaves io3 empty
        if (io3)
            status = io3->GetProtocolName(&length, out);
    }
    if (Code(status) != kCodeSuccess) {
        std::memcpy(out, "http", 4);
        length = 4;
    }
    out += std::min(length, room);
    std::memcpy(out, "://", 3);
    return out + 3;
}

// Writes the client's own name for the server, so that its hrefs compare equal to what it asked
// for. `out` has room for kHostBytes.
char* AddHost(IKestIO_5* io, char* out)
{
    UINT32 length = kHeaderBytes;
    char name[] = "Host";
    if (Code(io->GetRequestHeader(name, &length, out)) != kCodeSuccess || length >= kHeaderBytes) {
        length = static_cast<UINT32>(std::strlen(g_szHost)); // at most kHostBytes
        std::memcpy(out, g_szHost, length);
    }
    return out + length;
}

// The path under which the module is mounted, without a "/" at the end.
void PutModulePath(BufferedIo* io)
{
    PutText(io, g_szKestLocation);
    PutBytes(io, g_MonikerS.Buffer, g_MonikerS.Length);
}

} // namespace

std::string_view BufferedIo::Origin()
{
    if (originLength_ == 0)
        originLength_ =
            static_cast<UINT32>(AddHost(io_, AddScheme(io_, kHeaderBytes, origin_)) - origin_);
    return {origin_, originLength_};
}

void SendRootHRef(BufferedIo* pKestIo)
{
    char origin[kRootProtocolBytes + 3 + kHostBytes];
    const char* const end =
        AddHost(pKestIo->Host(), AddScheme(pKestIo->Host(), kRootProtocolBytes, origin));
    Put(pKestIo, "<a:href>");
    PutBytes(pKestIo, origin, static_cast<UINT32>(end - origin));
    PutModulePath(pKestIo);
    Put(pKestIo, "/</a:href>\n");
}

TALSTATUS PropFindBuildAndSendHRef(BufferedIo* pKestIo, UNICODE_STRING* pRefU)
{
    const UINT32 units = pRefU->Length / UINT32{sizeof(WCHAR)};
    StackOrHeapBuffer<kPathBytes * 3 + 1> pathRoom;
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
    StackOrHeapBuffer<kPathBytes * 3> escapedRoom;
    STRING pathS = {static_cast<UINT16>(bytes), static_cast<UINT16>(bytes), path};
    STRING escaped = {0, static_cast<UINT16>(room), escapedRoom.Get(room)};
    if (!escaped.Buffer)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    const TALSTATUS status = ConvertUTF8PathToUTF8EscapedUri(&pathS, &escaped);
    if (Failed(status))
        return status;

    Put(pKestIo, "<a:href>");
    PutText(pKestIo, pKestIo->Origin());
    PutModulePath(pKestIo);
    if (escaped.Length == 0 || escaped.Buffer[0] != '/')
        Put(pKestIo, "/");
    PutBytes(pKestIo, escaped.Buffer, escaped.Length);
    Put(pKestIo, "</a:href>\n");
    return status;
}
