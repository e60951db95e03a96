// SPDX-License-Identifier: Apache-2.0
//
// The body of an error that the server itself tells.
#include "host/http/error_status.h"

#include "host/http/status_text.h"

namespace kestd {

std::string ErrorText(int status)
{
    std::string text = std::to_string(status);
    return text.append(" ").append(ReasonPhrase(status)).append("\n");
}

} // namespace kestd
