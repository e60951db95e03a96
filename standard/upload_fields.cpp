// SPDX-License-Identifier: Apache-2.0
//
// Reading the header fields of resumable uploads.
#include "standard/upload_fields.h"

#include "standard/request_headers.h"
#include "standard/scan.h"

namespace standard {

namespace {

constexpr UINT64 kMostInteger = 999'999'999'999'999; // of 15 digits: RFC 9651 section 3.3.1

// Whether nothing but parameters follows.
bool EndsItem(std::string_view rest) noexcept
{
    return rest.empty() || rest.front() == ';';
}

TALSTATUS ReadInteger(IKestIO_5* io, const char* name, bool& isThere, UINT64& number)
{
    std::string_view text;
    const TALSTATUS status = ReadHeader(io, name, text);
    isThere = !Failed(status) && text.data() && ReadIntegerItem(text, number);
    return status;
}

} // namespace

bool ReadBooleanItem(std::string_view value, bool& out) noexcept
{
    value = Trimmed(value);
    const bool isOne = Take(value, "?1");
    if (!(isOne || Take(value, "?0")) || !EndsItem(value))
        return false;
    out = isOne;
    return true;
}

bool ReadIntegerItem(std::string_view value, UINT64& out) noexcept
{
    value = Trimmed(value);
    UINT64 number = 0;
    if (!TakeNumber(value, number) || number > kMostInteger || !EndsItem(value))
        return false;
    out = number;
    return true;
}

TALSTATUS ReadUploadMark(IKestIO_5* io, UploadFields& fields)
{
    for (const char* name : {"Upload-Complete", "Upload-Incomplete"}) {
        std::string_view text;
        bool value = false;
        if (const TALSTATUS status = ReadHeader(io, name, text); Failed(status))
            return status;
        if (!text.data() || !ReadBooleanItem(text, value))
            continue;
        fields.isMarked = true;
        fields.isOldForm = name[std::string_view("Upload-").size()] == 'I';
        fields.isComplete = value != fields.isOldForm;
        break;
    }
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ReadUploadFields(IKestIO_5* io, UploadFields& fields)
{
    bool hasVersion = false;
    TALSTATUS status = ReadUploadMark(io, fields);
    if (!Failed(status))
        status = ReadInteger(io, "Upload-Offset", fields.hasOffset, fields.offset);
    if (!Failed(status))
        status = ReadInteger(io, "Upload-Length", fields.hasLength, fields.length);
    if (!Failed(status))
        status = ReadInteger(io, "Upload-Draft-Interop-Version", hasVersion, fields.version);
    return status;
}

} // namespace standard
