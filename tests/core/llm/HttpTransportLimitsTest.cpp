// The transport's bounds against a hostile server: reply and error-body sizes (compressed or
// not), the idle time-out measured from the last byte, the overall deadline, redirects kept
// within the origin of the request, and a final 1xx status.
#include <sagely/CoachLLMError.h>
#include <sagely/LLMClient.h>

#include "llm/HttpTransport.h"
#include "support/LoopbackHttpServer.h"
#include "support/RetryWaits.h"

#include <gtest/gtest.h>

#include <chrono>
#include <string>

using namespace sagely;
using namespace std::chrono_literals;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::RetryWaits;
using sagely::testing::ScriptedResponse;

namespace {

using Clock = std::chrono::steady_clock;

detail::HttpRequest requestTo(const LoopbackHttpServer& server, std::string path = "/v1/chat") {
    detail::HttpRequest request;
    request.url = server.url(path);
    request.headers = {{"Content-Type", "application/json"}, {"Authorization", "Bearer sk-test"}};
    request.body = R"({"q":1})";
    return request;
}

// The description of the TransportError post() throws.
std::string failureOf(const detail::HttpRequest& request) {
    try {
        detail::post(request, {});
    } catch (const TransportError& error) {
        return error.what();
    } catch (const std::exception& other) {
        ADD_FAILURE() << "unexpected error: " << other.what();
        return {};
    }
    ADD_FAILURE() << "post() did not fail";
    return {};
}

// --- sizes -------------------------------------------------------------------------------------

TEST(HttpTransportLimits, AReplyOverTheLimitFailsWithTheKitsSentence) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::json(200, std::string(4 << 20, 'x')));
    detail::HttpRequest request = requestTo(server);
    request.limits.maxReplyBytes = 1 << 20;
    EXPECT_EQ(failureOf(request), detail::kReplyTooLarge);
}

TEST(HttpTransportLimits, AReplyAtTheLimitIsKeptWhole) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::json(200, std::string(1 << 20, 'x')));
    detail::HttpRequest request = requestTo(server);
    request.limits.maxReplyBytes = 1 << 20;
    EXPECT_EQ(detail::post(request, {}).body.size(), std::size_t{1} << 20);
}

TEST(HttpTransportLimits, ASmallCompressedReplyThatInflatesPastTheLimitFails) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::gzipJson(std::string(8 << 20, ' ')));
    detail::HttpRequest request = requestTo(server);
    request.limits.maxReplyBytes = 1 << 20;
    EXPECT_EQ(failureOf(request), detail::kReplyTooLarge);
}

TEST(HttpTransportLimits, ACompressedReplyIsDecoded) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::gzipJson(R"({"ok":true})"));
    EXPECT_EQ(detail::post(requestTo(server), {}).body, R"({"ok":true})");
}

TEST(HttpTransportLimits, TheClientRefusesACompressionBombAtTheKitsLimit) {
    LoopbackHttpServer server;
    // About 40 KB on the wire, 40 MB once inflated: over the kit's 32 MB.
    server.enqueue(ScriptedResponse::gzipJson(R"({"choices":[{"message":{"content":")" +
                                              std::string(40 << 20, 'a') + R"("}}]})"));
    CoachConfig config;
    config.provider = Provider::custom;
    config.model = "m";
    config.customEndpoint = server.url("/v1/chat");
    LLMClient client;
    try {
        client.complete({{"user", "hi"}}, config, std::nullopt, {});
        ADD_FAILURE() << "complete() did not fail";
    } catch (const TransportError& error) {
        EXPECT_STREQ(error.what(), "The AI response was too large.");
    }
}

TEST(HttpTransportLimits, AnErrorBodyIsReadOnlyUpToItsLimit) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::text(500, std::string(1 << 20, 'e')));
    detail::HttpResponse response = detail::post(requestTo(server), {});
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.body.size(), std::size_t{64} << 10);
    EXPECT_TRUE(response.truncated);
}

TEST(HttpTransportLimits, AnErrorBodyCutInsideACharacterStillGivesItsFirst300Characters) {
    LoopbackHttpServer server;
    // Three-byte characters: 64 KB ends inside one.
    std::string body;
    while (body.size() < (200 << 10)) body += "\u20ac";
    // 503 is tried again: the same reply to the request and each of its 3 retries.
    for (int i = 0; i < 4; ++i) server.enqueue(ScriptedResponse::text(503, body));
    CoachConfig config;
    config.provider = Provider::custom;
    config.model = "m";
    config.customEndpoint = server.url("/v1/chat");
    try {
        LLMClient(nullptr, std::make_shared<RetryWaits>()->sleeper())
            .complete({{"user", "hi"}}, config, std::nullopt, {});
        ADD_FAILURE() << "complete() did not fail";
    } catch (const CoachLLMError& error) {
        std::string expected = "HTTP 503: ";
        for (int i = 0; i < 300; ++i) expected += "\u20ac";
        EXPECT_EQ(error.what(), expected);
    }
    EXPECT_EQ(server.requestCount(), 4u);
}

// --- time --------------------------------------------------------------------------------------

TEST(HttpTransportLimits, TheIdleTimeOutCountsFromTheLastByteNotAnAverage) {
    LoopbackHttpServer server;
    // Headers and a first byte at once, then a pause ten times the idle time-out: an average
    // speed check over whole seconds lets this through, a clock of the last byte does not.
    server.enqueue(ScriptedResponse::slowBody("{", R"("ok":true})", 3s));
    detail::HttpRequest request = requestTo(server);
    request.timeout = 300ms;
    const auto started = Clock::now();
    EXPECT_EQ(failureOf(request), "The request timed out.");
    EXPECT_LT(Clock::now() - started, 2s);
}

TEST(HttpTransportLimits, ASilentServerTimesOutAfterTheIdleTimeOutNotSecondsLater) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::noAnswer());
    detail::HttpRequest request = requestTo(server);
    request.timeout = 300ms;
    const auto started = Clock::now();
    EXPECT_EQ(failureOf(request), "The request timed out.");
    const auto waited = Clock::now() - started;
    EXPECT_GE(waited, 250ms);
    EXPECT_LT(waited, 900ms);
}

TEST(HttpTransportLimits, ASteadyTrickleWithinTheIdleTimeOutIsReadWhole) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::dripFed(R"({"ok":1})", 60ms));
    detail::HttpRequest request = requestTo(server);
    request.timeout = 400ms;
    EXPECT_EQ(detail::post(request, {}).body, R"({"ok":1})");
}

TEST(HttpTransportLimits, TheDeadlineEndsADripFeedingServer) {
    LoopbackHttpServer server;
    // A byte every 50 ms never trips the idle time-out; only the deadline can end it.
    server.enqueue(ScriptedResponse::dripFed(std::string(400, ' '), 50ms));
    detail::HttpRequest request = requestTo(server);
    request.timeout = 1s;
    request.limits.deadline = 600ms;
    const auto started = Clock::now();
    EXPECT_EQ(failureOf(request), "The request timed out.");
    EXPECT_LT(Clock::now() - started, 5s);  // the whole reply takes 20 s
}

TEST(HttpTransportLimits, TheKitsBoundsAreTheDocumentedOnes) {
    const detail::HttpLimits limits;
    EXPECT_EQ(limits.maxReplyBytes, 32u * 1024 * 1024);
    EXPECT_EQ(limits.maxErrorBodyBytes, 64u * 1024);
    EXPECT_EQ(limits.deadline, std::chrono::minutes(10));
    EXPECT_EQ(limits.maxRedirects, 5);
    EXPECT_EQ(detail::HttpRequest().timeout, std::chrono::seconds(90));
}

// --- redirects ---------------------------------------------------------------------------------

TEST(HttpTransportRedirects, A307And308KeepTheMethodBodyAndKey) {
    for (int status : {307, 308}) {
        LoopbackHttpServer server;
        server.enqueue(ScriptedResponse::redirect(status, "/v2/chat"));
        server.enqueue(ScriptedResponse::json(200, R"({"ok":true})"));
        detail::HttpResponse response = detail::post(requestTo(server), {});
        EXPECT_EQ(response.status, 200) << status;
        EXPECT_EQ(response.body, R"({"ok":true})") << status;
        auto requests = server.requests();
        ASSERT_EQ(requests.size(), 2u) << status;
        EXPECT_EQ(requests[1].method, "POST") << status;
        EXPECT_EQ(requests[1].path, "/v2/chat") << status;
        EXPECT_EQ(requests[1].body, R"({"q":1})") << status;
        EXPECT_EQ(requests[1].header("Authorization"), "Bearer sk-test") << status;
    }
}

TEST(HttpTransportRedirects, A301302Or303BecomesAGetWithoutBodyAsOnThePlatform) {
    for (int status : {301, 302, 303}) {
        LoopbackHttpServer server;
        server.enqueue(ScriptedResponse::redirect(status, server.url("/moved")));
        server.enqueue(ScriptedResponse::json(200, R"({"ok":true})"));
        EXPECT_EQ(detail::post(requestTo(server), {}).status, 200) << status;
        auto requests = server.requests();
        ASSERT_EQ(requests.size(), 2u) << status;
        EXPECT_EQ(requests[1].method, "GET") << status;
        EXPECT_EQ(requests[1].path, "/moved") << status;
        EXPECT_TRUE(requests[1].body.empty()) << status;
    }
}

TEST(HttpTransportRedirects, FiveHopsAreFollowedAndASixthFails) {
    LoopbackHttpServer server;
    for (int i = 1; i <= 5; ++i) {
        server.enqueue(ScriptedResponse::redirect(307, "/hop" + std::to_string(i)));
    }
    server.enqueue(ScriptedResponse::json(200, R"({"ok":true})"));
    EXPECT_EQ(detail::post(requestTo(server), {}).body, R"({"ok":true})");
    EXPECT_EQ(server.requests().back().path, "/hop5");

    server.clearRequests();
    for (int i = 1; i <= 6; ++i) {
        server.enqueue(ScriptedResponse::redirect(307, "/again" + std::to_string(i)));
    }
    EXPECT_EQ(failureOf(requestTo(server)), detail::kTooManyRedirects);
    EXPECT_EQ(server.requestCount(), 6u);
}

TEST(HttpTransportRedirects, ARedirectToAnotherPortSendsNothingThere) {
    LoopbackHttpServer server;
    LoopbackHttpServer elsewhere;
    server.enqueue(ScriptedResponse::redirect(307, elsewhere.url("/steal")));
    EXPECT_EQ(failureOf(requestTo(server)), detail::kRedirectToAnotherOrigin);
    EXPECT_EQ(elsewhere.requestCount(), 0u);
    EXPECT_EQ(elsewhere.acceptedConnections(), 0u);
}

TEST(HttpTransportRedirects, ARedirectToAnotherHostOrSchemeSendsNothingThere) {
    LoopbackHttpServer server;
    LoopbackHttpServer elsewhere;
    const std::string port = std::to_string(elsewhere.port());
    for (const std::string& target :
         {"http://localhost:" + port + "/steal", "https://127.0.0.1:" + port + "/steal"}) {
        server.enqueue(ScriptedResponse::redirect(308, target));
        EXPECT_EQ(failureOf(requestTo(server)), detail::kRedirectToAnotherOrigin) << target;
    }
    EXPECT_EQ(elsewhere.acceptedConnections(), 0u);
}

TEST(HttpTransportRedirects, ARedirectWithoutALocationIsTheReply) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::text(307, "nowhere"));
    detail::HttpResponse response = detail::post(requestTo(server), {});
    EXPECT_EQ(response.status, 307);
    EXPECT_EQ(response.body, "nowhere");
}

// --- malformed statuses ------------------------------------------------------------------------

TEST(HttpTransportLimits, AFinal1xxStatusIsABadResponseNotAnUnsupportedURL) {
    LoopbackHttpServer server;
    ScriptedResponse informational;
    informational.raw = "HTTP/1.1 150 Odd\r\nContent-Length: 2\r\n\r\n{}";
    informational.ending = ScriptedResponse::Ending::closeConnection;
    server.enqueue(informational);
    EXPECT_EQ(failureOf(requestTo(server)), detail::kBadServerResponse);
}

}  // namespace
