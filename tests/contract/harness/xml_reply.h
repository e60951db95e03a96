// SPDX-License-Identifier: Apache-2.0
//
// Reads the XML of a reply in the standard dialect as a strict, namespace-aware client does.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace harness {

// What is wrong with a body: not well-formed, a prefix that is not declared, a document type, an
// element of RFC 4918 in a place that is not its own, no href in front of what is said of it.
// Empty when a client can take it. What stands in properties of other namespaces and in "owner" is
// the client's own and only has to be well-formed. `paths` gets what the hrefs name, unescaped.
std::string FaultOfXml(std::string_view body, std::vector<std::string>* paths = nullptr);

} // namespace harness
