// SPDX-License-Identifier: Apache-2.0
//
// POST: what a browser's form sends (RFC 9110 section 9.3.3).
#include "standard/answer.h"
#include "standard/content_coding.h"
#include "standard/handlers.h"
#include "standard/request_headers.h"
#include "standard/scan.h"
#include "support/handlers.h"

namespace standard {

namespace {

// What has failed is told by its status, and to people as a page.
TALSTATUS TellOutcome(IKestIO_5* io, TALSTATUS status)
{
    return Failed(status) ? RefuseMapped(io, status) : ReplyToForm(io, status);
}

// What else is sent is stored nowhere, and must not be told as if it were.
bool IsForm(std::string_view type)
{
    const std::string_view media = Trimmed(type.substr(0, type.find(';')));
    return EqualsIgnoringCase(media, "multipart/form-data") ||
           EqualsIgnoringCase(media, "application/x-www-form-urlencoded");
}

} // namespace

TALSTATUS Post(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io)
{
    if (TALSTATUS status = 0; RefusesCoding(io, status))
        return status;
    std::string_view type;
    if (const TALSTATUS status = ReadHeader(io, "Content-Type", type); Failed(status))
        return RefuseMapped(io, status);
    if (!IsForm(type))
        return Refuse(io, 415, TAL_STATUS_NOT_SUPPORTED);
    bool isAnswered = true;
    const TALSTATUS status =
        AnswerForm(io, session, url, {TellOutcome, ShowBehindForm}, isAnswered);
    return isAnswered ? status : Refuse(io, 415, status);
}

} // namespace standard
