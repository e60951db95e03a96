// SPDX-License-Identifier: Apache-2.0
//
// Forms as browsers send them, and the replies to them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "world.h"

namespace form {

inline constexpr char kBoundary[] = "----WebKitFormBoundaryAaB03x";

// A file field, or a text field when `file` is null.
struct Part {
    std::string content;
    const char* file = nullptr;
    std::string moreHeaders = {};
};

// The body of a form with these parts and its last delimiter.
std::string Body(const std::vector<Part>& parts);

// The text cut into pieces of `size` bytes.
std::vector<std::string> Pieces(const std::string& text, size_t size);

// A POST of a form's body, arriving in one piece.
harness::Request Upload(const std::string& body, const std::string& path = "/Ferro/vol/dir");

// The module with the provider "vol", which holds the collection "dir".
std::unique_ptr<harness::World> MakeWorld(int generations = 2, harness::Setup setup = {});

// The same for the same seed.
std::string Bytes(size_t size, unsigned seed);

// Whole replies.
extern const char kSuccess[];
extern const char kError[];

} // namespace form
