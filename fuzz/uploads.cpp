// SPDX-License-Identifier: Apache-2.0
//
// Requests of uploads that go on later, through RequestHandler: an input is a few of them, one
// after the other, against one target. A run that sends no reply, tells more than is kept, changes
// the target without saying so, or leaves a lock, an object or memory behind, is a crash.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

#include "served.h"

namespace {

using harness::Provider;
using harness::Reply;
using harness::Request;
using harness::World;

constexpr char kOld[] = "0123456789";
constexpr char kTarget[] = "/p/c/a";
constexpr UINT8 kMostRequests = 8;

void Fill(Provider& provider)
{
    provider.AddFile(kTarget, kOld);
    provider.uploads.clear();
}

// Takes an input apart: bytes, and texts that end with a line end.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}
    bool IsEmpty() const { return rest_.empty(); }
    UINT8 Byte()
    {
        if (rest_.empty())
            return 0;
        const auto byte = static_cast<UINT8>(rest_.front());
        rest_.remove_prefix(1);
        return byte;
    }
    std::string Line()
    {
        const size_t end = rest_.find('\n');
        std::string line(rest_.substr(0, end));
        rest_.remove_prefix(end == std::string_view::npos ? rest_.size() : end + 1);
        return line;
    }

  private:
    std::string_view rest_;
};

constexpr const char* kFields[] = {"Upload-Complete",
                                   "Upload-Incomplete",
                                   "Upload-Offset",
                                   "Upload-Length",
                                   "Upload-Draft-Interop-Version",
                                   "Content-Type",
                                   "Content-Length",
                                   "X-Expected-Entity-Length",
                                   "If-Match",
                                   "If",
                                   "X-OC-Mtime",
                                   "Content-Range"};

std::string PlaceOf(Input& input, UINT8 choice)
{
    const std::string target = std::string("/Ferro") + kTarget;
    if (choice & 0x80)
        return target + "/.kest/upload/" + input.Line();
    return target + "/.kest/upload/u" + std::to_string(1 + (choice >> 3) % 4);
}

Request MakeRequest(Input& input)
{
    constexpr UINT32 kMethods[] = {KestMethodPut,     KestMethodPatch, KestMethodPatch,
                                   KestMethodHead,    KestMethodPatch, KestMethodDelete,
                                   KestMethodOptions, KestMethodPut};
    const UINT8 choice = input.Byte();
    const UINT32 method = kMethods[choice & 7];
    Request request(method, method == KestMethodPut ? std::string("/Ferro") + kTarget
                                                    : PlaceOf(input, choice));
    // What is usually right: the fields that follow come instead.
    const UINT8 fields = input.Byte();
    for (UINT8 i = 0; i < fields % 5; ++i)
        request.Header(kFields[input.Byte() % std::size(kFields)], input.Line());
    request.Header("Upload-Complete", fields & 0x80 ? "?1" : "?0");
    if (method == KestMethodPatch)
        request.Header("Content-Type", "application/partial-upload");
    if (fields & 0x40)
        request.BodyEndsWith(MakeStatus(kFacilityHost, kCodeTimeout));
    if (fields & 0x20)
        request.TakesInterims();
    return request.Body({input.Line()});
}

// The reply itself: what came before it ends where the next line is a status.
std::string_view FinalOf(const Reply& reply)
{
    std::string_view text = reply.text;
    size_t line = 0;
    while (text.starts_with('1') && (line = text.find('\n')) != std::string_view::npos) {
        text.remove_prefix(line + 1);
        while (!text.empty() && (text.front() < '0' || text.front() > '9'))
            text.remove_prefix(std::min(text.find('\n'), text.size() - 1) + 1);
    }
    return text;
}

// The number after a name in the head, or -1.
long Told(std::string_view reply, std::string_view name)
{
    const std::string head(reply.substr(0, reply.find("\n\n")));
    const size_t at = head.find(name);
    return at == std::string::npos ? -1 : std::atol(head.c_str() + at + name.size());
}

void Check(Provider& provider, const Reply& whole, const std::string& before)
{
    const std::string_view reply = FinalOf(whole);
    const std::string content = provider.Content(kTarget);
    const bool isDone =
        reply.starts_with("20") && reply.find("Upload-Complete: ?1") != std::string_view::npos;
    EXPECT_TRUE(content == before || reply.starts_with("20")) << whole.text;
    const long offset = Told(reply, "Upload-Offset: ");
    bool isKept = offset <= 0 || isDone || !reply.starts_with("2");
    for (const harness::PendingUpload& each : provider.uploads)
        isKept = isKept || (offset >= 0 && each.content.size() >= static_cast<size_t>(offset));
    EXPECT_TRUE(isKept) << whole.text;
}

} // namespace

World& TheWorld()
{
    static World* const world = [] {
        auto* made = new World({{.name = "p", .generations = 14, .servesNew = true}},
                               {.moduleValues = "'Dialect' = 'standard'"});
        Fill((*made)["p"]);
        made->Remember("/Ferro/p/c/a");
        return made;
    }();
    return *world;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size > 16384) // the host refuses longer heads
        return 0;
    World& world = TheWorld();
    Provider& provider = world["p"];
    Input input(data, size);
    for (UINT8 i = 0; i < kMostRequests && !input.IsEmpty(); ++i) {
        const std::string before = provider.Content(kTarget);
        const Reply reply = world.Run(MakeRequest(input));
        world.recorder.Clear();
        EXPECT_EQ(reply.heads, 1) << reply.text;
        Check(provider, reply, before);
        if (testing::Test::HasFailure())
            std::abort();
    }
    Fill(provider);
    world.ExpectAtRest();
    if (testing::Test::HasFailure())
        std::abort();
    return 0;
}
