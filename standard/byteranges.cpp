// SPDX-License-Identifier: Apache-2.0
//
// Sending content, and the frames of its parts.
#include "standard/byteranges.h"

#include <algorithm>
#include <cstdio>

#include "standard/number_text.h"
#include "standard/transfer_room.h"
#include "support/memory.h"
#include "support/reply.h"
#include <kest/com.h>
#include <kest/dav/content_file_3.h>
#include <kest/host/send_file.h>

namespace standard {

namespace {

using Number = unsigned long long; // as snprintf wants it

constexpr size_t kFrameBytes = 512;
constexpr size_t kBoundaryBytes = 33;
// From here on content is sent from its file. A smaller one leaves with the head in one piece.
constexpr UINT64 kLeastFromFile = 16 * 1024;
constexpr UINT64 kFilePiece = 64 * 1024 * 1024; // of one call, after which the host may refuse

// "bytes FIRST-LAST/SIZE".
struct ContentRange {
    char text[80];

    ContentRange(const ByteRange& range, UINT64 size)
    {
        std::snprintf(text, sizeof text, "bytes %llu-%llu/%llu", Number{range.first},
                      Number{range.first + range.length - 1}, Number{size});
    }
};

// The frames between the parts of one reply. The boundary is another one every time: what a file
// holds cannot be made to look like the end of its part.
class Frames {
  public:
    Frames(UINT64 size, const char* type) : size_(size), type_(type)
    {
        UINT64 time = 0;
        (void)pITalpl->TalxGetSystemTime(&time); // without it the addresses differ still
        const UINT64 seed[] = {time, reinterpret_cast<UINT64>(this)};
        UINT64 mixed[2];
        for (size_t i = 0; i < 2; ++i) { // the finalizer of splitmix64
            UINT64 x = seed[i] + 0x9E3779B97F4A7C15 * (i + 1);
            x = (x ^ x >> 30) * 0xBF58476D1CE4E5B9;
            x = (x ^ x >> 27) * 0x94D049BB133111EB;
            mixed[i] = x ^ x >> 31;
        }
        std::snprintf(boundary_, sizeof boundary_, "%016llx%016llx", Number{mixed[0]},
                      Number{mixed[1]});
    }
    const char* Boundary() const { return boundary_; }
    // What stands before a part; its length in bytes.
    UINT32 Before(const ByteRange& range, char (&frame)[kFrameBytes]) const
    {
        return Length(std::snprintf(frame, sizeof frame,
                                    "\r\n--%s\r\nContent-Type: %.200s\r\nContent-Range: %s\r\n\r\n",
                                    boundary_, type_, ContentRange(range, size_).text));
    }
    // What stands behind the last one.
    UINT32 Last(char (&frame)[kFrameBytes]) const
    {
        return Length(std::snprintf(frame, sizeof frame, "\r\n--%s--\r\n", boundary_));
    }

  private:
    static UINT32 Length(int written) { return written < 0 ? 0 : static_cast<UINT32>(written); }

    UINT64 size_;
    const char* type_;
    char boundary_[kBoundaryBytes];
};

UINT64 BodyLength(const Frames& frames, const RangeSet& set)
{
    char frame[kFrameBytes];
    UINT64 length = frames.Last(frame);
    for (size_t i = 0; i < set.count; ++i)
        length += frames.Before(set.parts[i], frame) + set.parts[i].length;
    return length;
}

} // namespace

// Sends content from the file that it stands in, and takes it off `range`; what is left has to be
// sent another way. Fails as SendBytes does.
TALSTATUS SendFromFile(IKestIO_5* io, IKestDAVResource3& resource, ByteRange& range)
{
    Ref<IKestSendFile> sender;
    Ref<IKestDAVContentFile3> file;
    INT32 descriptor = -1;
    if (Failed(Query(io, sender)) || Failed(Query(&resource, file)) ||
        Code(file->GetDescriptor(&descriptor)) != 0)
        return TAL_STATUS_SUCCESS;
    while (range.length != 0) {
        UINT64 sent = 0;
        const UINT64 want = std::min(range.length, kFilePiece);
        const TALSTATUS status = sender->SendFile(descriptor, range.first, want, &sent);
        if (Code(status) == kCodeNotImplemented)
            return TAL_STATUS_SUCCESS;
        if (Code(status) != 0)
            return status;
        if (sent == 0) // the content has become shorter
            return TAL_STATUS_END_OF_FILE;
        sent = std::min(sent, want);
        range.first += sent;
        range.length -= sent;
    }
    return TAL_STATUS_SUCCESS;
}

TALSTATUS SendBytes(IKestIO_5* io, IKestDAVResource3& resource, ByteRange range)
{
    if (range.length >= kLeastFromFile)
        if (const TALSTATUS status = SendFromFile(io, resource, range); Code(status) != 0)
            return status;
    if (range.length == 0)
        return TAL_STATUS_SUCCESS;
    TransferRoom room(range.length);
    char* const data = room.Data();
    if (!data)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    while (range.length != 0) {
        const auto want = static_cast<UINT32>(std::min<UINT64>(room.Size(), range.length));
        UINT32 read = 0;
        if (const TALSTATUS status = resource.Read(range.first, want, data, &read); Failed(status))
            return status;
        read = std::min(read, want);
        if (read == 0) // the content has become shorter
            return TAL_STATUS_END_OF_FILE;
        if (const TALSTATUS status = io->Write(read, reinterpret_cast<UINT8*>(data));
            Code(status) != 0)
            return status;
        range.first += read;
        range.length -= read;
    }
    return TAL_STATUS_SUCCESS;
}

TALSTATUS SendPart(IKestIO_5* io, IKestDAVResource3& resource, const ByteRange& range, UINT64 size)
{
    SetHeaderText(io, "Content-Range", ContentRange(range, size).text);
    SetHeaderText(io, "Content-Length", Decimal(range.length).Text());
    (void)io->SendHeader(206);
    return SendBytes(io, resource, range);
}

TALSTATUS SendParts(IKestIO_5* io, IKestDAVResource3& resource, const RangeSet& set, UINT64 size,
                    const char* type)
{
    const Frames frames(size, type);
    char frame[kFrameBytes];
    std::snprintf(frame, sizeof frame, "multipart/byteranges; boundary=%s", frames.Boundary());
    SetHeaderText(io, "Content-Type", frame);
    SetHeaderText(io, "Content-Length", Decimal(BodyLength(frames, set)).Text());
    (void)io->SendHeader(206);
    for (size_t i = 0; i < set.count; ++i) {
        const UINT32 length = frames.Before(set.parts[i], frame);
        PutBytes(io, frame, length);
        if (const TALSTATUS status = SendBytes(io, resource, set.parts[i]); Code(status) != 0)
            return status;
    }
    const UINT32 length = frames.Last(frame);
    PutBytes(io, frame, length);
    return TAL_STATUS_SUCCESS;
}

void SetUnsatisfied(IKestIO_5* io, UINT64 size)
{
    char text[40];
    std::snprintf(text, sizeof text, "bytes */%llu", Number{size});
    SetHeaderText(io, "Content-Range", text);
}

} // namespace standard
