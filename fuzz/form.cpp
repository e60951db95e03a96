// SPDX-License-Identifier: Apache-2.0
//
// One form upload per input, through RequestHandler. The first byte chooses the query and in which
// pieces the body arrives; the rest is the body, with the boundary "B". A run that sends no reply,
// stores outside its collection, or leaves a lock, an object or memory behind, is a crash.
#include <algorithm>

#include <gtest/gtest.h>

#include "served.h"
#include "text.h"

namespace {

using harness::Request;
using harness::World;

// Nothing may have been stored elsewhere than in the collection.
void RemoveUploads(harness::Provider& provider)
{
    for (const std::string& path : provider.Paths()) {
        EXPECT_TRUE(path == "/p/" || path.starts_with("/p/c/")) << path;
        if (path.starts_with("/p/c/") && path != "/p/c/" && path != "/p/c/old")
            provider.Remove(harness::Wide(path));
    }
}

} // namespace

// The smallest transfer buffer, so that short inputs move its window too.
World& TheWorld()
{
    static World* const world = [] {
        auto* made = new World({{.name = "p"}}, {.moduleValues = "'Read-Write Block Size' = 1024"});
        (*made)["p"].AddFile("/p/c/old", "old");
        made->Remember("/Ferro/p/c");
        return made;
    }();
    return *world;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const uint8_t choice = data[0];
    const std::string body(reinterpret_cast<const char*>(data + 1), size - 1);
    const size_t piece = choice & 1 ? size : 1 + choice / 4;
    std::vector<std::string> pieces;
    for (size_t at = 0; at < body.size(); at += piece)
        pieces.push_back(body.substr(at, piece));

    Serve(Request(KestMethodPost, "/Ferro/p/c")
              .Header("Content-Type", "multipart/form-data; boundary=B")
              .Query(choice & 2 ? "overwrite=0" : "")
              .Body(std::move(pieces)),
          RemoveUploads);
    return 0;
}
