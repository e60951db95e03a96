// SPDX-License-Identifier: Apache-2.0
//
// The request's path, cut and decoded for the provider.
#include "support/uri.h"

#include <algorithm>
#include <iterator>

TALSTATUS RequestUrl(IKestIO_5* pKestIo, UNICODE_STRING** ppUrl)
{
    *ppUrl = nullptr;
    const TALSTATUS status = pKestIo->GetUrl(nullptr, ppUrl);
    if (Code(status) != 0)
        return status;
    return IsMissing(*ppUrl) ? TAL_STATUS_INVALID_PARAMETER : status;
}

UNICODE_STRING ProviderPath(const UNICODE_STRING& url)
{
    // A moniker that has changed since the host learnt it may be longer than the path.
    const UINT16 cut = std::min(g_MonikerU.Length, url.Length);
    return {static_cast<UINT16>(url.Length - cut),
            static_cast<UINT16>(std::max(url.MaximumLength, url.Length) - cut),
            url.Buffer + cut / sizeof(WCHAR)};
}

namespace {

struct Escape {
    WCHAR high;
    WCHAR low;
    WCHAR decoded;
};
constexpr Escape kEscapes[] = {
    {u'2', u'0', u' '}, {u'2', u'1', u'!'}, {u'2', u'2', u'"'}, {u'2', u'3', u'#'},
    {u'2', u'4', u'$'}, {u'2', u'5', u'%'}, {u'2', u'6', u'&'}, {u'2', u'7', u'\''},
    {u'2', u'8', u'('}, {u'2', u'9', u')'}, {u'2', u'B', u'+'}, {u'2', u'C', u','},
    {u'2', u'F', u'/'}, {u'3', u'A', u':'}, {u'3', u'B', u';'}, {u'4', u'0', u'@'},
    {u'5', u'E', u'^'}, {u'6', u'0', u'`'},
};

// What the escape with these two digits stands for; null when it is left as it is.
const Escape* FindEscape(WCHAR high, WCHAR low)
{
    const auto* found =
        std::find_if(std::begin(kEscapes), std::end(kEscapes),
                     [&](const Escape& e) { return e.high == high && e.low == low; });
    return found == std::end(kEscapes) ? nullptr : found;
}

} // namespace

TALSTATUS ConvertUriToDavStoreUri(UNICODE_STRING* pSrcU, UNICODE_STRING* pDavUriU)
{
    const WCHAR* in = pSrcU->Buffer;
    const size_t units = pSrcU->Length / sizeof(WCHAR);
    size_t out = 0;
    for (size_t i = 0; i < units; ++i) {
        WCHAR unit = in[i];
        if (unit == u'%' && units - i > 2)
            if (const Escape* escape = FindEscape(in[i + 1], in[i + 2])) {
                unit = escape->decoded;
                i += 2;
            }
        pDavUriU->Buffer[out++] = unit;
    }
    pDavUriU->Buffer[out] = 0;
    pDavUriU->Length = static_cast<UINT16>(out * sizeof(WCHAR));
    return TAL_STATUS_SUCCESS;
}

TALSTATUS ConvertPathUriToDavStoreUri(IKestIO_5* pKestIo, UNICODE_STRING* pDavUriU)
{
    UNICODE_STRING* url = nullptr;
    if (const TALSTATUS status = RequestUrl(pKestIo, &url); Code(status) != 0)
        return status;
    UNICODE_STRING path = ProviderPath(*url);
    return ConvertUriToDavStoreUri(&path, pDavUriU);
}
