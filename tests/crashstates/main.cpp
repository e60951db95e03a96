// SPDX-License-Identifier: Apache-2.0
//
// usage: crashstates [--full | --pairs N] [--length N] [--part I/N] [--seed N] [--limit N]
//                    [--without WORD] [--only WORDS] [--setting N]
//
// Checks every state that a power cut can leave in the course of every single operation and of
// drawn pairs (N for each setting, default 40), or with --full of every sequence of up to three.
// --length: with --full, of up to N operations, 1 to 3. --part: of the sequences of several only
// each N-th from the I-th on (1 to N), so that processes and nights can share them. --limit: so
// kinds of faults are told in detail, as they are found (default 12). --without: leaves out the
// operations whose names hold WORD. --only: just the sequences whose names, joined by ": ", hold
// WORDS. --setting: only the N-th of the settings, from 1. The exit status is not 0 when a fault
// was found.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <random>

#include "tests/crashstates/check.h"

namespace {

using namespace crashstates;

struct Options {
    bool full = false;
    size_t length = 3; // of the longest sequence of --full
    size_t part = 1;   // of `parts`
    size_t parts = 1;
    size_t pairs = 40;
    uint64_t seed = 1;
    size_t limit = 12;
    const char* without = nullptr;
    const char* only = nullptr;
    size_t setting = 0; // 0: all of them
};

using Sequence = std::vector<const Operation*>;

double Seconds()
{
    using namespace std::chrono;
    return duration<double>(steady_clock::now().time_since_epoch()).count();
}

void Print(const Setting& setting, const Checker& checker, size_t length, double seconds)
{
    std::printf("%-30s %zu operations: %6zu sequences, %8zu states, %7zu while starting, "
                "%8zu met again, %5.1f s, %zu faults\n",
                setting.name, length, checker.counts.sequences, checker.counts.states,
                checker.counts.repairs, checker.counts.repeats, seconds, checker.counts.faults);
    std::fflush(stdout);
}

void Check(Checker& checker, const Sequence& sequence, size_t repairs, const Options& options)
{
    std::string name;
    for (const Operation* operation : sequence)
        name.append(name.empty() ? "" : ": ").append(operation->name);
    if (!options.only || name.find(options.only) != name.npos)
        checker.Check(sequence, repairs);
}

// Every sequence of `length` operations; of those, what belongs to this part.
void All(Checker& checker, const Sequence& operations, size_t length, const Options& options)
{
    size_t count = 1;
    for (size_t i = 0; i < length; ++i)
        count *= operations.size();
    for (size_t number = options.part - 1; number < count; number += options.parts) {
        Sequence sequence;
        for (size_t rest = number; sequence.size() < length; rest /= operations.size())
            sequence.push_back(operations[rest % operations.size()]);
        Check(checker, sequence, 0, options);
    }
}

void Run(const Setting& setting, Checker& checker, const Options& options)
{
    const double began = Seconds();
    Sequence operations;
    for (const Operation& operation : kOperations)
        if (!options.without || !std::strstr(operation.name, options.without))
            operations.push_back(&operation);
    for (const Operation* operation : operations)
        Check(checker, {operation}, options.full ? 1 : 16, options);
    Print(setting, checker, 1, Seconds() - began);
    if (options.full) {
        for (size_t length = 2; length <= options.length; ++length) {
            All(checker, operations, length, options);
            Print(setting, checker, length, Seconds() - began);
        }
        return;
    }
    std::mt19937_64 dice(options.seed);
    for (size_t i = 0; i < options.pairs; ++i)
        Check(checker,
              {operations[dice() % operations.size()], operations[dice() % operations.size()]}, 0,
              options);
    Print(setting, checker, 2, Seconds() - began);
}

// Tells the first fault of each kind as it is found, and in the end how many states show each.
class FaultReport {
  public:
    explicit FaultReport(size_t limit) : limit_(limit) {}
    void Add(const Fault& fault)
    {
        ++count_;
        if (kinds_[fault.what]++ > 0 || kinds_.size() > limit_)
            return;
        std::printf("FAULT %s\n%s\n", fault.what.c_str(), fault.detail.c_str());
        std::fflush(stdout);
    }
    void Sum() const;
    size_t Count() const { return count_; }

  private:
    const size_t limit_;
    size_t count_ = 0;
    std::map<std::string, size_t> kinds_;
};

void FaultReport::Sum() const
{
    size_t told = 0;
    for (const auto& [what, count] : kinds_)
        if (++told <= 10 * limit_)
            std::printf("%6zu states: %s\n", count, what.c_str());
    if (told > 10 * limit_)
        std::printf("... and %zu more kinds\n", told - 10 * limit_);
    std::printf("%zu faults\n", count_);
}

bool Parse(int count, char** words, Options* out)
{
    for (int i = 1; i < count; ++i) {
        const auto number = [&](const char* name, auto* value) {
            if (std::strcmp(words[i], name) != 0 || i + 1 == count)
                return false;
            *value = std::strtoull(words[++i], nullptr, 10);
            return true;
        };
        if (std::strcmp(words[i], "--full") == 0)
            out->full = true;
        else if (std::strcmp(words[i], "--part") == 0 && i + 1 < count) {
            if (std::sscanf(words[++i], "%zu/%zu", &out->part, &out->parts) != 2)
                return false;
        } else if (std::strcmp(words[i], "--without") == 0 && i + 1 < count)
            out->without = words[++i];
        else if (std::strcmp(words[i], "--only") == 0 && i + 1 < count)
            out->only = words[++i];
        else if (!number("--pairs", &out->pairs) && !number("--seed", &out->seed) &&
                 !number("--limit", &out->limit) && !number("--setting", &out->setting) &&
                 !number("--length", &out->length))
            return false;
    }
    return out->setting <= std::size(kSettings) && out->length >= 1 && out->length <= 3 &&
           out->part >= 1 && out->part <= out->parts;
}

} // namespace

int main(int count, char** words)
{
    Options options;
    if (!Parse(count, words, &options)) {
        std::fprintf(stderr, "usage: crashstates [--full | --pairs N] [--seed N] [--limit N] "
                             "[--without WORD] [--only WORDS] [--setting N] [--length N] "
                             "[--part I/N]\n");
        return 2;
    }
    RegisterMemoryVfs();
    const filestore::TempDirectory directory;
    for (const char* const volume : {"v/.kest", "w/.kest"})
        std::filesystem::create_directories(directory.Path() / volume);
    FaultReport report(options.limit);
    for (const Setting& setting : kSettings) {
        if (options.setting != 0 && &setting != &kSettings[options.setting - 1])
            continue;
        Checker checker(setting, directory.Path(), {options.full ? 4096u : 256u, options.seed},
                        [&](const Fault& fault) { report.Add(fault); });
        Run(setting, checker, options);
    }
    if (FilesOpened() == 0) {
        std::fprintf(stderr, "crashstates: the database was not opened on the disk in memory\n");
        return 1;
    }
    report.Sum();
    return report.Count() == 0 && !testing::Test::HasFailure() ? 0 : 1;
}
