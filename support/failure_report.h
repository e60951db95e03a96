// SPDX-License-Identifier: Apache-2.0
//
// Reports failures that a reply does not show: a property, a member or a line is left out for lack
// of memory or of a descriptor. The module's reply does not change; a host that offers
// IKestCallContext can turn it into an error before it leaves.
#pragma once

#include <kest/status.h>

// Tells the host, through its call context if it has one.
void ReportFailure(TALSTATUS failure) noexcept;
