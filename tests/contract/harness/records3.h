// SPDX-License-Identifier: Apache-2.0
//
// Records of the third generation: properties and locks of a node, packed and changed.
#pragma once

#include "provider.h"
#include <kest/dav/records_3.h>

namespace harness {

// ", set {urn:x}name=VALUE, remove {urn:x}name, modified=NUMBER" and so on.
std::string ChangesText(UINT32 count, const DAV_PROPERTY_CHANGE* changes);
// Makes all changes or, when one is of the refused name, none.
TALSTATUS PatchNode(Node& node, UINT32 count, DAV_PROPERTY_CHANGE* changes,
                    const std::string& refused);
// One property per call.
TALSTATUS PackProperties(const Node& node, UINT64* place, UINT32* size, DAV_PROPERTY* buffer);

// ", depth=-1, timeout=600, exclusive, owner=TEXT"; the timeout in seconds.
std::string LockText(const DAV_LOCK_REQUEST& request);
TALSTATUS PackLock3(const LockRecord& lock, const std::string& root, UINT32* size,
                    DAV_LOCK_INFO_3* buffer);

} // namespace harness
