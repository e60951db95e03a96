// SPDX-License-Identifier: Apache-2.0
//
// Which methods a resource has: "Allow" of OPTIONS and of every 405 (RFC 9110 section 10.2.1).
#pragma once

#include "support/globals.h"
#include <kest/dav/records.h>
#include <kest/io.h>
#include <kest/types.h>

namespace standard {

enum class Kind {
    Root, // of all providers: listed, and nothing else
    Collection,
    File,
    FileAsCollection,  // named with a "/" at its end: no content is put there
    Missing,           // what can be made under the name
    MissingCollection, // the same of a name with a "/" at its end
};

constexpr Kind KindOf(DAV_TYPE type) noexcept
{
    return type == Collection ? Kind::Collection : Kind::File;
}

// What stands at the request's path. Every failure counts as nothing: OPTIONS is answered
// everywhere, clients ask for it before they know what there is. `isServed` is cleared for what a
// provider of an older generation serves. The caller does not hold the providers' list.
[[nodiscard]] Kind LookAt(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io, bool& isServed);
// The same with the provider that serves the path, null where none does. The caller holds the list.
[[nodiscard]] Kind LookAt(SCHANDLE session, UNICODE_STRING* url, IKestIO_5* io,
                          KESTDAV_HANDLER*& handler);

void SetAllow(IKestIO_5* io, Kind kind);
// The same of what a provider of an older generation serves, which knows no PATCH.
void SetAllowOfOlder(IKestIO_5* io, Kind kind);

// 405 with the header.
TALSTATUS RefuseMethod(IKestIO_5* io, Kind kind, TALSTATUS status);

} // namespace standard
