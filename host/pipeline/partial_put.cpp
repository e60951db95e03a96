// SPDX-License-Identifier: Apache-2.0
//
// Refuses to store a part.
#include "host/pipeline/partial_put.h"

namespace kestd {

Decision PartialPut::OnRequest(Exchange& exchange) const
{
    return exchange.request.head.Find("Content-Range") ? Decision::Refuse(400) : Decision::GoOn();
}

} // namespace kestd
