// SPDX-License-Identifier: Apache-2.0
//
// Looks at a changed configuration in another process, before anything of it counts here.
#pragma once

#include <string>
#include <vector>

namespace kestd {

// Runs "kestd check" with the words of this command line behind "serve". Empty when all is right,
// else what it said, one problem per line, at most 16 KiB. Waits for at most a minute.
std::string CheckInOtherProcess(std::vector<std::string> words);

} // namespace kestd
