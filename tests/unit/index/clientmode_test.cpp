// SPDX-License-Identifier: Apache-2.0
#include "index/clientmode.h"

#include <gtest/gtest.h>

TEST(ClientMode, AgentText_ChoosesTheTemplates)
{
    const struct {
        const char* why;
        const char* agent;
        InterfaceMode mode;
    } rows[] = {
        {"MSIE from 5 on", "Mozilla/4.0 (compatible; MSIE 6.0; Windows NT 5.1)", kModeScripted},
        {"the first of them", "Mozilla/4.0 (compatible; MSIE 5.0)", kModeScripted},
        {"on a Mac", "Mozilla/4.0 (compatible; MSIE 6.0; Mac_PowerPC)", kModeModern},
        {"small device", "Mozilla/2.0 (compatible; MSIE 4.01; Windows CE; 240x320)", kModeSmall},
        {"old MSIE elsewhere", "Mozilla/4.0 (compatible; MSIE 4.0; Windows 98)", kModeText},
        {"MSIE decides alone", "Mozilla/5.0 (compatible; MSIE 4.0)", kModeText},
        {"MSIE without a version", "Mozilla/5.0 MSIE", kModeText},
        {"MSIE before Blazer", "MSIE 6.0 Blazer", kModeScripted},
        {"Blazer", "UPG1 UP/4.0 (compatible; Blazer 1.0)", kModeSmall},
        {"Blazer before Mozilla", "Mozilla/5.0 Blazer", kModeSmall},
        {"4.7", "Mozilla/4.7 [en] (X11; U; Linux)", kModeLayers},
        {"4.6", "Mozilla/4.6 [en]", kModeText},
        {"minor with a leading zero", "Mozilla/4.08 [en]", kModeLayers},
        {"5.0", "Mozilla/5.0 (X11; Linux x86_64; rv:128.0) Gecko/20100101", kModeModern},
        {"later", "Mozilla/10.0", kModeModern},
        {"no version", "Mozilla", kModeText},
        {"version after something else", "Mozilla 5.0", kModeText},
        {"huge numbers", "Mozilla/99999999999999999999.1", kModeModern},
        {"not at the start", "x Mozilla/5.0", kModeModern},
        {"other case", "mozilla/5.0", kModeText},
        {"something else", "curl/7.88.1", kModeText},
        {"nothing", "", kModeText},
    };
    for (const auto& row : rows)
        EXPECT_EQ(ModeOfAgent(row.agent), row.mode) << row.why;
}

TEST(ClientMode, ScriptedModes_ShareTheirTemplates)
{
    EXPECT_STREQ(mainTemplateFiles[kModeXml], "index.xml");
    EXPECT_STREQ(fileTemplateFiles[kModeXml], "fileentry.xml");
    EXPECT_STREQ(mainTemplateFiles[kModeScripted], "ecmaindex.html");
    EXPECT_STREQ(mainTemplateFiles[kModeModern], mainTemplateFiles[kModeScripted]);
    EXPECT_STREQ(fileTemplateFiles[kModeModern], fileTemplateFiles[kModeScripted]);
    EXPECT_STREQ(mainTemplateFiles[kModeLayers], "nsindex.html");
    EXPECT_STREQ(fileTemplateFiles[kModeLayers], "nsentry.html");
    EXPECT_STREQ(mainTemplateFiles[kModeText], "txindex.html");
    EXPECT_STREQ(fileTemplateFiles[kModeText], "txentry.html");
    EXPECT_STREQ(mainTemplateFiles[kModeSmall], "ceindex.html");
    EXPECT_STREQ(fileTemplateFiles[kModeSmall], "ceentry.html");
}
