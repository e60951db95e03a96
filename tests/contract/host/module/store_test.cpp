// SPDX-License-Identifier: Apache-2.0
//
// Content in, content out: a module that keeps what it is sent, on real connections.
#include "tests/contract/host/harness.h"

namespace kestd::test {

namespace {

class Store : public ServerTest {
  protected:
    void SetUp() override
    {
        module.handler = [this](IKestIO_5& io, UINT32 method) {
            const std::u16string path = Url(io);
            if (method == KestMethodPut) {
                TALSTATUS status = 0;
                std::string body = ReadBody(io, status, 65536);
                SetHeader(io, "Content-Length", "0");
                if (Code(status) != kCodeEndOfFile)
                    return io.SendHeader(static_cast<HTTPSTATUS>(MapTalStatusToHttpStatus(status)));
                const std::lock_guard lock(mutex);
                files[path] = std::move(body);
                return io.SendHeader(201);
            }
            std::string content;
            {
                const std::lock_guard lock(mutex);
                const auto found = files.find(path);
                if (found == files.end()) {
                    SetHeader(io, "Content-Length", "0");
                    return io.SendHeader(404);
                }
                content = found->second;
            }
            SetHeader(io, "Content-Length", std::to_string(content.size()));
            TALSTATUS status = io.SendHeader(200);
            for (size_t at = 0; at < content.size() && !Failed(status); at += 262144)
                status = Write(io, std::string_view(content).substr(at, 262144));
            return status;
        };
    }
    static std::string Pattern(size_t size)
    {
        std::string text(size, '\0');
        uint32_t state = 12345;
        for (char& c : text) {
            state = state * 1664525 + 1013904223;
            c = static_cast<char>(state >> 24);
        }
        return text;
    }
    static std::string Put(const std::string& name, std::string_view body)
    {
        return "PUT /Ferro/" + name +
               " HTTP/1.1\r\nHost: h\r\nContent-Length: " + std::to_string(body.size()) +
               "\r\n\r\n" + std::string(body);
    }
    static std::string Get(const std::string& name)
    {
        return "GET /Ferro/" + name + " HTTP/1.1\r\nHost: h\r\n\r\n";
    }

    std::mutex mutex;
    std::map<std::u16string, std::string> files;
};

TEST_F(Store, WhatIsPutComesBack)
{
    const Running running = Start();
    Client client(port);
    for (const size_t size : {0u, 1u, 1024u, 65535u, 65536u, 65537u, 1u << 20, 5000001u}) {
        const std::string content = Pattern(size);
        EXPECT_EQ(client.Ask(Put("f", content)).status, 201) << size;
        const Answer answer = client.Ask(Get("f"));
        EXPECT_EQ(answer.status, 200);
        EXPECT_TRUE(answer.body == content)
            << size << " got " << answer.body.size() << " stored " << files[u"/Ferro/f"].size()
            << " same " << (files[u"/Ferro/f"] == content);
    }
}

TEST_F(Store, ChunkedBodyIsTakenApart)
{
    const Running running = Start();
    Client client(port);
    std::string request = "PUT /Ferro/c HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n";
    const std::string content = Pattern(300000);
    char size[32];
    for (size_t at = 0, step = 1; at < content.size(); at += step, step = step * 3 % 20011 + 1) {
        const std::string piece = content.substr(at, step);
        std::snprintf(size, sizeof size, "%zX;ext=1\r\n", piece.size());
        request.append(size).append(piece).append("\r\n");
    }
    request.append("0\r\nTrailer: x\r\n\r\n");
    EXPECT_EQ(client.Ask(request).status, 201);
    EXPECT_TRUE(client.Ask(Get("c")).body == content);
}

TEST_F(Store, PipelinedRequestsAreAnsweredInOrder)
{
    const Running running = Start();
    Client client(port);
    std::string requests;
    for (int i = 0; i < 150; ++i)
        requests += Put("p" + std::to_string(i), Pattern(static_cast<size_t>(i * 37))) +
                    Get("p" + std::to_string(i));
    ASSERT_TRUE(client.Send(requests));
    for (int i = 0; i < 150; ++i) {
        EXPECT_EQ(client.Receive().status, 201);
        EXPECT_TRUE(client.Receive().body == Pattern(static_cast<size_t>(i * 37))) << i;
    }
}

TEST_F(Store, RequestsArriveWholeWhereverTheyAreSplit)
{
    const Running running = Start();
    const std::string request = Put("s", "0123456789") + Get("s");
    for (size_t at = 1; at < request.size(); at += 3) {
        Client client(port);
        ASSERT_TRUE(client.Send(request.substr(0, at)));
        std::this_thread::yield();
        ASSERT_TRUE(client.Send(request.substr(at)));
        EXPECT_EQ(client.Receive().status, 201) << at;
        EXPECT_EQ(client.Receive().body, "0123456789") << at;
    }
}

TEST_F(Store, ManyClientsAtOnce)
{
    const Running running = Start();
    std::vector<std::thread> threads;
    std::atomic<int> good{0};
    for (int t = 0; t < 16; ++t)
        threads.emplace_back([&, t] {
            Client client(port);
            for (int i = 0; i < 40; ++i) {
                const std::string name = std::to_string(t);
                const std::string content = Pattern(static_cast<size_t>(t * 1000 + i * 7919));
                good += client.Ask(Put(name, content)).status == 201 &&
                        client.Ask(Get(name)).body == content;
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(good, 16 * 40);
}

} // namespace

} // namespace kestd::test
