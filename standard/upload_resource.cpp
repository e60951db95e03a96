// SPDX-License-Identifier: Apache-2.0
//
// Names of upload resources, and what replies say of them.
#include "standard/upload_resource.h"

#include <algorithm>
#include <cstring>

#include "standard/number_text.h"
#include "standard/request_headers.h"
#include "support/reply.h"
#include "support/uri.h"
#include <kest/host/interim_reply.h>

namespace standard {

namespace {

constexpr std::string_view kPlace = "/.kest/upload/";
constexpr size_t kMostLocation = 60'000; // bytes: counted strings end at 65,535

bool IsNameUnit(WCHAR unit) noexcept
{
    return (unit >= u'0' && unit <= u'9') || (unit >= u'a' && unit <= u'z') ||
           (unit >= u'A' && unit <= u'Z') || unit == u'-' || unit == u'_';
}

STRING Counted(std::string_view text) noexcept
{
    const auto size = static_cast<UINT16>(text.size());
    return {size, size, const_cast<char*>(text.data())}; // only read
}

// "max-size=N, max-age=N".
struct LimitsText {
    explicit LimitsText(const DAV_UPLOAD& upload)
    {
        Add("max-size=");
        Add(Decimal(std::min<UINT64>(upload.MostBytes, 999'999'999'999'999)).Text());
        Add(", max-age=");
        Add(Decimal(upload.Lifetime).Text());
    }
    void Add(const char* piece)
    {
        const size_t size = std::strlen(piece);
        std::memcpy(text + length, piece, size + 1);
        length += size;
    }
    char text[80];
    size_t length = 0;
};

void SendProblem(IKestIO_5* io, HTTPSTATUS http, const char* type, const char* title)
{
    SetHeader(io, "Content-Type", "application/problem+json");
    SetHeader(io, "Content-Length", "");
    (void)io->SendHeader(http);
    Put(io, "{\"type\":\"https://iana.org/assignments/http-problem-types#");
    Put(io, type);
    Put(io, "\",\"title\":\"");
    Put(io, title);
    Put(io, "\"");
}

} // namespace

bool IsUploadResource(const UNICODE_STRING& url, UploadResource& out) noexcept
{
    const UNICODE_STRING path = ProviderPath(url);
    size_t units = path.Length / sizeof(WCHAR);
    size_t first = units;
    while (first != 0 && units - first < kUploadNameBytes && IsNameUnit(path.Buffer[first - 1]))
        --first;
    if (first == units || first <= kPlace.size())
        return false;
    const WCHAR* const place = path.Buffer + first - kPlace.size();
    if (!std::equal(kPlace.begin(), kPlace.end(), place,
                    [](char a, WCHAR b) { return static_cast<WCHAR>(a) == b; }))
        return false;
    out.nameLength = static_cast<UINT32>(units - first);
    std::transform(path.Buffer + first, path.Buffer + units, out.name,
                   [](WCHAR unit) { return static_cast<char>(unit); });
    out.target = path;
    out.target.Length = static_cast<UINT16>((first - kPlace.size()) * sizeof(WCHAR));
    return true;
}

std::string_view UploadLocation(IKestIO_5* io, const DAV_UPLOAD& upload)
{
    STRING* raw = nullptr;
    const size_t nameLength = std::min<size_t>(upload.NameLength, kUploadNameBytes);
    if (Failed(io->GetRawUrl(&raw)) || !raw || !raw->Buffer || raw->Length > kMostLocation)
        return {};
    const size_t size = raw->Length + kPlace.size() + nameLength;
    auto* const text = static_cast<char*>(io->AllocMemory(static_cast<UINT32>(size + 1)));
    if (!text)
        return {};
    char* at = std::copy_n(raw->Buffer, raw->Length, text);
    at = std::copy(kPlace.begin(), kPlace.end(), at);
    at = std::copy_n(upload.Name, nameLength, at);
    *at = '\0';
    return {text, size};
}

void AnnounceUpload(IKestIO_5* io, const UploadFields& fields, const DAV_UPLOAD& upload,
                    std::string_view location)
{
    const LimitsText limits(upload);
    const Decimal version(fields.version);
    Ref<IKestInterimReply> interim;
    if (!fields.MayAnnounce() || location.empty() || Failed(Query(io, interim)))
        return;
    const KEST_HEADER_LINE lines[] = {
        {Counted("Location"), Counted(location)},
        {Counted("Upload-Limit"), Counted({limits.text, limits.length})},
        {Counted("Upload-Draft-Interop-Version"), Counted(version.Text())},
    };
    // Who does not hear of it cannot resume, and is served all the same.
    (void)interim->SendInterim(104, fields.version ? 3 : 2, lines);
}

void SetUploadOffset(IKestIO_5* io, UINT64 offset)
{
    SetHeaderText(io, "Upload-Offset", Decimal(offset).Text());
}

void SetUploadLength(IKestIO_5* io, UINT64 length)
{
    SetHeaderText(io, "Upload-Length", Decimal(length).Text());
}

void SetUploadComplete(IKestIO_5* io, const UploadFields& fields, bool isComplete)
{
    if (fields.isOldForm || fields.version == kFirstInterop)
        SetHeaderText(io, "Upload-Incomplete", isComplete ? "?0" : "?1");
    SetHeaderText(io, "Upload-Complete", isComplete ? "?1" : "?0");
}

void SetUploadLimits(IKestIO_5* io, const DAV_UPLOAD& upload)
{
    SetHeaderText(io, "Upload-Limit", LimitsText(upload).text);
}

TALSTATUS RefuseOffset(IKestIO_5* io, TALSTATUS status, UINT64 expected, UINT64 provided)
{
    SetUploadOffset(io, expected);
    SendProblem(io, 409, "mismatching-upload-offset", "the upload has another offset");
    Put(io, ",\"expected-offset\":");
    Put(io, Decimal(expected).Text());
    Put(io, ",\"provided-offset\":");
    Put(io, Decimal(provided).Text());
    Put(io, "}\n");
    return status;
}

TALSTATUS RefuseLength(IKestIO_5* io, TALSTATUS status)
{
    SendProblem(io, 400, "inconsistent-upload-length", "the upload has another length");
    Put(io, "}\n");
    return status;
}

TALSTATUS RefuseCompleted(IKestIO_5* io, TALSTATUS status)
{
    SendProblem(io, 410, "completed-upload", "the upload is complete");
    Put(io, "}\n");
    return status;
}

} // namespace standard
