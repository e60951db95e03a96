// SPDX-License-Identifier: Apache-2.0
//
// The table of methods.
#include "host/http/method.h"

namespace kestd {

namespace {

struct MethodRow {
    std::string_view token;
    UINT32 number;
};

// The most frequent ones first.
constexpr MethodRow kMethods[] = {
    {"GET", KestMethodGet},         {"PUT", KestMethodPut},
    {"HEAD", KestMethodHead},       {"PROPFIND", KestMethodPropFind},
    {"OPTIONS", KestMethodOptions}, {"DELETE", KestMethodDelete},
    {"LOCK", KestMethodLock},       {"UNLOCK", KestMethodUnlock},
    {"MKCOL", KestMethodMkCol},     {"MOVE", KestMethodMove},
    {"COPY", KestMethodCopy},       {"PROPPATCH", KestMethodPropPatch},
    {"POST", KestMethodPost},       {"TRACE", KestMethodTrace},
    {"CONNECT", KestMethodConnect},
};

} // namespace

UINT32 MethodNumber(std::string_view token) noexcept
{
    for (const MethodRow& row : kMethods)
        if (row.token == token)
            return row.number;
    return KestMethodUnknown;
}

std::string_view MethodName(UINT32 method) noexcept
{
    if (method == KestMethodPatch) // no token of the table: the classic dialect does not know it
        return "PATCH";
    for (const MethodRow& row : kMethods)
        if (row.number == method)
            return row.token;
    return "other";
}

bool IsChange(UINT32 method) noexcept
{
    switch (method) {
    case KestMethodPut:
    case KestMethodPatch:
    case KestMethodPost:
    case KestMethodDelete:
    case KestMethodMkCol:
    case KestMethodCopy:
    case KestMethodMove:
    case KestMethodPropPatch:
    case KestMethodLock:
    case KestMethodUnlock:
        return true;
    default:
        return false;
    }
}

} // namespace kestd
