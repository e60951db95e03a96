// SPDX-License-Identifier: Apache-2.0
//
// How tags and stamped dates are made.
#include "providers/filestore/etag.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>

#include "base/hex.h"
#include "providers/filestore/platform.h"

namespace filestore {

namespace {

constexpr UINT64 kChecks = 1000;
constexpr UINT64 kFractions = kTicksPerSecond / kChecks; // that a second has stamps for
// Changes that are further apart never bear the same date. The coarsest file systems count whole
// seconds, two or hundredths of one; the others take the kernel's clock, which ticks a hundred
// times a second at least, and at any fraction.
constexpr UINT64 kCoarse = kTicksPerSecond / 100;
constexpr UINT64 kSettledCoarse = 2 * kTicksPerSecond;
constexpr UINT64 kSettledFine = kTicksPerSecond / 10;

// The two digits of each byte: every member of a listing has a tag.
constexpr std::array<char, 512> kHexPairs = [] {
    std::array<char, 512> pairs{};
    for (size_t byte = 0; byte < 256; ++byte) {
        pairs[2 * byte] = base::kLowerHex[byte >> 4];
        pairs[2 * byte + 1] = base::kLowerHex[byte & 0xF];
    }
    return pairs;
}();

bool IsSettled(UINT64 date, UINT64 now)
{
    const UINT64 age = date % kCoarse == 0 ? kSettledCoarse : kSettledFine;
    return now >= age && date < now - age;
}

UINT64 CheckOf(UINT64 stamp) // in seconds and fractions, without the check
{
    stamp = (stamp ^ stamp >> 29) * 0xBF58476D1CE4E5B9u;
    stamp = (stamp ^ stamp >> 32) * 0x94D049BB133111EBu;
    return (stamp ^ stamp >> 31) % kChecks;
}

// The next of the numbers that go up with the clock, and are never the same.
UINT64 NextOf(std::atomic<UINT64>& last, UINT64 now)
{
    UINT64 before = last.load(std::memory_order_relaxed);
    UINT64 next = 0;
    do
        next = std::max(now, before + 1);
    while (!last.compare_exchange_weak(before, next, std::memory_order_relaxed));
    return next;
}

} // namespace

UINT64 StampedDate(UINT64 wanted, bool isGiven)
{
    static std::atomic<UINT64> lastNow{0};
    static std::atomic<UINT64> lastGiven{SystemTime() / kChecks};
    UINT64 stamp = wanted / kChecks;
    if (isGiven) {
        // Dates that clients give come again and again: the fraction tells them apart.
        const UINT64 fraction = NextOf(lastGiven, 0) % kFractions;
        stamp = stamp - stamp % kFractions + fraction;
    } else {
        stamp = NextOf(lastNow, stamp);
    }
    return stamp * kChecks + CheckOf(stamp);
}

bool IsStamped(UINT64 date)
{
    return date % kChecks == CheckOf(date / kChecks);
}

bool HasStrongTag(const FileInfo& info, UINT64 now)
{
    return !info.isDirectory && (IsStamped(info.modified) || IsSettled(info.modified, now));
}

void PutTag(const FileInfo& info, UINT64 now, DAV_TAG* out)
{
    const DAV_ETAG etag = ETagOf(info);
    char* to = out->Text;
    if (!HasStrongTag(info, now)) {
        *to++ = 'W';
        *to++ = '/';
    }
    *to++ = '"';
    for (const UINT8 byte : etag.Bytes)
        to = std::copy_n(kHexPairs.data() + 2 * byte, 2, to);
    *to++ = '"';
    out->Length = static_cast<UINT32>(to - out->Text);
}

std::string TagText(const FileInfo& info, UINT64 now)
{
    DAV_TAG tag;
    PutTag(info, now, &tag);
    return {tag.Text, tag.Length};
}

DAV_ETAG ETagOf(const FileInfo& info)
{
    const UINT64 parts[2] = {info.modified, info.inode ^ info.size << 32 ^ info.size >> 32};
    DAV_ETAG etag;
    static_assert(sizeof parts == sizeof etag.Bytes);
    std::memcpy(etag.Bytes, parts, sizeof parts);
    return etag;
}

std::string ETagText(const DAV_ETAG& etag)
{
    std::string text = "\"";
    for (const UINT8 byte : etag.Bytes)
        base::AppendHex(text, byte, base::kLowerHex);
    return text + "\"";
}

} // namespace filestore
