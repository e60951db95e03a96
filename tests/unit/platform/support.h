// SPDX-License-Identifier: Apache-2.0
//
// What the platform layer's tests share: the layer, counted strings, registry files.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <string_view>

#include <kest/com.h>
#include <kest/status.h>
#include <kest/talpl.h>
#include <kest/tolm.h>

namespace talpl_test {

// The shared platform object, held for the life of the process.
ITalpl& Platform();

// A failure of the platform layer with this code.
constexpr TALSTATUS Failure(UINT16 code)
{
    return MakeStatus(kFacilityPlatform, code);
}
inline constexpr TALSTATUS kRefused = Failure(kCodeInvalidParameter);

inline UNICODE_STRING Counted(std::u16string_view text)
{
    const auto bytes = static_cast<UINT16>(text.size() * sizeof(WCHAR));
    return {bytes, bytes, const_cast<WCHAR*>(text.data())};
}

inline STRING Counted(std::string_view text)
{
    const auto bytes = static_cast<UINT16>(text.size());
    return {bytes, bytes, const_cast<char*>(text.data())};
}

TALPL_STATISTICS Statistics();

// A directory of its own for each test, gone after it.
class Scratch {
  public:
    Scratch();
    ~Scratch();
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    const std::filesystem::path& Path() const { return path_; }

  private:
    std::filesystem::path path_;
};

std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& text);

// What standard error gets while the object lives.
class CapturedLog {
  public:
    CapturedLog();
    ~CapturedLog();
    CapturedLog(const CapturedLog&) = delete;
    CapturedLog& operator=(const CapturedLog&) = delete;
    std::string Text() const;

  private:
    Scratch scratch_;
    int kept_;
};

// A registry file that is loaded, and an empty registry afterwards.
class RegistryTest : public testing::Test {
  protected:
    ~RegistryTest() override;

    // Writes the file and loads it. The error's text without the directory; empty on success.
    std::string Load(const std::string& text);
    std::filesystem::path File() const { return scratch_.Path() / "registry.toml"; }
    std::string Text() const { return ReadFile(File()); }

    HANDLE Open(const WCHAR* key, UINT32 access = TALX_KEY_ALL_ACCESS);

    // "SZ:text", "UINT32:5", "MULTI_SZ:a|b" …; "!11" for a failure with that code.
    static std::string Query(const WCHAR* key, const WCHAR* name);
    // The values' names in order, joined by commas.
    static std::string ValueNames(const WCHAR* key);
    static std::string KeyNames(const WCHAR* key);

    TALSTATUS SetText(const WCHAR* key, const WCHAR* name, std::u16string_view text);
    // How many files stand in the registry's directory.
    std::ptrdiff_t FileCount() const;

  private:
    Scratch scratch_;
};

} // namespace talpl_test
