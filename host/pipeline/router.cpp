// SPDX-License-Identifier: Apache-2.0
//
// Picks the handler, a static file, an ancestor, or nobody.
#include "host/pipeline/router.h"

#include "base/uri.h"
#include "host/config/settings_holder.h"
#include "host/pipeline/ancestor_collections.h"

namespace kestd {

Decision Router::OnRequest(Exchange& exchange) const
{
    const Target& target = exchange.request.target;
    if (target.isAsterisk) {
        if (exchange.request.method != KestMethodOptions)
            return Decision::Refuse(400);
        SendOptions(exchange);
        return Decision::Replied();
    }
    if (base::IsUnder(target.path, location_))
        return Decision::GoOn();
    constexpr std::string_view kWharf = "/Wharf/";
    const std::string& directory = exchange.settings->server.wharfDirectory;
    const std::string_view place = target.path.starts_with(kWharf) ? kWharf : wharf_;
    if (target.path.starts_with(place) && !directory.empty())
        ServeStaticFile(exchange, directory, target.path.substr(place.size()));
    else if (IsAncestorOf(target.path, location_))
        ServeAncestor(exchange, location_);
    else
        return Decision::Refuse(404);
    return Decision::Replied();
}

} // namespace kestd
