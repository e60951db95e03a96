// SPDX-License-Identifier: Apache-2.0
//
// The name filter: what a filter may hold, and which names it shows.
#pragma once

#include <cstddef>

#include <kest/dav.h>

// 1 when a filter text may be used: it ends up on the page unescaped, so what could begin markup
// is refused. That keeps it from opening a tag; pages place it where closing one does no harm.
int Validate(const char* input);
// 0 when the text holds the seven characters "<(.*?)>". A plain search, not a pattern.
int checkTags(const char* string);

// 1 when the filter shows the entry: "*" shows every one, anything else is matched without case. An
// entry for whose name no memory is left is shown.
int fileMatchesFilter(const WCHAR* filter, const DAV_COMMON_ENUM& resInfo);

// Matches a name of `units` units against a filter in which "?" is any one character and "*" any
// number. Only the beginning of the name has to match: AB shows ABC. Takes at most filter length
// times name length steps, whatever the number of stars.
int testMatch(const WCHAR* filter, const WCHAR* displayName, size_t units);
