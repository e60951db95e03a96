// SPDX-License-Identifier: Apache-2.0
//
// What the program does, by its first argument. Each takes the arguments behind it and returns the
// exit status: 0, 1 for a failure, 2 for a command line that is wrong.
#pragma once

#include <string>
#include <vector>

namespace kestd {

inline constexpr int kExitFailure = 1;
inline constexpr int kExitUsage = 2;

int RunServe(const std::vector<std::string>& arguments);
// Reads the configuration as "serve" would and says all that is wrong with it. Changes nothing.
int RunCheck(const std::vector<std::string>& arguments);
int RunUser(const std::vector<std::string>& arguments);
// "user app-password", by the arguments behind that.
int RunAppPassword(const std::vector<std::string>& arguments);
// Lists the locks of the volumes that "serve" would serve, or breaks one.
int RunLocks(const std::vector<std::string>& arguments);
// Prints which access rule decides about each right of a user on a path.
int RunAccess(const std::vector<std::string>& arguments);

// Prints the help text of the whole program.
void PrintHelp();
// Prints "kestd: PROBLEM" and where to find help; the exit status for it.
int UsageError(const std::string& problem);
// Prints "kestd: PROBLEM" for each line of the text; the exit status for it.
int Failure(const std::string& problem);

} // namespace kestd
