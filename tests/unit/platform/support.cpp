// SPDX-License-Identifier: Apache-2.0
#include "tests/unit/platform/support.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>
#include <vector>

namespace talpl_test {
namespace {

std::string Narrow(std::u16string_view text)
{
    std::string narrow(3 * text.size(), '\0');
    auto bytes = static_cast<UINT32>(narrow.size());
    EXPECT_EQ(0u, Platform().TalxWideCharToMultiByte(kCodePageUtf8, text.data(),
                                                     static_cast<UINT32>(text.size()),
                                                     narrow.data(), &bytes));
    narrow.resize(bytes);
    return narrow;
}

std::string Show(const std::vector<char>& record)
{
    TALX_KEY_VALUE_INFORMATION info{};
    std::memcpy(&info, record.data(), std::min(record.size(), sizeof info));
    const char* data = record.data() + info.ValueOffset;
    if (info.ValueType == TALX_REG_UINT32 || info.ValueType == TALX_REG_UINT64) {
        UINT64 number = 0;
        std::memcpy(&number, data, info.ValueLength);
        return (info.ValueLength == 4 ? "UINT32:" : "UINT64:") + std::to_string(number);
    }
    std::u16string text(info.ValueLength / sizeof(WCHAR), u'\0');
    std::memcpy(text.data(), data, info.ValueLength);
    if (text.empty() || text.back() != 0)
        return "no terminator";
    text.pop_back();
    if (info.ValueType == TALX_REG_SZ)
        return "SZ:" + Narrow(text);
    for (WCHAR& unit : text)
        unit = unit == 0 ? u'|' : unit;
    return "MULTI_SZ:" + Narrow(text);
}

} // namespace

ITalpl& Platform()
{
    static ITalpl* const platform = [] {
        Ref<ITalpl> made;
        if (Failed(Create(CLSID_HadranTalpl, made)))
            abort();
        return made.Detach();
    }();
    return *platform;
}

TALPL_STATISTICS Statistics()
{
    TALPL_STATISTICS now{};
    EXPECT_EQ(0u, Platform().TalxGetGeneralTalplStatistics(&now));
    return now;
}

Scratch::Scratch()
{
    std::string name = (std::filesystem::temp_directory_path() / "talpl-XXXXXX").string();
    if (!mkdtemp(name.data()))
        abort();
    path_ = name;
}

Scratch::~Scratch()
{
    std::error_code ignored;
    std::filesystem::permissions(path_, std::filesystem::perms::owner_all, ignored);
    std::filesystem::remove_all(path_, ignored);
}

std::string ReadFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void WriteFile(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

CapturedLog::CapturedLog() : kept_(dup(STDERR_FILENO))
{
    const int file = open((scratch_.Path() / "log").c_str(), O_CREAT | O_RDWR | O_APPEND, 0600);
    dup2(file, STDERR_FILENO);
    close(file);
}

CapturedLog::~CapturedLog()
{
    dup2(kept_, STDERR_FILENO);
    close(kept_);
}

std::string CapturedLog::Text() const
{
    return ReadFile(scratch_.Path() / "log");
}

RegistryTest::~RegistryTest()
{
    TolmRegistryLoad(nullptr, nullptr, 0);
}

std::string RegistryTest::Load(const std::string& text)
{
    WriteFile(File(), text);
    char error[512] = "";
    const TALSTATUS status = TolmRegistryLoad(File().c_str(), error, sizeof error);
    EXPECT_EQ(Failed(status), *error != 0) << error;
    const std::string message = error;
    const std::string directory = scratch_.Path().string() + '/';
    return message.starts_with(directory) ? message.substr(directory.size()) : message;
}

HANDLE RegistryTest::Open(const WCHAR* key, UINT32 access)
{
    HANDLE handle = nullptr;
    return Failed(Platform().TalxOpenKey(key, access, &handle)) ? nullptr : handle;
}

std::string RegistryTest::Query(const WCHAR* key, const WCHAR* name)
{
    HANDLE handle = nullptr;
    TALSTATUS status = Platform().TalxOpenKey(key, TALX_KEY_READ, &handle);
    if (Failed(status))
        return "no key";
    UINT32 needed = 0;
    status = Platform().TalxQueryValueKey(handle, name, nullptr, 0, &needed);
    std::string shown = '!' + std::to_string(Code(status));
    if (Code(status) == kCodeBufferTooSmall) {
        std::vector<char> record(needed);
        status = Platform().TalxQueryValueKey(handle, name, record.data(), needed, &needed);
        shown = Failed(status) ? "changed" : Show(record);
    }
    EXPECT_EQ(0u, Platform().TalxCloseKey(handle));
    return shown;
}

std::string RegistryTest::ValueNames(const WCHAR* key)
{
    HANDLE handle = nullptr;
    if (Failed(Platform().TalxOpenKey(key, TALX_KEY_READ, &handle)))
        return "no key";
    std::string names;
    std::vector<char> record(4096);
    for (UINT32 i = 0;; ++i) {
        UINT32 used = 0;
        const TALSTATUS status =
            Platform().TalxEnumerateValueKey(handle, i, record.data(), 4096, &used);
        if (Failed(status)) {
            EXPECT_EQ(Failure(kCodeNoMoreEntries), status);
            break;
        }
        TALX_KEY_VALUE_INFORMATION info;
        std::memcpy(&info, record.data(), sizeof info);
        std::u16string name(info.KeyValueNameLength / sizeof(WCHAR), u'\0');
        std::memcpy(name.data(), record.data() + offsetof(TALX_KEY_VALUE_INFORMATION, KeyValueName),
                    info.KeyValueNameLength);
        names += (i ? "," : "") + Narrow(name);
    }
    EXPECT_EQ(0u, Platform().TalxCloseKey(handle));
    return names;
}

std::string RegistryTest::KeyNames(const WCHAR* key)
{
    HANDLE handle = nullptr;
    if (Failed(Platform().TalxOpenKey(key, TALX_KEY_READ, &handle)))
        return "no key";
    std::string names;
    std::vector<char> record(4096);
    for (UINT32 i = 0;; ++i) {
        UINT32 used = 0;
        const TALSTATUS status = Platform().TalxEnumerateKey(handle, i, record.data(), 4096, &used);
        if (Failed(status)) {
            EXPECT_EQ(Failure(kCodeNoMoreEntries), status);
            break;
        }
        TALX_KEY_INFORMATION info;
        std::memcpy(&info, record.data(), sizeof info);
        std::u16string name(info.KeyNameLength / sizeof(WCHAR), u'\0');
        std::memcpy(name.data(), record.data() + offsetof(TALX_KEY_INFORMATION, KeyName),
                    info.KeyNameLength);
        names += (i ? "," : "") + Narrow(name);
    }
    EXPECT_EQ(0u, Platform().TalxCloseKey(handle));
    return names;
}

TALSTATUS RegistryTest::SetText(const WCHAR* key, const WCHAR* name, std::u16string_view text)
{
    HANDLE handle = nullptr;
    TALSTATUS status = Platform().TalxOpenKey(key, TALX_KEY_WRITE, &handle);
    if (Failed(status))
        return status;
    const std::u16string data(text);
    status = Platform().TalxSetValueKey(handle, name, TALX_REG_SZ, data.c_str(),
                                        static_cast<UINT32>((data.size() + 1) * sizeof(WCHAR)));
    EXPECT_EQ(0u, Platform().TalxCloseKey(handle));
    return status;
}

std::ptrdiff_t RegistryTest::FileCount() const
{
    return std::distance(std::filesystem::directory_iterator(scratch_.Path()), {});
}

} // namespace talpl_test
