// SPDX-License-Identifier: Apache-2.0
//
// POST on a collection: files uploaded by a form, or a change of the index preferences.
#include <algorithm>
#include <cstring>
#include <optional>
#include <string_view>
#include <strings.h>

#include "methods/upload.h"
#include "support/handlers.h"
#include "support/memory.h"
#include "support/reply.h"
#include "support/uri.h"
#include "support/utf8.h"

namespace {

constexpr UINT32 kTextBytes = 1024;     // of URL arguments and of the "Content-Type" value
constexpr UINT32 kArgumentBytes = 1020; // of them for URL arguments
constexpr UINT32 kContentTypeBytes = 1023;

bool Contains(const char* text, const char* part)
{
    return strcasestr(text, part) != nullptr;
}

// A page's "token=" argument becomes the request's "If" header. Two placeholders stand in front of
// the token's text, which the header's opening takes the place of.
void UseToken(IKestIO_5* io, const char* arguments)
{
    constexpr char kToken[] = "token=";
    constexpr size_t kPlaceholders = 2;
    const char* value = std::strstr(arguments, kToken);
    if (value == nullptr)
        return;
    value += sizeof(kToken) - 1;
    if (std::strlen(value) < kPlaceholders)
        return;
    const size_t length = kPlaceholders + std::strcspn(value + kPlaceholders, "&");

    char header[kTextBytes + 4]; // the arguments are shorter than kTextBytes
    std::memcpy(header, value, length);
    header[0] = '(';
    header[1] = '<';
    header[length] = '>';
    header[length + 1] = ')';
    header[length + 2] = '\0';
    char name[] = "If";
    (void)io->SetRequestHeader(name, static_cast<UINT32>(length + 2), header);
}

bool Contains(const UNICODE_STRING& text, const char* part)
{
    const size_t units = text.Length / sizeof(WCHAR);
    const size_t length = std::strlen(part);
    for (size_t at = 0; at + length <= units; ++at)
        if (std::equal(part, part + length, text.Buffer + at))
            return true;
    return false;
}

// Returns whether existing files may be replaced. A token behind the first 1020 bytes of the
// arguments is cut.
bool ReadArguments(IKestIO_5* io, char* text)
{
    UNICODE_STRING* query = nullptr;
    if (Code(io->GetUrlArguments(nullptr, &query)) != 0 || IsMissing(query) || query->Length == 0)
        return true;
    WideToUtf8Cut(query->Buffer, query->Length / sizeof(WCHAR), text, kArgumentBytes + 1);
    UseToken(io, text);
    return !Contains(*query, "overwrite=0");
}

TALSTATUS ReadContentType(IKestIO_5* io, char* text)
{
    char name[] = "Content-Type";
    UINT32 length = kContentTypeBytes;
    const TALSTATUS status = io->GetRequestHeader(name, &length, text);
    text[Code(status) == 0 && length <= kContentTypeBytes ? length : 0] = '\0';
    return status;
}

// One index preference and the character that chooses its value.
struct Preference {
    enum class Kind { kShowDeleted, kSort } kind;
    char value;
};

// What a body sets with its beginning. Other bodies set nothing.
std::optional<Preference> ReadPreference(std::string_view body)
{
    struct Field {
        Preference::Kind kind;
        std::string_view name;
    };
    static constexpr Field kFields[] = {{Preference::Kind::kShowDeleted, "ShowDeleted="},
                                        {Preference::Kind::kSort, "Sort="}};
    for (const Field& field : kFields)
        if (body.size() > field.name.size() &&
            strncasecmp(body.data(), field.name.data(), field.name.size()) == 0)
            return Preference{field.kind, body[field.name.size()]};
    return std::nullopt;
}

// The flags after the preference is set.
UINT32 ApplyPreference(UINT32 flags, Preference preference)
{
    constexpr UINT32 kShowBit = 0x01;
    constexpr UINT32 kSortBits = 0xF0;
    constexpr UINT32 kDirection = 0x10;

    if (preference.kind == Preference::Kind::kShowDeleted)
        return preference.value == '1' ? flags | kShowBit : flags & ~kShowBit;
    UINT32 sort = (static_cast<UINT32>(static_cast<UINT8>(preference.value)) << 4) & kSortBits;
    if ((flags & kSortBits) == sort) // asked for again: the other direction
        sort = (sort + kDirection) & kSortBits;
    return (flags & ~kSortBits) | sort;
}

TALSTATUS ChangePreference(IKestIO_5* io, SCHANDLE session)
{
    const Paged<char> body = AllocPaged<char>(g_RWBlockSize);
    if (!body)
        return TAL_STATUS_ACCESS_DENIED;
    UINT32 read = 0;
    if (const TALSTATUS status =
            io->ReadClientPayload(g_RWBlockSize, reinterpret_cast<UINT8*>(body.get()), &read);
        Code(status) != 0)
        return Failed(status) ? status : TAL_STATUS_END_OF_FILE;
    const std::optional<Preference> preference = ReadPreference({body.get(), read});
    if (!preference)
        return TAL_STATUS_SUCCESS; // the page as it is

    Attribute* attribute = nullptr;
    if (const TALSTATUS status =
            g_pIAttr->SAReference(session, g_hSessionAttribute, kAttributeExclusive, &attribute);
        Failed(status))
        return status;
    auto* data = static_cast<KESTDAV_SESSION*>(attribute->pData);
    data->Flags = ApplyPreference(data->Flags, *preference);
    return g_pIAttr->SADereference(kAttributeExclusive, attribute);
}

} // namespace

TALSTATUS ReplyToForm(IKestIO_5* io, TALSTATUS status)
{
    SetHeader(io, "Content-Type", "text/html; charset=\"utf-8\"");
    SetHeader(io, "Transfer-Encoding", "chunked");
    (void)io->SendHeader(200);
    if (!Failed(status))
        Put(io, "<html><body><Script>window.close()</script></body></html>");
    else
        Put(io, "<html><body>"
                "<script language='JavaScript' charset='utf-8' type='text/javascript' "
                "src='/Wharf/messages.js'></script>"
                "<script language='JavaScript' charset='utf-8' type='text/javascript' "
                "src='/Wharf/common.js'></script>"
                "<script>document.write(msgUploadError)</script>"
                "</body></html>");
    return status;
}

TALSTATUS AnswerForm(IKestIO_5* io, SCHANDLE session, UNICODE_STRING* url,
                     const FormReplies& replies, bool& isAnswered)
{
    isAnswered = true;
    Paged<char> text = AllocPaged<char>(kTextBytes);
    Paged<WCHAR> path = AllocPaged<WCHAR>(url->MaximumLength / sizeof(WCHAR));
    if (!text || !path)
        return replies.outcome(io, TAL_STATUS_INSUFFICIENT_RESOURCES);

    Upload upload = {};
    upload.io = io;
    upload.session = session;
    upload.target = {0, url->MaximumLength, path.get()};
    upload.overwrite = ReadArguments(io, text.get());
    if (const TALSTATUS status = ConvertPathUriToDavStoreUri(io, &upload.target); Code(status) != 0)
        return replies.outcome(io, Failed(status) ? status : TAL_STATUS_INVALID_REQUEST);
    if (const TALSTATUS status = ReadContentType(io, text.get()); Code(status) != 0) {
        isAnswered = Code(status) == kCodeBufferTooSmall;
        return isAnswered ? replies.outcome(io, status) : status;
    }

    ProviderGuard providers;
    if (Contains(text.get(), "application/x-www-form-urlencoded")) {
        const TALSTATUS status = ChangePreference(io, session);
        providers.Release();
        if (Failed(status))
            return replies.outcome(io, status);
        text.reset();
        path.reset();
        return replies.page(session, url, io);
    }
    const TALSTATUS status =
        IsMonikerRoot(*url) ? TAL_STATUS_ACCESS_DENIED : StoreForm(upload, text.get());
    providers.Release();
    return replies.outcome(io, status);
}

TALSTATUS KestDavPost(IKestIO_5* pKestIo, SCHANDLE hSession, UNICODE_STRING* pUrl)
{
    bool isAnswered = true; // kept: no reply without a type
    return AnswerForm(pKestIo, hSession, pUrl, {ReplyToForm, KestDavGet}, isAnswered);
}
