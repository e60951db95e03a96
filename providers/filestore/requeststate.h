// SPDX-License-Identifier: Apache-2.0
//
// What the store remembers while one request runs: tied to the request, never to a thread.
#pragma once

#include <memory>
#include <string>
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

    // What GetType found, for the operation that follows it; see request_cache.h.
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
