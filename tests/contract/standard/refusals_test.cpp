// SPDX-License-Identifier: Apache-2.0
//
// Refusals in the standard dialect, whoever refuses: handlers of the third generation, or those
// that both dialects share.
#include <set>

#include "all_methods.h"
#include "fixture.h"

namespace standard_tests {

namespace {

// The value of "Allow" of a reply; "(none)" without one.
std::string AllowOf(const std::string& reply)
{
    static constexpr char kName[] = "\nAllow: ";
    const size_t at = reply.find(kName);
    if (at == reply.npos || at > reply.find("\n\n"))
        return "(none)";
    const size_t begin = at + sizeof kName - 1;
    return reply.substr(begin, reply.find('\n', begin) - begin);
}

// RFC 9110 section 15.5.6. True for a 405.
bool ExpectAllow(const std::string& method, const std::string& reply, const std::string& what)
{
    if (!reply.starts_with("405"))
        return false;
    const std::string allow = ", " + AllowOf(reply) + ",";
    EXPECT_THAT(allow, HasSubstr("OPTIONS")) << method << " " << what << "\n" << reply;
    EXPECT_THAT(allow, Not(HasSubstr(", " + method + ","))) << method << " " << what;
    return true;
}

std::set<std::string> ProviderCalls(const World& world)
{
    std::set<std::string> names;
    for (const std::string& call : world.Calls({"gen3.", "gen2."}))
        names.insert(call.substr(0, call.find('(')));
    return names;
}

// Every call of a provider says that the method is not for what is there.
TEST(StandardRefusals, NameTheMethodsWhereAProviderRefusesOne)
{
    int refused = 0;
    for (const std::string path : {"/Ferro/gen3/f.txt", "/Ferro/gen3/c/", "/Ferro/gen2/f.txt",
                                   "/Ferro/gen2/c/", "/Ferro/gen2/none"})
        for (const auto& [name, make] : AllMethods()) {
            auto first = MakeWorld();
            refused += ExpectAllow(name, first->Run(make(path)).text, path) ? 1 : 0;
            for (const std::string& call : ProviderCalls(*first)) {
                auto world = MakeWorld();
                world->recorder.FailAlways(call, ProviderFailure(kCodeMethodNotAllowed));
                const Reply reply = world->Run(make(path));
                refused += ExpectAllow(name, reply.text, path + " by " + call) ? 1 : 0;
            }
        }
    EXPECT_GE(refused, 30);
}

TEST_F(Standard, WithoutASession_IsNoFaultOfTheMethod)
{
    world.recorder.FailAlways("sa.SACreate", kInjected);
    Request request(KestMethodGet, "/Ferro/gen3/f.txt");
    request.Session(7);
    EXPECT_EQ(Run(request), Plain("500"));
}

} // namespace

} // namespace standard_tests
