// Requests tried again against a real loopback server: which replies are retried, how often,
// after which waits, what a caller is told while it waits, what a retried reply keeps, and that
// a connection lost once the body started is never sent again. The waits are kept by an injected
// sleeper that returns at once, so no test sleeps through a backoff; one test stops the kit's
// own sleeper part-way through a long wait.
#include <sagely/CoachLLMError.h>
#include <sagely/LLMClient.h>

#include "support/LoopbackHttpServer.h"
#include "support/RetryWaits.h"

#include <gtest/gtest.h>

#include <ctime>
#include <future>
#include <thread>

using namespace sagely;
using namespace std::chrono_literals;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::RetryWaits;
using sagely::testing::ScriptedResponse;
using Waits = std::vector<std::chrono::milliseconds>;

namespace {

const std::vector<LLMMessage> kChat = {{"user", "How do I export?"}};
const std::string kReply = R"({"choices":[{"message":{"content":"Use File, Export."}}]})";
const std::string kConnectionLost = "The network connection was lost.";

ScriptedResponse busy(int status, const std::string& header = {}, const std::string& value = {},
                      std::string body = "{}") {
    auto response = ScriptedResponse::json(status, std::move(body));
    if (!header.empty()) response.headers.emplace_back(header, value);
    return response;
}

ScriptedResponse eventStream(std::vector<std::string> chunks) {
    ScriptedResponse stream;
    stream.headers = {{"Content-Type", "text/event-stream"}};
    stream.bodyChunks = std::move(chunks);
    return stream;
}

std::string httpDate(std::time_t at) {
    std::tm parts{};
    gmtime_r(&at, &parts);
    char text[64];
    std::strftime(text, sizeof text, "%a, %d %b %Y %H:%M:%S GMT", &parts);
    return text;
}

class LLMClientRetryTest : public ::testing::Test {
protected:
    CoachConfig config(bool streams = false, Provider provider = Provider::openai) {
        CoachConfig config;
        config.provider = provider;
        config.apiKey = "sk-test";
        config.model = "test-model";
        config.customEndpoint = server.url("/v1/chat/completions");
        config.streamsReplies = streams;
        return config;
    }

    LLMReply ask(bool streams = false, Provider provider = Provider::openai) {
        return client->stream(kChat, config(streams, provider), std::nullopt, {}, {},
                              [this](std::chrono::milliseconds wait) { told.push_back(wait); });
    }

    template <typename E>
    std::string failureOf(bool streams = false, Provider provider = Provider::openai) {
        try {
            ask(streams, provider);
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
    std::shared_ptr<RetryWaits> waits = std::make_shared<RetryWaits>();
    std::shared_ptr<LLMClient> client = waits->client();
    Waits told;
};

// Each wait lies in the backoff step, less at most a quarter of jitter.
void expectBackoff(const Waits& waits) {
    const Waits steps = {1000ms, 2000ms, 4000ms};
    ASSERT_LE(waits.size(), steps.size());
    for (std::size_t i = 0; i < waits.size(); ++i) {
        EXPECT_LE(waits[i], steps[i]) << "retry " << i + 1;
        EXPECT_GE(waits[i], steps[i] * 3 / 4) << "retry " << i + 1;
    }
}

TEST_F(LLMClientRetryTest, ARateLimitIsWaitedOutAndTheCallerIsToldOfTheWait) {
    server.enqueue(busy(429, "retry-after-ms", "1500"));
    server.enqueue(ScriptedResponse::json(200, kReply));
    EXPECT_EQ(ask().text, "Use File, Export.");
    EXPECT_EQ(server.requestCount(), 2u);
    EXPECT_EQ(waits->waits(), Waits{1500ms});
    EXPECT_EQ(told, (Waits{1500ms, 0ms}));
    const auto requests = server.requests();
    EXPECT_EQ(requests[0].body, requests[1].body);  // the same request again
}

TEST_F(LLMClientRetryTest, OverloadedAndUnavailableAreRetriedThreeTimesAtMostWithBackoff) {
    for (int status : {529, 503, 529}) server.enqueue(busy(status));
    server.enqueue(ScriptedResponse::json(200, kReply));
    EXPECT_EQ(ask().text, "Use File, Export.");
    EXPECT_EQ(server.requestCount(), 4u);
    ASSERT_EQ(waits->waits().size(), 3u);
    expectBackoff(waits->waits());

    server.clearRequests();
    for (int i = 0; i < 4; ++i) server.enqueue(busy(503, {}, {}, "Service Unavailable"));
    EXPECT_EQ(failureOf<CoachLLMError>(), "HTTP 503: Service Unavailable");
    EXPECT_EQ(server.requestCount(), 4u);
    EXPECT_EQ(waits->waits().size(), 6u);
}

TEST_F(LLMClientRetryTest, RetryAfterInSecondsOrAsADateIsHonouredUpToThirtySeconds) {
    server.enqueue(busy(429, "Retry-After", "7"));
    server.enqueue(busy(503, "retry-after", "120"));
    server.enqueue(busy(529, "Retry-After", httpDate(std::time(nullptr) + 12)));
    server.enqueue(ScriptedResponse::json(200, kReply));
    EXPECT_EQ(ask().text, "Use File, Export.");
    const Waits kept = waits->waits();
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_EQ(kept[0], 7000ms);
    EXPECT_EQ(kept[1], 30000ms);
    EXPECT_GE(kept[2], 9000ms);  // a date is read against the wall clock, to the second
    EXPECT_LE(kept[2], 12000ms);
}

TEST_F(LLMClientRetryTest, AfterTheLastTryARateLimitIsTodaysError) {
    for (int i = 0; i < 4; ++i) server.enqueue(busy(429));
    EXPECT_EQ(failureOf<CoachLLMError>(), CoachLLMError::rateLimited().what());
    EXPECT_EQ(server.requestCount(), 4u);
    expectBackoff(waits->waits());
    EXPECT_EQ(waits->waits().size(), 3u);
}

TEST_F(LLMClientRetryTest, AUsedUpQuotaIsNotRetried) {
    server.enqueue(busy(429, "retry-after-ms", "5",
                        R"({"error":{"message":"You exceeded your current quota.",)"
                        R"("type":"insufficient_quota","code":"insufficient_quota"}})"));
    EXPECT_EQ(failureOf<CoachLLMError>(), CoachLLMError::rateLimited().what());
    EXPECT_EQ(server.requestCount(), 1u);

    server.clearRequests();
    server.enqueue(busy(
        429, {}, {},
        R"({"error":{"code":429,"status":"RESOURCE_EXHAUSTED","message":"You exceeded your quota.",)"
        R"("details":[{"@type":"type.googleapis.com/google.rpc.QuotaFailure","violations":[)"
        R"({"quotaId":"GenerateRequestsPerDayPerProjectPerModel-FreeTier"}]},)"
        R"({"@type":"type.googleapis.com/google.rpc.RetryInfo","retryDelay":"20s"}]}})"));
    EXPECT_EQ(failureOf<CoachLLMError>(false, Provider::gemini),
              CoachLLMError::rateLimited().what());
    EXPECT_EQ(server.requestCount(), 1u);
    EXPECT_TRUE(waits->waits().empty());
    EXPECT_TRUE(told.empty());
}

TEST_F(LLMClientRetryTest, OtherFailuresAreNotRetried) {
    server.enqueue(ScriptedResponse::text(500, "boom"));
    EXPECT_EQ(failureOf<CoachLLMError>(), "HTTP 500: boom");
    server.enqueue(busy(503, "x-should-retry", "false", "busy"));
    EXPECT_EQ(failureOf<CoachLLMError>(), "HTTP 503: busy");
    EXPECT_EQ(server.requestCount(), 2u);
    EXPECT_TRUE(waits->waits().empty());
}

TEST_F(LLMClientRetryTest, AStreamedRequestIsRetriedBeforeItsStreamStarts) {
    server.enqueue(busy(529, "retry-after-ms", "10"));
    server.enqueue(eventStream(
        {"data: {\"choices\":[{\"delta\":{\"content\":\"Streamed\"}}]}\n\n", "data: [DONE]\n\n"}));
    EXPECT_EQ(ask(/*streams=*/true).text, "Streamed");
    EXPECT_EQ(server.requestCount(), 2u);
    EXPECT_EQ(waits->waits(), Waits{10ms});
}

TEST_F(LLMClientRetryTest, AConnectionLostBeforeAnyReplyIsTriedAgainWithBackoff) {
    // First, so that no kept-alive connection is reused: libcurl itself sends a request again
    // once when a reused connection turns out dead.
    for (int i = 0; i < 4; ++i) server.enqueue(ScriptedResponse::resetWithoutAnswer());
    EXPECT_EQ(failureOf<TransportError>(), kConnectionLost);
    EXPECT_EQ(server.requestCount(), 4u);
    ASSERT_EQ(waits->waits().size(), 3u);
    expectBackoff(waits->waits());

    server.clearRequests();
    server.enqueue(ScriptedResponse::resetWithoutAnswer());
    server.enqueue(ScriptedResponse::json(200, kReply));
    EXPECT_EQ(ask().text, "Use File, Export.");
    EXPECT_EQ(server.requestCount(), 2u);
}

TEST_F(LLMClientRetryTest, AConnectionLostOnceTheBodyStartedIsNeverSentAgain) {
    // A whole reply cut short.
    ScriptedResponse cut = ScriptedResponse::json(200, R"({"choices":[{"mess)");
    cut.contentLength = 400;
    cut.ending = ScriptedResponse::Ending::resetConnection;
    server.enqueue(cut);
    EXPECT_EQ(failureOf<TransportError>(), kConnectionLost);
    EXPECT_EQ(server.requestCount(), 1u);

    // A stream that had sent a keep-alive comment and no text yet: a reply without text.
    server.clearRequests();
    ScriptedResponse started = eventStream({": keep-alive\n\n"});
    started.contentLength = 400;
    started.ending = ScriptedResponse::Ending::resetConnection;
    server.enqueue(started);
    EXPECT_EQ(failureOf<CoachLLMError>(/*streams=*/true), CoachLLMError::invalidResponse().what());
    EXPECT_EQ(server.requestCount(), 1u);
    EXPECT_TRUE(waits->waits().empty());
}

TEST_F(LLMClientRetryTest, TheKitsOwnWaitEndsAtOnceWhenTheRequestIsStopped) {
    LLMClient sleeping;  // the real sleeper
    server.enqueue(busy(429, "retry-after-ms", "30000"));
    CancellationToken token;
    auto pending = std::async(std::launch::async, [&] {
        return sleeping.stream(kChat, config(), std::nullopt, token, {});
    });
    ASSERT_TRUE(server.waitForRequests(1, 5s));
    std::this_thread::sleep_for(50ms);
    const auto stopped = std::chrono::steady_clock::now();
    token.requestStop();
    ASSERT_EQ(pending.wait_for(10s), std::future_status::ready);
    // The broken path waits the whole 30 s.
    EXPECT_LT(std::chrono::steady_clock::now() - stopped, 5s);
    EXPECT_THROW(pending.get(), CancelledError);
    EXPECT_EQ(server.requestCount(), 1u);
}

}  // namespace
