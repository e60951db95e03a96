// SPDX-License-Identifier: Apache-2.0
//
// What a person sees in a browser in place of an error: a sentence, and a way back; and the
// sentence alone, which a program is told.
#pragma once

#include "host/pipeline/exchange.h"

namespace kestd {

// Gives a refusal that nobody has made a page for one, if a browser asked for something to show:
// GET, HEAD or POST that take HTML. One without a body gets a line of text for every other client,
// but for HEAD and 416. Status and headers stay as they are. Called when the reply is complete and
// has not left. Throws std::bad_alloc.
void ShowErrorPage(Exchange& exchange);

} // namespace kestd
