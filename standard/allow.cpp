// SPDX-License-Identifier: Apache-2.0
//
// The methods of each kind of resource.
#include "standard/allow.h"

#include "standard/answer.h"
#include "support/reply.h"

namespace standard {

void SetAllow(IKestIO_5* io, Kind kind)
{
    switch (kind) {
    case Kind::Root:
        return SetHeader(io, "Allow", "OPTIONS, GET, HEAD, PROPFIND");
    case Kind::Collection:
        return SetHeader(io, "Allow",
                         "OPTIONS, GET, HEAD, POST, DELETE, PROPFIND, PROPPATCH, COPY, MOVE, LOCK, "
                         "UNLOCK");
    case Kind::File:
        return SetHeader(io, "Allow",
                         "OPTIONS, GET, HEAD, PUT, PATCH, DELETE, PROPFIND, PROPPATCH, COPY, MOVE, "
                         "LOCK, UNLOCK");
    case Kind::Missing:
        return SetHeader(io, "Allow", "OPTIONS, PUT, MKCOL, LOCK");
    }
}

TALSTATUS RefuseMethod(IKestIO_5* io, Kind kind, TALSTATUS status)
{
    SetAllow(io, kind);
    return Refuse(io, 405, status);
}

} // namespace standard
