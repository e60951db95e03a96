// SPDX-License-Identifier: Apache-2.0
//
// The module in this process, and the request that it serves, as the store sees them.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "providers/filestore/store.h"
#include "tests/contract/harness/world.h"

namespace faults {

// The request that runs, as the store sees it.
struct Running {
    IKestIO_5* io = nullptr;
    UINT32 method = KestMethodUnknown;
    std::vector<TALSTATUS> reported;
    std::function<bool()> isCancelled;
    std::map<std::string, Ref<IUnknown>> attached;
    bool mayReplace = false;
};
extern Running* g_running;
extern filestore::Store* g_store; // the one of the moment

// The module is started once: it has no end. Its provider is the store of the moment.
harness::World& Module();

} // namespace faults
