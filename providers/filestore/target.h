// SPDX-License-Identifier: Apache-2.0
//
// Where provider paths lead.
#pragma once

#include <string>

#include <kest/types.h>

#include "providers/filestore/names.h"

namespace filestore {

class Volume;

struct Target {
    Volume* volume = nullptr; // null: the root, which lists the volumes
    PathBuffer path;          // within the volume
    // Set for what lies in a deleted entry, which is reached as "/VOLUME/.kest/deleted/ID/NAME" and
    // lives at ".kest/deleted/ID".
    INT64 deletedId = 0;
    std::string deletedName;
    std::string deletedParent; // where it was, within the volume

    bool IsRoot() const { return volume == nullptr; }
    // Both in store.cpp. The deleted entry itself, not something in it.
    bool IsDeletedEntry() const;
    // The name under which the object is shown.
    std::string ShownName() const;
    bool IsVolumeTop() const { return volume && path.Length() == 0; }
};

} // namespace filestore
