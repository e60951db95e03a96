// SPDX-License-Identifier: Apache-2.0
//
// What the programs keep per thread, read from their files. Where a thread first uses an object of
// its own that has a destructor, or anything of its own in a library that was loaded later, the C
// library takes memory for it, and ends the process when there is none.
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

namespace {

std::string OutputOf(const std::string& command)
{
    std::string all;
    std::FILE* const pipe = popen(command.c_str(), "r");
    EXPECT_TRUE(pipe) << command;
    if (!pipe)
        return all;
    for (int c = 0; (c = std::fgetc(pipe)) != EOF;)
        all += static_cast<char>(c);
    EXPECT_EQ(pclose(pipe), 0) << command;
    return all;
}

class Programs : public testing::TestWithParam<const char*> {};

TEST_P(Programs, KeepNothingPerThreadThatIsDestroyedWithIt)
{
    const std::string needed = OutputOf(std::string("nm -D --undefined-only ") + GetParam());
    ASSERT_NE(needed.find(" U "), std::string::npos) << "no symbols were read";
    EXPECT_EQ(needed.find("__cxa_thread_atexit"), std::string::npos) << GetParam();
}

INSTANTIATE_TEST_SUITE_P(All, Programs, testing::Values(KESTD, LIBTOLM, FILESTORE),
                         [](const auto& one) {
                             const std::string path = one.param;
                             std::string name = path.substr(path.rfind('/') + 1);
                             return name.substr(0, name.find('.'));
                         });

// Of the module only the runtime's own state of exceptions, which it never throws, is per thread.
TEST(LoadedLibraries, KeepWhatIsPerThreadInTheRoomThatThreadsStartWith)
{
    EXPECT_EQ(OutputOf("readelf -Wr " FILESTORE " | grep -c -e DTPMOD -e TLSDESC; true"), "0\n");
    EXPECT_EQ(
        OutputOf("readelf -Ws " KESTDAV " | grep ' TLS ' | grep -v -c get_globalEvE6global; true"),
        "0\n");
}

} // namespace
