// SPDX-License-Identifier: Apache-2.0
//
// Storing request bodies, whole or as a part of what is there.
#include "standard/upload.h"

#include <algorithm>

#include "standard/allow.h"
#include "standard/answer.h"
#include "standard/byteranges.h"
#include "standard/digests.h"
#include "standard/new_name.h"
#include "standard/preconditions.h"
#include "standard/request_headers.h"
#include "standard/scan.h"
#include "standard/transfer_room.h"
#include "standard/upload_headers.h"
#include "support/memory.h"
#include "support/reply.h"

namespace standard {

namespace {

// Takes a length that a header announces; two that differ contradict each other.
TALSTATUS TakeLength(IKestIO_5* io, const char* name, Upload& upload)
{
    std::string_view text;
    if (const TALSTATUS status = ReadHeader(io, name, text); Failed(status) || !text.data())
        return status;
    UINT64 bytes = 0;
    if (!ReadExpectedLength(text, bytes) || (upload.hasBodyLength && upload.bodyLength != bytes))
        return TAL_STATUS_INVALID_REQUEST;
    upload.hasBodyLength = true;
    upload.bodyLength = bytes;
    return TAL_STATUS_SUCCESS;
}

// A date that is none is left out: the reply does not say "accepted" then.
TALSTATUS TakeDate(IKestIO_5* io, Upload& upload)
{
    std::string_view text;
    if (const TALSTATUS status = ReadHeader(io, "X-OC-Mtime", text); Failed(status))
        return status;
    if (!text.data() || !ReadModificationTime(text, upload.modified))
        upload.modified = 0;
    return TAL_STATUS_SUCCESS;
}

// Opens the resource for what the upload wants. `info` is what is there, filled for a part alone.
TALSTATUS Open(SCHANDLE session, UNICODE_STRING* path, const KESTDAV_HANDLER& handler,
               Upload& upload, Ref<IKestDAVResource3>& resource, DAV_OBJECT_INFO& info)
{
    if (const TALSTATUS status = CreateResource(handler, resource); Failed(status))
        return status;
    constexpr UINT64 kMostExpected = std::numeric_limits<INT64>::max();
    const UINT32 purpose = upload.isPart ? kOpenModify : kOpenReplace;
    const INT64 expected =
        upload.hasBodyLength && !upload.isPart && upload.bodyLength <= kMostExpected
            ? static_cast<INT64>(upload.bodyLength)
            : -1;
    DAV_OBJECT_INFO* const wanted = upload.isPart ? &info : nullptr; // else nobody asks what it was
    const TALSTATUS status = resource->Open(session, path, purpose, expected, &upload.conditions,
                                            &upload.failures, wanted);
    // The first part of what is not there makes it.
    if (Code(status) != kCodeNotFound || !upload.isPart || !upload.range.hasSize ||
        upload.range.first != 0)
        return status;
    return resource->Open(session, path, kOpenReplace, expected, &upload.conditions,
                          &upload.failures, &info);
}

TALSTATUS RefuseRange(Upload& upload, UINT64 size)
{
    upload.refusal = 416;
    upload.size = size;
    return TAL_STATUS_INVALID_REQUEST;
}

// Where in a content of `size` bytes the body begins. A part never leaves a gap, and never claims a
// whole that is shorter than what is there.
TALSTATUS FindStart(Upload& upload, UINT64 size, UINT64& start)
{
    const UpdateRange& range = upload.range;
    switch (range.kind) {
    case UpdateRange::Kind::Append:
        start = size;
        return TAL_STATUS_SUCCESS;
    case UpdateRange::Kind::FromEnd:
        start = size - std::min(range.length, size);
        return range.length > size ? RefuseRange(upload, size) : TAL_STATUS_SUCCESS;
    case UpdateRange::Kind::At:
        break;
    }
    start = range.first;
    if (start > size || (range.hasSize && range.size < size))
        return RefuseRange(upload, size);
    return TAL_STATUS_SUCCESS;
}

// Writes the whole body from `start` on. Whatever ends it too early, or makes it longer than was
// announced, is a failure.
TALSTATUS WriteBody(IKestIO_5* io, IKestDAVResource3& resource, UINT64 start, Upload& upload)
{
    BodyDigests digests;
    if (const TALSTATUS status =
            digests.Begin(io, upload.isPart ? DigestsOf::Part : DigestsOf::Both);
        Failed(status))
        return status;
    TransferRoom room(upload.hasBodyLength ? upload.bodyLength : ~UINT64{0});
    char* const data = room.Data();
    if (!data)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    UINT64 written = 0;
    for (;;) {
        UINT32 read = 0;
        const TALSTATUS status =
            io->ReadClientPayload(room.Size(), reinterpret_cast<UINT8*>(data), &read);
        if (Code(status) == kCodeEndOfFile)
            break;
        if (Code(status) != 0) {
            upload.refusal = Code(status) == kCodeTimeout ? 408 : 400;
            return TAL_STATUS_INVALID_REQUEST;
        }
        read = std::min(read, room.Size());
        if (upload.hasBodyLength && read > upload.bodyLength - written)
            return TAL_STATUS_INVALID_REQUEST;
        if (const TALSTATUS added = digests.Add(data, read); Failed(added))
            return added;
        if (const TALSTATUS stored = resource.Write(start + written, read, data); Failed(stored))
            return stored;
        written += read;
    }
    if (upload.hasBodyLength && written != upload.bodyLength)
        return TAL_STATUS_INVALID_REQUEST;
    return digests.Check();
}

// From the opening to the publishing.
TALSTATUS Replace(SCHANDLE session, UNICODE_STRING* path, IKestIO_5* io,
                  const KESTDAV_HANDLER& handler, Upload& upload)
{
    Ref<IKestDAVResource3> resource;
    DAV_OBJECT_INFO info = EmptyInfo();
    if (const TALSTATUS status = Open(session, path, handler, upload, resource, info);
        Failed(status))
        return status;
    UINT64 start = 0;
    if (upload.isPart)
        if (const TALSTATUS status = FindStart(upload, info.ResourceSize, start); Failed(status))
            return status;
    if (const TALSTATUS status = WriteBody(io, *resource.Get(), start, upload); Failed(status))
        return status;
    return resource->Publish(upload.modified, 0, &upload.failures, &upload.change);
}

} // namespace

TALSTATUS ReadUpload(IKestIO_5* io, Upload& upload)
{
    if (upload.isPart && upload.range.hasLength) {
        upload.hasBodyLength = true;
        upload.bodyLength = upload.range.length;
    }
    for (const char* name : {"Content-Length", "X-Expected-Entity-Length"})
        if (const TALSTATUS status = TakeLength(io, name, upload); Failed(status))
            return status;
    if (const TALSTATUS status = TakeDate(io, upload); Failed(status))
        return status;
    return ReadPreconditions(io, upload.conditions);
}

TALSTATUS StoreUpload(SCHANDLE session, UNICODE_STRING* path, IKestIO_5* io, Upload& upload)
{
    const ProviderGuard providers;
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = FindProviderOfNew(session, *path, handler); Failed(status))
        return status;
    upload.isServed = handler->pIKestDav3 != nullptr;
    if (!upload.isServed)
        return TAL_STATUS_SUCCESS;
    return upload.failures.Described(session, *path, Replace(session, path, io, *handler, upload));
}

TALSTATUS AnswerUpload(IKestIO_5* io, TALSTATUS status, const UNICODE_STRING& path,
                       const Upload& upload)
{
    if (Failed(status)) {
        if (upload.refusal == 416)
            SetUnsatisfied(io, upload.size);
        if (upload.refusal)
            return Refuse(io, upload.refusal, status);
        if (Code(status) == kCodeMethodNotAllowed)
            return RefuseMethod(io, Kind::Collection, status);
        return AnswerFailure(io, status, upload.failures, path);
    }
    SetValidators(io, upload.change.Info);
    if (upload.modified)
        SetHeader(io, "X-OC-Mtime", "accepted");
    return upload.change.Outcome == kOutcomeCreated ? ReplyEmpty(io, 201, status)
                                                    : Reply(io, 204, status);
}

} // namespace standard
