// SPDX-License-Identifier: Apache-2.0
//
// What GetType found, handed over to the operation that follows it.
#include "providers/filestore/request_cache.h"

#include <utility>

#include "providers/filestore/requeststate.h"

namespace filestore::request_cache {

void SaveOpened(const Target& target, OpenFile file, const FileInfo& info)
{
    if (RequestState* const state = RequestState::Current()) {
        state->found.Note(target, info);
        state->found.file = std::move(file);
    }
}

void SaveParent(const Target& target, DirectoryRef directory, const FileInfo& info)
{
    if (RequestState* const state = RequestState::Current()) {
        state->found.Note(target, info);
        state->found.directory = std::move(directory);
    }
}

void SaveInfo(const Target& target, const FileInfo& info)
{
    if (RequestState* const state = RequestState::Current()) {
        state->found.Note(target, info);
        state->found.isLook = true;
    }
}

bool TakeOpened(const Target& target, OpenFile* file, FileInfo* info)
{
    RequestState* const state = RequestState::Find();
    if (!state)
        return false;
    RequestState::Found& found = state->found;
    if ((!found.file && !found.isLook) || !found.IsFor(target)) {
        found.Close();
        return false;
    }
    *file = std::move(found.file);
    *info = found.info;
    found.isLook = false;
    return true;
}

bool TakeParent(const Target& target, DirectoryRef* directory, FileInfo* info)
{
    RequestState* const state = RequestState::Find();
    if (!state)
        return false;
    RequestState::Found& found = state->found;
    if (!found.directory || !found.IsFor(target)) {
        found.Close();
        return false;
    }
    *directory = std::move(found.directory);
    *info = found.info;
    return true;
}

bool SaveFailure(const Target& target, TALSTATUS status)
{
    RequestState* const state = RequestState::Current();
    if (!state)
        return false;
    state->found.Note(target, {});
    state->found.failure = status;
    return true;
}

TALSTATUS TakeFailure(const Target& target)
{
    RequestState* const state = RequestState::Find();
    if (!state || !Failed(state->found.failure))
        return TAL_STATUS_SUCCESS;
    const TALSTATUS status = state->found.IsFor(target) ? state->found.failure : TAL_STATUS_SUCCESS;
    state->found.Close();
    return status;
}

void Drop()
{
    if (RequestState* const state = RequestState::Find())
        state->found.Close();
}

} // namespace filestore::request_cache
