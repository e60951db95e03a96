// SPDX-License-Identifier: Apache-2.0
//
// What the user may do with an object, as clients read it: RFC 3744 section 5.4, and the letters of
// ownCloud's "permissions".
#pragma once

#include <string_view>

#include "standard/reply_writer.h"
#include <kest/com.h>
#include <kest/host/access.h>

namespace standard {

struct Privileges {
    UINT32 own = kRightsAll;     // kRight bits
    UINT32 members = kRightsAll; // those on members of a collection that bear no names in rules
    bool isCollection = false;
};

// Asks the host, which need not know of rights, for the running request.
class PrivilegeReader {
  public:
    // `path` is the provider's, in UTF-8. What is read-only is to nobody's change. A host that does
    // not answer allows nothing.
    Privileges Of(std::string_view path, bool isCollection, bool isReadOnly);

  private:
    Ref<IKestAccess> access_; // null before the first question, or without one
    bool hasAsked_ = false;
    bool isUnknown_ = false; // memory was short
};

// <D:current-user-privilege-set>
void PutPrivilegeSet(ReplyWriter& out, const Privileges& privileges);
// <oc:permissions>: G read, D delete, N rename, V move, W change the content, C and K make files
// and folders in a collection.
void PutPermissions(ReplyWriter& out, const Privileges& privileges);

} // namespace standard
