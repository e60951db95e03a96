// SPDX-License-Identifier: Apache-2.0
//
// One request header or destination per input, through RequestHandler. The first byte chooses the
// request; the rest is the header's value. A run that sends no reply, or leaves a lock, an object
// or memory behind, is a crash.
#include "served.h"

namespace {

using harness::Request;
using harness::World;

void Fill(harness::Provider& provider)
{
    provider.AddFile("/p/c/a", "0123456789");
    provider.AddCollection("/p/c/d");
}

Request MakeRequest(uint8_t choice, const std::string& value)
{
    switch (choice % 8) {
    case 0:
        return Request(KestMethodGet, "/Ferro/p/c/a").Header("Range", value);
    case 1:
        return Request(KestMethodGet, "/Ferro/p/c/a").Header("If", value);
    case 2:
        return Request(KestMethodHead, "/Ferro/p/c/a").Header("If", value);
    case 3:
        return Request(KestMethodPut, "/Ferro/p/c/b").Header("If", value);
    case 4:
        return Request(KestMethodGet, "/Ferro/p/c/a").Header("If-Modified-Since", value);
    case 5:
        return Request(KestMethodCopy, "/Ferro/p/c/a").To(value);
    case 6:
        return Request(KestMethodMove, "/Ferro/p/c/a").To("/Ferro" + value);
    default:
        return Request(KestMethodDelete, "/Ferro" + value);
    }
}

} // namespace

World& TheWorld()
{
    static World* const world = [] {
        auto* made = new World({{.name = "p"}});
        Fill((*made)["p"]);
        made->Remember("/Ferro/p/c/a");
        return made;
    }();
    return *world;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    // Counted strings hold 65,535 bytes; the host refuses longer heads.
    if (size == 0 || size > 16384)
        return 0;
    const std::string value(reinterpret_cast<const char*>(data + 1), size - 1);
    Serve(MakeRequest(data[0], value), Fill);
    return 0;
}
