// SPDX-License-Identifier: Apache-2.0
//
// The stores of all components.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "host/components/object_store.h"

namespace kestd {

// All stores of the process, so that the end of a session reaches each. Outlives them.
class ObjectStores {
  public:
    ObjectStores(SessionTable& sessions, uint32_t objectsPerSession);

    // A new ISCOM with one reference. The store goes with it.
    ISCOM* MakeInterface();

  private:
    friend class ObjectStoreInterface;
    void EndSession(SCHANDLE session);
    void Forget(ObjectStore* store);

    SessionTable& sessions_;
    const uint32_t objectsPerSession_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<ObjectStore>> stores_;
};

} // namespace kestd
