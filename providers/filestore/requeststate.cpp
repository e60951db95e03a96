// SPDX-License-Identifier: Apache-2.0
//
// What the store remembers while one request runs.
#include "providers/filestore/requeststate.h"

#include <new>

#include <kest/identifiers.h>

#include "providers/filestore/callcontext.h"

namespace filestore {

RequestState* RequestState::Find()
{
    return static_cast<RequestState*>(call::Attached(CLSID_FileStore));
}

RequestState* RequestState::Current()
{
    if (RequestState* const state = Find())
        return state;
    auto* const made = new (std::nothrow) RequestState;
    if (!made)
        return nullptr;
    const bool isKept = call::Attach(CLSID_FileStore, made);
    made->Release(); // the request's reference stays, if there is one
    return isKept ? made : nullptr;
}

bool RequestState::ParsedPath::Recall(UINT64 store, std::u16string_view text, Target* target) const
{
    if (store_ != store || text != std::u16string_view(text_, units_))
        return false;
    target->volume = volume_;
    target->deletedId = 0;
    return target->path.Assign({path_, bytes_}); // it fitted before
}

void RequestState::ParsedPath::Note(UINT64 store, std::u16string_view text,
                                    const Target& target) noexcept
{
    if (text.size() > kMost || target.path.Length() > kMost)
        return;
    store_ = store;
    volume_ = target.volume;
    units_ = text.copy(text_, kMost);
    bytes_ = target.path.View().copy(path_, kMost);
}

void RequestState::Found::Close()
{
    file.Reset();
    directory.reset();
    failure = TAL_STATUS_SUCCESS;
    isLook = false;
}

void RequestState::Found::Note(const Target& target, const FileInfo& about)
{
    Close();
    path = target.path.View();
    volume = target.volume;
    info = about;
}

} // namespace filestore
