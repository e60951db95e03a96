// SPDX-License-Identifier: Apache-2.0
//
// Reading rights of the host, and writing them as properties.
#include "standard/privileges.h"

#include <kest/identifiers.h>

namespace standard {

Privileges PrivilegeReader::Of(std::string_view path, bool isCollection, bool isReadOnly)
{
    Privileges told;
    if (!hasAsked_) {
        const TALSTATUS status = Create(CLSID_KestCallContext, access_);
        isUnknown_ = Code(status) == kCodeInsufficientResources; // others allow all
    }
    hasAsked_ = true;
    if (isUnknown_)
        told.own = told.members = 0;
    told.isCollection = isCollection;
    if (access_) {
        BOOLEAN uniform = FALSE;
        const auto length = static_cast<UINT32>(path.size());
        if (Failed(access_->GetRights(length, path.data(), &told.own)))
            told.own = 0;
        if (!isCollection)
            told.members = told.own;
        else if (Failed(access_->GetMemberRights(length, path.data(), &told.members, &uniform)))
            told.members = 0;
    }
    if (isReadOnly) {
        told.own &= kRightList | kRightRead;
        told.members &= kRightList | kRightRead;
    }
    return told;
}

void PutPrivilegeSet(ReplyWriter& out, const Privileges& privileges)
{
    constexpr UINT32 kWrite = kRightCreate | kRightChange | kRightDelete;
    const auto put = [&](bool holds, const char* element) {
        if (holds)
            out.Put(element);
    };
    const UINT32 own = privileges.own;
    const UINT32 members = privileges.members;
    out.Put("<D:current-user-privilege-set>");
    put(own & kRightRead, "<D:privilege><D:read/></D:privilege>");
    put(!(kWrite & ~(own & members)), "<D:privilege><D:write/></D:privilege>");
    put(own & kRightChange, "<D:privilege><D:write-properties/></D:privilege>"
                            "<D:privilege><D:write-content/></D:privilege>");
    put(members & kRightCreate, "<D:privilege><D:bind/></D:privilege>");
    put(members & kRightDelete, "<D:privilege><D:unbind/></D:privilege>");
    put(own & kRightChange, "<D:privilege><D:unlock/></D:privilege>");
    out.Put("</D:current-user-privilege-set>");
}

void PutPermissions(ReplyWriter& out, const Privileges& privileges)
{
    const UINT32 own = privileges.own;
    const bool mayMove = (own & kRightRead) && (own & kRightDelete);
    const bool isCollection = privileges.isCollection;
    out.Put("<o:permissions xmlns:o=\"http://owncloud.org/ns\">");
    out.Put(own & kRightRead ? "G" : "");
    out.Put(own & kRightDelete ? "D" : "");
    out.Put(mayMove ? "NV" : "");
    out.Put(!isCollection && (own & kRightChange) ? "W" : "");
    out.Put(isCollection && (privileges.members & kRightCreate) ? "CK" : "");
    out.Put("</o:permissions>");
}

} // namespace standard
