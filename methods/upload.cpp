// SPDX-License-Identifier: Apache-2.0
//
// Stores the files of a multipart/form-data body as members of a collection.
#include "methods/upload.h"

#include <cstring>

#include "methods/multipart.h"
#include "support/lock_header.h"
#include "support/memory.h"
#include "support/provider.h"
#include "support/resolution.h"
#include "support/uri.h"

namespace {

// Opened for its content (see kest/dav.h for the values).
constexpr DAV_SHARE_MODE kShareForReplacing = 1;
constexpr DAV_SHARE_MODE kShareForLooking = 0;

// One file on its way to the provider.
class FileSink final : public PartSink {
  public:
    [[nodiscard]] TALSTATUS Open(const Upload& upload, const KESTDAV_HANDLER& handler,
                                 UNICODE_STRING* path);
    TALSTATUS Write(char* data, UINT32 size) override;

  private:
    DavResource resource_;
    UINT64 offset_ = 0;
};

TALSTATUS FileSink::Open(const Upload& upload, const KESTDAV_HANDLER& handler, UNICODE_STRING* path)
{
    if (const TALSTATUS status = resource_.Open(handler); Failed(status))
        return status;
    RequestToken token(upload.io);
    if (!upload.overwrite) {
        const TALSTATUS status = resource_.Associate(upload.session, FALSE, kAccessWriteContent,
                                                     kShareForLooking, path, token.Get());
        if (!Failed(status)) {
            resource_.Close(); // not held while its content is passed over
            return TAL_STATUS_OBJECT_EXISTS;
        }
        if (Code(status) != kCodeNotFound)
            return status;
    }
    return resource_.Associate(upload.session, TRUE, kAccessReplaceContent, kShareForReplacing,
                               path, token.Get());
}

TALSTATUS FileSink::Write(char* data, UINT32 size)
{
    while (size > 0) {
        UINT32 written = 0;
        if (const TALSTATUS status = resource_.Write(offset_, size, data, &written); Failed(status))
            return status;
        if (written == 0 || written > size)
            return TAL_STATUS_UNSUCCESSFUL; // going on would never end
        offset_ += written;
        data += written;
        size -= written;
    }
    return TAL_STATUS_SUCCESS;
}

bool IsDotName(std::string_view name)
{
    return name == "." || name == "..";
}

// Appends "/" and the name. Names are UTF-8; one that is not is taken as Latin-1, in which every
// byte is a character.
TALSTATUS AppendName(UNICODE_STRING& target, std::string_view name)
{
    if (size_t{target.MaximumLength} - target.Length < 2 * name.size() + 2)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    size_t length = target.Length / sizeof(WCHAR);
    if (length == 0 || target.Buffer[length - 1] != u'/')
        target.Buffer[length++] = u'/';

    const auto room = static_cast<UINT32>(target.MaximumLength / sizeof(WCHAR) - length);
    UINT32 units = room;
    TALSTATUS status = pITalpl->TalxMultiByteToWideChar(kCodePageUtf8, name.data(),
                                                        static_cast<UINT32>(name.size()),
                                                        target.Buffer + length, &units);
    if (Failed(status)) {
        units = room;
        status = pITalpl->TalxMultiByteToWideChar(kCodePageLatin1, name.data(),
                                                  static_cast<UINT32>(name.size()),
                                                  target.Buffer + length, &units);
    }
    if (Failed(status))
        return status;
    target.Length = static_cast<UINT16>((length + units) * sizeof(WCHAR));
    return TAL_STATUS_SUCCESS;
}

class FormUpload {
  public:
    FormUpload(const Upload& upload, const KESTDAV_HANDLER& handler, TransferBuffer buffer,
               std::string_view boundary)
        : upload_(upload), handler_(handler), reader_(upload.io, std::move(buffer), boundary)
    {
    }

    TALSTATUS StoreParts();

  private:
    // What is to be done with a part: store it, or pass it over, and why.
    struct Part {
        bool store;
        TALSTATUS status;
    };
    Part NameTarget(UNICODE_STRING& target, std::string_view sentName);
    TALSTATUS StorePart(Part part, UNICODE_STRING& target);

    const Upload& upload_;
    const KESTDAV_HANDLER& handler_;
    FormReader reader_;
};

FormUpload::Part FormUpload::NameTarget(UNICODE_STRING& target, std::string_view sentName)
{
    const std::string_view name = LastComponent(sentName);
    if (name.empty())
        return {false, TAL_STATUS_SUCCESS}; // a file field in which no file was chosen
    if (IsDotName(name))                    // would lead out of the collection
        return {false, TAL_STATUS_INVALID_REQUEST};
    const TALSTATUS status = AppendName(target, name);
    return {!Failed(status), status};
}

TALSTATUS FormUpload::StorePart(Part part, UNICODE_STRING& target)
{
    FileSink file;
    TALSTATUS status = part.status;
    if (part.store)
        status = file.Open(upload_, handler_, &target);
    PartSink* sink = part.store && !Failed(status) ? &file : nullptr;
    const TALSTATUS content = reader_.writeOrSkipContent(sink);
    return Failed(status) ? status : content;
}

TALSTATUS FormUpload::StoreParts()
{
    TALSTATUS first = TAL_STATUS_SUCCESS;
    TALSTATUS status = TAL_STATUS_SUCCESS;
    while (reader_.findFormPart(&status)) {
        UNICODE_STRING target = upload_.target;
        Part part = {false, TAL_STATUS_SUCCESS};
        const HeaderFind headers =
            reader_.getFileName([&](std::string_view name) { part = NameTarget(target, name); });
        if (headers == HeaderFind::kBadName)
            part.status = TAL_STATUS_INVALID_REQUEST;
        status = headers == HeaderFind::kNeedMore ? reader_.EndStatus() : StorePart(part, target);
        if (Failed(status) && !Failed(first))
            first = status;
        if (headers == HeaderFind::kNeedMore)
            break;
    }
    return Failed(first) ? first : status;
}

} // namespace

TALSTATUS StoreForm(Upload& upload, const char* contentType)
{
    constexpr char kBoundary[] = "boundary=";
    // Providers take paths without a trailing "/".
    if (const size_t units = upload.target.Length / sizeof(WCHAR);
        units > 1 && upload.target.Buffer[units - 1] == u'/')
        upload.target.Length = static_cast<UINT16>((units - 1) * sizeof(WCHAR));

    KESTDAV_HANDLER* handler = nullptr;
    if (const TALSTATUS status = DavUriToHandler(upload.session, &upload.target, &handler);
        Failed(status))
        return status;
    TransferBuffer buffer = TransferBuffer::Allocate();
    if (!buffer)
        return TAL_STATUS_INSUFFICIENT_RESOURCES;
    const char* boundary = strcasestr(contentType, kBoundary);
    if (boundary == nullptr)
        return TAL_STATUS_SUCCESS;
    boundary += sizeof(kBoundary) - 1; // to the end of the value, as it stands
    if (*boundary == '\0')
        return TAL_STATUS_INVALID_REQUEST;
    return FormUpload(upload, *handler, std::move(buffer), boundary).StoreParts();
}
