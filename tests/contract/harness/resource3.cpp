// SPDX-License-Identifier: Apache-2.0
//
// Opened resources of scripted providers of the third generation.
#include <algorithm>
#include <cstring>

#include "judgement.h"
#include "opened3.h"

namespace harness {

void PutUnderName(Provider& provider, const std::u16string& path, const std::string& content,
                  DAV_DATETIME modified, DAV_CHANGE* change)
{
    const bool existed = provider.Find(path) != nullptr;
    Node& node = existed ? *provider.Find(path) : provider.AddFile(Narrow(path));
    node.content = content;
    node.modified = modified ? modified : kChangeDate;
    node.version += existed ? 1 : 0;
    change->Outcome = existed ? kOutcomeReplaced : kOutcomeCreated;
    Describe(node, &change->Info);
}

namespace {

class Resource3 final : public Opened3<IKestDAVResource3> {
  public:
    explicit Resource3(Provider& provider) : Opened3(provider, "res3.") {}

    TALSTATUS Open(SCHANDLE, UNICODE_STRING* path, UINT32 purpose, INT64 expected,
                   const DAV_PRECONDITIONS* conditions, IKestDAVFailures3* failures,
                   DAV_OBJECT_INFO* info) override
    {
        constexpr const char* kPurposes[] = {"read", "replace", "modify"};
        const std::string size = expected < 0 ? "?" : std::to_string(expected);
        std::string arguments = Narrow(path) + ", " + kPurposes[purpose];
        if (purpose != kOpenRead)
            arguments += ", " + size + ", " + PreconditionsText(conditions);
        if (const auto status = Note("Open", arguments))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        path_ = PathOf(path);
        purpose_ = purpose;
        if (purpose != kOpenRead)
            preconditions_ = conditions;
        const Node* node = owner_.Find(path_);
        if (!node && purpose != kOpenReplace)
            return ProviderFailure(kCodeNotFound);
        if (node)
            Describe(*node, info);
        if (purpose != kOpenRead) {
            if (const TALSTATUS status = JudgeChange(failures); Failed(status))
                return status;
            content_ = purpose == kOpenModify ? node->content : std::string();
        } else if (node->type == Resource) {
            content_ = node->content;
        }
        isOpen_ = true;
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Read(UINT64 offset, UINT32 length, char* buffer, UINT32* read) override
    {
        *read = 0;
        if (const auto status =
                Note("Read", std::to_string(offset) + ", " + std::to_string(length)))
            return *status;
        if (owner_.onRead)
            owner_.onRead(Narrow(path_), offset);
        if (!isOpen_ || offset > content_.size())
            return TAL_STATUS_SUCCESS;
        size_t bytes = std::min<size_t>(length, content_.size() - offset);
        if (owner_.readLimit)
            bytes = std::min<size_t>(bytes, owner_.readLimit);
        std::memcpy(buffer, content_.data() + offset, bytes);
        *read = static_cast<UINT32>(bytes);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Write(UINT64 offset, UINT32 length, const char* buffer) override
    {
        if (const auto status =
                Note("Write", std::to_string(offset) + ", " + std::to_string(length)))
            return *status;
        if (!isOpen_ || purpose_ == kOpenRead)
            return ProviderFailure(kCodeInvalidParameter);
        if (content_.size() < offset + length)
            content_.resize(offset + length);
        content_.replace(offset, length, buffer, length);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS SetLength(UINT64 length) override
    {
        if (const auto status = Note("SetLength", std::to_string(length)))
            return *status;
        content_.resize(length);
        return TAL_STATUS_SUCCESS;
    }
    TALSTATUS Publish(DAV_DATETIME modified, DAV_DATETIME, IKestDAVFailures3* failures,
                      DAV_CHANGE* change) override
    {
        if (const auto status = Note("Publish", modified ? "dated" : ""))
            return *status;
        const std::lock_guard lock(owner_.Mutex());
        if (!isOpen_ || purpose_ == kOpenRead)
            return ProviderFailure(kCodeInvalidParameter);
        isOpen_ = false;
        if (const TALSTATUS status = JudgeChange(failures); Failed(status))
            return status;
        PutUnderName(owner_, path_, content_, modified, change);
        return TAL_STATUS_SUCCESS;
    }

  private:
    TALSTATUS JudgeChange(IKestDAVFailures3* failures)
    {
        return Judgement(owner_, preconditions_, failures).NewContent(path_);
    }

    std::u16string path_;
    std::string content_;
    UINT32 purpose_ = kOpenRead;
    const DAV_PRECONDITIONS* preconditions_ = nullptr;
    bool isOpen_ = false;
};

} // namespace

IKestDAVResource3* NewResource3(Provider& provider)
{
    return new Resource3(provider);
}

} // namespace harness
