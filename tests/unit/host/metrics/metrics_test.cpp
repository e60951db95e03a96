// SPDX-License-Identifier: Apache-2.0
//
// Counting requests, and what is told of them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "host/http/method.h"
#include "host/http/quality.h"
#include "host/http/status_text.h"
#include "host/metrics/exposition.h"
#include "host/metrics/request_counts.h"
#include "host/metrics/scrape.h"
#include <kest/host/methods.h>

namespace kestd {

namespace {

using testing::HasSubstr;
using testing::Not;

std::string TextOf(const RequestCounts& counts)
{
    Exposition out(MetricsFormat::Prometheus);
    counts.Write(out);
    return out.Take();
}

RequestSample Sample(UINT32 method, int status, std::string_view path)
{
    RequestSample sample;
    sample.method = method;
    sample.status = status;
    sample.path = path;
    return sample;
}

TEST(Exposition, WritesTheFormatOfPrometheus)
{
    Exposition out(MetricsFormat::Prometheus);
    out.Counter("things", "What there was.");
    out.Add({{"name", "a\"b\\c\nd"}, {"kind", "x"}}, uint64_t{3});
    out.Gauge("level", "How high.");
    out.Add({}, 0.5);
    EXPECT_EQ(out.Take(), "# HELP things_total What there was.\n# TYPE things_total counter\n"
                          "things_total{name=\"a\\\"b\\\\c\\nd\",kind=\"x\"} 3\n"
                          "# HELP level How high.\n# TYPE level gauge\nlevel 0.5\n");
}

TEST(Exposition, WritesTheFormatOfOpenMetrics)
{
    Exposition out(MetricsFormat::OpenMetrics);
    out.Counter("things", "What there was.");
    out.Add({}, uint64_t{3});
    out.Histogram("size", "How large.");
    const std::array<double, 2> bounds{1, 2.5};
    const std::array<uint64_t, 3> counts{1, 0, 2};
    out.Add({{"a", "b"}}, bounds, counts, 9.25);
    EXPECT_EQ(out.Take(), "# HELP things What there was.\n# TYPE things counter\nthings_total 3\n"
                          "# HELP size How large.\n# TYPE size histogram\n"
                          "size_bucket{a=\"b\",le=\"1.0\"} 1\nsize_bucket{a=\"b\",le=\"2.5\"} 1\n"
                          "size_bucket{a=\"b\",le=\"+Inf\"} 3\nsize_sum{a=\"b\"} 9.25\n"
                          "size_count{a=\"b\"} 3\n# EOF\n");
}

TEST(RequestCounts, CountsByMethodStatusAndVolume)
{
    RequestCounts counts(VolumeIndex("/Ferro", {"photos", "docs"}));
    RequestSample put = Sample(KestMethodPut, 201, "/Ferro/docs/a");
    put.received = 300;
    put.duration = std::chrono::microseconds(1500);
    counts.Count(put);
    counts.Count(put);
    RequestSample failed = Sample(KestMethodGet, 507, "/Ferro/photos");
    failed.failure = 507;
    failed.sent = 70;
    counts.Count(failed);
    const std::string text = TextOf(counts);
    for (const char* line :
         {"kestd_requests_total{method=\"PUT\",status=\"201\"} 2\n",
          "kestd_requests_total{method=\"GET\",status=\"507\"} 1\n",
          "kestd_volume_requests_total{volume=\"docs\",method=\"PUT\",class=\"2xx\"} 2\n",
          "kestd_volume_requests_total{volume=\"photos\",method=\"GET\",class=\"5xx\"} 1\n",
          "kestd_volume_received_bytes_total{volume=\"docs\"} 600\n",
          "kestd_volume_sent_bytes_total{volume=\"photos\"} 70\n",
          "kestd_request_duration_seconds_bucket{method=\"PUT\",le=\"0.001\"} 0\n",
          "kestd_request_duration_seconds_bucket{method=\"PUT\",le=\"0.0025\"} 2\n",
          "kestd_request_duration_seconds_sum{method=\"PUT\"} 0.003\n",
          "kestd_request_size_bytes_bucket{le=\"256.0\"} 1\n",
          "kestd_request_size_bytes_bucket{le=\"1024.0\"} 3\n",
          "kestd_request_size_bytes_sum 600\n", "kestd_reply_size_bytes_bucket{le=\"0.0\"} 2\n",
          "kestd_provider_failures_total{status=\"507\"} 1\n",
          "kestd_provider_failures_total{status=\"500\"} 0\n"})
        EXPECT_THAT(text, HasSubstr(line));
}

TEST(RequestCounts, CountsWhatNobodyKnows)
{
    RequestCounts counts(VolumeIndex("/Ferro", {}));
    counts.Count(Sample(4'000'000'000U, 299, ""));
    counts.Count(Sample(KestMethodUnknown, 0, ""));
    counts.Count(Sample(KestMethodUnknown, -1, ""));
    const std::string text = TextOf(counts);
    EXPECT_THAT(text, HasSubstr("kestd_volume_requests_total{volume=\"\",method=\"other\","
                                "class=\"other\"} 2\n"));
    EXPECT_THAT(text, HasSubstr("{method=\"other\",status=\"other\"} 2\n"));
}

TEST(RequestCounts, HaveACellForEachStatusOfTheServer)
{
    for (int status = 200; status < 600; ++status)
        EXPECT_EQ(RequestCounts::HasCell(status), !ReasonPhrase(status).empty()) << status;
}

TEST(RequestCounts, LoseNothingBetweenThreads)
{
    RequestCounts counts(VolumeIndex("/Ferro", {"docs"}));
    constexpr int kThreads = 20; // more than there are tables
    constexpr int kEach = 1000;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back([&] {
                for (int n = 0; n < kEach; ++n)
                    counts.Count(Sample(KestMethodGet, 200, "/Ferro/docs/"));
                (void)TextOf(counts);
            });
    }
    EXPECT_THAT(TextOf(counts),
                HasSubstr("kestd_requests_total{method=\"GET\",status=\"200\"} 20000\n"));
}

TEST(VolumeIndex, FindsTheVolumeOfAPath)
{
    const VolumeIndex volumes("/Ferro", {"docs", "b", "döcs"});
    const auto nameOf = [&](std::string_view path) { return volumes.Name(volumes.Find(path)); };
    EXPECT_EQ(nameOf("/Ferro/docs"), "docs");
    EXPECT_EQ(nameOf("/Ferro/docs/a/b"), "docs");
    EXPECT_EQ(nameOf("/Ferro/döcs/"), "döcs");
    EXPECT_EQ(nameOf("/Ferro/b/docs"), "b");
    for (const char* path : {"", "/", "/Ferro", "/Ferro/", "/Ferro/doc", "/Ferro/docs2", "/docs",
                             "/Ferro//docs", "/Wharf/docs/x", "/Ferroxdocs"})
        EXPECT_EQ(nameOf(path), "") << path;
}

TEST(MethodName, IsTheTokenOfEachNumber)
{
    for (const char* token : {"GET", "PUT", "HEAD", "PROPFIND", "OPTIONS", "DELETE", "LOCK",
                              "UNLOCK", "MKCOL", "MOVE", "COPY", "PROPPATCH", "POST", "TRACE"})
        EXPECT_EQ(MethodName(MethodNumber(token)), token);
    EXPECT_EQ(MethodName(KestMethodPatch), "PATCH");
    EXPECT_EQ(MethodName(KestMethodUnknown), "other");
}

TEST(NextWeighted, ReadsWeights)
{
    std::string_view list = "gzip;q=0.5, br ; Q=1.000,,a;x=y;q=0, b;q=1.5, c;q=0.1234, d;q=.5, *";
    std::string read;
    WeightedElement element;
    while (NextWeighted(list, element))
        read.append(element.value).append("=").append(std::to_string(element.weight)).append(" ");
    EXPECT_EQ(read, "gzip=500 br=1000 a=0 b=0 c=0 d=0 *=1000 ");
}

TEST(FormatFor, TakesWhatIsWantedMost)
{
    EXPECT_EQ(FormatFor(""), MetricsFormat::Prometheus);
    EXPECT_EQ(FormatFor("*/*"), MetricsFormat::Prometheus);
    EXPECT_EQ(FormatFor("application/openmetrics-text;version=1.0.0,text/plain;q=0.5"),
              MetricsFormat::OpenMetrics);
    EXPECT_EQ(FormatFor("application/openmetrics-text;q=0.2,text/plain;version=0.0.4"),
              MetricsFormat::Prometheus);
}

class StoppingSource final : public MetricsSource {
  public:
    std::string Metrics(MetricsFormat format) override
    {
        return format == MetricsFormat::OpenMetrics ? "open" : "older";
    }
    std::string WhatIsWrong() override { return {}; }
    std::string WhatIsNotReady() override { return "stopping"; }
};

std::string Ask(const std::string& line, const std::string& fields = "")
{
    StoppingSource source;
    return AnswerScrape(line + " HTTP/1.1\r\n" + fields + "\r\n", source);
}

TEST(AnswerScrape, KnowsThreeResources)
{
    EXPECT_THAT(Ask("GET /metrics"), testing::EndsWith("\r\n\r\nolder"));
    EXPECT_THAT(Ask("GET /metrics?x", "Accept: application/openmetrics-text\r\n"),
                testing::EndsWith("\r\n\r\nopen"));
    EXPECT_THAT(Ask("GET /health"), testing::StartsWith("HTTP/1.1 200 OK\r\n"));
    EXPECT_THAT(Ask("GET /ready"), testing::StartsWith("HTTP/1.1 503 "));
    EXPECT_THAT(Ask("GET /ready"), testing::EndsWith("\r\n\r\nstopping\n"));
    EXPECT_THAT(Ask("GET /other"), testing::StartsWith("HTTP/1.1 404 "));
    EXPECT_THAT(Ask("POST /metrics"), HasSubstr("\r\nAllow: GET, HEAD\r\n"));
    const std::string head = Ask("HEAD /metrics");
    EXPECT_THAT(head, HasSubstr("\r\nContent-Length: 5\r\n"));
    EXPECT_THAT(head, testing::EndsWith("\r\n\r\n"));
    StoppingSource source;
    EXPECT_THAT(AnswerScrape("rubbish\r\n\r\n", source), testing::StartsWith("HTTP/1.1 400 "));
}

} // namespace

} // namespace kestd
