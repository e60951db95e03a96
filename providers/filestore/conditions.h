// SPDX-License-Identifier: Apache-2.0
//
// Conditions that a client puts on what bears the name that its request changes ("If-Match",
// "If-None-Match", "If-Unmodified-Since": RFC 9110 section 13). They are judged in the step that
// takes or changes the name, so that of several clients one succeeds.
#pragma once

#include <optional>
#include <string_view>

#include <kest/dav.h>
#include <kest/host.h>

#include "providers/filestore/volume.h"

namespace filestore {

class Conditions {
  public:
    Conditions() = default;
    // Those of the running request, if `path` within `volume` is the request's own.
    static Conditions Of(const Volume& volume, std::string_view path);
    // Those that an operation was given; with strong tags only where a strong one is asked for
    // (RFC 9110 section 8.8.3.2). `now` says which are.
    static Conditions From(const DAV_PRECONDITIONS& given, UINT64 now);

    bool Any() const { return any_; }
    // Whether they hold for a free name only.
    bool NeedFree() const { return any_ && noneMatch_ == "*"; }
    // Code 40 unless they hold for what bears the name; null: nothing does.
    TALSTATUS Judge(const FileInfo* there) const;
    // Looks and judges. Success without a look where there are none.
    TALSTATUS JudgeName(FileSystem& fs, FileHandle directory, const char* leaf) const;
    TALSTATUS JudgePath(FileSystem& fs, const char* path) const;

  private:
    bool Names(std::string_view list, const FileInfo& there, bool mayBeWeak) const;

    bool any_ = false;
    std::string_view match_, noneMatch_; // of the request, or of the operation's caller
    UINT64 unmodifiedSince_ = 0;
    std::optional<UINT64> now_; // there are weak tags
};

// Whether the client of a COPY or MOVE lets it replace what is at the destination.
[[nodiscard]] bool MayReplaceDestination();

} // namespace filestore
