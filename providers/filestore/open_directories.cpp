// SPDX-License-Identifier: Apache-2.0
//
// Directories that a request has open anyway.
#include "providers/filestore/open_directories.h"

#include <vector>

#include "providers/filestore/names.h"
#include "providers/filestore/requeststate.h"

namespace filestore::open_directories {

namespace {

// Two for each level of a copy within a volume, the innermost last. Deeper trees lose the outermost
// ones, which are looked up again when the walk comes back to them.
constexpr size_t kMost = 64;

using Open = std::vector<std::weak_ptr<const Directory>>;

void DropReleased(Open& open)
{
    while (!open.empty() && open.back().expired())
        open.pop_back();
}

} // namespace

void Add(const DirectoryRef& directory)
{
    RequestState* const state = RequestState::Current();
    if (!state)
        return;
    DropReleased(state->open);
    if (state->open.size() == kMost)
        state->open.erase(state->open.begin());
    state->open.push_back(directory);
}

DirectoryRef Find(const Volume& volume, std::string_view path)
{
    RequestState* const state = RequestState::Find();
    if (!state)
        return nullptr;
    DropReleased(state->open);
    for (auto each = state->open.rbegin(); each != state->open.rend(); ++each)
        if (DirectoryRef held = each->lock(); held && held->volume == &volume && held->path == path)
            return held;
    return nullptr;
}

void Forget(const Volume& volume, std::string_view path)
{
    RequestState* const state = RequestState::Find();
    if (!state)
        return;
    std::erase_if(state->open, [&](const std::weak_ptr<const Directory>& each) {
        const DirectoryRef held = each.lock();
        return !held || (held->volume == &volume && IsWithin(held->path, path));
    });
}

} // namespace filestore::open_directories
