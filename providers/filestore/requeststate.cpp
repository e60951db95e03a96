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
