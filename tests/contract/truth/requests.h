// SPDX-License-Identifier: Apache-2.0
//
// The requests that are made while something fails, and what is true of them.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "tests/contract/truth/world.h"

namespace truth_test {

struct Case {
    std::string name;
    // Makes the request; called once for each failure, after `prepare`.
    std::function<std::string()> request;
    bool isHead = false;
    bool changes = false; // the volume is renewed for each failure
    // What is there afterwards, given whether a success was told: empty when that is as it should
    // be, old or new and whole.
    std::function<std::string(bool isTold)> check = [](bool) { return std::string(); };
    bool isAnnounced = false; // a reply comes before the reply (104)
};

const std::vector<Case>& Cases();
// Those that only the standard dialect knows.
std::vector<Case> StandardCases();

// What is in the volume now.
std::string Content(const std::filesystem::path& path);
bool Has(const std::filesystem::path& path);
// A request that needs nothing before it.
std::function<std::string()> Plain(const std::string& request);

// The reply without what differs from time to time: tokens and dates of the reply itself.
std::string Essence(const kestd::test::Answer& answer);

// What is answered when nothing fails, in a volume as it is at first.
std::string TruthOf(const Case& each);

// How often what failed was not needed, was told, or cut the reply short.
struct Tally {
    int unneeded = 0;
    int told = 0;
    int cut = 0;
    void Print(const std::string& name) const;
};

// Expects that a client that got this reply knows no more than what is true: it is the one that is
// given when nothing fails, or an error of the server, or visibly cut; and that what is there
// afterwards is as it should be.
void CheckTrue(const Case& each, const kestd::test::Answer& answer, const std::string& truth,
               Tally& tally);

} // namespace truth_test
