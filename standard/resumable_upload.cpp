// SPDX-License-Identifier: Apache-2.0
//
// Taking the bodies of resumable uploads.
#include "standard/resumable_upload.h"

#include <algorithm>

#include "standard/answer.h"
#include "standard/digests.h"
#include "standard/new_name.h"
#include "standard/object.h"
#include "standard/upload_resource.h"
#include "standard/upload_terms.h"
#include "support/memory.h"
#include "support/reply.h"
#include <kest/sdk/refusal.h>

namespace standard {

TALSTATUS FindUploads(SCHANDLE session, const UNICODE_STRING& path, Ref<IKestDAVUploads3>& uploads)
{
    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = FindProviderOfNew(session, path, handler); Failed(status))
        return status;
    return handler->pIKestDav3 && !Failed(Query(handler->pIKestDav3, uploads))
               ? TAL_STATUS_SUCCESS
               : TAL_STATUS_NOT_SUPPORTED;
}

// What this request says of the whole's length, which has to be one.
TALSTATUS ResumableUpload::FindLength(UINT64 start, bool& isConsistent)
{
    isConsistent = true;
    if (fields_.hasLength) {
        isConsistent = length_ == kUploadLengthUnknown || length_ == fields_.length;
        length_ = fields_.length;
    }
    if (!isConsistent)
        return TAL_STATUS_INVALID_REQUEST;
    if (!upload_.hasBodyLength)
        return TAL_STATUS_SUCCESS;
    const UINT64 end = start + upload_.bodyLength;
    const bool isKnown = length_ != kUploadLengthUnknown;
    isConsistent =
        end >= start && (!isKnown || (fields_.isComplete ? end == length_ : end <= length_));
    if (fields_.isComplete)
        length_ = end;
    return isConsistent ? TAL_STATUS_SUCCESS : TAL_STATUS_INVALID_REQUEST;
}

TALSTATUS ResumableUpload::Begin(bool& isServed)
{
    DAV_TEXT terms{};
    TALSTATUS status = GatherTerms(io_, terms);
    if (!Failed(status))
        status = FindUploads(session_, target_, uploads_);
    state_.Size = sizeof state_;
    if (!Failed(status))
        status = uploads_->Begin(session_, &target_, length_, &terms, &upload_.conditions,
                                 &upload_.failures, &state_);
    // In one go it may fit, and otherwise hears why it does not.
    const UINT16 code = Code(status);
    const bool isOffered = !IsNotOffered(status) && code != kCodeStorageFull &&
                           code != kCodeTimeout && code != kCodeBufferTooSmall;
    isServed = isOffered || !fields_.isComplete;
    return status;
}

TALSTATUS ResumableUpload::Create(const UploadFields& fields, bool& isServed)
{
    isServed = true;
    isCreation_ = true;
    fields_ = fields;
    bool isConsistent = true;
    TALSTATUS status = ReadUpload(io_, upload_);
    if (!Failed(status))
        status = FindLength(0, isConsistent);
    if (!isConsistent)
        return RefuseLength(io_, status);
    const ProviderGuard providers;
    if (!Failed(status))
        status = Begin(isServed);
    if (!isServed)
        return status;
    if (IsNotOffered(status)) // a part must not pass for the whole
        return Refuse(io_, 501, status);
    if (Failed(status))
        return AnswerUpload(io_, upload_.failures.Described(session_, target_, status), target_,
                            upload_);
    location_ = UploadLocation(io_, state_);
    if (location_.empty() && !fields_.isComplete) { // nobody could go on with it
        Cancel();
        return RefuseMapped(io_, TAL_STATUS_INSUFFICIENT_RESOURCES);
    }
    AnnounceUpload(io_, fields_, state_, location_);
    return Take(0);
}

TALSTATUS ResumableUpload::Append(const UploadFields& fields, const DAV_TEXT& name)
{
    fields_ = fields;
    const ProviderGuard providers;
    const Paged<char> terms = AllocPaged<char>(kMostUploadTerms + 1);
    UINT32 size = kMostUploadTerms;
    TALSTATUS status =
        terms ? FindUploads(session_, target_, uploads_) : TAL_STATUS_INSUFFICIENT_RESOURCES;
    state_.Size = sizeof state_;
    if (!Failed(status))
        status = uploads_->Find(session_, &target_, &name, &size, terms.get(), &state_);
    if (!Failed(status))
        status = RestoreTerms(io_, {terms.get(), std::min(size, kMostUploadTerms)});
    if (!Failed(status))
        status = ReadUpload(io_, upload_);
    if (Failed(status))
        return IsNotOffered(status) ? Refuse(io_, 404, status) : RefuseMapped(io_, status);
    length_ = state_.Length;
    bool isConsistent = true;
    const TALSTATUS found = FindLength(state_.Offset, isConsistent);
    if (state_.Flags & kUploadComplete)
        return upload_.hasBodyLength && upload_.bodyLength == 0
                   ? RefuseCompleted(io_, TAL_STATUS_INVALID_REQUEST)
                   : RefuseLength(io_, TAL_STATUS_INVALID_REQUEST);
    if (fields_.offset != state_.Offset)
        return RefuseOffset(io_, TAL_STATUS_CONFLICT, state_.Offset, fields_.offset);
    if (!isConsistent)
        return RefuseLength(io_, found);
    return Take(state_.Offset);
}

// Opens the upload, takes the body, and ends with it what it ends.
TALSTATUS ResumableUpload::Take(UINT64 start)
{
    const DAV_TEXT name = {state_.Name, std::min(state_.NameLength, kUploadNameBytes)};
    IKestDAVResource3* opened = nullptr;
    const TALSTATUS status =
        uploads_->Continue(session_, &target_, &name, start, length_, &upload_.conditions, &opened);
    if (Code(status) == kCodeInvalidRequest)
        return RefuseLength(io_, status);
    if (Failed(status))
        return RefuseMapped(io_, status);
    const Ref<IKestDAVResource3> content = Ref<IKestDAVResource3>::Adopt(opened);
    const Received received = Receive(*content.Get(), start);
    if (Failed(received.status))
        return AnswerBroken(received);
    const UINT64 end = start + received.bytes;
    return fields_.isComplete ? Finish(*content.Get(), end) : AnswerPart(end);
}

// Whatever ends the body, what came of it stays; but for content that is not what was announced.
ResumableUpload::Received ResumableUpload::Receive(IKestDAVResource3& content, UINT64 start)
{
    Received received;
    BodyDigests digests;
    if (received.status = digests.Begin(io_, DigestsOf::Content); Failed(received.status))
        return received;
    const TransferBuffer buffer = TransferBuffer::Allocate();
    if (!buffer) {
        received.status = TAL_STATUS_INSUFFICIENT_RESOURCES;
        return received;
    }
    for (;;) {
        UINT32 read = 0;
        const TALSTATUS status =
            io_->ReadClientPayload(buffer.size, reinterpret_cast<UINT8*>(buffer.data.get()), &read);
        if (Code(status) == kCodeEndOfFile)
            break;
        if (Code(status) != 0) {
            received.status = TAL_STATUS_INVALID_REQUEST;
            received.refusal = Code(status) == kCodeTimeout ? 408 : 400;
            return received;
        }
        read = std::min(read, buffer.size);
        received.status = digests.Add(buffer.data.get(), read);
        if (!Failed(received.status))
            received.status = content.Write(start + received.bytes, read, buffer.data.get());
        received.isTooLong = Code(received.status) == kCodeInvalidRequest;
        if (Failed(received.status))
            return received;
        received.bytes += read;
    }
    received.status = digests.Check();
    // The next look must not find what is known to be wrong: it would become a part of the file.
    if (Failed(received.status) && Failed(content.SetLength(start)))
        Cancel();
    return received;
}

TALSTATUS ResumableUpload::AnswerBroken(const Received& received)
{
    if (received.isTooLong) { // no upload can go on from there
        Cancel();
        return RefuseLength(io_, received.status);
    }
    return received.refusal ? Refuse(io_, received.refusal, received.status)
                            : RefuseMapped(io_, received.status);
}

void ResumableUpload::SetPlace()
{
    if (location_.empty())
        return;
    SetHeaderText(io_, "Location", location_.data());
    SetUploadLimits(io_, state_);
}

TALSTATUS ResumableUpload::AnswerPart(UINT64 offset)
{
    SetUploadOffset(io_, offset);
    SetUploadComplete(io_, fields_, false);
    SetPlace();
    return isCreation_ ? ReplyEmpty(io_, 201, TAL_STATUS_SUCCESS)
                       : Reply(io_, 204, TAL_STATUS_SUCCESS);
}

// The whole is read once more where its digest was announced: it may have come in many requests.
TALSTATUS ResumableUpload::CheckWhole(IKestDAVResource3& content, UINT64 size)
{
    BodyDigests digests;
    TALSTATUS status = digests.Begin(io_, DigestsOf::Whole);
    if (Failed(status) || digests.AreNone())
        return status;
    const TransferBuffer buffer = TransferBuffer::Allocate();
    if (!buffer)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    for (UINT64 offset = 0; offset < size;) {
        UINT32 read = 0;
        status = content.Read(offset, buffer.size, buffer.data.get(), &read);
        if (!Failed(status) && read == 0)
            status = TAL_STATUS_UNSUCCESSFUL;
        if (!Failed(status))
            status = digests.Add(buffer.data.get(), std::min(read, buffer.size));
        if (Failed(status))
            return status;
        offset += read;
    }
    return digests.Check();
}

// All of it is here: as if it had come with the first request.
TALSTATUS ResumableUpload::Finish(IKestDAVResource3& content, UINT64 size)
{
    const bool isWhole = length_ == kUploadLengthUnknown || length_ == size;
    TALSTATUS status = isWhole ? CheckWhole(content, size) : TAL_STATUS_INVALID_REQUEST;
    if (!Failed(status))
        status = content.Publish(upload_.modified, 0, &upload_.failures, &upload_.change);
    status = upload_.failures.Described(session_, target_, status);
    // Trying again would not change it.
    const bool isOver = !Failed(status) || kest::HttpStatusOfFailure(status) < 500;
    // Where it goes on, only the next look knows what of it is on the disk.
    if (isOver) {
        SetUploadOffset(io_, size);
        SetUploadComplete(io_, fields_, true);
    }
    // Else it is the place of what was made (RFC 9110 section 15.3.2).
    if (!fields_.NeedsMediaType())
        SetPlace();
    if (Failed(status) && isOver)
        Cancel();
    return AnswerUpload(io_, status, target_, upload_);
}

void ResumableUpload::Cancel()
{
    const DAV_TEXT name = {state_.Name, std::min(state_.NameLength, kUploadNameBytes)};
    (void)uploads_->Cancel(session_, &target_, &name); // else it ends in its time
}

} // namespace standard
