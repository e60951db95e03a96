// SPDX-License-Identifier: Apache-2.0
//
// Describing objects, and telling changes and refusals.
#include "providers/filestore/operation.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <span>
#include <string>

#include "base/utf.h"
#include "providers/filestore/access.h"
#include "providers/filestore/etag.h"
#include "providers/filestore/failures.h"
#include "providers/filestore/node.h"
#include "providers/filestore/request_cache.h"

namespace filestore {

namespace {

bool IsReadable(const DAV_TEXT& text)
{
    return text.Text || !text.Length;
}

} // namespace

DAV_OBJECT_INFO DescribeObject(UINT64 now, const Volume* volume, const FileInfo& info,
                               bool hasCreated)
{
    DAV_OBJECT_INFO out{};
    out.Size = sizeof out;
    out.Type = info.isDirectory ? Collection : Resource;
    out.Attributes = AttributesOf(info);
    if (volume && volume->MayHaveProperties())
        out.Flags |= kObjectHasProperties;
    if (volume && volume->MayHaveLocks())
        out.Flags |= kObjectHasLocks;
    out.ResourceSize = info.isDirectory ? 0 : info.size;
    out.CreationDate = hasCreated ? info.created : 0;
    out.ModificationDate = info.modified;
    PutTag(info, now, &out.Tag);
    return out;
}

DAV_OBJECT_INFO DescribeRoot(const Store& store)
{
    DAV_OBJECT_INFO out{};
    out.Size = sizeof out;
    out.Type = Collection;
    out.Attributes = kAttributeReadOnly;
    out.CreationDate = out.ModificationDate = store.Started();
    return out;
}

TALSTATUS OpenFound(const Store& store, Target* target, OpenFile* file, FileInfo* info)
{
    if (const TALSTATUS status = request_cache::TakeFailure(*target); Failed(status))
        return status;
    return request_cache::TakeOpened(*target, file, info)
               ? TAL_STATUS_SUCCESS
               : store.OpenExisting(target, OpenFor::Reading, file, info);
}

TALSTATUS DescribePath(const Store& store, Target* target, DAV_OBJECT_INFO* out, UINT32 size)
{
    if (target->IsRoot()) {
        *out = DescribeRoot(store);
        return TAL_STATUS_SUCCESS;
    }
    const Volume& volume = *target->volume;
    OpenFile file;
    FileInfo info;
    TALSTATUS status = OpenFound(store, target, &file, &info);
    if (!Failed(status) && !file) // it was only looked at
        status = store.OpenExisting(target, OpenFor::Reading, &file, &info);
    const bool wantsCreated = size > offsetof(DAV_OBJECT_INFO, CreationDate);
    if (!Failed(status) && wantsCreated)
        status = StatusFromErrno(volume.GetCreated(file.Get(), info, &info.created));
    if (Failed(status))
        return status;
    *out = DescribeObject(store.Now(), &volume, info, wantsCreated);
    if (size > offsetof(DAV_OBJECT_INFO, Attributes) && volume.MayHaveProperties()) {
        std::unique_ptr<MetadataSession> session;
        bool isHidden = false;
        status = Store::OpenMetadata(volume, &session);
        if (!Failed(status))
            status = session->IsHidden(target->path.View(), &isHidden);
        if (isHidden)
            out->Attributes |= kAttributeHidden;
    }
    request_cache::SaveOpened(*target, std::move(file), info);
    return status;
}

void TellChange(bool hasReplaced, const DAV_OBJECT_INFO& info, DAV_CHANGE* out)
{
    DAV_CHANGE change{};
    change.Outcome = hasReplaced ? kOutcomeReplaced : kOutcomeCreated;
    change.Info = info;
    WriteRecord(change, out);
}

void TellRefusals(const Guard& guard, TALSTATUS status, IKestDAVFailures3* failures)
{
    if (Code(status) != kCodeLocked || !failures)
        return;
    for (const std::string& path : guard.Refusing()) {
        std::optional<std::u16string> wide = base::ToUtf16(path);
        if (!access::MayBeNamed(path) || !wide ||
            wide->size() * sizeof(WCHAR) > std::numeric_limits<UINT16>::max())
            continue;
        UNICODE_STRING text{};
        text.Buffer = wide->data();
        text.Length = text.MaximumLength = static_cast<UINT16>(wide->size() * sizeof(WCHAR));
        if (Code(failures->OnFailure(&text, status)) == kCodeInsufficientResources)
            (void)Fault(kCodeInsufficientResources); // a reply without it would not say whose lock
    }
}

bool AreReadable(const DAV_PRECONDITIONS& given)
{
    if (!IsReadable(given.Match) || !IsReadable(given.NoneMatch) ||
        (given.TokenCount && !given.Tokens) || (given.IfCount && !given.If))
        return false;
    const std::span tokens(given.Tokens, given.TokenCount);
    const std::span lists(given.If, given.IfCount);
    return std::all_of(tokens.begin(), tokens.end(), IsReadable) &&
           std::all_of(lists.begin(), lists.end(), [](const DAV_IF_LIST& list) {
               if (!IsReadable(list.Path) || (list.Count && !list.Conditions))
                   return false;
               const std::span conditions(list.Conditions, list.Count);
               return std::all_of(conditions.begin(), conditions.end(),
                                  [](const auto& c) { return IsReadable(c.Value); });
           });
}

} // namespace filestore
