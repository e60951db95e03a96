// SPDX-License-Identifier: Apache-2.0
//
// What is written down of an upload that can go on later: a file beside its content. A head of one
// length, which is rewritten in place and has a check of its own, then texts that never change.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <kest/dav.h>

namespace filestore {

struct UploadRecord {
    UINT64 offset = 0;                    // bytes of content that are on the disk
    UINT64 touched = 0;                   // when that was last written, as DAV_DATETIME
    UINT64 length = kUploadLengthUnknown; // of the whole
    UINT64 inode = 0;                     // of the content, also when it is under its name
    std::string user;                     // who began it, see Guard::User
    std::string path;                     // in the volume
    std::string terms;                    // of the caller
};

inline constexpr size_t kUploadHeadBytes = 112;
inline constexpr size_t kMostUploadRecordBytes = 64 * 1024;

// The head alone, and all of it.
[[nodiscard]] std::string UploadHead(const UploadRecord& record);
[[nodiscard]] std::string UploadText(const UploadRecord& record);

// False for what is no whole record, cut or damaged.
[[nodiscard]] bool ReadUploadText(std::string_view text, UploadRecord* out);

} // namespace filestore
