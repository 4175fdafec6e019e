// Requests tried again against a real loopback server: which replies are retried, how often,
// what a caller is told while it waits, what a retried reply keeps, and that a wait ends at
// once when the request is stopped. The servers ask for short waits (retry-after-ms), so the
// tests take milliseconds; the policy's own schedule is tested with an injected clock.
#include <sagely/CoachLLMError.h>
#include <sagely/LLMClient.h>

#include "support/LoopbackHttpServer.h"

#include <gtest/gtest.h>

#include <future>
#include <thread>

using namespace sagely;
using namespace std::chrono_literals;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::ScriptedResponse;

namespace {

const std::vector<LLMMessage> kChat = {{"user", "How do I export?"}};
const std::string kReply = R"({"choices":[{"message":{"content":"Use File, Export."}}]})";

ScriptedResponse busy(int status, const std::string& waitMs = "20", std::string body = "{}") {
    auto response = ScriptedResponse::json(status, std::move(body));
    response.headers.emplace_back("retry-after-ms", waitMs);
    return response;
}

class LLMClientRetryTest : public ::testing::Test {
protected:
    CoachConfig config(bool streams = false) {
        CoachConfig config;
        config.provider = Provider::openai;
        config.apiKey = "sk-test";
        config.model = "test-model";
        config.customEndpoint = server.url("/v1/chat/completions");
        config.streamsReplies = streams;
        return config;
    }

    LLMReply ask(const CancellationToken& token = {}, bool streams = false) {
        return client.stream(kChat, config(streams), std::nullopt, token, {},
                             [this](std::chrono::milliseconds wait) { waits.push_back(wait); });
    }

    template <typename E>
    std::string failureOf() {
        try {
            ask();
        } catch (const E& error) {
            return error.what();
        } catch (const std::exception& other) {
            ADD_FAILURE() << "unexpected error: " << other.what();
            return {};
        }
        ADD_FAILURE() << "no error";
        return {};
    }

    LoopbackHttpServer server;
    LLMClient client;
    std::vector<std::chrono::milliseconds> waits;
};

TEST_F(LLMClientRetryTest, ARateLimitIsWaitedOutAndTheCallerIsToldOfTheWait) {
    server.enqueue(busy(429, "20"));
    server.enqueue(ScriptedResponse::json(200, kReply));
    EXPECT_EQ(ask().text, "Use File, Export.");
    EXPECT_EQ(server.requestCount(), 2u);
    EXPECT_EQ(waits, (std::vector<std::chrono::milliseconds>{20ms, 0ms}));
    const auto requests = server.requests();
    EXPECT_EQ(requests[0].body, requests[1].body);  // the same request again
}

TEST_F(LLMClientRetryTest, OverloadedAndUnavailableAreRetriedThreeTimesAtMost) {
    for (int status : {529, 503, 529}) server.enqueue(busy(status, "5"));
    server.enqueue(ScriptedResponse::json(200, kReply));
    EXPECT_EQ(ask().text, "Use File, Export.");
    EXPECT_EQ(server.requestCount(), 4u);

    server.clearRequests();
    for (int i = 0; i < 4; ++i) server.enqueue(busy(503, "5", "Service Unavailable"));
    EXPECT_EQ(failureOf<CoachLLMError>(), "HTTP 503: Service Unavailable");
    EXPECT_EQ(server.requestCount(), 4u);
}

TEST_F(LLMClientRetryTest, AfterTheLastTryARateLimitIsTodaysError) {
    for (int i = 0; i < 4; ++i) server.enqueue(busy(429, "5"));
    EXPECT_EQ(failureOf<CoachLLMError>(), CoachLLMError::rateLimited().what());
    EXPECT_EQ(server.requestCount(), 4u);
}

TEST_F(LLMClientRetryTest, AUsedUpQuotaIsNotRetried) {
    server.enqueue(busy(429, "5",
                        R"({"error":{"message":"You exceeded your current quota.",)"
                        R"("type":"insufficient_quota","code":"insufficient_quota"}})"));
    server.enqueue(ScriptedResponse::json(200, kReply));
    EXPECT_EQ(failureOf<CoachLLMError>(), CoachLLMError::rateLimited().what());
    EXPECT_EQ(server.requestCount(), 1u);
    EXPECT_TRUE(waits.empty());
}

TEST_F(LLMClientRetryTest, OtherServerErrorsAreNotRetried) {
    server.enqueue(ScriptedResponse::text(500, "boom"));
    EXPECT_EQ(failureOf<CoachLLMError>(), "HTTP 500: boom");
    EXPECT_EQ(server.requestCount(), 1u);
}

TEST_F(LLMClientRetryTest, AStreamedRequestIsRetriedBeforeItsStreamStarts) {
    server.enqueue(busy(529, "10"));
    ScriptedResponse stream;
    stream.headers = {{"Content-Type", "text/event-stream"}};
    stream.bodyChunks = {"data: {\"choices\":[{\"delta\":{\"content\":\"Streamed\"}}]}\n\n",
                         "data: [DONE]\n\n"};
    server.enqueue(stream);
    EXPECT_EQ(ask({}, /*streams=*/true).text, "Streamed");
    EXPECT_EQ(server.requestCount(), 2u);
}

TEST_F(LLMClientRetryTest, AConnectionLostBeforeAnyReplyIsTriedAgain) {
    server.enqueue(ScriptedResponse::resetWithoutAnswer());
    server.enqueue(ScriptedResponse::json(200, kReply));
    EXPECT_EQ(ask().text, "Use File, Export.");
    EXPECT_EQ(server.requestCount(), 2u);
    ASSERT_EQ(waits.size(), 2u);
    EXPECT_GE(waits[0], 750ms);  // the first step of the schedule, less its jitter
    EXPECT_LE(waits[0], 1000ms);
}

TEST_F(LLMClientRetryTest, StoppingEndsTheWaitAtOnce) {
    server.enqueue(busy(429, "30000"));
    CancellationToken token;
    auto pending = std::async(std::launch::async, [&] { return ask(token); });
    ASSERT_TRUE(server.waitForRequests(1, 5s));
    std::this_thread::sleep_for(50ms);
    const auto stopped = std::chrono::steady_clock::now();
    token.requestStop();
    ASSERT_EQ(pending.wait_for(5s), std::future_status::ready);
    // The broken path waits the whole 30 s.
    EXPECT_LT(std::chrono::steady_clock::now() - stopped, 2s);
    EXPECT_THROW(pending.get(), CancelledError);
    EXPECT_EQ(server.requestCount(), 1u);
}

}  // namespace
