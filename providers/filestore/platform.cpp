// SPDX-License-Identifier: Apache-2.0
//
// What the store uses of the platform layer.
#include "providers/filestore/platform.h"

#include <chrono>

#include <kest/com.h>
#include <kest/sdk/registry.h>

#include "providers/filestore/names.h"

namespace filestore {

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

void RateLimitedLog::Write(UINT32 severity, std::string_view before,
                           std::string_view reason) noexcept
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
    return Platform() &&
           kest::RegistryKey(*Platform(), key).Text(name, *out) == kest::ReadResult::Read;
}

bool ReadNumber(const WCHAR* key, const WCHAR* name, UINT32* out)
{
    return Platform() &&
           kest::RegistryKey(*Platform(), key).Number(name, *out) == kest::ReadResult::Read;
}

std::vector<NamedText> ReadTexts(const WCHAR* key)
{
    std::vector<NamedText> out;
    if (!Platform())
        return out;
    kest::RegistryKey opened(*Platform(), key);
    std::u16string name;
    for (UINT32 i = 0; opened.NameAt(i, name) == kest::ReadResult::Read; ++i) {
        NamedText text;
        if (opened.Text(name.c_str(), text.value) != kest::ReadResult::Read)
            continue;
        text.name = Utf8Of(name.data(), name.size());
        out.push_back(std::move(text));
    }
    return out;
}

std::string ModulePath()
{
    std::string path;
    return ReadText(u"Kest\\Configuration\\KestDav", u"Moniker", &path) ? path : "/Ferro";
}

} // namespace filestore
