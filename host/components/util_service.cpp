// SPDX-License-Identifier: Apache-2.0
//
// Dates, media types and escapes in the forms of the contract.
#include "host/components/util_service.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "base/http_date.h"
#include "base/media_types.h"
#include "base/percent.h"
#include "base/system_time.h"
#include "base/utf.h"
#include "host/component.h"
#include <kest/sdk/text.h>

namespace kestd {
namespace {

constexpr TALSTATUS kNullArgument = HostFailure(kCodeInvalidParameter);

// Copies `text` and a terminator into a caller's string.
TALSTATUS Store(std::string_view text, STRING* out)
{
    if (text.size() + 1 > out->MaximumLength)
        return HostFailure(kCodeBufferTooSmall);
    std::copy(text.begin(), text.end(), out->Buffer);
    out->Buffer[text.size()] = '\0';
    out->Length = static_cast<UINT16>(text.size());
    return TAL_STATUS_SUCCESS;
}

bool CanHold(const STRING* out)
{
    return out && out->Buffer;
}

bool HasText(const STRING* in)
{
    return in && (in->Buffer || in->Length == 0);
}

bool HasText(const UNICODE_STRING* in)
{
    return in && (in->Buffer || in->Length == 0);
}

class UtilService final : public Object<UtilService, IKestUtil> {
  public:
    TALSTATUS SystemTimeTo8601Time(UINT64* time, STRING* out) override
    {
        if (!time || !CanHold(out))
            return kNullArgument;
        std::array<char, base::kIsoDateLength> text{};
        if (!base::FormatIsoDate(*time, text.data()))
            return HostFailure(kCodeInvalidParameter);
        return Store({text.data(), text.size()}, out);
    }

    TALSTATUS SystemTimeToHttpTime(UINT64* time, STRING* out) override
    {
        if (!time || !CanHold(out))
            return kNullArgument;
        std::array<char, base::kHttpDateLength> text{};
        if (!base::FormatHttpDate(*time, text.data()))
            return HostFailure(kCodeInvalidParameter);
        return Store({text.data(), text.size()}, out);
    }

    TALSTATUS HttpTimeToSystemTime(STRING* text, UINT64* time) override
    {
        if (!HasText(text) || !time)
            return kNullArgument;
        const auto parsed = base::ParseHttpDate(kest::ViewOf(*text), base::SystemTimeNow());
        if (!parsed)
            return HostFailure(kCodeInvalidRequest);
        *time = *parsed;
        return TAL_STATUS_SUCCESS;
    }

    TALSTATUS SystemTimeToTime_t(UINT64* time, time_t* out) override
    {
        if (!time || !out)
            return kNullArgument;
        *out = base::SystemTimeToUnix(*time);
        return TAL_STATUS_SUCCESS;
    }

    TALSTATUS SystemTimeToTm(UINT64* time, struct tm* out) override
    {
        if (!time || !out)
            return kNullArgument;
        *out = base::SystemTimeToCalendar(*time);
        return TAL_STATUS_SUCCESS;
    }

    TALSTATUS Time_tToSystemTime(time_t time, UINT64* out) override
    {
        if (!out)
            return kNullArgument;
        const auto converted = base::UnixToSystemTime(time);
        if (!converted)
            return HostFailure(kCodeInvalidParameter);
        *out = *converted;
        return TAL_STATUS_SUCCESS;
    }

    TALSTATUS EscapeUri(STRING* in, STRING* out) override
    {
        if (!HasText(in) || !CanHold(out))
            return kNullArgument;
        return AtBoundary([&] { return Store(base::PercentEncode(kest::ViewOf(*in)), out); });
    }

    // `flags` is kept for the contract; no bit has a meaning.
    TALSTATUS EscapeUnicodeUri(UNICODE_STRING* in, UINT32, STRING* out) override
    {
        if (!HasText(in) || !CanHold(out))
            return kNullArgument;
        return AtBoundary([&] {
            const auto utf8 = base::ToUtf8(kest::ViewOf(*in));
            return utf8 ? Store(base::PercentEncode(*utf8), out) : HostFailure(kCodeInvalidRequest);
        });
    }

    TALSTATUS GetMimeTypeFromUnicodeObject(UNICODE_STRING* name, char** type) override
    {
        if (!HasText(name) || !type)
            return kNullArgument;
        return AtBoundary(
            [&] { return Answer(base::MediaTypes::System().Find(kest::ViewOf(*name)), type); });
    }

    TALSTATUS GetMimeTypeFromUTF8Object(STRING* name, char** type) override
    {
        if (!HasText(name) || !type)
            return kNullArgument;
        return AtBoundary(
            [&] { return Answer(base::MediaTypes::System().Find(kest::ViewOf(*name)), type); });
    }

    TALSTATUS UnescapeUri(STRING* in, STRING* out) override
    {
        if (!HasText(in) || !CanHold(out))
            return kNullArgument;
        return AtBoundary([&] {
            const auto text = base::PercentDecode(kest::ViewOf(*in));
            return text ? Store(*text, out) : HostFailure(kCodeInvalidRequest);
        });
    }

    TALSTATUS MapPlatformErrorToTalStatus(UINT32 error) override
    {
        return StatusOfErrno(static_cast<int>(error));
    }

  private:
    static TALSTATUS Answer(const char* found, char** type)
    {
        if (!found)
            return HostFailure(kCodeNotFound);
        *type = const_cast<char*>(found); // the contract has no const; nobody writes to it
        return TAL_STATUS_SUCCESS;
    }
};

struct ErrnoRow {
    int error;
    UINT16 code;
};

constexpr ErrnoRow kErrnoRows[] = {
    {ENOENT, kCodeNotFound},
    {ENOTDIR, kCodeNotFound},
    {ENXIO, kCodeNotFound},
    {ESRCH, kCodeNotFound},
    {EEXIST, kCodeObjectExists},
    {EACCES, kCodeAccessDenied},
    {EPERM, kCodeAccessDenied},
    {EROFS, kCodeAccessDenied},
    {ELOOP, kCodeAccessDenied},
    {EISDIR, kCodeMethodNotAllowed},
    {ENOMEM, kCodeInsufficientResources},
    {ENFILE, kCodeInsufficientResources},
    {EMFILE, kCodeInsufficientResources},
    {ENOSPC, kCodeStorageFull},
    {EDQUOT, kCodeStorageFull},
    {EFBIG, kCodeStorageFull},
    {ENAMETOOLONG, kCodeNameTooLong},
    {ETIMEDOUT, kCodeTimeout},
    {EAGAIN, kCodeTimeout},
    {EINVAL, kCodeInvalidParameter},
    {EBADF, kCodeInvalidParameter},
    {EFAULT, kCodeInvalidParameter},
    {ERANGE, kCodeBufferTooSmall},
    {EOVERFLOW, kCodeBufferTooSmall},
    {EILSEQ, kCodeInvalidRequest},
    {ENOTEMPTY, kCodeConflict},
    {EXDEV, kCodeNotImplemented},
    {ENOSYS, kCodeNotImplemented},
    {EOPNOTSUPP, kCodeNotImplemented},
    {EBUSY, kCodeLocked},
    {ETXTBSY, kCodeLocked},
};

} // namespace

IKestUtil* MakeUtilService()
{
    return new UtilService;
}

TALSTATUS StatusOfErrno(int error)
{
    if (error == 0)
        return TAL_STATUS_SUCCESS;
    for (const ErrnoRow& row : kErrnoRows)
        if (row.error == error)
            return HostFailure(row.code);
    return HostFailure(kCodeUnsuccessful);
}

} // namespace kestd
