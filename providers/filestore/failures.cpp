// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/failures.h"

#include <array>
#include <cerrno>
#include <cstring>

#include "providers/filestore/platform.h"

namespace filestore {

namespace {

void TellReason(int error) noexcept
{
    static std::array<RareLog, 160> logs; // one for each kind
    logs[static_cast<unsigned>(error) % logs.size()].Tell(
        kLogError, "an operation on files failed: ", std::strerror(error));
}

} // namespace

TALSTATUS StatusFromErrno(int error) noexcept
{
    switch (error) {
    case 0:
        return TAL_STATUS_SUCCESS;
    case ENOENT:
    case ENOTDIR:
    case ELOOP: // too many links, or one that the kernel must not follow
    case EXDEV: // the path leaves the volume
    case ENXIO: // a socket or a pipe without a peer
    case EINVAL:
        return Failure(kCodeNotFound);
    case EACCES:
    case EPERM:
    case EROFS:
    case ETXTBSY:
        return Failure(kCodeAccessDenied);
    case ENAMETOOLONG:
        return Failure(kCodeNameTooLong);
    case EEXIST:
    case ENOTEMPTY:
        return Failure(kCodeObjectExists);
    case ENOSPC:
    case EDQUOT:
        TellReason(error);
        return Failure(kCodeStorageFull);
    case EFBIG: // the file system cannot hold a file of that size
        return Failure(kCodeStorageFull);
    case EMFILE:
    case ENFILE:
    case ENOMEM:
        TellReason(error);
        return Failure(kCodeInsufficientResources);
    case EISDIR:
        return Failure(kCodeMethodNotAllowed);
    case EOPNOTSUPP:
        return Failure(kCodeNotImplemented);
    default:
        TellReason(error);
        return Failure(kCodeUnsuccessful);
    }
}

} // namespace filestore
