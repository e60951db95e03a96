// SPDX-License-Identifier: Apache-2.0
//
// Which methods a resource has: "Allow" of OPTIONS and of every 405 (RFC 9110 section 10.2.1).
#pragma once

#include <kest/dav/records.h>
#include <kest/io.h>
#include <kest/types.h>

namespace standard {

enum class Kind {
    Root, // of all providers: listed, and nothing else
    Collection,
    File,
    Missing, // what can be made under the name
};

constexpr Kind KindOf(DAV_TYPE type) noexcept
{
    return type == Collection ? Kind::Collection : Kind::File;
}

void SetAllow(IKestIO_5* io, Kind kind);

// 405 with the header.
TALSTATUS RefuseMethod(IKestIO_5* io, Kind kind, TALSTATUS status);

} // namespace standard
