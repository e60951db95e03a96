// SPDX-License-Identifier: Apache-2.0
//
// Telling the host of failures that a reply does not show.
#include "support/failure_report.h"

#include <kest/com.h>
#include <kest/host.h>
#include <kest/identifiers.h>

void ReportFailure(TALSTATUS failure) noexcept
{
    Ref<IKestCallContext> context;
    if (!Failed(Create(CLSID_KestCallContext, context)))
        (void)context->ReportFailure(failure); // without a running request there is nobody to tell
}
