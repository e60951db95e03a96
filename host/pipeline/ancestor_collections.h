// SPDX-License-Identifier: Apache-2.0
//
// The collections above the handler's location (RFC 4918 section 5.2): all they hold is the way
// down.
#pragma once

#include <string>
#include <string_view>

#include "host/pipeline/exchange.h"

namespace kestd {

bool IsAncestorOf(std::string_view path, std::string_view location) noexcept;

// Answers a request for an ancestor of `location`. Throws std::bad_alloc.
void ServeAncestor(Exchange& exchange, const std::string& location);

// Answers OPTIONS of no resource, or of one that is not the handler's.
void SendOptions(Exchange& exchange);

} // namespace kestd
