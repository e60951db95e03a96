// SPDX-License-Identifier: Apache-2.0
//
// Reading request headers whatever their length.
#include "standard/request_headers.h"

#include <algorithm>
#include <cstring>

#include "standard/scan.h"
#include "support/globals.h"
#include "support/uri.h"

namespace standard {

namespace {

constexpr UINT32 kUsualBytes = 256; // most values fit, and cost one look-up
// The host bounds a request's head well below this.
constexpr UINT32 kMostBytes = 1U << 20;

// Puts a value into request memory.
TALSTATUS Keep(IKestIO_5* io, const char* bytes, UINT32 length, std::string_view& value)
{
    auto* text = static_cast<char*>(io->AllocMemory(length + 1));
    if (!text)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    std::memcpy(text, bytes, length);
    text[length] = '\0';
    value = {text, length};
    return TAL_STATUS_SUCCESS;
}

// Reads a value of more than kUsualBytes, of which the host has told the room that it needs.
TALSTATUS ReadLong(IKestIO_5* io, char* name, UINT32 room, std::string_view& value)
{
    if (room > kMostBytes)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    auto* text = static_cast<char*>(io->AllocMemory(room + 1));
    if (!text)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    UINT32 length = room;
    if (Failed(io->GetRequestHeader(name, &length, text)))
        return TAL_STATUS_INSUFFICIENT_RESOURCES; // it was there before
    value = {text, std::min(length, room)};
    return TAL_STATUS_SUCCESS;
}

} // namespace

TALSTATUS ReadHeader(IKestIO_5* io, const char* name, std::string_view& value)
{
    value = {};
    auto* const field = const_cast<char*>(name); // only read
    char usual[kUsualBytes + 1];
    UINT32 length = kUsualBytes;
    const TALSTATUS status = io->GetRequestHeader(field, &length, usual);
    if (Code(status) == kCodeNotFound)
        return TAL_STATUS_SUCCESS; // not sent
    if (Code(status) == kCodeBufferTooSmall)
        return ReadLong(io, field, length, value);
    return Failed(status) ? status : Keep(io, usual, std::min(length, kUsualBytes), value);
}

UINT64 ReadDate(std::string_view text)
{
    constexpr size_t kLongest = 64; // the longest form has 33 characters
    if (text.empty() || text.size() > kLongest)
        return 0;
    STRING date = {static_cast<UINT16>(text.size()), static_cast<UINT16>(text.size()),
                   const_cast<char*>(text.data())}; // only read
    UINT64 time = 0;
    return Failed(g_pIKestUtil->HttpTimeToSystemTime(&date, &time)) ? 0 : time;
}

TALSTATUS ReadDateHeader(IKestIO_5* io, const char* name, UINT64& date)
{
    std::string_view text;
    const TALSTATUS status = ReadHeader(io, name, text);
    date = Failed(status) ? 0 : ReadDate(text);
    return status;
}

TALSTATUS ReadConditions(IKestIO_5* io, bool isReading, Conditions& conditions)
{
    if (const TALSTATUS status = ReadHeader(io, "If-Match", conditions.match); Failed(status))
        return status;
    if (const TALSTATUS status = ReadHeader(io, "If-None-Match", conditions.noneMatch);
        Failed(status))
        return status;
    if (isReading)
        if (const TALSTATUS status =
                ReadDateHeader(io, "If-Modified-Since", conditions.modifiedSince);
            Failed(status))
            return status;
    return ReadDateHeader(io, "If-Unmodified-Since", conditions.unmodifiedSince);
}

TALSTATUS ReadMediaType(IKestIO_5* io, std::string_view wanted, bool& isWanted)
{
    std::string_view type;
    const TALSTATUS status = ReadHeader(io, "Content-Type", type);
    isWanted =
        !Failed(status) && EqualsIgnoringCase(Trimmed(type.substr(0, type.find(';'))), wanted);
    return status;
}

TALSTATUS ReadTrailingSlash(IKestIO_5* io, bool& endsWithSlash)
{
    UNICODE_STRING* url = nullptr;
    endsWithSlash = false;
    if (const TALSTATUS status = RequestUrl(io, &url); Code(status) != 0)
        return Failed(status) ? status : TAL_STATUS_UNSUCCESSFUL;
    const size_t units = url->Length / sizeof(WCHAR);
    endsWithSlash = units != 0 && url->Buffer[units - 1] == u'/';
    return TAL_STATUS_SUCCESS;
}

} // namespace standard
