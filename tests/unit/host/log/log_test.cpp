// SPDX-License-Identifier: Apache-2.0
//
// The lines of the logs, and what names a request in them.
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include "base/system_time.h"
#include "host/log/access_log.h"
#include "host/log/json_line.h"
#include "host/log/request_id.h"

namespace kestd {

namespace {

constexpr uint64_t kNow = 134'396'571'011'230'000; // 2026-11-20 14:05:01.123

AccessRecord Recorded()
{
    AccessRecord record;
    record.id = "0a1b";
    record.remote = "127.0.0.1";
    record.user = "a\"b";
    record.method = "GET";
    record.target = "/x\"\n\\\x7F";
    record.status = 200;
    record.received = 5;
    record.sent = 1024;
    record.duration = std::chrono::microseconds(77);
    record.userAgent = "tool/1 \xFF";
    return record;
}

TEST(FormatAccessLine, EscapesWhatClientsSend)
{
    std::string line;
    FormatAccessLine(Recorded(), kNow, line);
    EXPECT_EQ(line, "127.0.0.1 - a\\x22b [20/Nov/2026:14:05:01 +0000] "
                    "\"GET /x\\x22\\x0a\\x5c\\x7f HTTP/1.1\" 200 1024 77 0a1b\n");
}

TEST(FormatAccessLine, ShowsDashesForWhatIsMissing)
{
    std::string line;
    AccessRecord record;
    record.id = "1";
    record.remote = "::1";
    record.status = 400;
    FormatAccessLine(record, base::kUnixEpoch, line);
    EXPECT_EQ(line, "::1 - - [01/Jan/1970:00:00:00 +0000] \"-\" 400 0 0 1\n");
}

TEST(FormatJsonAccessLine, HasEverythingAsAnObject)
{
    std::string line;
    FormatJsonAccessLine(Recorded(), kNow, line);
    EXPECT_EQ(line, "{\"time\":\"2026-11-20T14:05:01.123Z\",\"id\":\"0a1b\","
                    "\"remote\":\"127.0.0.1\",\"user\":\"a\\\"b\",\"method\":\"GET\","
                    "\"target\":\"/x\\\"\\u000a\\\\\\u007f\",\"protocol\":\"HTTP/1.1\","
                    "\"status\":200,\"received\":5,\"sent\":1024,\"duration_us\":77,"
                    "\"user_agent\":\"tool/1 \xEF\xBF\xBD\"}\n");
}

TEST(JsonLine, KeepsTheBeginningOfALongText)
{
    std::string line;
    JsonLine(line, kNow).Text("x", std::string(5000, 'y')).End();
    EXPECT_EQ(line,
              "{\"time\":\"2026-11-20T14:05:01.123Z\",\"x\":\"" + std::string(2048, 'y') + "\"}\n");
}

TEST(RequestId, IsAnotherOneForEachRequest)
{
    std::set<std::string> seen[2];
    const auto make = [](std::set<std::string>& into) {
        RequestId id;
        for (int i = 0; i < 1000; ++i) {
            id.Make();
            into.insert(id.Text());
        }
    };
    std::thread other([&] { make(seen[1]); });
    make(seen[0]);
    other.join();
    seen[0].merge(seen[1]);
    EXPECT_EQ(seen[0].size(), 2000u);
    for (const std::string& id : seen[0])
        EXPECT_EQ(id.find_first_not_of("0123456789abcdef"), id.npos);
    EXPECT_EQ(seen[0].begin()->size(), 16u);
}

TEST(RequestId, TakesOnlyWhatHarmsNoLog)
{
    RequestId id;
    EXPECT_TRUE(id.Take("Az09-_.~"));
    EXPECT_STREQ(id.Text(), "Az09-_.~");
    EXPECT_TRUE(id.Take(std::string(64, 'x')));
    const std::string before = id.Text();
    for (const std::string& name :
         {std::string(), std::string(65, 'x'), std::string("a b"), std::string("a\nb"),
          std::string("a\"b"), std::string("\xC3\xA4")}) {
        EXPECT_FALSE(id.Take(name)) << name;
        EXPECT_EQ(id.Text(), before);
    }
}

} // namespace

} // namespace kestd
