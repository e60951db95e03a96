// SPDX-License-Identifier: Apache-2.0
//
// What the module shows to the loader: three entry points, and few libraries that it needs.
#include <cstdio>
#include <set>
#include <string>

#include <gtest/gtest.h>

namespace {

// The lines that a command prints.
std::set<std::string> Lines(const std::string& command)
{
    std::set<std::string> lines;
    std::FILE* pipe = popen(command.c_str(), "r");
    EXPECT_TRUE(pipe) << command;
    if (!pipe)
        return lines;
    char line[512];
    while (std::fgets(line, sizeof line, pipe)) {
        std::string text = line;
        while (!text.empty() && text.back() == '\n')
            text.pop_back();
        lines.insert(text);
    }
    EXPECT_EQ(pclose(pipe), 0) << command;
    return lines;
}

TEST(ModuleLibrary, ExportsItsThreeEntryPointsAndNothingElse)
{
    const std::set<std::string> expected = {"DllGetClassObject", "DllRegisterServer",
                                            "DllUnregisterServer"};
    EXPECT_EQ(Lines("nm -D --defined-only --format=posix " KESTDAV_LIBRARY " | cut -d' ' -f1"),
              expected);
}

TEST(ModuleLibrary, NeedsTheCLibraryTheComponentManagerAndExpat)
{
    std::set<std::string> needed =
        Lines("readelf -dW " KESTDAV_LIBRARY " | sed -n 's/.*(NEEDED).*\\[\\(.*\\)\\]/\\1/p'");
    needed.erase("ld-linux-x86-64.so.2"); // the loader itself, for thread-local storage
    needed.erase("ld-linux-aarch64.so.1");
    if (KEST_SANITIZED)
        std::erase_if(needed, [](const std::string& name) {
            return name.starts_with("libasan.") || name.starts_with("libubsan.") ||
                   name.starts_with("libtsan.") || name.starts_with("libm.");
        });
    const std::set<std::string> expected = {"libc.so.6", "libexpat.so.1", "libtolm.so"};
    EXPECT_EQ(needed, expected);
}

} // namespace
