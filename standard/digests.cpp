// SPDX-License-Identifier: Apache-2.0
//
// Verifying digests with the host's help.
#include "standard/digests.h"

#include <cstring>

#include "standard/request_headers.h"
#include <kest/com.h>

namespace standard {

namespace {

using Reader = bool (*)(std::string_view, WantedDigests&) noexcept;

TALSTATUS ReadInto(IKestIO_5* io, const char* name, Reader read, WantedDigests& wanted)
{
    std::string_view text;
    if (const TALSTATUS status = ReadHeader(io, name, text); Failed(status) || !text.data())
        return status;
    return read(text, wanted) ? TAL_STATUS_SUCCESS : TAL_STATUS_INVALID_REQUEST;
}

} // namespace

TALSTATUS BodyDigests::Begin(IKestIO_5* io, DigestsOf of)
{
    TALSTATUS status = TAL_STATUS_SUCCESS;
    if (of != DigestsOf::Whole)
        status = ReadInto(io, "Content-Digest", ReadDigestHeader, wanted_);
    if (!Failed(status) && (of == DigestsOf::Whole || of == DigestsOf::Both))
        status = ReadInto(io, "Repr-Digest", ReadDigestHeader, wanted_);
    if (!Failed(status) && of != DigestsOf::Content)
        status = ReadInto(io, "OC-Checksum", ReadChecksumHeader, wanted_);
    if (Failed(status))
        return status;
    for (size_t i = 0; i < wanted_.count; ++i) {
        Ref<IKestDigest> digest;
        if (status = Create(CLSID_KestDigest, digest); Failed(status)) {
            if (Code(status) == kCodeInsufficientResources)
                return status;
            continue; // not offered
        }
        status = digest->Begin(wanted_.digests[i].algorithm);
        if (Code(status) == kCodeInsufficientResources)
            return status;
        if (!Failed(status))
            running_[i] = std::move(digest);
    }
    return TAL_STATUS_SUCCESS;
}

TALSTATUS BodyDigests::Add(const void* data, UINT32 size)
{
    for (size_t i = 0; i < wanted_.count; ++i)
        if (running_[i])
            if (const TALSTATUS status = running_[i]->Add(size, data); Failed(status))
                return status;
    return TAL_STATUS_SUCCESS;
}

TALSTATUS BodyDigests::Check()
{
    for (size_t i = 0; i < wanted_.count; ++i) {
        if (!running_[i])
            continue;
        UINT8 bytes[kMostDigestBytes];
        UINT32 size = sizeof bytes;
        if (const TALSTATUS status = running_[i]->Finish(&size, bytes); Failed(status))
            return status;
        const WantedDigest& wanted = wanted_.digests[i];
        if (size != wanted.size || std::memcmp(bytes, wanted.bytes, size) != 0)
            return TAL_STATUS_INVALID_REQUEST;
    }
    return TAL_STATUS_SUCCESS;
}

} // namespace standard
