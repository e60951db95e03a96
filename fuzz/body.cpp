// SPDX-License-Identifier: Apache-2.0
//
// One request body per input, through RequestHandler. The first byte chooses the object, the depth
// and whether a lock token is sent; the rest is the body. A run that sends no reply, or leaves a
// lock, an object or memory behind, is a crash.
#include <cstdio>

#include "served.h"

namespace {

using harness::Node;
using harness::Request;
using harness::World;

#if defined(KEST_FUZZ_PROPFIND)
constexpr UINT32 kMethod = KestMethodPropFind;
#elif defined(KEST_FUZZ_PROPPATCH)
constexpr UINT32 kMethod = KestMethodPropPatch;
#else
constexpr UINT32 kMethod = KestMethodLock;
#endif

#if defined(KEST_FUZZ_STANDARD)
constexpr bool kIsStandard = true;
constexpr int kGenerations = 6;
#else
constexpr bool kIsStandard = false;
constexpr int kGenerations = 2;
#endif

void Fill(harness::Provider& provider)
{
    provider.serveRoot = true;
    Node& file = provider.AddFile("/p/c/a", "hello");
    file.properties = {{u"author", "me"}, {u"large", std::string(40000, 'v')}};
    file.dead = {{"urn:x", "author", "<author xmlns=\"urn:x\">me</author>"}};
    file.locks.clear();
    Node& folder = provider.AddCollection("/p/c");
    folder.properties = {{u"author", "you"}};
    folder.dead.clear();
    folder.locks.clear();
    provider.AddCollection("/p/c/d");
    if (Node* made = provider.Find("/p/x"))
        made->locks.clear();
}

} // namespace

World& TheWorld()
{
    static World* const world = [] {
        auto* made = new World({{.name = "p",
                                 .generations = kGenerations,
                                 .caps = kCapsNamedProperties,
                                 .servesNew = kIsStandard}},
                               {.moduleValues = kIsStandard ? "'Dialect' = 'standard'" : ""});
        Fill((*made)["p"]);
        made->Remember("/Ferro/p/c/a");
        return made;
    }();
    return *world;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0)
        return 0;
    const uint8_t choice = data[0];
    static constexpr const char* kPaths[] = {"/Ferro/p/c/a", "/Ferro/p/c", "/Ferro", "/Ferro/p/x"};
    Request request(kMethod, kPaths[choice & 3]);
    request.Header("Depth", choice & 4 ? "1" : "0");
    if (choice & 8)
        request.Header("If", "(<opaquelocktoken:00000000-0000-4000-8000-000000000001>)");
    if (size > 1)
        request.Body({std::string(reinterpret_cast<const char*>(data + 1), size - 1)});
    Serve(request, Fill);
    return 0;
}
