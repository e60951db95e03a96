// SPDX-License-Identifier: Apache-2.0
//
// When the folders of users are made, and made again.
#include "host/pipeline/home_folders.h"

#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "host/config/settings_holder.h"
#include "tests/unit/host/fixtures.h"
#include <kest/status.h>

namespace kestd {
namespace {

using std::chrono::seconds;

class HomeFolder : public testing::Test {
  protected:
    HomeFolder()
    {
        AccessRule rule;
        rule.name = "homes";
        rule.path = "/h/%u";
        rule.allowed = kRightsAll;
        rule.makes = true;
        EXPECT_TRUE(ParseWho("everybody", rule.who.emplace_back()));
        settings_.server.access = std::make_shared<const AccessRules>(std::vector<AccessRule>{rule},
                                                                      std::vector<AccessGroup>{});
        settings_.version = 1;
    }
    void Come(const std::string& user)
    {
        Exchange exchange;
        exchange.settings = &settings_;
        exchange.auth.user = user;
        exchange.access.Begin(settings_.server.access.get(), exchange.auth.user, nullptr);
        homes_.Provide(exchange);
    }

    ManualClock clock_;
    EffectiveSettings settings_;
    TALSTATUS answer_ = MakeStatus(kFacilityFileStore, kCodeStorageFull);
    std::map<std::string, int> tries_;
    HomeFolders homes_{clock_, [this](SCHANDLE, const std::string& path) {
                           ++tries_[path];
                           return answer_;
                       }};
};

TEST_F(HomeFolder, ThatCannotBeMade_IsTriedAgainAfterAMinute)
{
    for (int i = 0; i < 5; ++i)
        Come("anna");
    EXPECT_EQ(tries_["/h/anna"], 1);
    clock_.Advance(seconds(59));
    Come("anna");
    EXPECT_EQ(tries_["/h/anna"], 1);
    Come("ben");
    EXPECT_EQ(tries_["/h/ben"], 1) << "each user has a time of his own";
    clock_.Advance(seconds(1));
    for (int i = 0; i < 5; ++i)
        Come("anna");
    EXPECT_EQ(tries_["/h/anna"], 2);
    answer_ = TAL_STATUS_SUCCESS; // there is room again
    clock_.Advance(seconds(60));
    Come("anna");
    EXPECT_EQ(tries_["/h/anna"], 3);
    clock_.Advance(std::chrono::hours(24));
    Come("anna");
    EXPECT_EQ(tries_["/h/anna"], 3) << "it is there";
}

TEST_F(HomeFolder, ThatIsThere_IsLookedAfterAgainWithOtherSettings)
{
    answer_ = MakeStatus(kFacilityFileStore, kCodeObjectExists);
    Come("anna");
    clock_.Advance(std::chrono::hours(24));
    Come("anna");
    EXPECT_EQ(tries_["/h/anna"], 1);
    settings_.version = 2;
    Come("anna");
    EXPECT_EQ(tries_["/h/anna"], 2);
}

TEST_F(HomeFolder, OfWhoIsNotSignedIn_IsNotMade)
{
    Come("");
    EXPECT_TRUE(tries_.empty());
}

} // namespace
} // namespace kestd
