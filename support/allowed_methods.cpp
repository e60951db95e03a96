// SPDX-License-Identifier: Apache-2.0
//
// The methods that a 405 names where the handler does not know better.
#include "support/allowed_methods.h"

#include <cstring>

#include "support/globals.h"
#include <kest/host/methods.h>
#include <kest/status.h>

namespace {

struct Method {
    UINT32 number;
    const char* name;
};

constexpr Method kMethods[] = {
    {KestMethodOptions, "OPTIONS"},     {KestMethodGet, "GET"},
    {KestMethodHead, "HEAD"},           {KestMethodPut, "PUT"},
    {KestMethodDelete, "DELETE"},       {KestMethodPropFind, "PROPFIND"},
    {KestMethodPropPatch, "PROPPATCH"}, {KestMethodCopy, "COPY"},
    {KestMethodMove, "MOVE"},           {KestMethodLock, "LOCK"},
    {KestMethodUnlock, "UNLOCK"},
};
constexpr size_t kMostBytes = 128; // all names and what stands between them

bool HasAllow(IKestIO_5* io)
{
    char name[] = "Allow";
    char value[kMostBytes + 1];
    UINT32 length = kMostBytes;
    const UINT16 code = Code(io->GetReplyHeader(name, &length, value));
    return code == kCodeSuccess || code == kCodeBufferTooSmall;
}

} // namespace

void SetAllowOfRefusal(IKestIO_5* io)
{
    if (g_Dialect != Dialect::Standard || HasAllow(io))
        return;
    UINT32 refused = KestMethodUnknown;
    (void)io->GetRequestMethod(&refused); // one that is not known stands in the way of none
    char name[] = "Allow";
    char text[kMostBytes];
    char* end = text;
    for (const Method& method : kMethods) {
        if (method.number == refused)
            continue;
        if (end != text)
            end = stpcpy(end, ", ");
        end = stpcpy(end, method.name);
    }
    (void)io->SetReplyHeader(name, static_cast<UINT32>(end - text), text);
}
