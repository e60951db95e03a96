// SPDX-License-Identifier: Apache-2.0
//
// Reading a small file whole: a read may give less than there is.
#pragma once

#include <string>

#include "providers/filestore/filesystem.h"

namespace filestore {

// Fills a text of the wanted size (bytes) from the start of an open file. It becomes shorter where
// the file is. 0 or the error, as FileSystem::Read tells it.
inline int ReadWhole(FileSystem& fs, FileHandle file, std::string* text)
{
    size_t done = 0;
    while (done < text->size()) {
        size_t got = 0;
        if (const int error = fs.Read(file, done, text->data() + done, text->size() - done, &got))
            return error;
        if (got == 0)
            break;
        done += got;
    }
    text->resize(done);
    return 0;
}

} // namespace filestore
