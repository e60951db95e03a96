// SPDX-License-Identifier: Apache-2.0
//
// Sends a reply that is one text.
#include "host/http/short_reply.h"

#include "host/http/error_status.h"

namespace kestd {

void SendText(Response& response, int status, std::string_view type, std::string_view text)
{
    response.SetHeader("Content-Type", type);
    response.Begin(status);
    response.Append(text.data(), text.size());
}

void SendError(Response& response, int status)
{
    SendText(response, status, kErrorType, ErrorText(status));
}

} // namespace kestd
