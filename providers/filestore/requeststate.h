// SPDX-License-Identifier: Apache-2.0
//
// What the store remembers while one request runs: tied to the request, never to a thread.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <kest/unknown.h>

#include "providers/filestore/directory.h"
#include "providers/filestore/object.h"
#include "providers/filestore/target.h"

namespace filestore {

class RequestState final : public Object<RequestState, IUnknown> {
  public:
    // The running request's. Null when no request runs, or without memory. The call context holds
    // it until the request's handler has returned.
    [[nodiscard]] static RequestState* Current(); // makes it at the first call
    [[nodiscard]] static RequestState* Find();    // makes none

    // The path that the request's operations took apart last. A request asks what a path is and
    // then opens it, and where a path leads within a store never changes.
    class ParsedPath {
      public:
        // Sets `target` when `text` is the path that was noted for the store of that number.
        [[nodiscard]] bool Recall(UINT64 store, std::u16string_view text, Target* target) const;
        // Long paths are not noted. `target` is no deleted entry.
        void Note(UINT64 store, std::u16string_view text, const Target& target) noexcept;

      private:
        static constexpr size_t kMost = 128; // units, and bytes

        UINT64 store_ = 0; // stores count from 1
        Volume* volume_ = nullptr;
        size_t units_ = 0;
        size_t bytes_ = 0;
        WCHAR text_[kMost];
        char path_[kMost];
    } parsed;

    // What GetType found, for the operation that follows it; see recent.h.
    struct Found {
        Volume* volume = nullptr;
        std::string path;       // keeps its room
        OpenFile file;          // this one or
        DirectoryRef directory; // that one, or none
        TALSTATUS failure = TAL_STATUS_SUCCESS;
        bool isLook = false; // none, but `info` is good
        FileInfo info;

        void Close();
        void Note(const Target& target, const FileInfo& about); // after closing what was there
        bool IsFor(const Target& target) const
        {
            return volume == target.volume && path == target.path.View();
        }
    } found;

    // How far a COPY or MOVE has come; see relocation.h.
    struct Relocation {
        bool hasFailed = false;         // a step has, and that has been reported
        bool isCopied = false;          // nothing is left for the module to copy
        const Volume* volume = nullptr; // of the upload that was dropped last, and its path
        std::string dropped;
    } relocation;

    // Directories that the request has open as collections, the innermost last; see directory.h.
    std::vector<std::weak_ptr<const Directory>> open;
};

} // namespace filestore
