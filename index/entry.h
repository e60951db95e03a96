// SPDX-License-Identifier: Apache-2.0
//
// The entry template, rendered once for every entry on the page.
#pragma once

#include "index/context.h"

// Writes one entry. Fails with code 15 when the entry template cannot be opened and with code 5
// when memory is short; the entry is then left out.
[[nodiscard]] TALSTATUS writeObjectHTML(SortNode* node);
