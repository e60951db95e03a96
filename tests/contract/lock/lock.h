// SPDX-License-Identifier: Apache-2.0
//
// LOCK requests and what is answered to them.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "text.h"
#include "world.h"

namespace lock_tests {

using harness::LockRecord;
using harness::Request;
using harness::World;

inline constexpr char kFirstToken[] = "00000000-0000-4000-8000-000000000001";

// What a lock reply shows.
struct Shown {
    std::string status = "200";
    std::string type = "write";
    std::string scope = "exclusive";
    std::string depth = "0";
    std::string owner = {}; // with its element
    std::string timeout = "Second-300";
    std::string token = kFirstToken;
};

inline std::string LockReply(const Shown& shown)
{
    return shown.status +
           "\n"
           "Transfer-Encoding: chunked\n"
           "Content-Type: text/xml\n"
           "\n"
           "<?xml version=\"1.0\" encoding=\"utf-8\" ?>"
           "<a:prop xmlns:a=\"DAV:\"><a:lockdiscovery>\n"
           "<a:activelock>\n"
           "<a:locktype><a:" +
           shown.type +
           "/></a:locktype>\n"
           "<a:lockscope><a:" +
           shown.scope +
           "/></a:lockscope>\n"
           "<a:depth>" +
           shown.depth + "</a:depth>\n" + shown.owner + "<a:timeout>" + shown.timeout +
           "</a:timeout>\n"
           "<a:locktoken>\n"
           "<a:href>opaquelocktoken:" +
           shown.token +
           "</a:href>\n"
           "</a:locktoken>\n"
           "</a:activelock></a:lockdiscovery></a:prop>";
}

inline std::string Owner(const std::string& text)
{
    return "<a:owner>" + text + "</a:owner>\n";
}

inline std::string LockInfo(const std::string& owner = {}, const std::string& scope = "exclusive",
                            const std::string& type = "write")
{
    return "<?xml version=\"1.0\"?><D:lockinfo xmlns:D=\"DAV:\"><D:lockscope><D:" + scope +
           "/></D:lockscope><D:locktype><D:" + type + "/></D:locktype>" + owner + "</D:lockinfo>";
}

class Lock : public testing::Test {
  protected:
    World world{{{.name = "p"}}};
    harness::Provider& provider = world["p"];
    harness::Node& file = provider.AddFile("/p/a", "x");

    static Request Ask(const std::string& body = {}, const std::string& path = "/Ferro/p/a")
    {
        Request request(KestMethodLock, path);
        if (!body.empty())
            request.Body({body});
        return request;
    }
    static Request Refresh(const std::string& token)
    {
        return Ask().Header("If", "(<opaquelocktoken:" + token + ">)");
    }
    // Puts a lock on the file.
    LockRecord& Hold(const std::string& token, INT64 seconds = 160, const std::string& owner = {})
    {
        LockRecord lock;
        lock.depth = 0;
        lock.timeout = seconds * 10000000;
        lock.owner = owner;
        lock.token = token;
        file.locks.push_back(lock);
        return file.locks.back();
    }
};

} // namespace lock_tests
