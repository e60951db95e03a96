// SPDX-License-Identifier: Apache-2.0
//
// Where things lie, seen from the running program: in a checkout, or installed under a prefix.
#pragma once

#include <string>

namespace kestd {

struct Places {
    bool isCheckout = false;
    std::string root;      // of the checkout, or the installation's prefix
    std::string templates; // page templates, with a trailing "/"; empty when there are none
    std::string wharf;     // scripts and styles; empty when there are none
    std::string config;    // the configuration file to use when none is named; empty for none
    std::string state;     // where the host keeps what it writes
};

// Looks around the program's own file.
Places FindPlaces();

// Makes a directory and its parents (mode 0750). Empty on success, else what is wrong.
std::string MakeDirectories(const std::string& path);

// The absolute path of an existing directory, links resolved; empty, with `problem` set, when it is
// none.
std::string ExistingDirectory(const std::string& path, std::string& problem);

} // namespace kestd
