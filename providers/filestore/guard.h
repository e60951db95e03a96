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

    // Code 40 when the request carries conditions and none of their lists holds, code 16 when it
    // carries something else. A form upload's header is the module's own: its conditions are not
    // asked.
    TALSTATUS CheckConditions() const;
    bool HasConditions() const { return header_.has_value(); }

    // Code 37 when a lock stands in the way for which no token was given, or one of somebody
    // else's. `session` is the volume's metadata; inside a transaction the answer holds until it
    // ends.
    TALSTATUS CheckLocks(MetadataSession& session, std::string_view path, Reach reach) const;
    // The same with a session of its own, and free of charge for a volume without locks. The
    // answer may be outdated when it arrives.
    TALSTATUS CheckLocks(const Volume& volume, std::string_view path, Reach reach) const;

    // The tokens that were given, the one that was handed over first.
    const std::vector<std::string>& Tokens() const { return tokens_; }
    // Who is signed in: empty for the local user.
    const std::string& User() const;

  private:
    bool IsOpened(const std::vector<const LockRecord*>& locks) const;

    const Store& store_;
    SCHANDLE session_;
    std::optional<std::string> header_; // of "If"
    std::vector<std::string> tokens_;
    mutable std::optional<std::string> user_; // asked for only where locks are
};

// The locks that cover `path`: its own and those of collections above it that reach down to it.
TALSTATUS CoveringLocks(MetadataSession& session, std::string_view path, UINT64 now,
                        std::vector<LockRecord>* out);

// An object's entity tag as it stands in headers, quotes included.
[[nodiscard]] std::string ETagText(const DAV_ETAG& etag);

} // namespace filestore
