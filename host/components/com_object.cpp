// SPDX-License-Identifier: Apache-2.0
#include "host/components/com_object.h"

#include <kest/com.h>
#include <kest/host.h>

namespace kestd {

TALSTATUS ServiceFault(UINT16 code) noexcept
{
    const TALSTATUS status = ServiceFailure(code);
    Ref<IKestCallContext> context;
    if (!Failed(Create(CLSID_KestCallContext, context)))
        (void)context->ReportFailure(status); // without a running request there is nobody to tell
    return status;
}

} // namespace kestd
