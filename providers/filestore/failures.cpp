// SPDX-License-Identifier: Apache-2.0
//
// What errors of the system mean in statuses, and who learns of them.
#include "providers/filestore/failures.h"

#include <array>
#include <cerrno>
#include <cstring>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/platform.h"

namespace filestore {

namespace {

UINT16 CodeOf(int error) noexcept
{
    switch (error) {
    case 0:
        return kCodeSuccess;
    case ENOENT:
    case ENOTDIR:
    case ELOOP: // too many links, or one that the kernel must not follow
    case EXDEV: // the path leaves the volume
    case ENXIO: // a socket or a pipe without a peer
    case EINVAL:
    case ENODATA: // no such tag
    case ERANGE:  // a longer one, which is not ours
        return kCodeNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
    case EREMOTE: // another file system inside the volume, where no rename leads
    case ETXTBSY:
        return kCodeAccessDenied;
    case ENAMETOOLONG:
        return kCodeNameTooLong;
    case EEXIST:
    case ENOTEMPTY:
        return kCodeObjectExists;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: // the file system cannot hold a file of that size
        return kCodeStorageFull;
    case EMFILE:
    case ENFILE:
    case ENOMEM:
        return kCodeInsufficientResources;
    case EISDIR:
        return kCodeMethodNotAllowed;
    case EOPNOTSUPP:
        return kCodeNotImplemented;
    default:
        return kCodeUnsuccessful;
    }
}

void TellReason(int error) noexcept
{
    static std::array<RateLimitedLog, 160> logs; // one for each kind
    logs[static_cast<unsigned>(error) % logs.size()].Write(
        kLogError, "an operation on files failed: ", std::strerror(error));
}

} // namespace

TALSTATUS StoreComponent::Fault(UINT16 code) noexcept
{
    const TALSTATUS status = Failure(code);
    call::ReportFailure(status);
    return status;
}

TALSTATUS ReportIfDenied(TALSTATUS status) noexcept
{
    if (Failed(status) && Code(status) == kCodeAccessDenied)
        call::ReportFailure(status);
    return status;
}

bool IsFault(int error) noexcept
{
    const UINT16 code = CodeOf(error);
    return error == ENOSPC || error == EDQUOT || code == kCodeInsufficientResources ||
           code == kCodeUnsuccessful;
}

TALSTATUS StatusFromErrno(int error) noexcept
{
    if (error == 0)
        return TAL_STATUS_SUCCESS;
    if (error == ECANCELED) // nobody waits for it any more
        return Failure(kCodeUnsuccessful);
    if (!IsFault(error))
        return Failure(CodeOf(error));
    TellReason(error);
    return Fault(CodeOf(error));
}

} // namespace filestore
