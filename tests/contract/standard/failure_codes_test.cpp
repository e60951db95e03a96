// SPDX-License-Identifier: Apache-2.0
//
// What each failure that a provider of the third generation may tell is in HTTP: the table that the
// comments of kest/dav/namespace_3.h and resource_3.h give in brackets.
#include "fixture.h"

namespace standard_tests {

namespace {

using Codes = std::map<UINT16, int>;

// Of every operation that changes something.
const Codes kOfChanges = {{40, 412}, {37, 423}, {6, 403}, {35, 507}, {38, 414},
                          {5, 503},  {10, 503}, {4, 500}, {1, 500},  {99, 500}};

Codes With(Codes more)
{
    more.insert(kOfChanges.begin(), kOfChanges.end()); // where the operation says nothing itself
    return more;
}

struct Operation {
    const char* call; // that fails
    Request request;
    Codes codes;
};

void PrintTo(const Operation& operation, std::ostream* out)
{
    *out << operation.call;
}

std::vector<Operation> Operations()
{
    const std::string token = "(<opaquelocktoken:t>)";
    const std::string there = "http://server.example:8080/Ferro/gen3/g";
    const Codes relocation = {{11, 404}, {22, 412}, {33, 409}, {16, 400}};
    return {
        {"gen3.3.GetInfo",
         Of(KestMethodPropFind).Header("Depth", "0"),
         {{11, 404}, {6, 403}, {5, 503}, {1, 500}}},
        {"gen3.3.Judge",
         Of(KestMethodGet).Header("If", "([\"v1\"])"),
         {{40, 412}, {5, 503}, {10, 503}, {1, 500}}},
        {"gen3.3.MakeCollection", Of(KestMethodMkCol, "n"),
         With({{22, 405}, {33, 409}, {16, 400}})},
        {"gen3.3.Delete", Of(KestMethodDelete), With({{11, 404}})},
        {"gen3.3.Copy", Of(KestMethodCopy).To(there), With(relocation)},
        {"gen3.3.Move", Of(KestMethodMove).To("/Ferro/gen3/g"), With(relocation)},
        {"gen3.3.PatchProperties", Of(KestMethodPropPatch).Body({kPatch}), With({{11, 404}})},
        {"gen3.3.Lock", Of(KestMethodLock).Body({kExclusiveLock}),
         With({{33, 409}, {16, 400}, {7, 500}})},
        {"gen3.3.RefreshLock", Of(KestMethodLock).Header("If", token), With({{11, 404}, {7, 500}})},
        {"gen3.3.Unlock", Of(KestMethodUnlock).Header("Lock-Token", "<opaquelocktoken:t>"),
         With({{11, 409}})},
        {"gen3.res3.Open", Of(KestMethodGet), {{11, 404}, {6, 403}, {5, 503}, {1, 500}, {4, 500}}},
        {"gen3.res3.Open", Of(KestMethodPut).Body({"new"}),
         With({{11, 404}, {39, 405}, {33, 409}, {16, 400}})},
        {"gen3.res3.Write", Of(KestMethodPut).Body({"new"}), {{35, 507}, {1, 500}, {5, 503}}},
        {"gen3.res3.Publish", Of(KestMethodPut).Body({"new"}), With({{39, 405}, {33, 409}})},
    };
}

class StandardFailureCodes : public testing::TestWithParam<Operation> {};

TEST_P(StandardFailureCodes, AreToldAsTheContractSays)
{
    const Operation& operation = GetParam();
    for (const auto& [code, http] : operation.codes) {
        auto world = MakeWorld();
        (*world)["gen3"].Find("/gen3/f.txt")->locks.push_back({.owner = "o", .token = "t"});
        Request request = operation.request;
        request.Header("If", "(<opaquelocktoken:t>)"); // after the operation's own, which counts
        world->Fail(operation.call, ProviderFailure(code));
        const Reply reply = world->Run(request);
        EXPECT_EQ(reply.text.substr(0, 3), std::to_string(http))
            << operation.call << " fails with " << code << ": " << reply.text;
        EXPECT_NE(reply.body, "") << operation.call << " " << code;
        world->ExpectAtRest();
    }
}

INSTANTIATE_TEST_SUITE_P(Every, StandardFailureCodes, testing::ValuesIn(Operations()));

} // namespace

} // namespace standard_tests
