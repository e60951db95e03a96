// SPDX-License-Identifier: Apache-2.0
//
// One request of a fuzz target, served by the module in the harness of the contract tests.
#pragma once

#include <cstdlib>

#include <gtest/gtest.h>

#include "world.h"

// The target's own: the module with its provider, made once.
harness::World& TheWorld();

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    testing::InitGoogleTest(argc, *argv);
    (void)TheWorld();
    return 0;
}

// Serves a request; `renew` then gives the provider what it held before. One reply has to be sent
// and nothing may be held afterwards, else the process ends.
template <class Renew> void Serve(const harness::Request& request, Renew&& renew)
{
    harness::World& world = TheWorld();
    const harness::Reply reply = world.Run(request);
    world.recorder.Clear();
    EXPECT_EQ(reply.heads, 1) << reply.text;
    renew(world["p"]);
    world.ExpectAtRest();
    if (testing::Test::HasFailure())
        std::abort();
}
