// SPDX-License-Identifier: Apache-2.0
//
// Replies that the server makes itself, with a short text.
#pragma once

#include <string_view>

#include "host/http/response.h"

namespace kestd {

// Begins a reply with `text` as its body. Throws std::bad_alloc.
void SendText(Response& response, int status, std::string_view type, std::string_view text);

// The same with the status and its name as the text.
void SendError(Response& response, int status);

} // namespace kestd
