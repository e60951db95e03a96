// SPDX-License-Identifier: Apache-2.0
//
// A module whose provider takes uploads that go on in other requests.
#pragma once

#include "fixture.h"

namespace standard_tests {

inline std::vector<harness::ProviderSpec> UploadProviders()
{
    return {{.name = "gen3", .generations = 14, .servesNew = true},
            {.name = "other", .generations = 6},
            {.name = "gen2", .caps = kCapsDeletesTrees}};
}

inline std::unique_ptr<World> MakeUploadWorld()
{
    auto world = std::make_unique<World>(UploadProviders(), StandardDialectWithPages());
    Fill(*world);
    return world;
}

// "Ferro/gen3/NAME/.kest/upload/uN", and what a reply says of it.
inline std::string PlaceOf(const std::string& name, int number = 1)
{
    return "/Ferro/gen3/" + name + "/.kest/upload/u" + std::to_string(number);
}
inline constexpr char kLimits[] = "Upload-Limit: max-size=1000, max-age=60\n";
inline std::string Place(const std::string& name, int number = 1)
{
    return "Location: " + PlaceOf(name, number) + "\n" + kLimits;
}
// The reply to a part: so far, and where to go on.
inline std::string State(UINT64 offset, bool isComplete = false)
{
    return "Upload-Offset: " + std::to_string(offset) +
           "\nUpload-Complete: " + (isComplete ? "?1" : "?0") + "\n";
}
inline std::string Problem(const std::string& status, const std::string& type,
                           const std::string& title, const std::string& headers = {},
                           const std::string& more = {})
{
    return status + "\n" + headers +
           "Content-Type: application/problem+json\nContent-Length: \n\n"
           "{\"type\":\"https://iana.org/assignments/http-problem-types#" +
           type + "\",\"title\":\"" + title + "\"" + more + "}\n";
}
inline std::string OtherLength()
{
    return Problem("400", "inconsistent-upload-length", "the upload has another length");
}

// The PUT that begins one, and what goes on with it.
inline Request Begin(const std::string& name, std::vector<std::string> body,
                     const std::string& complete = "?0")
{
    return Request(KestMethodPut, "/Ferro/gen3/" + name)
        .Header("Upload-Complete", complete)
        .Body(std::move(body));
}
inline Request Append(const std::string& place, UINT64 offset, std::vector<std::string> body,
                      const std::string& complete = "?0")
{
    return Request(KestMethodPatch, place)
        .Header("Content-Type", "application/partial-upload")
        .Header("Upload-Offset", std::to_string(offset))
        .Header("Upload-Complete", complete)
        .Body(std::move(body));
}

class StandardUploads : public testing::Test {
  protected:
    void SetUp() override { Fill(world); }
    void TearDown() override { world.ExpectAtRest(); }

    std::string Run(const Request& request) { return world.Run(request).text; }
    std::string Head(const std::string& place) { return Run(Request(KestMethodHead, place)); }
    std::string Cancel(const std::string& place) { return Run(Request(KestMethodDelete, place)); }
    std::string Content(const std::string& name) { return world["gen3"].Content("/gen3/" + name); }
    // What has arrived of the only upload, or "(none)".
    std::string Kept()
    {
        return world["gen3"].uploads.empty() ? "(none)" : world["gen3"].uploads.back().content;
    }
    std::vector<std::string> UploadCalls() const
    {
        return world.Calls({"gen3.up3.", "gen3.more3."});
    }

    World world{UploadProviders(), StandardDialect()};
};

} // namespace standard_tests
