// SPDX-License-Identifier: Apache-2.0
//
// One page per input: the URL arguments, the page template and the entry template, separated by
// bytes of 0x01. A run that leaves a lock, an object or memory behind is a crash.
#include <cstdlib>

#include <gtest/gtest.h>

#include "../tests/contract/index/site.h"

namespace {

using site::Deleted;
using site::Site;

Site& TheSite()
{
    static const std::vector<Deleted> deleted = {
        {.id = 7, .name = "gone", .state = 1, .uri = u"/kept/7"}};
    static Site* const made = [] {
        auto* fresh = new Site();
        auto& vol = fresh->world["vol"];
        vol.serveRoot = true;
        vol.AddFile("/vol/dir/a b.txt", "hello");
        vol.AddFile("/vol/dir/\u00e4", std::string(2000, 'x'));
        vol.AddCollection("/vol/dir/sub");
        site::KeepDeleted(vol, deleted);
        fresh->dir.Write("error.html", "<!--OlmDAV:ErrorCode-->");
        fresh->Preferences(0x21);
        fresh->world.Remember("/Ferro/vol/dir");
        return fresh;
    }();
    return *made;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv)
{
    testing::InitGoogleTest(argc, *argv);
    (void)TheSite();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    const size_t first = input.find('\x01');
    const size_t second = first == std::string::npos ? first : input.find('\x01', first + 1);
    if (second == std::string::npos)
        return 0;
    std::string arguments = input.substr(0, first);
    for (char& c : arguments)
        c = static_cast<char>(c & 0x7F); // what a host lets through

    Site& site = TheSite();
    site.Page(input.substr(first + 1, second - first - 1));
    site.Entry(input.substr(second + 1));
    const harness::Reply reply = site.Get("/Ferro/vol/dir", arguments);
    site.world.recorder.Clear();
    EXPECT_EQ(reply.heads, 1) << reply.text;
    site.world.ExpectAtRest();
    if (testing::Test::HasFailure())
        std::abort();
    return 0;
}
