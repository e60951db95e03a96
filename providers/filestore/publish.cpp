// SPDX-License-Identifier: Apache-2.0
//
// Judging locks and conditions while an upload takes its name.
#include "providers/filestore/publish.h"

namespace filestore {

// The question and the rename are one step wherever there are locks; where there are none, the time
// between the look and the rename is shorter than any client needs to take a lock and hear of it.
TALSTATUS PublishUpload(const Guard& guard, Volume& volume, std::string_view path,
                        bool isConditional, Upload* upload)
{
    const bool isStale = !upload->IsReplacing() && volume.MayHaveProperties();
    if (!volume.MayHaveLocks() && !isStale && !isConditional)
        return upload->Publish();
    std::unique_ptr<MetadataSession> session;
    TALSTATUS status = Store::OpenMetadata(volume, &session);
    bool forget = false;
    if (!Failed(status) && isStale) // of a file that went without our doing
        status = session->HasAny(path, &forget);
    if (!Failed(status))
        status = session->Begin();
    if (!Failed(status) && isConditional)
        status = guard.CheckConditions();
    if (!Failed(status))
        status = guard.CheckLocks(volume, *session, path,
                                  upload->IsReplacing() ? Reach::Self : Reach::Membership);
    if (!Failed(status) && forget)
        status = session->ForgetTree(path);
    if (!Failed(status))
        status = upload->Publish();
    return Failed(status) ? status : session->Commit();
}

} // namespace filestore
