// SPDX-License-Identifier: Apache-2.0
//
// Looking upwards for a provider.
#include "standard/new_name.h"

#include "support/resolution.h"

namespace standard {

namespace {

// Cuts the last component off. False when that leaves nothing.
bool CutLast(UNICODE_STRING& path)
{
    size_t units = path.Length / sizeof(WCHAR);
    while (units != 0 && path.Buffer[--units] != u'/')
        ;
    path.Length = static_cast<UINT16>(units * sizeof(WCHAR));
    return units != 0;
}

} // namespace

TALSTATUS FindProviderOfNew(SCHANDLE session, const UNICODE_STRING& path, KESTDAV_HANDLER*& handler)
{
    UNICODE_STRING above = path;
    TALSTATUS status = DavUriToHandler(session, &above, &handler);
    bool isDeep = false;
    while (Code(status) == kCodeNotFound && CutLast(above)) {
        isDeep = true;
        status = DavUriToHandler(session, &above, &handler);
    }
    if (Code(status) != kCodeNotFound)
        return status;
    return isDeep ? TAL_STATUS_CONFLICT : TAL_STATUS_ACCESS_DENIED;
}

} // namespace standard
