// SPDX-License-Identifier: Apache-2.0
//
// Refusing coded bodies.
#include "standard/content_coding.h"

#include "standard/answer.h"
#include "standard/request_headers.h"
#include "standard/scan.h"
#include "support/reply.h"

namespace standard {

bool NamesCoding(std::string_view header) noexcept
{
    while (!header.empty()) {
        const std::string_view coding = TakeElement(header);
        if (!coding.empty() && !EqualsIgnoringCase(coding, "identity"))
            return true;
    }
    return false;
}

bool RefusesCoding(IKestIO_5* io, TALSTATUS& status)
{
    std::string_view coding;
    status = ReadHeader(io, "Content-Encoding", coding);
    if (Failed(status)) {
        status = RefuseMapped(io, status);
        return true;
    }
    if (!NamesCoding(coding))
        return false;
    SetHeader(io, "Accept-Encoding", "identity");
    status = Refuse(io, 415, TAL_STATUS_NOT_SUPPORTED);
    return true;
}

} // namespace standard
