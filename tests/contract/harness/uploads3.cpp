// SPDX-License-Identifier: Apache-2.0
//
// Uploads of scripted providers of the third generation that go on in other requests.
#include <algorithm>
#include <cstring>

#include "judgement.h"
#include "opened3.h"

namespace harness {

namespace {

constexpr UINT64 kLifetime = 60; // seconds

std::string LengthText(UINT64 length)
{
    return length == kUploadLengthUnknown ? "?" : std::to_string(length);
}

// "a|b|" for two lines.
std::string OneLine(std::string text)
{
    std::ranges::replace(text, '\n', '|');
    return text;
}

PendingUpload* FindUpload(Provider& provider, const std::u16string& target, const std::string& name)
{
    for (PendingUpload& each : provider.uploads)
        if (each.target == target && each.name == name)
            return &each;
    return nullptr;
}

void Describe(const Provider& provider, const PendingUpload& upload, DAV_UPLOAD* out)
{
    out->Flags = upload.isComplete ? kUploadComplete : 0;
    out->Offset = upload.content.size();
    out->Length = upload.length;
    out->MostBytes = provider.mostUploadBytes;
    out->Lifetime = kLifetime;
    out->NameLength = static_cast<UINT32>(upload.name.size());
    std::memcpy(out->Name, upload.name.data(), upload.name.size());
}

// More content for an upload, found by its name at each call: it may have been cancelled.
class UploadContent final : public Opened3<IKestDAVResource3> {
  public:
    UploadContent(Provider& provider, const PendingUpload& upload,
                  const DAV_PRECONDITIONS* preconditions)
        : Opened3(provider, "more3."), target_(upload.target), name_(upload.name),
          start_(upload.content.size()), preconditions_(preconditions)
    {
    }

    TALSTATUS Open(SCHANDLE, UNICODE_STRING*, UINT32, INT64, const DAV_PRECONDITIONS*,
                   IKestDAVFailures3*, DAV_OBJECT_INFO*) override
    {
        return Note("Open", "").value_or(ProviderFailure(kCodeInvalidParameter));
    }
    TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) override
    {
        *read = 0;
        if (const auto status =
                Note("Read", std::to_string(offset) + ", " + std::to_string(length)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const PendingUpload* upload = Find();
        if (!upload)
            return ProviderFailure(kCodeNotFound);
        if (offset >= upload->content.size())
            return TAL_STATUS_SUCCESS;
        size_t bytes = std::min<size_t>(length, upload->content.size() - offset);
        if (owner_.readLimit)
            bytes = std::min<size_t>(bytes, owner_.readLimit);
        std::memcpy(buffer, upload->content.data() + offset, bytes);
        *read = static_cast<UINT32>(bytes);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Write(UINT64 offset, UINT32 length, const char* buffer) override
    {
        if (const auto status =
                Note("Write", std::to_string(offset) + ", " + std::to_string(length)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        PendingUpload* upload = Find();
        if (!upload)
            return ProviderFailure(kCodeNotFound);
        if (offset != upload->content.size())
            return ProviderFailure(kCodeInvalidParameter);
        if (offset + length > std::min(upload->length, owner_.mostUploadBytes))
            return ProviderFailure(kCodeInvalidRequest);
        upload->content.append(buffer, length);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS SetLength(UINT64 length) override
    {
        if (const auto status = Note("SetLength", std::to_string(length)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        PendingUpload* upload = Find();
        if (!upload || length < start_ || length > upload->content.size())
            return ProviderFailure(kCodeInvalidParameter);
        upload->content.resize(length);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Publish(DAV_DATETIME modified, DAV_DATETIME, IKestDAVFailures3* failures,
                      DAV_CHANGE* change) override
    {
        if (const auto status = Note("Publish", modified ? "dated" : ""))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        PendingUpload* upload = Find();
        if (!upload)
            return ProviderFailure(kCodeNotFound);
        if (upload->length != kUploadLengthUnknown && upload->length != upload->content.size())
            return ProviderFailure(kCodeInvalidRequest);
        if (const TALSTATUS status =
                Judgement(owner_, preconditions_, failures).NewContent(target_);
            Failed(status))
            return status;
        PutUnderName(owner_, target_, upload->content, modified, change);
        upload->isComplete = true;
        return TAL_STATUS_SUCCESS;
    }

  private:
    PendingUpload* Find() { return FindUpload(owner_, target_, name_); }

    const std::u16string target_;
    const std::string name_;
    const UINT64 start_;
    const DAV_PRECONDITIONS* preconditions_;
};

class Uploads3 final : public IKestDAVUploads3 {
  public:
    explicit Uploads3(Provider& provider) : owner_(provider) {}
    virtual ~Uploads3() = default;

    TALSTATUS QueryInterface(const GUID*, void** out) override
    {
        *out = nullptr; // nobody goes back from here
        return ProviderFailure(kCodeNoInterface);
    }
    UINT32 AddRef() override
    {
        const std::lock_guard lock(owner_.Mutex());
        return static_cast<UINT32>(++owner_.references_);
    }
    UINT32 Release() override
    {
        const std::lock_guard lock(owner_.Mutex());
        return static_cast<UINT32>(--owner_.references_);
    }

    TALSTATUS GetLimits(SCHANDLE, UNICODE_STRING* path, DAV_UPLOAD* upload) override
    {
        if (const auto status = Note("GetLimits", Narrow(path)))
            return *status;
        upload->MostBytes = owner_.mostUploadBytes;
        upload->Lifetime = kLifetime;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Begin(SCHANDLE, UNICODE_STRING* path, UINT64 length, const DAV_TEXT* terms,
                    const DAV_PRECONDITIONS* preconditions, IKestDAVFailures3* failures,
                    DAV_UPLOAD* upload) override
    {
        if (const auto status = Note("Begin", Narrow(path) + ", " + LengthText(length) + ", [" +
                                                  OneLine(TextOf(*terms)) + "], " +
                                                  PreconditionsText(preconditions)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const std::u16string target = PathOf(path);
        if (length != kUploadLengthUnknown && length > owner_.mostUploadBytes)
            return ProviderFailure(kCodeStorageFull);
        if (const TALSTATUS status = Judgement(owner_, preconditions, failures).NewContent(target);
            Failed(status))
            return status;
        owner_.uploads.push_back({.target = target,
                                  .name = NewName(target),
                                  .content = {},
                                  .length = length,
                                  .terms = TextOf(*terms),
                                  .isComplete = false});
        Describe(owner_, owner_.uploads.back(), upload);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Find(SCHANDLE, UNICODE_STRING* path, const DAV_TEXT* name, UINT32* size, char* terms,
                   DAV_UPLOAD* upload) override
    {
        if (const auto status = Note("Find", Named(path, name)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const PendingUpload* found = FindUpload(owner_, PathOf(path), TextOf(*name));
        if (!found)
            return ProviderFailure(kCodeNotFound);
        if (size) {
            if (*size < found->terms.size())
                return ProviderFailure(kCodeBufferTooSmall);
            *size = static_cast<UINT32>(found->terms.size());
            std::memcpy(terms, found->terms.data(), found->terms.size());
        }
        Describe(owner_, *found, upload);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Continue(SCHANDLE, UNICODE_STRING* path, const DAV_TEXT* name, UINT64 offset,
                       UINT64 length, const DAV_PRECONDITIONS* preconditions,
                       IKestDAVResource3** content) override
    {
        if (const auto status =
                Note("Continue", Named(path, name) + ", " + std::to_string(offset) + ", " +
                                     LengthText(length) + ", " + PreconditionsText(preconditions)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        PendingUpload* found = FindUpload(owner_, PathOf(path), TextOf(*name));
        if (!found)
            return ProviderFailure(kCodeNotFound);
        if (found->isComplete || offset != found->content.size())
            return ProviderFailure(kCodeConflict);
        if (length != kUploadLengthUnknown && found->length != kUploadLengthUnknown &&
            length != found->length)
            return ProviderFailure(kCodeInvalidRequest);
        if (length != kUploadLengthUnknown)
            found->length = length;
        *content = new UploadContent(owner_, *found, preconditions);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Cancel(SCHANDLE, UNICODE_STRING* path, const DAV_TEXT* name) override
    {
        if (const auto status = Note("Cancel", Named(path, name)))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        const PendingUpload* found = FindUpload(owner_, PathOf(path), TextOf(*name));
        if (!found)
            return ProviderFailure(kCodeNotFound);
        owner_.uploads.erase(owner_.uploads.begin() + (found - owner_.uploads.data()));
        return TAL_STATUS_SUCCESS;
    }

  private:
    static std::string Named(const UNICODE_STRING* path, const DAV_TEXT* name)
    {
        return Narrow(path) + ", " + TextOf(*name);
    }
    // The first one that no upload of the target has.
    std::string NewName(const std::u16string& target)
    {
        size_t number = 1;
        while (FindUpload(owner_, target, "u" + std::to_string(number)))
            ++number;
        return "u" + std::to_string(number);
    }
    std::optional<TALSTATUS> Note(const char* operation, const std::string& arguments)
    {
        return owner_.Log().Enter(owner_.Name("up3.") + operation, arguments);
    }

    Provider& owner_;
};

} // namespace

std::shared_ptr<IKestDAVUploads3> MakeUploads3(Provider& provider)
{
    return std::make_shared<Uploads3>(provider);
}

TALSTATUS Provider::QueryUploads(void** out)
{
    uploadsFace_->AddRef();
    *out = uploadsFace_.get();
    return TAL_STATUS_SUCCESS;
}

} // namespace harness
