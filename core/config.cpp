// SPDX-License-Identifier: Apache-2.0
//
// The module's settings, read from the registry.
#include "core/config.h"

#include <cstring>
#include <iterator>

#include "core/eventhandler.h"
#include "core/lifecycle.h"
#include "support/memory.h"
#include "support/registry_key.h"

const WCHAR kModuleKey[] = u"Kest\\Configuration\\KestDav";

namespace {

constexpr size_t kMonikerUnits = 255;
constexpr WCHAR kDefaultMoniker[] = u"/Ferro";
constexpr UINT16 kMonikerBytes = kMonikerUnits * sizeof(WCHAR);

WCHAR g_wMoniker[kMonikerUnits];
// The buffer that g_MonikerU uses from the first failed reading on. As large as the other one,
// since a later reading writes into whichever is in use.
WCHAR g_wFallbackMoniker[kMonikerUnits];
char g_cMoniker[kMonikerUnits + 1]; // the text may fill all 255 bytes; the last is its terminator

// Sizes of the buffers for a value record: the record, the value's name and the value.
constexpr UINT32 kNumberRecordBytes = 90;
constexpr UINT32 kMonikerRecordBytes = 534;
constexpr UINT32 kDialectRecordBytes = 128;

} // namespace

UINT32 g_RWBlockSize = kDefaultBlockSize;
Dialect g_Dialect = Dialect::Classic;
UINT32 g_InfinityEntries = kDefaultInfinityEntries;
UNICODE_STRING g_MonikerU = {0, kMonikerBytes, g_wMoniker};
STRING g_MonikerS = {0, kMonikerUnits, g_cMoniker};

namespace {

// Reads a number of the module's key, whatever type it was stored as. Without one, or with less
// data than a number has, `value` stays.
TALSTATUS ReadNumber(const WCHAR* name, UINT32& value)
{
    RegistryKey key;
    if (const TALSTATUS status = key.Open(kModuleKey); Failed(status))
        return status;
    const Paged<char> record = AllocPaged<char>(kNumberRecordBytes);
    if (!record)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    UINT32 used = 0;
    const TALSTATUS status =
        pITalpl->TalxQueryValueKey(key.Get(), name, record.get(), kNumberRecordBytes, &used);
    if (Failed(status))
        return status;
    UINT32 length = 0;
    const char* data = ValueData(record.get(), kNumberRecordBytes, length);
    if (data && length >= sizeof value)
        std::memcpy(&value, data, sizeof value);
    return status;
}

// True when a value's data is this text, with its terminator.
template <size_t N> bool IsText(const char* data, UINT32 bytes, const WCHAR (&text)[N])
{
    return data && bytes == sizeof text && std::memcmp(data, text, bytes) == 0;
}

// Points g_MonikerU at the default text.
void UseDefaultMoniker()
{
    std::memcpy(g_wFallbackMoniker, kDefaultMoniker, sizeof kDefaultMoniker);
    pITalpl->TalxInitUnicodeString(&g_MonikerU, g_wFallbackMoniker);
    g_MonikerU.MaximumLength = kMonikerBytes;
}

// Takes the stored text, which ends with its terminator. False when there is none to take.
bool TakeMoniker(const char* data, UINT32 bytes)
{
    if (!data || bytes < sizeof(WCHAR) || bytes > kMonikerBytes - sizeof(WCHAR))
        return false;
    WCHAR* text = g_MonikerU.Buffer;
    pITalpl->TalxCopyMemory(text, data, bytes);
    text[bytes / sizeof(WCHAR)] = 0;
    g_MonikerU.Length = static_cast<UINT16>(bytes - sizeof(WCHAR));
    return true;
}

// Reads the stored moniker. The result is 0 or the code of the failure.
UINT16 ReadMoniker()
{
    RegistryKey key;
    if (const TALSTATUS status = key.Open(kModuleKey); Failed(status))
        return Code(status);
    const Paged<char> record = AllocPaged<char>(kMonikerRecordBytes);
    if (!record)
        return kCodeInsufficientResources;
    UINT32 used = 0;
    const TALSTATUS status =
        pITalpl->TalxQueryValueKey(key.Get(), u"Moniker", record.get(), kMonikerRecordBytes, &used);
    if (Failed(status))
        return Code(status);
    UINT32 length = 0;
    const char* data = ValueData(record.get(), kMonikerRecordBytes, length);
    return TakeMoniker(data, length) ? Code(status) : kCodeInvalidRequest;
}

// Makes the 8-bit form. False when it does not fit or the text is not well-formed.
bool ConvertMoniker()
{
    UINT32 length = g_MonikerS.MaximumLength;
    const TALSTATUS status = pITalpl->TalxWideCharToMultiByte(
        kCodePageUtf8, g_MonikerU.Buffer, static_cast<UINT32>(g_MonikerU.Length / sizeof(WCHAR)),
        g_MonikerS.Buffer, &length);
    if (Failed(status) || length > g_MonikerS.MaximumLength)
        return false;
    g_MonikerS.Length = static_cast<UINT16>(length);
    g_MonikerS.Buffer[length] = 0;
    return true;
}

} // namespace

TALSTATUS GetGlobalConfiguration()
{
    GetReadWriteBlockSize();
    GetTopLevelMoniker();
    RegisterEventHandler();
    return TAL_STATUS_SUCCESS;
}

void GetDialectConfiguration()
{
    (void)GetDialect(); // what cannot be read is the default, as everywhere here
    if (g_Dialect == Dialect::Standard)
        (void)GetInfinityEntries();
}

TALSTATUS GetReadWriteBlockSize()
{
    g_RWBlockSize = kDefaultBlockSize;
    UINT32 value = 0;
    const TALSTATUS status = ReadNumber(u"Read-Write Block Size", value);
    if (value >= kSmallestBlockSize && value <= kLargestBlockSize)
        g_RWBlockSize = value;
    return status;
}

TALSTATUS GetDialect()
{
    g_Dialect = Dialect::Classic;
    RegistryKey key;
    if (const TALSTATUS status = key.Open(kModuleKey); Failed(status))
        return status;
    char record[kDialectRecordBytes] = {};
    UINT32 used = 0;
    const TALSTATUS status =
        pITalpl->TalxQueryValueKey(key.Get(), u"Dialect", record, sizeof record, &used);
    if (Failed(status))
        return status;
    UINT32 length = 0;
    const char* data = ValueData(record, sizeof record, length);
    if (IsText(data, length, u"standard"))
        g_Dialect = Dialect::Standard;
    else if (!IsText(data, length, u"classic"))
        return TAL_STATUS_INVALID_REQUEST;
    return status;
}

TALSTATUS GetInfinityEntries()
{
    g_InfinityEntries = kDefaultInfinityEntries;
    return ReadNumber(u"Infinity Entries", g_InfinityEntries);
}

TALSTATUS GetDebugLevel()
{
    UINT32 level = 0;
    return ReadNumber(u"Debug Level", level);
}

TALSTATUS GetTopLevelMoniker()
{
    if (ReadMoniker() != kCodeSuccess)
        UseDefaultMoniker();
    if (!ConvertMoniker()) { // both forms must name the same place
        UseDefaultMoniker();
        (void)ConvertMoniker(); // the default always converts
    }
    return TAL_STATUS_SUCCESS;
}

void ProcessConfigChangeEvent()
{
    GetTopLevelMoniker();
}

UINT8 WideCharToValue(WCHAR wChar)
{
    const int low = wChar & 0xFF;
    if (low < 64)
        return static_cast<UINT8>(low - '0');
    if (low > 96)
        return static_cast<UINT8>(low - 'a' + 10);
    return static_cast<UINT8>(low - 'A' + 10);
}

namespace {

UINT8 ByteAt(const WCHAR* text, int index)
{
    return static_cast<UINT8>(WideCharToValue(text[index]) * 16 + WideCharToValue(text[index + 1]));
}

// `bytes` bytes in text order, the first one most significant.
UINT32 NumberAt(const WCHAR* text, int index, int bytes)
{
    UINT32 value = 0;
    for (int i = 0; i < bytes; ++i)
        value = value << 8 | ByteAt(text, index + 2 * i);
    return value;
}

} // namespace

TALSTATUS RegistryKeyToGUID(const WCHAR* pFormatedKey, GUID* pClassId)
{
    static constexpr int kData4At[] = {20, 22, 25, 27, 29, 31, 33, 35};
    pClassId->Data1 = NumberAt(pFormatedKey, 1, 4);
    pClassId->Data2 = static_cast<UINT16>(NumberAt(pFormatedKey, 10, 2));
    pClassId->Data3 = static_cast<UINT16>(NumberAt(pFormatedKey, 15, 2));
    for (size_t i = 0; i < std::size(kData4At); ++i)
        pClassId->Data4[i] = ByteAt(pFormatedKey, kData4At[i]);
    return TAL_STATUS_SUCCESS;
}
