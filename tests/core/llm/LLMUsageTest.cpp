// What a reply cost in tokens, read from each format's whole replies and streams, as a real
// loopback server sends them.
#include <sagely/LLMClient.h>

#include "support/LoopbackHttpServer.h"

#include <gtest/gtest.h>

using namespace sagely;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::ScriptedResponse;

namespace {

const std::vector<LLMMessage> kChat = {{"user", "How do I export?"}};

ScriptedResponse streamed(std::string body, std::string contentType = "text/event-stream") {
    ScriptedResponse response;
    response.headers = {{"Content-Type", std::move(contentType)}};
    response.bodyChunks = {std::move(body)};
    return response;
}

class LLMUsageTest : public ::testing::Test {
protected:
    LLMReply ask(Provider provider, const std::string& path, bool streams) {
        CoachConfig config;
        config.provider = provider;
        config.apiKey = "sk-test";
        config.model = "test-model";
        config.customEndpoint = server.url(path);
        config.streamsReplies = streams;
        return client.stream(kChat, config, std::nullopt, {}, {});
    }

    LoopbackHttpServer server;
    LLMClient client;
};

TEST_F(LLMUsageTest, OpenAIWholeAndStreamed) {
    server.enqueue(ScriptedResponse::json(200, R"({"choices":[{"message":{"content":"Hi"}}],
                 "usage":{"prompt_tokens":120,"completion_tokens":7,"total_tokens":127}})"));
    EXPECT_EQ(ask(Provider::openai, "/v1/chat/completions", false).usage, (TokenUsage{120, 7}));
    server.enqueue(streamed(
        "data: {\"choices\":[{\"delta\":{\"content\":\"Hi\"}}],\"usage\":null}\n\n"
        "data: {\"choices\":[{\"delta\":{},\"finish_reason\":\"stop\"}]}\n\n"
        "data: {\"choices\":[],\"usage\":{\"prompt_tokens\":120,\"completion_tokens\":9}}\n\n"
        "data: [DONE]\n\n"));
    const LLMReply reply = ask(Provider::openai, "/v1/chat/completions", true);
    EXPECT_EQ(reply.text, "Hi");
    EXPECT_EQ(reply.usage, (TokenUsage{120, 9}));
}

TEST_F(LLMUsageTest, AReplyWithoutCountsHasNoUsage) {
    server.enqueue(ScriptedResponse::json(200, R"({"choices":[{"message":{"content":"Hi"}}]})"));
    EXPECT_EQ(ask(Provider::custom, "/v1/chat/completions", false).usage, std::nullopt);
    server.enqueue(
        streamed("data: {\"choices\":[{\"delta\":{\"content\":\"Hi\"}}]}\n\n"
                 "data: [DONE]\n\n"));
    EXPECT_EQ(ask(Provider::custom, "/v1/chat/completions", true).usage, std::nullopt);
}

TEST_F(LLMUsageTest, AnthropicCountsCachedInputAndTakesTheLastCumulativeOutput) {
    server.enqueue(ScriptedResponse::json(
        200, R"({"content":[{"type":"text","text":"Hi"}],"usage":{"input_tokens":10,
                 "cache_creation_input_tokens":200,"cache_read_input_tokens":1000,"output_tokens":5}})"));
    EXPECT_EQ(ask(Provider::anthropic, "/v1/messages", false).usage, (TokenUsage{1210, 5}));
    server.enqueue(streamed(
        "event: message_start\ndata: {\"type\":\"message_start\",\"message\":{\"usage\":"
        "{\"input_tokens\":42,\"output_tokens\":1}}}\n\n"
        "event: content_block_start\ndata: {\"type\":\"content_block_start\",\"index\":0,"
        "\"content_block\":{\"type\":\"text\",\"text\":\"\"}}\n\n"
        "event: content_block_delta\ndata: {\"type\":\"content_block_delta\",\"index\":0,"
        "\"delta\":{\"type\":\"text_delta\",\"text\":\"Hi\"}}\n\n"
        "event: message_delta\ndata: {\"type\":\"message_delta\",\"delta\":{\"stop_reason\":"
        "\"end_turn\"},\"usage\":{\"output_tokens\":15}}\n\n"
        "event: message_delta\ndata: {\"type\":\"message_delta\",\"delta\":{},"
        "\"usage\":{\"output_tokens\":30}}\n\n"
        "event: message_stop\ndata: {\"type\":\"message_stop\"}\n\n"));
    const LLMReply reply = ask(Provider::anthropic, "/v1/messages", true);
    EXPECT_EQ(reply.text, "Hi");
    EXPECT_EQ(reply.usage, (TokenUsage{42, 30}));
}

TEST_F(LLMUsageTest, GeminiTakesTheLastChunksCountsWithThoughtsAsOutput) {
    server.enqueue(
        ScriptedResponse::json(200, R"({"candidates":[{"content":{"parts":[{"text":"Hi"}]}}],
                 "usageMetadata":{"promptTokenCount":30,"candidatesTokenCount":4,
                 "thoughtsTokenCount":100,"totalTokenCount":134}})"));
    EXPECT_EQ(ask(Provider::gemini, "/v1beta/models/m:generateContent", false).usage,
              (TokenUsage{30, 104}));
    server.enqueue(streamed(
        "data: {\"candidates\":[{\"content\":{\"parts\":[{\"text\":\"H\"}]}}],"
        "\"usageMetadata\":{\"promptTokenCount\":30}}\n\n"
        "data: {\"candidates\":[{\"content\":{\"parts\":[{\"text\":\"i\"}]},\"finishReason\":"
        "\"STOP\"}],\"usageMetadata\":{\"promptTokenCount\":30,\"candidatesTokenCount\":2}}\n\n"));
    const LLMReply reply = ask(Provider::gemini, "/v1beta/models/m:generateContent", true);
    EXPECT_EQ(reply.text, "Hi");
    EXPECT_EQ(reply.usage, (TokenUsage{30, 2}));
}

TEST_F(LLMUsageTest, OllamaReadsTheFinalObjectAndAMissingCountAsZero) {
    server.enqueue(ScriptedResponse::json(
        200, R"({"message":{"content":"Hi"},"done":true,"prompt_eval_count":26,"eval_count":3})"));
    EXPECT_EQ(ask(Provider::local, "/api/chat", false).usage, (TokenUsage{26, 3}));
    server.enqueue(
        streamed("{\"message\":{\"content\":\"Hi\"},\"done\":false}\n"
                 "{\"message\":{\"content\":\"\"},\"done\":true,\"eval_count\":3}\n",
                 "application/x-ndjson"));
    const LLMReply reply = ask(Provider::local, "/api/chat", true);
    EXPECT_EQ(reply.text, "Hi");
    EXPECT_EQ(reply.usage, (TokenUsage{0, 3}));
}

TEST_F(LLMUsageTest, CountsThatAreNotWholeNumbersAreIgnored) {
    server.enqueue(ScriptedResponse::json(200, R"({"choices":[{"message":{"content":"Hi"}}],
                 "usage":{"prompt_tokens":-4,"completion_tokens":"7"}})"));
    EXPECT_EQ(ask(Provider::openai, "/v1/chat/completions", false).usage, std::nullopt);
}

}  // namespace
