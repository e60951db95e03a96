// SPDX-License-Identifier: Apache-2.0
//
// What the load client does: a short list of steps that every connection repeats, read from a text
// file. One line says one thing; "#" begins a comment line.
//
//   connections N          how many connections work at once (default 1)
//   duration SECONDS       repeat until then …
//   sequences N            … or until the list of steps was done so often in all
//   modulo N               {m} in a text is the sequence's number modulo N
//   random N               {r} is a random number below N, the same within one sequence
//   step METHOD TARGET     begins a step; the lines below belong to it
//   header NAME: VALUE     a further header
//   body TEXT              request body; "\n" is a line feed
//   body-file PATH         request body from a file
//   random-range PATH N    asks for N bytes at a random place of the file, and expects them
//   expect STATUS…         right statuses; any other reply is wrong (default 200)
//   reply-file PATH        the reply's body is exactly this file
//   reply-length N         the reply's body has this length
//   reply-has TEXT         the reply's body contains this text within its first 64 KiB
//   capture NAME HEADER    keeps a reply header's value as {NAME} for later steps; absent: unset
//   capture-token NAME     keeps a lock's token as "<token>", from the header Lock-Token or the
//   body needs NAME             leaves this step out while {NAME} is unset takes TEXT             a
//   right reply with status below 300 makes this connection the only holder
//                          of TEXT; it is wrong while another one holds it
//   gives TEXT             sending this step gives TEXT back
//
// {c} is the connection's number, {i} the sequence's number, which no other sequence has.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {

// A file's content, mapped for the time of the program.
struct Content {
    const char* data = nullptr;
    size_t size = 0;
};

struct Step {
    std::string method;
    std::string target;
    std::vector<std::string> headers;
    std::string body;
    Content bodyFile;
    bool hasBodyFile = false;
    Content rangeFile;
    size_t rangeLength = 0; // 0: no random range
    std::vector<int> expected;
    Content replyFile;
    bool hasReplyFile = false;
    int64_t replyLength = -1; // -1: any
    std::string replyHas;
    std::vector<std::pair<std::string, std::string>> captures; // name, header in lower case
    std::string token;                                         // name for the lock's token
    std::string needs;
    std::string takes;
    std::string gives;
};

struct Scenario {
    uint32_t connections = 1;
    double duration = 0;    // seconds; 0: by count
    uint64_t sequences = 0; // 0: by time
    uint32_t modulo = 1;
    uint32_t random = 1;
    std::vector<Step> steps;
};

// Reads a scenario. On failure returns a text that names the line and what is wrong with it.
std::string ReadScenario(const std::string& path, Scenario& out);

} // namespace bench
