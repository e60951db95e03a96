// SPDX-License-Identifier: Apache-2.0
#include "host/config/known_settings.h"

#include <algorithm>

#include <gtest/gtest.h>

namespace kestd {
namespace {

TEST(NearestName, IsTheOneThatWasMeant)
{
    const std::vector<std::string> names = {"Listen", "Realm", "Connections", "Sessions",
                                            "Connections Per Address"};
    EXPECT_EQ(NearestName("Lisen", names), "Listen");
    EXPECT_EQ(NearestName("Reallm", names), "Realm");
    EXPECT_EQ(NearestName("REALM ", names), "Realm");
    EXPECT_EQ(NearestName("Conections", names), "Connections");
    EXPECT_EQ(NearestName("Session", names), "Sessions");
    EXPECT_EQ(NearestName("Connection Per Adress", names), "Connections Per Address");
    EXPECT_EQ(NearestName("Fnord", names), "");
    EXPECT_EQ(NearestName("", names), "");
    EXPECT_EQ(NearestName(std::string(100'000, 'x'), names), "");
    EXPECT_EQ(NearestName("x", {}), "");
}

TEST(KnownSettings, EachStandsOnce)
{
    std::vector<std::u16string> all;
    for (const KnownNames& known : KnownSettings())
        for (const char16_t* const name : known.names)
            all.push_back(std::u16string(known.key) + u"\\" + name);
    std::sort(all.begin(), all.end());
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
    EXPECT_GT(all.size(), 50U);
}

} // namespace
} // namespace kestd
