// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/platform.h"

#include <chrono>
#include <cstring>

#include <kest/com.h>

#include "providers/filestore/names.h"

namespace filestore {

namespace {

// A key of the registry, closed on scope end.
class Key {
  public:
    explicit Key(const WCHAR* path)
    {
        if (Platform() && Failed(Platform()->TalxOpenKey(path, TALX_KEY_READ, &key_)))
            key_ = nullptr;
    }
    Key(const Key&) = delete;
    Key& operator=(const Key&) = delete;
    ~Key()
    {
        if (key_)
            Platform()->TalxCloseKey(key_);
    }
    explicit operator bool() const { return key_ != nullptr; }

    // Fills `record`; false past the last value.
    bool Enumerate(UINT32 index, std::vector<char>* record)
    {
        return Fetch(record, [&](UINT32 room, UINT32* needed) {
            return Platform()->TalxEnumerateValueKey(key_, index, record->data(), room, needed);
        });
    }
    bool Query(const WCHAR* name, std::vector<char>* record)
    {
        return Fetch(record, [&](UINT32 room, UINT32* needed) {
            return Platform()->TalxQueryValueKey(key_, name, record->data(), room, needed);
        });
    }

  private:
    template <class F> bool Fetch(std::vector<char>* record, F&& call)
    {
        record->resize(512);
        for (;;) {
            UINT32 needed = 0;
            const TALSTATUS status = call(static_cast<UINT32>(record->size()), &needed);
            if (Code(status) == kCodeBufferTooSmall && needed > record->size()) {
                record->resize(needed);
                continue;
            }
            return !Failed(status);
        }
    }
    HANDLE key_ = nullptr;
};

// Values of the registry may carry terminators.
std::string Narrow(const WCHAR* text, size_t units)
{
    while (units > 0 && text[units - 1] == 0)
        --units;
    return Utf8Of(text, units);
}

const TALX_KEY_VALUE_INFORMATION& Record(const std::vector<char>& bytes)
{
    return *reinterpret_cast<const TALX_KEY_VALUE_INFORMATION*>(bytes.data());
}

std::string TextOf(const std::vector<char>& bytes)
{
    const TALX_KEY_VALUE_INFORMATION& info = Record(bytes);
    std::u16string wide(info.ValueLength / sizeof(WCHAR), u'\0');
    std::memcpy(wide.data(), bytes.data() + info.ValueOffset, wide.size() * sizeof(WCHAR));
    return Narrow(wide.data(), wide.size());
}

} // namespace

ITalpl* Platform()
{
    static ITalpl* const talpl = [] {
        Ref<ITalpl> made;
        (void)Create(CLSID_HadranTalpl, made); // null when it failed
        return made.Detach();
    }();
    return talpl;
}

UINT64 SystemTime()
{
    UINT64 now = 0;
    if (Platform())
        (void)Platform()->TalxGetSystemTime(&now); // cannot fail with a valid pointer
    return now;
}

void UpperCaseUnits(WCHAR* text, UINT32 units)
{
    if (Platform())
        (void)Platform()->TalxCharUpperBuff(text, units); // leaves what it cannot map
}

void Log(UINT32 severity, const std::string& text)
{
    TolmLog(severity, "filestore", text.c_str());
}

void RareLog::Tell(UINT32 severity, std::string_view before, std::string_view reason) noexcept
{
    constexpr auto kPause = std::chrono::minutes(1);
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    INT64 again = tellsAgain_.load(std::memory_order_relaxed);
    if (now.count() < again || !tellsAgain_.compare_exchange_strong(again, (now + kPause).count()))
        return;
    try {
        Log(severity, std::string(before).append(reason));
    } catch (...) { // the request's status says that something is wrong, too
    }
}

bool ReadText(const WCHAR* key, const WCHAR* name, std::string* out)
{
    Key opened(key);
    std::vector<char> record;
    if (!opened || !opened.Query(name, &record) || Record(record).ValueType != TALX_REG_SZ)
        return false;
    *out = TextOf(record);
    return true;
}

bool ReadNumber(const WCHAR* key, const WCHAR* name, UINT32* out)
{
    Key opened(key);
    std::vector<char> record;
    if (!opened || !opened.Query(name, &record) || Record(record).ValueType != TALX_REG_UINT32 ||
        Record(record).ValueLength != sizeof *out)
        return false;
    std::memcpy(out, record.data() + Record(record).ValueOffset, sizeof *out);
    return true;
}

std::vector<NamedText> ReadTexts(const WCHAR* key)
{
    std::vector<NamedText> out;
    Key opened(key);
    std::vector<char> record;
    for (UINT32 i = 0; opened && opened.Enumerate(i, &record); ++i) {
        const TALX_KEY_VALUE_INFORMATION& info = Record(record);
        if (info.ValueType != TALX_REG_SZ)
            continue;
        out.push_back(
            {Narrow(info.KeyValueName, info.KeyValueNameLength / sizeof(WCHAR)), TextOf(record)});
    }
    return out;
}

} // namespace filestore
