// SPDX-License-Identifier: Apache-2.0
//
// The bodies that were read last, and what they ask for.
#include "support/known_bodies.h"

#include <cstring>
#include <iterator>

// Holds a body, unless another thread does: reading the body anew takes no longer than waiting
// might.
class KnownBodies::Hold {
  public:
    explicit Hold(KnownBody& known)
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
    KnownBody* operator->() const { return known_; }

  private:
    KnownBody* const known_;
};

KnownBodies::KnownBody& KnownBodies::PlaceOf(std::string_view body)
{
    return known_[body.size() % std::size(known_)];
}

bool KnownBodies::Recall(std::string_view body, KnownRequest& request)
{
    const Hold known(PlaceOf(body));
    if (!known || known->size == 0 || body != std::string_view(known->body, known->size))
        return false;
    request.flags = known->request.flags;
    request.liveProperties = known->request.liveProperties;
    request.nameBytes = known->request.nameBytes;
    std::memcpy(request.names, known->request.names, request.nameBytes);
    return true;
}

void KnownBodies::Remember(std::string_view body, const KnownRequest& request)
{
    if (body.size() > kMostBytes)
        return;
    const Hold known(PlaceOf(body));
    if (!known)
        return;
    known->request.flags = request.flags;
    known->request.liveProperties = request.liveProperties;
    known->request.nameBytes = request.nameBytes;
    std::memcpy(known->request.names, request.names, request.nameBytes);
    std::memcpy(known->body, body.data(), body.size());
    known->size = static_cast<UINT32>(body.size());
}
