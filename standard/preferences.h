// SPDX-License-Identifier: Apache-2.0
//
// What a client would rather have (RFC 7240, RFC 8144): preferences that a reply may follow.
#pragma once

#include <kest/io.h>
#include <kest/status.h>

namespace standard {

struct Preferences {
    bool isMinimal = false;   // "return=minimal": what its absence says as well is left out
    bool withoutRoot = false; // "depth-noroot": the request's own resource is not told of
};

// Reads "Prefer", and the "Brief" that Microsoft's clients send for "return=minimal". Fails with
// code 5 when memory is short.
[[nodiscard]] TALSTATUS ReadPreferences(IKestIO_5* io, Preferences& preferences);

// Sets "Preference-Applied" for those that the reply follows; nothing for none.
void SetPreferencesApplied(IKestIO_5* io, const Preferences& followed);

} // namespace standard
