// SPDX-License-Identifier: Apache-2.0
//
// One request header or destination per input, through RequestHandler in the standard dialect. The
// first byte chooses the request; the rest is the header's value. A run that sends no reply, or
// leaves a lock, an object or memory behind, is a crash.
#include <iterator>

#include "served.h"

namespace {

using harness::Request;
using harness::World;

void Fill(harness::Provider& provider)
{
    harness::Node& file = provider.AddFile("/p/c/a", "0123456789");
    file.locks.assign(1, {.token = "t"});
    provider.AddCollection("/p/c/d");
}

// Which header of which method an input is for.
constexpr struct {
    UINT32 method;
    const char* header;
} kTargets[] = {
    {KestMethodGet, "Range"},
    {KestMethodGet, "If-Range"},
    {KestMethodGet, "If"},
    {KestMethodGet, "If-None-Match"},
    {KestMethodHead, "If-Modified-Since"},
    {KestMethodPut, "If"},
    {KestMethodPut, "If-Match"},
    {KestMethodPut, "Content-Range"},
    {KestMethodPut, "X-OC-Mtime"},
    {KestMethodPut, "X-Expected-Entity-Length"},
    {KestMethodPut, "Content-Digest"},
    {KestMethodPut, "OC-Checksum"},
    {KestMethodPatch, "X-Update-Range"},
    {KestMethodDelete, "Depth"},
    {KestMethodMkCol, "If"},
};

Request MakeRequest(uint8_t choice, const std::string& value)
{
    const size_t number = choice % (std::size(kTargets) + 2);
    if (number == std::size(kTargets))
        return Request(KestMethodCopy, "/Ferro/p/c/a").To(value);
    if (number > std::size(kTargets))
        return Request(KestMethodMove, "/Ferro/p/c/a").To("/Ferro" + value);
    const auto& target = kTargets[number];
    Request request(target.method, "/Ferro/p/c/a");
    if (target.method == KestMethodPatch)
        request.Header("Content-Type", "application/x-sabredav-partialupdate");
    if (target.header != std::string_view("If"))
        request.Header("If", "(<opaquelocktoken:t>)"); // past the lock
    return request.Header(target.header, value).Body({"body"});
}

} // namespace

World& TheWorld()
{
    static World* const world = [] {
        auto* made = new World({{.name = "p", .generations = 6, .servesNew = true}},
                               {.moduleValues = "'Dialect' = 'standard'"});
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
