// SPDX-License-Identifier: Apache-2.0
#include <cstring>

#include "core/list.h"
#include "props/propfind.h"

namespace {

// Bodies of clients are a few hundred bytes long. What is longer, or names more, is read each time.
constexpr size_t kMostBytes = 1024;
constexpr size_t kMostNameBytes = 512;

struct LastBody {
    UINT32 size; // 0: none
    UINT32 flags;
    UINT32 liveProperties;
    UINT32 nameBytes;
    char body[kMostBytes];
    char names[kMostNameBytes]; // of the dead properties, in order, each with its terminator
};

thread_local constinit LastBody t_last{};

} // namespace

bool RecallBody(std::string_view body, PROPFIND_REQ* pRequest)
{
    const LastBody& last = t_last;
    if (last.size == 0 || body != std::string_view(last.body, last.size))
        return false;
    pRequest->Flags = last.flags;
    pRequest->LiveProperties = last.liveProperties;
    for (const char* name = last.names; name != last.names + last.nameBytes;
         name += std::strlen(name) + 1)
        AddDeadProperty(pRequest, name);
    return true;
}

void RememberBody(std::string_view body, const PROPFIND_REQ& request)
{
    LastBody& last = t_last;
    last.size = 0;
    if (body.size() > kMostBytes || request.bNameDropped)
        return;
    UINT32 nameBytes = 0;
    for (const LIST_ENTRY* link = request.lDeadProperties.Flink; link != &request.lDeadProperties;
         link = link->Flink) {
        const char* const name = reinterpret_cast<const DAV_PROP*>(link)->szName;
        const size_t bytes = std::strlen(name) + 1;
        if (bytes > kMostNameBytes - nameBytes)
            return;
        std::memcpy(last.names + nameBytes, name, bytes);
        nameBytes += static_cast<UINT32>(bytes);
    }
    last.flags = request.Flags;
    last.liveProperties = request.LiveProperties;
    last.nameBytes = nameBytes;
    std::memcpy(last.body, body.data(), body.size());
    last.size = static_cast<UINT32>(body.size());
}
