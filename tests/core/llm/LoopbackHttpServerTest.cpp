// The loopback server itself, driven through the kit's transport: what later client tests rely on.
#include "llm/HttpTransport.h"
#include "support/LoopbackHttpServer.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

using namespace std::chrono_literals;
using sagely::detail::HttpRequest;
using sagely::detail::post;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::ScriptedResponse;

namespace {

HttpRequest requestTo(const LoopbackHttpServer& server, std::string path, std::string body) {
    HttpRequest request;
    request.url = server.url(path);
    request.headers = {{"Content-Type", "text/plain"}};
    request.body = std::move(body);
    return request;
}

TEST(LoopbackHttpServer, AnswersFromTheScriptInOrderThenWithTheFallback) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::text(200, "first"));
    server.enqueue(ScriptedResponse::json(404, R"({"error":"second"})"));

    EXPECT_EQ(post(requestTo(server, "/a", "1"), {}).body, "first");
    auto second = post(requestTo(server, "/b", "2"), {});
    EXPECT_EQ(second.status, 404);
    EXPECT_EQ(second.body, R"({"error":"second"})");
    auto third = post(requestTo(server, "/c", "3"), {});
    EXPECT_EQ(third.status, 500);
    EXPECT_EQ(third.body, "no scripted response");
}

TEST(LoopbackHttpServer, RecordsMethodPathQueryHeadersAndBody) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::text(200, "ok"));
    HttpRequest request = requestTo(server, "/v1/items?limit=2&q=a%20b", "payload\r\nbytes");
    request.headers.emplace_back("X-Custom", "Value With Spaces");
    post(request, {});

    auto recorded = server.requests();
    ASSERT_EQ(recorded.size(), 1u);
    EXPECT_EQ(recorded[0].method, "POST");
    EXPECT_EQ(recorded[0].target, "/v1/items?limit=2&q=a%20b");
    EXPECT_EQ(recorded[0].path, "/v1/items");
    EXPECT_EQ(recorded[0].query, "limit=2&q=a%20b");
    EXPECT_EQ(recorded[0].header("x-custom"), "Value With Spaces");
    EXPECT_EQ(recorded[0].header("X-CUSTOM"), "Value With Spaces");
    EXPECT_EQ(recorded[0].header("Content-Type"), "text/plain");
    EXPECT_EQ(recorded[0].body, "payload\r\nbytes");
    EXPECT_EQ(recorded[0].connection, 1u);
}

TEST(LoopbackHttpServer, AResponseWithoutKeepAliveEndsItsConnection) {
    LoopbackHttpServer server;
    ScriptedResponse closing = ScriptedResponse::text(200, "bye");
    closing.keepAlive = false;
    server.enqueue(closing);
    server.enqueue(ScriptedResponse::text(200, "hello again"));

    EXPECT_EQ(post(requestTo(server, "/", ""), {}).body, "bye");
    EXPECT_EQ(post(requestTo(server, "/", ""), {}).body, "hello again");
    EXPECT_EQ(server.acceptedConnections(), 2u);
    auto recorded = server.requests();
    ASSERT_EQ(recorded.size(), 2u);
    EXPECT_EQ(recorded[1].connection, 2u);
}

TEST(LoopbackHttpServer, ASlowBodyArrivesWholeAfterItsPause) {
    LoopbackHttpServer server;
    server.enqueue(ScriptedResponse::slowBody("{\"par", "t\":1}", 100ms));
    auto response = post(requestTo(server, "/", ""), {});
    EXPECT_EQ(response.body, "{\"part\":1}");
    EXPECT_GE(server.lastServerTime(), 100ms);
}

TEST(LoopbackHttpServer, ClearingForgetsTheRecordedRequests) {
    LoopbackHttpServer server;
    server.setFallbackResponse(ScriptedResponse::text(200, "ok"));
    post(requestTo(server, "/", "x"), {});
    EXPECT_TRUE(server.waitForRequests(1, 1s));
    server.clearRequests();
    EXPECT_EQ(server.requestCount(), 0u);
    post(requestTo(server, "/", "y"), {});
    ASSERT_EQ(server.requestCount(), 1u);
    EXPECT_EQ(server.requests()[0].body, "y");
}

TEST(LoopbackHttpServer, StopsPromptlyWhileAConnectionWaitsForever) {
    auto server = std::make_unique<LoopbackHttpServer>();
    server->enqueue(ScriptedResponse::slowHeaders(60s, "{}"));
    sagely::CancellationToken token;
    std::thread client([&] {
        try {
            post(requestTo(*server, "/", ""), token);
        } catch (const std::exception&) {
            // the server went away or the request was stopped; either ends it
        }
    });
    ASSERT_TRUE(server->waitForRequests(1, 5s));
    const auto started = std::chrono::steady_clock::now();
    server.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - started, 2s);
    token.requestStop();
    client.join();
}

}  // namespace
