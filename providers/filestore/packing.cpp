// SPDX-License-Identifier: Apache-2.0
//
// How properties and locks are laid out in a caller's buffer.
#include "providers/filestore/packing.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "providers/filestore/failures.h"

namespace filestore {

namespace {

char* Append(char* to, std::string_view text)
{
    if (!text.empty())
        std::memcpy(to, text.data(), text.size());
    return to + text.size();
}

} // namespace

char* Packing::Take(size_t head, size_t least, size_t text)
{
    constexpr size_t kAlignment = 8;
    const size_t bytes = (std::max(head + text, least) + kAlignment - 1) / kAlignment * kAlignment;
    if (bytes > room_ - used_) {
        needed_ = static_cast<UINT32>(bytes);
        return nullptr;
    }
    char* const record = buffer_ + used_;
    if (used_) // every record begins with the offset
        *reinterpret_cast<UINT32*>(buffer_ + last_) = used_ - last_;
    std::memset(record, 0, least);
    last_ = used_;
    used_ += static_cast<UINT32>(bytes);
    return record;
}

bool Packing::Put(const Property& property)
{
    constexpr size_t kHead = offsetof(DAV_PROPERTY, Text);
    char* const at = Take(kHead, sizeof(DAV_PROPERTY),
                          property.space.size() + property.name.size() + property.value.size());
    if (!at)
        return false;
    auto* const record = reinterpret_cast<DAV_PROPERTY*>(at);
    record->NamespaceLength = static_cast<UINT32>(property.space.size());
    record->NameLength = static_cast<UINT32>(property.name.size());
    record->ValueLength = static_cast<UINT32>(property.value.size());
    Append(Append(Append(at + kHead, property.space), property.name), property.value);
    return true;
}

bool Packing::Put(const LockRecord& lock, std::string_view root, UINT64 now)
{
    constexpr size_t kHead = offsetof(DAV_LOCK_INFO_3, Text);
    const std::string& owner = lock.markup.empty() ? lock.owner : lock.markup;
    char* const at =
        Take(kHead, sizeof(DAV_LOCK_INFO_3), lock.token.size() + owner.size() + root.size());
    if (!at)
        return false;
    auto* const record = reinterpret_cast<DAV_LOCK_INFO_3*>(at);
    record->Scope = lock.scope;
    record->Type = lock.type;
    record->Depth = lock.depth;
    record->Timeout = lock.expires == kNever ? -1
                      : lock.expires > now   ? static_cast<INT64>(lock.expires - now)
                                             : 0;
    record->TokenLength = static_cast<UINT32>(lock.token.size());
    record->OwnerLength = static_cast<UINT32>(owner.size());
    record->RootLength = static_cast<UINT32>(root.size());
    Append(Append(Append(at + kHead, lock.token), owner), root);
    return true;
}

TALSTATUS Packing::Finish(UINT32* size) const
{
    if (used_ == 0 && needed_) {
        *size = needed_;
        return Failure(kCodeBufferTooSmall);
    }
    *size = used_;
    return used_ ? TAL_STATUS_SUCCESS : Failure(kCodeNoMoreEntries);
}

} // namespace filestore
