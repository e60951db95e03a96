// SPDX-License-Identifier: Apache-2.0
//
// What the user of the running request may do, as the host tells it (kest/host/access.h), asked
// about the paths that the store has resolved. Without a request, and in a host without rules,
// everything is allowed at the price of one question. All throw std::bad_alloc.
#pragma once

#include <string_view>

#include <kest/host/access.h>
#include <kest/types.h>

#include "providers/filestore/filesystem.h"
#include "providers/filestore/target.h"

namespace filestore::access {

// Whether anything is forbidden to anybody, so that it is worth asking.
[[nodiscard]] bool IsRestricted();

// The rights on a path within a volume; on what has been deleted those of where it was.
[[nodiscard]] UINT32 RightsOn(const Volume& volume, std::string_view path);
[[nodiscard]] UINT32 RightsOn(const Target& target);

// Success, or code 11 where the user may neither list nor read the object, code 6 else. Refusals
// with code 6 are told to the host.
// That the object may be told of; a file that is to be sent, that it may be read.
TALSTATUS RequireKnown(const Target& target, const FileInfo& info);
// All of some rights on an object, and on whatever is below it.
TALSTATUS Require(const Volume& volume, std::string_view path, UINT32 rights);
TALSTATUS RequireTree(const Target& target, UINT32 own, UINT32 below);
// Any of some rights, for what the user need not know of: code 6 if he has none of them.
TALSTATUS RequireAny(const Volume& volume, std::string_view path, UINT32 rights);

// What is to take a name, and what bears it.
struct Arrival {
    bool isTree = false; // with members
    bool replaces = false;
    bool isFileForFile = false;
};
TALSTATUS RequireArrival(const Volume& volume, std::string_view path, const Arrival& arrival);
// A lock, with Depth -1 also on what is below.
TALSTATUS RequireLock(const Volume& volume, std::string_view path, bool isNew, INT32 depth);

// Which members of a collection may be named. `volume` is null for the root, whose members are the
// volumes.
class MemberFilter {
  public:
    MemberFilter(const Volume* volume, std::string_view path);
    bool IsListed(std::string_view name) const;

  private:
    std::string path_;      // of the collection, ends with "/"
    bool isUniform_ = true; // no rule names a member:
    bool areListed_ = true; // this holds for all of them
};

// Whether a provider path may be told to the user in a failure.
[[nodiscard]] bool MayBeNamed(std::string_view providerPath);

// Whether a path with symbolic links on its way may be followed to the real one: nothing may be
// less allowed there, or below, than by the way that was taken. What a link gives is then judged
// by the path that was asked for.
[[nodiscard]] bool MayFollow(const Volume& volume, std::string_view path, std::string_view real);

} // namespace filestore::access
