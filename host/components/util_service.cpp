// SPDX-License-Identifier: Apache-2.0
#include "host/components/util_service.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "host/components/com_object.h"
#include "host/components/dates.h"
#include "host/components/mime.h"
#include "host/components/text.h"

namespace kestd {
namespace {

constexpr TALSTATUS kNullArgument = ServiceFailure(kCodeInvalidParameter);

// Copies `text` and a terminator into a caller's string.
TALSTATUS Store(std::string_view text, STRING* out)
{
    if (text.size() + 1 > out->MaximumLength)
        return ServiceFailure(kCodeBufferTooSmall);
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

class UtilService final : public ComObject<IKestUtil> {
  public:
    TALSTATUS SystemTimeTo8601Time(UINT64* time, STRING* out) override
    {
        if (!time || !CanHold(out))
            return kNullArgument;
        std::array<char, kIsoDateLength> text{};
        if (!FormatIsoDate(*time, text.data()))
            return ServiceFailure(kCodeInvalidParameter);
        return Store({text.data(), text.size()}, out);
    }

    TALSTATUS SystemTimeToHttpTime(UINT64* time, STRING* out) override
    {
        if (!time || !CanHold(out))
            return kNullArgument;
        std::array<char, kHttpDateLength> text{};
        if (!FormatHttpDate(*time, text.data()))
            return ServiceFailure(kCodeInvalidParameter);
        return Store({text.data(), text.size()}, out);
    }

    TALSTATUS HttpTimeToSystemTime(STRING* text, UINT64* time) override
    {
        if (!HasText(text) || !time)
            return kNullArgument;
        const auto parsed = ParseHttpDate(ViewOf(*text), SystemTimeNow());
        if (!parsed)
            return ServiceFailure(kCodeInvalidRequest);
        *time = *parsed;
        return TAL_STATUS_SUCCESS;
    }

    TALSTATUS SystemTimeToTime_t(UINT64* time, time_t* out) override
    {
        if (!time || !out)
            return kNullArgument;
        *out = SystemTimeToUnix(*time);
        return TAL_STATUS_SUCCESS;
    }

    TALSTATUS SystemTimeToTm(UINT64* time, struct tm* out) override
    {
        if (!time || !out)
            return kNullArgument;
        *out = SystemTimeToCalendar(*time);
        return TAL_STATUS_SUCCESS;
    }

    TALSTATUS Time_tToSystemTime(time_t time, UINT64* out) override
    {
        if (!out)
            return kNullArgument;
        const auto converted = UnixToSystemTime(time);
        if (!converted)
            return ServiceFailure(kCodeInvalidParameter);
        *out = *converted;
        return TAL_STATUS_SUCCESS;
    }

    TALSTATUS EscapeUri(STRING* in, STRING* out) override
    {
        if (!HasText(in) || !CanHold(out))
            return kNullArgument;
        return AtBoundary([&] { return Store(EscapeUriPath(ViewOf(*in)), out); });
    }

    // `flags` is kept for the contract; no bit has a meaning.
    TALSTATUS EscapeUnicodeUri(UNICODE_STRING* in, UINT32, STRING* out) override
    {
        if (!HasText(in) || !CanHold(out))
            return kNullArgument;
        return AtBoundary([&] {
            const auto utf8 = ToUtf8(ViewOf(*in));
            return utf8 ? Store(EscapeUriPath(*utf8), out) : ServiceFailure(kCodeInvalidRequest);
        });
    }

    TALSTATUS GetMimeTypeFromUnicodeObject(UNICODE_STRING* name, char** type) override
    {
        if (!HasText(name) || !type)
            return kNullArgument;
        return AtBoundary([&] { return Answer(MimeTypes::System().Find(ViewOf(*name)), type); });
    }

    TALSTATUS GetMimeTypeFromUTF8Object(STRING* name, char** type) override
    {
        if (!HasText(name) || !type)
            return kNullArgument;
        return AtBoundary([&] { return Answer(MimeTypes::System().Find(ViewOf(*name)), type); });
    }

    TALSTATUS UnescapeUri(STRING* in, STRING* out) override
    {
        if (!HasText(in) || !CanHold(out))
            return kNullArgument;
        return AtBoundary([&] {
            const auto text = UnescapeUriPath(ViewOf(*in));
            return text ? Store(*text, out) : ServiceFailure(kCodeInvalidRequest);
        });
    }

    TALSTATUS MapPlatformErrorToTalStatus(UINT32 error) override
    {
        return StatusOfErrno(static_cast<int>(error));
    }

  private:
    ~UtilService() override = default;

    static TALSTATUS Answer(const char* found, char** type)
    {
        if (!found)
            return ServiceFailure(kCodeNotFound);
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
            return ServiceFailure(row.code);
    return ServiceFailure(kCodeUnsuccessful);
}

} // namespace kestd
