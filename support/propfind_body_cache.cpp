// SPDX-License-Identifier: Apache-2.0
//
// The cache of PROPFIND bodies: eight entries, each with a try-lock.
#include "support/propfind_body_cache.h"

#include <cstring>
#include <iterator>

// A try-lock on one entry: empty when another thread has it. Parsing the body anew takes no longer
// than waiting might.
class PropFindBodyCache::Hold {
  public:
    explicit Hold(Entry& known)
        : known_(known.isHeld.exchange(true, std::memory_order_acquire) ? nullptr : &known)
    {
    }
    ~Hold()
    {
        if (known_)
            known_->isHeld.store(false, std::memory_order_release);
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

    explicit operator bool() const { return known_ != nullptr; }
    Entry* operator->() const { return known_; }

  private:
    Entry* const known_;
};

PropFindBodyCache::Entry& PropFindBodyCache::EntryFor(std::string_view body)
{
    return entries_[body.size() % std::size(entries_)];
}

bool PropFindBodyCache::Recall(std::string_view body, CachedPropFind& request)
{
    const Hold known(EntryFor(body));
    if (!known || known->size == 0 || body != std::string_view(known->body, known->size))
        return false;
    request.flags = known->request.flags;
    request.liveProperties = known->request.liveProperties;
    request.nameBytes = known->request.nameBytes;
    std::memcpy(request.names, known->request.names, request.nameBytes);
    return true;
}

void PropFindBodyCache::Remember(std::string_view body, const CachedPropFind& request)
{
    if (body.size() > kMostBytes)
        return;
    const Hold known(EntryFor(body));
    if (!known)
        return;
    known->request.flags = request.flags;
    known->request.liveProperties = request.liveProperties;
    known->request.nameBytes = request.nameBytes;
    std::memcpy(known->request.names, request.names, request.nameBytes);
    std::memcpy(known->body, body.data(), body.size());
    known->size = static_cast<UINT32>(body.size());
}
