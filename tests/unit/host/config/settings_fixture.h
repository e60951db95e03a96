// SPDX-License-Identifier: Apache-2.0
//
// Settings of a case: a registry file, loaded and read.
#pragma once

#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "host/config/host_settings.h"
#include <kest/com.h>
#include <kest/tolm.h>

namespace kestd {

class SettingsFile : public testing::Test {
  protected:
    void SetUp() override
    {
        ASSERT_FALSE(Failed(Create(CLSID_HadranTalpl, platform_)));
        std::string name = testing::TempDir() + "settings.XXXXXX";
        const int file = mkstemp(name.data());
        ASSERT_GE(file, 0);
        close(file);
        file_ = name;
    }
    void TearDown() override
    {
        TolmRegistryLoad(nullptr, nullptr, 0);
        unlink(file_.c_str());
    }
    // Makes the text the registry. The file's own errors fail the case.
    void Load(const std::string& text)
    {
        std::ofstream(file_) << text;
        std::string error(1024, '\0');
        EXPECT_EQ(TolmRegistryLoad(file_.c_str(), error.data(), 1024), 0U) << error;
    }
    // Loads the text, and reads the settings: all problems.
    std::string ReadAll(const std::string& text, HostSettings& settings)
    {
        Load(text);
        return ReadHostSettings(*platform_.Get(), settings);
    }

    Ref<ITalpl> platform_;
    std::string file_;
};

} // namespace kestd
