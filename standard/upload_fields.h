// SPDX-License-Identifier: Apache-2.0
//
// The header fields of resumable uploads ("Resumable Uploads for HTTP",
// draft-ietf-httpbis-resumable-upload): structured items (RFC 9651), of which a value that is none
// is as good as not sent.
#pragma once

#include <string_view>

#include <kest/io.h>
#include <kest/status.h>

namespace standard {

// The draft's "interop versions". 3 says "Upload-Incomplete", later ones say "Upload-Complete"; 6
// is the first to ask for the media type of appended content. What the RFC will be sends none.
inline constexpr UINT64 kFirstInterop = 3;
inline constexpr UINT64 kFirstWithMediaType = 6;
inline constexpr UINT64 kLastInterop = 9;

struct UploadFields {
    bool isMarked = false;   // "Upload-Complete" or "Upload-Incomplete" was sent
    bool isComplete = false; // the content ends with this request's
    bool isOldForm = false;  // it was "Upload-Incomplete"
    bool hasOffset = false;
    bool hasLength = false;
    UINT64 offset = 0;  // "Upload-Offset", bytes
    UINT64 length = 0;  // "Upload-Length", bytes of the whole
    UINT64 version = 0; // "Upload-Draft-Interop-Version"; 0: not sent

    // Whether the client can be told of the feature: it asks in a version that is spoken here.
    bool MayAnnounce() const noexcept
    {
        return version == 0 || (version >= kFirstInterop && version <= kLastInterop);
    }
    bool NeedsMediaType() const noexcept { return version == 0 || version >= kFirstWithMediaType; }
};

// "?0" and "?1", and whole numbers that are not negative (RFC 9651 sections 3.3.6 and 3.3.1), with
// or without parameters. False for anything else.
[[nodiscard]] bool ReadBooleanItem(std::string_view value, bool& out) noexcept;
[[nodiscard]] bool ReadIntegerItem(std::string_view value, UINT64& out) noexcept;

// Reads what marks a request as part of a resumable upload, and nothing else.
[[nodiscard]] TALSTATUS ReadUploadMark(IKestIO_5* io, UploadFields& fields);
// Reads everything. Both fail with code 5 when memory is short.
[[nodiscard]] TALSTATUS ReadUploadFields(IKestIO_5* io, UploadFields& fields);

} // namespace standard
