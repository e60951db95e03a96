// SPDX-License-Identifier: Apache-2.0
//
// Dates of the provider as calendar dates, for the index page.
#pragma once

#include <ctime>

#include <kest/dav.h>

// Converts a date to broken-down UTC. Returns 0, or -1 when the year does not fit. Dates before
// 1970 wrap around to a far-off year (kept: pages have always shown them so).
int KestServTALDateTimeToTm(DAV_DATETIME nctime, struct tm* tp);
