// SPDX-License-Identifier: Apache-2.0
//
// The provider path of an index request.
#include "index/store_uri.h"

#include <algorithm>

#include "support/uri.h"

TALSTATUS StoreUri::Convert(IKestIO_5* pKestIo, bool indexXml)
{
    UNICODE_STRING* url = nullptr;
    if (const TALSTATUS status = RequestUrl(pKestIo, &url); Code(status) != 0)
        return status;
    const size_t units = url->Length / sizeof(WCHAR);
    buffer_ = AllocPaged<WCHAR>(units + 1);
    if (!buffer_)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    const auto room = static_cast<UINT16>(std::min<size_t>((units + 1) * sizeof(WCHAR), 0xFFFE));
    uri_ = {0, room, buffer_.get()};
    if (const TALSTATUS status = ConvertPathUriToDavStoreUri(pKestIo, &uri_); Code(status) != 0)
        return status;

    // Providers take paths without a trailing "/".
    if (uri_.Length > sizeof(WCHAR) && uri_.Buffer[uri_.Length / sizeof(WCHAR) - 1] == u'/')
        uri_.Length = static_cast<UINT16>(uri_.Length - sizeof(WCHAR));
    if (indexXml)
        uri_.Length = static_cast<UINT16>(
            uri_.Length - std::min<size_t>(uri_.Length, kIndexXmlUnits * sizeof(WCHAR)));
    return TAL_STATUS_SUCCESS;
}
