// SPDX-License-Identifier: Apache-2.0
//
// How a lock is told: the "activelock" element of RFC 4918 section 14.1.
#pragma once

#include <algorithm>

#include <kest/dav/namespace_3.h>

#include "standard/reply_writer.h"
#include "support/memory.h"

namespace standard {

// What stands at an offset of a packed record, which runs past its declaration's end.
template <class Record> const char* VariableText(const Record& record, size_t offset) noexcept
{
    return reinterpret_cast<const char*>(&record) + offset;
}

// Whether a lock's texts lie within `bytes`, the room that its record was given.
inline bool IsWhole(const DAV_LOCK_INFO_3& lock, UINT32 bytes) noexcept
{
    return bytes >= sizeof lock && UINT64{lock.TokenLength} + lock.OwnerLength + lock.RootLength <=
                                       bytes - offsetof(DAV_LOCK_INFO_3, Text);
}

// Writes one lock. `path` is what the request or the response is about, by its provider path
// without a trailing "/", and `isCollection` says of it what it is: a root above it always is one.
// `markup` is a text that is known to be well-formed: an owner that is the same is not read again,
// which takes memory.
void PutLock(ReplyWriter& out, const DAV_LOCK_INFO_3& lock, std::string_view path,
             bool isCollection, std::string_view markup = {});

// Writes the content of "lockdiscovery": all locks that cover a path. `wide` is the same path as
// the provider takes it. What cannot be read is reported to the host.
void PutLocks(ReplyWriter& out, IKestDAV3& provider, SCHANDLE session, UNICODE_STRING* wide,
              std::string_view path, bool isCollection);

// Writes an absolute path for an href: the module's root, the provider path, and a "/" behind a
// collection's.
void PutHref(ReplyWriter& out, std::string_view path, bool isCollection);

// The same as a whole "href" element, of a path as the provider takes it. One that cannot be read,
// or for which memory is short, leaves it empty.
void PutHrefElement(ReplyWriter& out, const UNICODE_STRING& path, bool isCollection);

// A buffer for packed records that grows to what one of them takes.
class RecordBuffer {
  public:
    static constexpr UINT32 kUsual = 65536;
    static constexpr UINT32 kMost = 64U << 20;

    // At least `size` bytes; null when memory is short.
    void* Get(UINT32 size)
    {
        if (size <= size_)
            return memory_.get();
        memory_ = size <= kMost ? AllocPaged<char>(size) : nullptr;
        size_ = memory_ ? size : 0;
        return memory_.get();
    }
    void* Get() { return Get(kUsual); }
    UINT32 Size() const { return size_; }

  private:
    Paged<char> memory_;
    UINT32 size_ = 0;
};

// Calls `visit` with every record that `fetch(&size, buffer)` packs, batch by batch. `visit`
// returns false to end it. The result is success at the end of the list (code 9), else what failed.
template <class Record, class Fetch, class Visit>
[[nodiscard]] TALSTATUS ForEachRecord(RecordBuffer& buffer, Fetch fetch, Visit visit)
{
    UINT32 room = RecordBuffer::kUsual;
    for (;;) {
        auto* const records = static_cast<Record*>(buffer.Get(room));
        if (!records)
            return TAL_STATUS_INSUFFICIENT_RESOURCES;
        UINT32 used = buffer.Size();
        const TALSTATUS status = fetch(&used, records);
        if (Code(status) == kCodeNoMoreEntries)
            return TAL_STATUS_SUCCESS;
        if (Code(status) == kCodeBufferTooSmall && used > buffer.Size()) {
            room = used;
            continue;
        }
        if (Failed(status))
            return status;
        used = std::min(used, buffer.Size()); // whatever a provider says
        for (UINT32 at = 0; used - at >= sizeof(Record);) {
            const auto* record =
                reinterpret_cast<const Record*>(reinterpret_cast<const char*>(records) + at);
            if (!visit(*record, used - at))
                return TAL_STATUS_SUCCESS;
            if (record->NextEntryOffset == 0 || record->NextEntryOffset > used - at)
                break;
            at += record->NextEntryOffset;
        }
    }
}

} // namespace standard
