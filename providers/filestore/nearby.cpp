// SPDX-License-Identifier: Apache-2.0
//
// Making and removing the private directory beside a name.
#include "providers/filestore/nearby.h"

#include <cerrno>

#include "providers/filestore/names.h"

namespace filestore {

int Nearby::Enter(FileSystem& fs, FileHandle parent)
{
    const std::string name(kPrivateDirectory);
    constexpr int kTries = 10; // others may remove it between the two steps
    int error = ENOENT;
    for (int i = 0; i < kTries && error == ENOENT; ++i) {
        const int made = fs.MakeDirectory(parent, name.c_str());
        if (made && made != EEXIST)
            return made;
        error = fs.OpenAt(parent, name.c_str(), OpenFor::Directory, directory_.Out(fs));
        if (error && made == 0)
            (void)fs.RemoveDirectory(parent, name.c_str());
    }
    fs_ = &fs;
    parent_ = parent;
    return error;
}

void Nearby::Leave()
{
    if (!IsEntered())
        return;
    directory_.Reset();
    (void)fs_->RemoveDirectory(
        parent_, std::string(kPrivateDirectory).c_str()); // fails where it is not empty
}

} // namespace filestore
