// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <cstring>
#include <iterator>

#include "props/propfind.h"
#include "support/list.h"

namespace {

// Bodies of clients are a few hundred bytes long. What is longer, or names more, is read each time.
constexpr size_t kMostBytes = 1024;
constexpr size_t kMostNameBytes = 512;

struct KnownBody {
    std::atomic<bool> isHeld{false}; // guards the rest
    UINT32 size = 0;                 // 0: none
    UINT32 flags = 0;
    UINT32 liveProperties = 0;
    UINT32 nameBytes = 0;
    char body[kMostBytes]{};
    char names[kMostNameBytes]{}; // of the dead properties, in order, each with its terminator
};

// One for each of the usual clients. In place from the start: a thread that had its own would have
// to find memory for it where no failure can be told.
constinit KnownBody g_known[8];

// Holds a body, unless another thread does: reading the body anew takes no longer than waiting
// might.
class Hold {
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

// Where a body stands if it is known.
KnownBody& PlaceOf(std::string_view body)
{
    return g_known[body.size() % std::size(g_known)];
}

} // namespace

bool RecallBody(std::string_view body, PROPFIND_REQ* pRequest)
{
    const Hold known(PlaceOf(body));
    if (!known || known->size == 0 || body != std::string_view(known->body, known->size))
        return false;
    pRequest->Flags = known->flags;
    pRequest->LiveProperties = known->liveProperties;
    for (const char* name = known->names; name != known->names + known->nameBytes;
         name += std::strlen(name) + 1)
        AddDeadProperty(pRequest, name);
    return true;
}

void RememberBody(std::string_view body, const PROPFIND_REQ& request)
{
    if (body.size() > kMostBytes || request.bNameDropped)
        return;
    const Hold known(PlaceOf(body));
    if (!known)
        return;
    known->size = 0;
    UINT32 nameBytes = 0;
    for (const LIST_ENTRY* link = request.lDeadProperties.Flink; link != &request.lDeadProperties;
         link = link->Flink) {
        const char* const name = reinterpret_cast<const DAV_PROP*>(link)->szName;
        const size_t bytes = std::strlen(name) + 1;
        if (bytes > kMostNameBytes - nameBytes)
            return;
        std::memcpy(known->names + nameBytes, name, bytes);
        nameBytes += static_cast<UINT32>(bytes);
    }
    known->flags = request.Flags;
    known->liveProperties = request.LiveProperties;
    known->nameBytes = nameBytes;
    std::memcpy(known->body, body.data(), body.size());
    known->size = static_cast<UINT32>(body.size());
}
