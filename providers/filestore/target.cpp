// SPDX-License-Identifier: Apache-2.0
//
// What a target is called.
#include "providers/filestore/target.h"

#include "providers/filestore/volume.h"

namespace filestore {

bool Target::IsDeletedEntry() const
{
    return deletedId && path.View() == ".kest/deleted/" + std::to_string(deletedId);
}

std::string Target::ShownName() const
{
    if (IsRoot())
        return "/";
    if (IsDeletedEntry())
        return deletedName;
    return path.Length() ? std::string(LeafOf(path.View())) : volume->Name();
}

} // namespace filestore
