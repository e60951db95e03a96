// SPDX-License-Identifier: Apache-2.0
//
// kestload ADDRESS PORT SCENARIO: runs a scenario and prints what came of it as one JSON object.
#include <algorithm>
#include <arpa/inet.h>
#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>

#include "load.h"

namespace {

// Prints the distribution of a list of times.
void PrintTimes(const char* name, std::vector<uint32_t>& times)
{
    std::sort(times.begin(), times.end());
    const auto at = [&](double share) {
        if (times.empty())
            return 0u;
        return times[static_cast<size_t>(share * static_cast<double>(times.size() - 1))];
    };
    std::printf(", \"%s\": {\"p50\": %u, \"p90\": %u, \"p99\": %u, \"max\": %u}", name, at(0.5),
                at(0.9), at(0.99), at(1));
}

void PrintText(const std::string& text)
{
    for (const char c : text) {
        if (c == '"' || c == '\\')
            std::printf("\\%c", c);
        else if (static_cast<unsigned char>(c) >= 0x20)
            std::putchar(c);
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: kestload ADDRESS PORT SCENARIO\n");
        return 2;
    }
    bench::Scenario scenario;
    if (const std::string problem = bench::ReadScenario(argv[3], scenario); !problem.empty()) {
        std::fprintf(stderr, "kestload: %s\n", problem.c_str());
        return 2;
    }
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(std::atoi(argv[2])));
    if (inet_pton(AF_INET, argv[1], &address.sin_addr) != 1) {
        std::fprintf(stderr, "kestload: '%s' is no IPv4 address\n", argv[1]);
        return 2;
    }
    bench::Outcome outcome =
        bench::RunLoad(scenario, address, std::string(argv[1]) + ":" + argv[2]);

    rusage usage = {};
    getrusage(RUSAGE_SELF, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    std::printf("{\"sequences\": %llu, \"requests\": %llu, \"wrong\": %llu, \"reconnects\": %llu",
                static_cast<unsigned long long>(outcome.sequences),
                static_cast<unsigned long long>(outcome.requests),
                static_cast<unsigned long long>(outcome.wrong),
                static_cast<unsigned long long>(outcome.reconnects));
    std::printf(", \"seconds\": %.6f, \"bytes_in\": %llu, \"bytes_out\": %llu", outcome.seconds,
                static_cast<unsigned long long>(outcome.bytesIn),
                static_cast<unsigned long long>(outcome.bytesOut));
    std::printf(", \"client_cpu\": %.3f", seconds(usage.ru_utime) + seconds(usage.ru_stime));
    PrintTimes("first_byte_us", outcome.firstByteMicros);
    PrintTimes("whole_us", outcome.wholeMicros);
    std::printf(", \"statuses\": {");
    const char* comma = "";
    for (const auto& [status, count] : outcome.statuses) {
        std::printf("%s\"%d\": %llu", comma, status, static_cast<unsigned long long>(count));
        comma = ", ";
    }
    std::printf("}, \"first_wrong\": \"");
    PrintText(outcome.firstWrong);
    std::printf("\"}\n");
    return outcome.wrong ? 1 : 0;
}
