// SPDX-License-Identifier: Apache-2.0
//
// Conditions that a client puts on what bears the name that its request changes ("If-Match",
// "If-None-Match", "If-Unmodified-Since": RFC 9110 section 13). They are judged in the step that
// takes or changes the name, so that of several clients one succeeds.
#pragma once

#include <string_view>

#include <kest/host.h>

#include "providers/filestore/volume.h"

namespace filestore {

class Conditions {
  public:
    Conditions() = default;
    // Those of the running request, if `path` within `volume` is the request's own.
    static Conditions Of(const Volume& volume, std::string_view path);

    bool Any() const { return any_; }
    // Whether they hold for a free name only.
    bool NeedFree() const { return any_ && values_.NoneMatch.Length && NoneMatch() == "*"; }
    // Code 40 unless they hold for what bears the name; null: nothing does.
    TALSTATUS Judge(const FileInfo* there) const;
    // Looks and judges. Success without a look where there are none.
    TALSTATUS JudgeName(FileSystem& fs, FileHandle directory, const char* leaf) const;
    TALSTATUS JudgePath(FileSystem& fs, const char* path) const;

  private:
    std::string_view NoneMatch() const;

    bool any_ = false;
    KEST_CONDITIONS values_{}; // the texts are the request's
};

// Whether the client of a COPY or MOVE lets it replace what is at the destination.
[[nodiscard]] bool MayReplaceDestination();

} // namespace filestore
