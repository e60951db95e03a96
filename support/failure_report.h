// SPDX-License-Identifier: Apache-2.0
//
// Failures that a reply does not show: a property, a member or a line that is left out of it for
// lack of memory or of a descriptor. Replies go out as they always have; a host that listens can
// then keep them from being taken for the whole truth.
#pragma once

#include <kest/status.h>

// Tells the host, through its call context if it has one.
void ReportFailure(TALSTATUS failure) noexcept;
