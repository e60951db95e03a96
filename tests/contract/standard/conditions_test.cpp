// SPDX-License-Identifier: Apache-2.0
//
// What a client wants to be so (RFC 9110 section 13, RFC 4918 section 10.4), of every method: one
// that does not hold is 412 and nothing has changed, one that holds changes nothing of the reply.
#include "fixture.h"

namespace standard_tests {

namespace {

constexpr char kSharedLock[] =
    "<D:lockinfo xmlns:D=\"DAV:\"><D:lockscope><D:shared/></D:lockscope><D:locktype><D:write/>"
    "</D:locktype></D:lockinfo>";
constexpr char kBefore[] = "Sat, 31 Jan 2026 11:59:59 GMT"; // the file has changed since

struct Method {
    const char* name;
    Request request;
    bool reads = false; // RFC 9110 section 13.1.2: "If-None-Match" is 304, not 412
};

void PrintTo(const Method& method, std::ostream* out)
{
    *out << method.name;
}

std::vector<Method> Methods()
{
    return {
        {"GET", Of(KestMethodGet), true},
        {"HEAD", Of(KestMethodHead), true},
        {"PUT", Of(KestMethodPut).Body({"new"})},
        {"PUT of a part", Of(KestMethodPut).Header("Content-Range", "bytes 0-0/11").Body({"H"})},
        {"PATCH", Of(KestMethodPatch)
                      .Header("Content-Type", "application/x-sabredav-partialupdate")
                      .Header("X-Update-Range", "append")
                      .Body({"!"})},
        {"DELETE", Of(KestMethodDelete)},
        {"COPY", Of(KestMethodCopy).To("http://server.example:8080/Ferro/gen3/g")},
        {"MOVE", Of(KestMethodMove).To("/Ferro/gen3/g")},
        {"PROPFIND", Of(KestMethodPropFind).Header("Depth", "0")},
        {"PROPPATCH", Of(KestMethodPropPatch).Body({kPatch})},
        {"LOCK", Of(KestMethodLock).Body({kSharedLock})},
        {"UNLOCK", Of(KestMethodUnlock).Header("Lock-Token", "<opaquelocktoken:t>")},
    };
}

class StandardConditions : public testing::TestWithParam<Method> {
  protected:
    // A shared lock stands on the file: its token is submitted with every request.
    std::string StatusOf(const std::string& field, const std::string& value, bool* isAsBefore)
    {
        const std::string token = "(<opaquelocktoken:t>)";
        auto world = MakeWorld();
        (*world)["gen3"].Find("/gen3/f.txt")->locks.push_back({Write, Shared, 0, -1, "o", "t"});
        Request request = GetParam().request;
        request.Header("If", field == "If" ? value : token);
        if (field != "If")
            request.Header(field, value);
        const std::string status = world->Run(request).text.substr(0, 3);
        const Node* const node = (*world)["gen3"].Find("/gen3/f.txt");
        *isAsBefore = node && node->content == "hello world" && node->dead.empty() &&
                      node->locks.size() == 1 && !(*world)["gen3"].Has("/gen3/g");
        world->ExpectAtRest();
        return status;
    }
    void ExpectHolds(const std::string& field, const std::string& value)
    {
        bool isAsBefore = false;
        EXPECT_EQ(StatusOf(field, value, &isAsBefore)[0], '2') << field << ": " << value;
    }
    void ExpectFails(const std::string& field, const std::string& value,
                     const std::string& status = "412")
    {
        bool isAsBefore = false;
        EXPECT_EQ(StatusOf(field, value, &isAsBefore), status) << field << ": " << value;
        EXPECT_TRUE(isAsBefore) << field << ": " << value;
    }
};

TEST_P(StandardConditions, OfTags)
{
    ExpectHolds("If-Match", "\"v0\", \"v1\"");
    ExpectHolds("If-Match", "*");
    ExpectFails("If-Match", "\"v2\"");
    ExpectHolds("If-None-Match", "\"v2\"");
    ExpectFails("If-None-Match", "\"v1\"", GetParam().reads ? "304" : "412");
    ExpectFails("If-None-Match", "*", GetParam().reads ? "304" : "412");
}

TEST_P(StandardConditions, OfDates)
{
    ExpectHolds("If-Unmodified-Since", kStart);
    ExpectFails("If-Unmodified-Since", kBefore);
    ExpectHolds("If-Unmodified-Since", "some time ago"); // no date: as if it were not there
    if (GetParam().reads)
        ExpectFails("If-Modified-Since", kStart, "304");
    else
        ExpectHolds("If-Modified-Since", kStart); // RFC 9110 section 13.1.3: of GET and HEAD
}

TEST_P(StandardConditions, OfLists)
{
    const std::string token = "<opaquelocktoken:t>";
    ExpectHolds("If", "(" + token + ")");
    ExpectHolds("If", "(" + token + " [\"v1\"])");
    ExpectHolds("If", "([\"v2\"]) (Not [\"v2\"] " + token + ")");
    ExpectHolds("If", "</Ferro/gen3/f.txt> (" + token + ")");
    ExpectHolds("If", "(" + token + ") (Not <DAV:no-lock>)");
    ExpectFails("If", "(" + token + " [\"v2\"])");
    ExpectFails("If", "(Not " + token + ")");
    ExpectFails("If", "(" + token + " <DAV:no-lock>)");
    ExpectFails("If", "</Ferro/gen3/c> (" + token + ")");
    ExpectFails("If", "(" + token, "400");
}

INSTANTIATE_TEST_SUITE_P(Every, StandardConditions, testing::ValuesIn(Methods()));

// What the request cannot be done with anyway is told first (RFC 9110 section 13.2.1).
TEST(StandardConditionsOfNothing, DoNotHideThatThereIsNothing)
{
    for (const Method& method : Methods()) {
        if (method.request.method == KestMethodPut || method.request.method == KestMethodLock)
            continue; // these make what is missing
        auto world = MakeWorld();
        Request request = method.request;
        request.path = "/Ferro/gen3/none";
        request.Header("If-Match", "*");
        const std::string status = world->Run(request).text.substr(0, 3);
        EXPECT_EQ(status, request.method == KestMethodUnlock ? "409" : "404") << method.name;
    }
}

// A list about an object below the root is judged by whoever serves that.
TEST_F(Standard, IfOfTheRoot_IsJudgedByTheProviderOfEachList)
{
    const auto judged = [this](const std::string& lists) {
        const std::string reply =
            Run(Request(KestMethodHead, "/Ferro").Header("If", lists)).substr(0, 3);
        return reply == "412" ? false : reply == "403"; // it has no page here
    };
    for (const std::string name : {"gen3", "other"}) {
        const std::string file = "</Ferro/" + name + "/f.txt> ";
        EXPECT_TRUE(judged(file + "([\"v1\"])")) << name;
        EXPECT_FALSE(judged(file + "([\"v9\"])")) << name;
        EXPECT_TRUE(judged("</Ferro/gen3/none> ([\"v1\"]) " + file + "([\"v1\"])")) << name;
        EXPECT_TRUE(judged(file + "([\"v9\"]) ([\"v1\"])")) << name;
        EXPECT_FALSE(judged(file + "([\"v1\"] <opaquelocktoken:t>)")) << name;
        world[name].Find("/" + name + "/f.txt")->locks.push_back({.token = "t"});
        EXPECT_TRUE(judged(file + "([\"v1\"] <opaquelocktoken:t>)")) << name;
    }
    EXPECT_FALSE(judged("</Ferro/gen2/f.txt> ([\"v1\"])")) << "an older one tells no tags";
    EXPECT_TRUE(judged("</Ferro/gen2/f.txt> (Not [\"v1\"])"));
    EXPECT_FALSE(judged("([\"v1\"])")) << "of the root itself";
    EXPECT_TRUE(judged("(Not <opaquelocktoken:t>)"));
}

} // namespace

} // namespace standard_tests
