// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/failures.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>

#include "providers/filestore/platform.h"

namespace filestore {

namespace {

// Of each kind one a minute: a disk that is full or fails does so for many requests.
void TellReason(int error) noexcept
{
    constexpr auto kPause = std::chrono::minutes(1);
    static std::array<std::atomic<INT64>, 160> tellsAgain{};
    std::atomic<INT64>& own = tellsAgain[static_cast<unsigned>(error) % tellsAgain.size()];
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    INT64 again = own.load(std::memory_order_relaxed);
    if (now.count() < again || !own.compare_exchange_strong(again, (now + kPause).count()))
        return;
    try {
        Log(kLogError, std::string("an operation on files failed: ") + std::strerror(error));
    } catch (...) { // the status says it, too
    }
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
