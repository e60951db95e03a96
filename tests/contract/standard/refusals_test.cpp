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

// RFC 9110 section 8.4: what is coded is not what is meant, and nobody here decodes it.
TEST(StandardRefusals, OfCodedBodies)
{
    const std::string refused = Plain("415", "Accept-Encoding: identity\n");
    for (const auto& [name, make] : AllMethods()) {
        const Request plain = make("/Ferro/gen3/f.txt");
        const bool hasBody = name.starts_with("P") || name == "LOCK" || name == "MKCOL";
        for (const char* coding : {"gzip", "X-GZIP", "identity, br", "deflate,identity"}) {
            auto world = MakeWorld();
            const std::string reply =
                world->Run(Request(plain).Header("Content-Encoding", coding)).text;
            EXPECT_EQ(reply == refused, hasBody) << name << " " << coding << "\n" << reply;
            const std::string after = (*world)["gen3"].Content("/gen3/f.txt");
            EXPECT_TRUE(!hasBody || after == "hello world") << name << " " << after;
        }
        const std::string usual = MakeWorld()->Run(plain).text;
        for (const char* coding : {"identity", "", " , Identity ,"}) {
            auto world = MakeWorld();
            EXPECT_EQ(world->Run(Request(plain).Header("Content-Encoding", coding)).text, usual)
                << name << " '" << coding << "'";
        }
    }
}

// Whoever serves the path, and for uploads that go on in other requests, too.
TEST(StandardRefusals, OfCodedContentForOlderProvidersAndParts)
{
    auto world = MakeWorld();
    for (const char* path : {"/Ferro/gen2/f.txt", "/Ferro/gen3/new", "/Ferro/gen3/f.txt"})
        for (const char* complete : {"", "?0", "?1"}) {
            Request put = Request(KestMethodPut, path).Header("Content-Encoding", "gzip");
            if (*complete)
                put.Header("Upload-Complete", complete);
            EXPECT_EQ(world->Run(put.Body({"x"})).text.substr(0, 3), "415") << path << complete;
        }
    EXPECT_EQ((*world)["gen2"].Content("/gen2/f.txt"), "hello world");
    EXPECT_FALSE((*world)["gen3"].Has("/gen3/new"));
}

// Each XML reply is looked at: a collection's href ends with "/", and no other one.
TEST(StandardRefusals, NameLockedCollectionsAsCollections)
{
    int named = 0;
    for (const std::string locked : {"/gen3", "/gen3/c", "/gen3/c/d", "/gen3/c/a", "/gen3/f.txt"})
        for (const INT32 depth : {0, -1})
            for (const std::string path : {"/c", "/c/", "/c/a", "/c/d", "/c/d/new", "/f.txt", "/n"})
                for (const auto& [name, make] : AllMethods()) {
                    auto world = MakeWorld();
                    (*world)["gen3"].Find(locked)->locks.push_back(
                        {.scope = Exclusive, .depth = depth, .owner = "o", .token = "t"});
                    const std::string reply = world->Run(make("/Ferro/gen3" + path)).text;
                    const bool names =
                        reply.find("<D:href>/Ferro" + locked + "/</D:href>") != std::string::npos;
                    named += name != "PROPFIND" && names ? 1 : 0;
                }
    EXPECT_GE(named, 100);
}

} // namespace

} // namespace standard_tests
