// SPDX-License-Identifier: Apache-2.0
//
// Sign-ins that wait for a password hash: they keep no thread from other requests.
#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "base/base64.h"
#include "host/auth/authenticator.h"
#include "tests/contract/host/harness.h"
#include "tests/contract/host/net/gate.h"

namespace kestd::test {

namespace {

std::string GetAs(const std::string& user, const std::string& password)
{
    return "GET /Ferro/a HTTP/1.1\r\nHost: h\r\nAuthorization: Basic " +
           base::EncodeBase64(user + ":" + password) + "\r\n\r\n";
}

// A server with few threads, whose password hashes take as long as a case wants. The password
// "right" is everybody's.
class SignIn : public ServerTest {
  protected:
    static constexpr unsigned kWorkers = 2;

    void Serve(const AuthLimits& limits)
    {
        auth = std::make_unique<Authenticator>(
            limits, clock, [this](std::string_view password, const std::string&) {
                if (isSlow) {
                    ++hashes;
                    gate.Pass();
                }
                return password == "right";
            });
        UserMap users;
        users["anna"] = std::make_shared<const User>(User{"anna", "hash", {}, {}, {}});
        auth->SetUsers(std::move(users));
        door.judge = [this](const Credentials& credentials) {
            const AuthResult result = Judge(credentials);
            ++judged;
            return result;
        };
        ServerSettings settings = QuietSettings();
        settings.limits.workerThreads = kWorkers;
        settings.limits.shutdownTime = shutdownTime;
        StartUntilTearDown(settings);
    }
    AuthResult Judge(const Credentials& credentials)
    {
        AuthResult out;
        out.outcome = AuthResult::Outcome::Granted; // anonymous
        if (credentials.authorization.empty())
            return out;
        std::shared_ptr<Verified> who;
        switch (auth->Check(credentials.authorization, credentials.remoteAddress, who,
                            out.retryAfter, credentials.call)) {
        case Authenticator::Result::Granted:
            break;
        case Authenticator::Result::Denied:
            out.outcome = AuthResult::Outcome::Unauthorized;
            break;
        case Authenticator::Result::Throttled:
            out.outcome = AuthResult::Outcome::Throttled;
            break;
        case Authenticator::Result::Busy:
        case Authenticator::Result::Unavailable:
            out.outcome = AuthResult::Outcome::Unavailable;
            break;
        }
        return out;
    }
    // So many wrong guesses under names of nobody, each on a connection of its own.
    std::vector<std::unique_ptr<Client>> Guess(int count)
    {
        std::vector<std::unique_ptr<Client>> clients;
        for (int i = 0; i < count; ++i) {
            clients.push_back(std::make_unique<Client>(port));
            EXPECT_TRUE(clients.back()->Send(GetAs("nobody" + std::to_string(i), "wrong")));
        }
        return clients;
    }
    void TearDown() override
    {
        gate.Open();
        ServerTest::TearDown(); // the server ends before what it refers to
    }

    SteadyClock clock;
    Gate gate;
    std::atomic<bool> isSlow{true};
    std::atomic<int> hashes{0};
    std::atomic<int> judged{0};
    std::chrono::milliseconds shutdownTime{5000};
    std::unique_ptr<Authenticator> auth;
};

AuthLimits Patient()
{
    AuthLimits limits;
    limits.hashesAtOnce = 1;
    limits.waiters = 200;
    limits.longestWait = std::chrono::minutes(5);
    return limits;
}

TEST_F(SignIn, ThatWaits_KeepsNobodyElseOut)
{
    Serve(Patient());
    isSlow = false;
    ASSERT_EQ(Ask(GetAs("anna", "right")).status, 200); // remembered from here on
    isSlow = true;
    auto guesses = Guess(40); // many more than there are threads
    gate.WaitFor(1);
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(Ask(GetAs("anna", "right")).status, 200) << "a remembered user";
        EXPECT_EQ(Ask(kGet).status, 200) << "somebody without credentials";
    }
    EXPECT_EQ(hashes, 1) << "all the others still wait";
    gate.Open();
    for (const auto& guess : guesses)
        EXPECT_EQ(guess->Receive().status, 401);
    EXPECT_EQ(hashes, 40);
}

TEST_F(SignIn, OfTheSameCredentials_AllWakeUp)
{
    Serve(Patient());
    std::vector<std::unique_ptr<Client>> clients;
    for (int i = 0; i < 40; ++i) {
        clients.push_back(std::make_unique<Client>(port));
        ASSERT_TRUE(clients.back()->Send(GetAs("anna", "right")));
    }
    gate.WaitFor(1);
    EXPECT_EQ(Ask(kGet).status, 200);
    gate.Open();
    for (const auto& client : clients)
        EXPECT_EQ(client->Receive().status, 200);
}

TEST_F(SignIn, BeyondTheQueue_IsTurnedAwayAtOnce)
{
    AuthLimits limits = Patient();
    limits.waiters = 4; // of which names of nobody take half
    Serve(limits);
    auto guesses = Guess(10);
    gate.WaitFor(1);
    int refused = 0;
    std::vector<Client*> waiting;
    for (const auto& guess : guesses) {
        const Answer answer = guess->Receive(false, std::chrono::milliseconds(500));
        refused += answer.status == 503;
        if (answer.status == 503)
            EXPECT_NE(answer.Header("Retry-After"), "(none)");
        else
            waiting.push_back(guess.get());
    }
    while (refused < 7 && !waiting.empty()) { // a busy machine takes its time
        for (auto at = waiting.begin(); at != waiting.end();) {
            const bool isRefused =
                (*at)->Receive(false, std::chrono::milliseconds(200)).status == 503;
            refused += isRefused;
            at = isRefused ? waiting.erase(at) : at + 1;
        }
    }
    EXPECT_EQ(refused, 7);
    gate.Open();
    for (Client* client : waiting)
        EXPECT_EQ(client->Receive().status, 401);
}

TEST_F(SignIn, OfAClientThatLeaves_LeavesTheOthers)
{
    Serve(Patient());
    auto guesses = Guess(20);
    gate.WaitFor(1);
    for (size_t i = 0; i < guesses.size(); i += 2)
        guesses[i]->Close();
    EXPECT_EQ(Ask(kGet).status, 200);
    gate.Open();
    for (size_t i = 1; i < guesses.size(); i += 2)
        EXPECT_EQ(guesses[i]->Receive().status, 401);
}

TEST_F(SignIn, ThatWaits_DoesNotHoldUpAStop)
{
    Serve(Patient());
    auto guesses = Guess(20);
    gate.WaitFor(1);
    EXPECT_EQ(Ask(kGet).status, 200);
    Stop(); // while nothing is judged
}

TEST_F(SignIn, ThatWaits_EndsWithTheServerNotWithItsTime)
{
    constexpr std::chrono::minutes kPatience{5};
    shutdownTime = 2 * kPatience;
    Serve(Patient());
    auto guesses = Guess(5);
    gate.WaitFor(1);
    EXPECT_EQ(Ask(kGet).status, 200);
    const auto begin = std::chrono::steady_clock::now();
    Stop();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kPatience);
}

// It closes its connection in order: whether it only ends what it sends has to be found out.
TEST_F(SignIn, OfAClientThatHasLeft_EndsBeforeItsHash)
{
    Serve(Patient());
    auto guesses = Guess(6);
    gate.WaitFor(1);
    EXPECT_EQ(Ask(kGet).status, 200);
    const int before = judged;
    for (size_t i = 1; i < guesses.size(); ++i)
        guesses[i]->Close();
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (judged < before + 4 && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_GE(judged, before + 4) << "one of them may be the one that is hashed";
    EXPECT_EQ(hashes, 1);
}

// RFC 9112 section 9.6: who sends no more may still read.
TEST_F(SignIn, OfAClientThatOnlyEndsWhatItSends_IsAnswered)
{
    Serve(Patient());
    auto guesses = Guess(3);
    gate.WaitFor(1);
    for (const auto& guess : guesses)
        (void)shutdown(guess->Fd(), SHUT_WR);
    std::this_thread::sleep_for(std::chrono::milliseconds(800)); // several looks for the client
    EXPECT_EQ(judged, 0);
    gate.Open();
    for (const auto& guess : guesses) {
        Answer answer = guess->Receive();
        while (answer.status == 102)
            answer = guess->Receive();
        EXPECT_EQ(answer.status, 401);
    }
}

} // namespace

} // namespace kestd::test
