// SPDX-License-Identifier: Apache-2.0
//
// Whether a change may happen: the locks that stand in its way, the tokens that open them, and the
// conditions of the request's "If" header (RFC 4918 sections 7 and 10.4).
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kest/dav.h>

#include "providers/filestore/conditions.h"
#include "providers/filestore/ifheader.h"
#include "providers/filestore/metadata.h"
#include "providers/filestore/store.h"

namespace filestore {

// What a change touches besides the object itself.
enum class Reach {
    Self,       // content, properties, attributes
    Membership, // a name comes or goes: its collection's own locks count, too
    Tree,       // a name goes with all that is below it
};

class Guard {
  public:
    // Takes a copy of `token` (may be null) and of the tokens in the "If" header.
    Guard(const Store& store, SCHANDLE session, const DAV_LOCK_TOKEN* token);
    // For an operation at `own` that was given its preconditions, which outlive this object; what
    // the call context says does not count.
    Guard(const Store& store, SCHANDLE session, const Target& own,
          const DAV_PRECONDITIONS& preconditions);

    // Code 40 when the request carries conditions and none of their lists holds, code 16 when it
    // carries something else. A form upload's header is the module's own: its conditions are not
    // asked.
    TALSTATUS CheckConditions() const;
    bool HasConditions() const { return header_.has_value() || lists_.has_value(); }
    // The conditions were handed over and ask about several objects: they are judged once more in
    // the step that makes the change.
    bool IsJudgedInStep() const { return lists_.has_value(); }
    bool IsGiven() const { return given_ != nullptr; }
    // The conditions on what bears the name `path`.
    Conditions On(const Volume& volume, std::string_view path) const;

    // Code 37 when a lock stands in the way for which no token was given, or one of somebody
    // else's. `session` is the volume's metadata; inside a transaction the answer holds until it
    // ends. Free of charge for a volume without locks.
    TALSTATUS CheckLocks(const Volume& volume, MetadataSession& session, std::string_view path,
                         Reach reach) const;
    // The same with a session of its own. The answer may be outdated when it arrives.
    TALSTATUS CheckLocks(const Volume& volume, std::string_view path, Reach reach) const;

    // The tokens that were given, the one that was handed over first.
    const std::vector<std::string>& Tokens() const { return tokens_; }
    // Who is signed in: empty for the local user.
    const std::string& User() const;

    // The provider paths of the roots of those locks that the last question was refused for.
    void NoteRefusal(const Volume& volume, std::string_view lockRoot) const;
    const std::vector<std::string>& Refusing() const { return refusing_; }

  private:
    bool HasRequiredToken(const std::vector<const LockRecord*>& locks) const;

    const Store& store_;
    SCHANDLE session_;
    std::optional<std::string> header_; // of "If"
    std::vector<std::string> tokens_;
    // Of preconditions that were handed over: the path that they are about, and the "If" header.
    const DAV_PRECONDITIONS* given_ = nullptr;
    const Volume* ownVolume_ = nullptr; // null: the root
    std::string own_;
    std::optional<IfHeader> lists_;
    mutable std::optional<std::string> user_; // asked for only where locks are
    mutable std::vector<std::string> refusing_;
};

// The path under which the provider knows what is at `path` in a volume.
[[nodiscard]] std::string ProviderPath(const Volume& volume, std::string_view path);

// The locks that cover `path`: its own and those of collections above it that reach down to it.
TALSTATUS CoveringLocks(MetadataSession& session, std::string_view path, UINT64 now,
                        std::vector<LockRecord>* out);

} // namespace filestore
