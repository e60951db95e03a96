// SPDX-License-Identifier: Apache-2.0
#include "providers/filestore/directory.h"

#include <algorithm>
#include <vector>

#include "providers/filestore/callcontext.h"
#include "providers/filestore/names.h"

namespace filestore::walked {

namespace {

// Two for each level of a copy within a volume, the innermost last. Deeper trees lose the outermost
// ones, which are looked up again when the walk comes back to them.
constexpr size_t kMost = 64;

struct Offered {
    const IKestIO_5* request;
    std::weak_ptr<const Directory> directory;
};

thread_local std::vector<Offered> t_offered;

void DropReleased()
{
    while (!t_offered.empty() && t_offered.back().directory.expired())
        t_offered.pop_back();
}

} // namespace

void Offer(const DirectoryRef& directory)
{
    const IKestIO_5* const request = call::Request();
    if (!request)
        return;
    DropReleased();
    if (t_offered.size() == kMost)
        t_offered.erase(t_offered.begin());
    t_offered.push_back({request, directory});
}

DirectoryRef Find(const Volume& volume, std::string_view path)
{
    DropReleased();
    if (t_offered.empty())
        return nullptr;
    const IKestIO_5* const request = call::Request();
    for (auto each = t_offered.rbegin(); each != t_offered.rend(); ++each)
        if (each->request == request)
            if (DirectoryRef held = each->directory.lock();
                held && held->volume == &volume && held->path == path)
                return held;
    return nullptr;
}

void Forget(const Volume& volume, std::string_view path)
{
    std::erase_if(t_offered, [&](const Offered& each) {
        const DirectoryRef held = each.directory.lock();
        return !held || (held->volume == &volume && IsWithin(held->path, path));
    });
}

} // namespace filestore::walked
