// SPDX-License-Identifier: Apache-2.0
//
// Parses the "Range" header in the classic dialect.
#include "methods/ranges.h"

#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

// A position as clients know it: 32 bits with a sign, whatever was written.
INT64 Position(const char* text)
{
    return static_cast<INT32>(std::strtol(text, nullptr, 10));
}

// Adds the range to the sums and appends it.
void Append(KESTDAV_RANGE& record, UINT64 first, UINT64 bytes, UINT32& count)
{
    record.TotalBytes += bytes;
    if (count == 0) {
        record.Start = first;
        record.End = first + bytes;
    } else if (record.End + 1 == first) { // kept: one byte is left out between adjacent ranges
        record.End = first + bytes;
    } else {
        record.bContiguous = FALSE;
    }
    record.Ranges[count++] = {first, static_cast<INT64>(bytes)};
}

// Parses the list behind "bytes=". `end` is the text's terminator; cuts put NULs before it.
UINT32 ParseList(char* p, const char* end, KESTDAV_RANGE& record, UINT32& count)
{
    while (*p != 0 && count < record.uEntries) {
        if (*p == '\r' || *p == '\n') {
            ++p;
            continue;
        }
        char* number = p + std::strspn(p, " ");
        if (number == end)
            break;
        // Kept: the first character is not looked at, so a leading "-" is passed over.
        char* dash = number + 1 + std::strcspn(number + 1, "-,");
        if (dash == end) // kept: no range, and no error either
            break;
        if (*dash == ',')
            return 400;
        *dash = 0;
        const auto first = static_cast<UINT64>(Position(number));
        if (first > record.ResourceSize)
            return 416;

        char* stop = dash + 1 + std::strcspn(dash + 1, ",\r");
        p = stop;
        if (stop != end) {
            *stop = 0;
            p = stop + 1;
            while (p != end && (*p == '\r' || *p == '\n' || *p == 0))
                ++p;
        }
        auto last = static_cast<UINT64>(Position(dash + 1));
        if (last >= record.ResourceSize)
            last = record.ResourceSize - 1;
        UINT64 bytes = last + 1 - first;
        if (bytes > record.ResourceSize) // kept: also "first behind last"
            bytes = record.ResourceSize;
        Append(record, first, bytes, count);
    }
    return 200;
}

} // namespace

UINT32 ParseRequestRanges(char* pBuffer, KESTDAV_RANGE* pRangeRecord)
{
    KESTDAV_RANGE& record = *pRangeRecord;
    record.TotalBytes = 0;
    record.bContiguous = TRUE;
    record.Start = 0;
    record.End = 0;

    const size_t unit = std::strcspn(pBuffer, "= ");
    if (pBuffer[unit] != '=')
        return 400;
    pBuffer[unit] = 0;
    if (strcasecmp(pBuffer, "bytes") != 0)
        return 400;

    char* list = pBuffer + unit + 1;
    UINT32 count = 0;
    const UINT32 http = ParseList(list, list + std::strlen(list), record, count);
    record.uEntries = count;
    record.Ranges[count] = {};
    return http;
}
