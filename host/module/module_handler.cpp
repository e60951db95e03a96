// SPDX-License-Identifier: Apache-2.0
//
// Calls the module for requests and subrequests.
#include "host/module/module_handler.h"

#include "host/module/call_context.h"
#include "host/module/kest_io.h"
#include "host/module/subrequest.h"

namespace kestd {

void ModuleHandler::Handle(Exchange& exchange)
{
    KestIo io(exchange);
    const CallScope scope(io);
    (void)module_.RequestHandler(&io, exchange.session.Get(),
                                 exchange.request.method); // the reply says it all
}

void ModuleHandler::Unlock(Exchange& behind, std::string token)
{
    Subrequest request(behind, KestMethodUnlock, std::move(token));
    request.Run(module_);
}

} // namespace kestd
