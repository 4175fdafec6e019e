// The four wire formats against a real HTTP server on the loopback interface: endpoints, bodies
// (compared as parsed JSON), headers (one by one) and reply paths.
#include <sagely/CoachLLMError.h>
#include <sagely/LLMClient.h>

#include "llm/AnthropicMessagesDialect.h"
#include "llm/GeminiGenerateContentDialect.h"
#include "llm/OllamaChatDialect.h"
#include "llm/OpenAIChatDialect.h"
#include "support/LoopbackHttpServer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <thread>

using namespace sagely;
using nlohmann::json;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::RecordedRequest;
using sagely::testing::ScriptedResponse;

namespace {

const char* const kOpenAIReply =
    R"({"id":"chatcmpl-1","object":"chat.completion","choices":[{"index":0,"message":)"
    R"({"role":"assistant","content":"Open **File**, then Export."},"finish_reason":"stop"}]})";
const char* const kAnthropicReply =
    R"({"id":"msg_1","type":"message","role":"assistant","content":[{"type":"text",)"
    R"("text":"Use the Export menu."}],"stop_reason":"end_turn"})";
const char* const kGeminiReply =
    R"({"candidates":[{"content":{"parts":[{"text":"Choose Export."}],"role":"model"},)"
    R"("finishReason":"STOP"}]})";
const char* const kOllamaReply =
    R"({"model":"llama3.2","message":{"role":"assistant","content":"Local answer."},"done":true})";

const std::vector<LLMMessage> kChat = {{"system", "You are the coach."},
                                       {"user", "How do I export?"},
                                       {"assistant", "Which format?"},
                                       {"user", "PDF."}};

class LLMClientTest : public ::testing::Test {
protected:
    LoopbackHttpServer m_server;
    LLMClient m_client;

    CoachConfig configFor(Provider provider, std::string path, std::string key = "sk-test") {
        CoachConfig config;
        config.provider = provider;
        config.apiKey = std::move(key);
        config.model = "test-model";
        config.customEndpoint = m_server.url(path);
        config.temperature = 0.25;
        config.maxTokens = 777;
        return config;
    }

    std::string ask(const CoachConfig& config, const std::vector<LLMMessage>& messages = kChat,
                    std::optional<std::string> modelOverride = std::nullopt) {
        return m_client.complete(messages, config, modelOverride, {});
    }

    RecordedRequest onlyRequest() {
        auto requests = m_server.requests();
        EXPECT_EQ(requests.size(), 1u);
        return requests.empty() ? RecordedRequest{} : requests.front();
    }

    CoachLLMError::Kind failureKind(const CoachConfig& config) {
        try {
            ask(config);
        } catch (const CoachLLMError& error) {
            return error.kind();
        }
        ADD_FAILURE() << "complete() did not fail with a CoachLLMError";
        return CoachLLMError::Kind::serverError;
    }
};

void expectCommonRequest(const RecordedRequest& request, std::string_view path) {
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.target, path);
    EXPECT_EQ(request.headerCount("Content-Type"), 1u);
    EXPECT_EQ(request.header("Content-Type"), "application/json");
}

// --- endpoints ---------------------------------------------------------------------------------

TEST(LLMClientEndpoint, EachProviderHasItsDefaultEndpoint) {
    CoachConfig config;
    config.provider = Provider::openai;
    EXPECT_EQ(LLMClient::endpointURL(config), "https://api.openai.com/v1/chat/completions");
    config.provider = Provider::anthropic;
    EXPECT_EQ(LLMClient::endpointURL(config), "https://api.anthropic.com/v1/messages");
    config.provider = Provider::gemini;
    config.model = "gemini-2.0-flash";
    EXPECT_EQ(LLMClient::endpointURL(config),
              "https://generativelanguage.googleapis.com/v1beta/models/"
              "gemini-2.0-flash:generateContent");
    config.provider = Provider::local;
    EXPECT_EQ(LLMClient::endpointURL(config), "http://127.0.0.1:11434/api/chat");
}

TEST(LLMClientEndpoint, AppleAndCustomHaveNoDefaultEndpoint) {
    CoachConfig config;
    config.provider = Provider::apple;
    EXPECT_EQ(LLMClient::endpointURL(config), std::nullopt);
    config.provider = Provider::custom;
    config.customEndpoint = " \n\t";
    EXPECT_EQ(LLMClient::endpointURL(config), std::nullopt);
}

TEST(LLMClientEndpoint, AGeminiModelWithASpaceIsPercentEncodedInThePath) {
    CoachConfig config;
    config.provider = Provider::gemini;
    config.model = " my tuned model ";
    EXPECT_EQ(LLMClient::endpointURL(config),
              "https://generativelanguage.googleapis.com/v1beta/models/"
              "my%20tuned%20model:generateContent");
}

TEST(LLMClientEndpoint, ATrimmedCustomEndpointReplacesTheWholeURLForEveryProvider) {
    for (Provider provider : CoachConfig::allProviders()) {
        CoachConfig config;
        config.provider = provider;
        config.model = "gemini-2.0-flash";
        config.customEndpoint = "  https://proxy.example.com/v1/chat\n";
        EXPECT_EQ(LLMClient::endpointURL(config), "https://proxy.example.com/v1/chat")
            << rawValue(provider);
    }
}

TEST(LLMClientEndpoint, AnUnparsableCustomEndpointHasNoURL) {
    CoachConfig config;
    config.provider = Provider::custom;
    for (const char* endpoint :
         {"not a url", "http://", "://missing-scheme", "http://exa mple.com"}) {
        config.customEndpoint = endpoint;
        EXPECT_EQ(LLMClient::endpointURL(config), std::nullopt) << endpoint;
    }
}

TEST(LLMClientDialects, CloudRequestsMayTakeNinetySecondsAndLocalOnesTwoMinutes) {
    using std::chrono::seconds;
    EXPECT_EQ(detail::OpenAIChatDialect().timeout(), seconds(90));
    EXPECT_EQ(detail::AnthropicMessagesDialect().timeout(), seconds(90));
    EXPECT_EQ(detail::GeminiGenerateContentDialect().timeout(), seconds(90));
    EXPECT_EQ(detail::OllamaChatDialect().timeout(), seconds(120));
}

TEST(LLMClientDialects, GeminiPutsTheModelItIsGivenIntoItsDefaultURL) {
    EXPECT_EQ(detail::GeminiGenerateContentDialect::defaultURL("tuned/model one"),
              "https://generativelanguage.googleapis.com/v1beta/models/"
              "tuned/model%20one:generateContent");
}

// --- OpenAI chat completions -------------------------------------------------------------------

TEST_F(LLMClientTest, OpenAISendsEveryMessageAndReadsTheFirstChoice) {
    m_server.enqueue(ScriptedResponse::json(200, kOpenAIReply));

    EXPECT_EQ(ask(configFor(Provider::openai, "/v1/chat/completions")),
              "Open **File**, then Export.");

    RecordedRequest request = onlyRequest();
    expectCommonRequest(request, "/v1/chat/completions");
    EXPECT_EQ(request.header("Authorization"), "Bearer sk-test");
    EXPECT_FALSE(request.header("x-api-key"));
    EXPECT_FALSE(request.header("x-goog-api-key"));
    EXPECT_EQ(json::parse(request.body), json::parse(R"({
        "model": "test-model",
        "messages": [{"role": "system", "content": "You are the coach."},
                     {"role": "user", "content": "How do I export?"},
                     {"role": "assistant", "content": "Which format?"},
                     {"role": "user", "content": "PDF."}],
        "temperature": 0.25,
        "max_tokens": 777})"));
}

TEST_F(LLMClientTest, ACustomEndpointWithSpacesAndALineBreakPostsToTheTrimmedURLWithoutKey) {
    m_server.enqueue(ScriptedResponse::json(200, kOpenAIReply));
    CoachConfig config = configFor(Provider::custom, "/proxy/chat", "");
    config.customEndpoint = "   " + config.customEndpoint + "\n";

    EXPECT_EQ(ask(config), "Open **File**, then Export.");

    RecordedRequest request = onlyRequest();
    expectCommonRequest(request, "/proxy/chat");
    EXPECT_EQ(request.headerCount("Authorization"), 0u);
}

TEST_F(LLMClientTest, AGptOssModelInAnyCaseGetsTheCompletionTokensKey) {
    m_server.setFallbackResponse(ScriptedResponse::json(200, kOpenAIReply));
    CoachConfig config = configFor(Provider::openai, "/v1/chat/completions");
    config.model = "GPT-OSS-20B";
    ask(config);
    config.model = "o3-mini";
    ask(config);
    ask(config, kChat, std::string("openai/gpt-oss-120b"));

    auto requests = m_server.requests();
    ASSERT_EQ(requests.size(), 3u);
    json first = json::parse(requests[0].body);
    EXPECT_EQ(first["model"], "GPT-OSS-20B");
    EXPECT_EQ(first["max_completion_tokens"], 777);
    EXPECT_FALSE(first.contains("max_tokens"));
    json second = json::parse(requests[1].body);
    EXPECT_EQ(second["max_tokens"], 777);
    EXPECT_FALSE(second.contains("max_completion_tokens"));
    json third = json::parse(requests[2].body);
    EXPECT_EQ(third["model"], "openai/gpt-oss-120b");
    EXPECT_EQ(third["max_completion_tokens"], 777);
}

TEST_F(LLMClientTest, TheModelOverrideIsSentInsteadOfTheResolvedModel) {
    m_server.setFallbackResponse(ScriptedResponse::json(200, kOpenAIReply));
    CoachConfig config = configFor(Provider::openai, "/v1/chat/completions");
    config.model = "  ";
    ask(config);
    ask(config, kChat, std::string("gpt-4.1"));
    auto requests = m_server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(json::parse(requests[0].body)["model"], CoachConfig::defaultModel(Provider::openai));
    EXPECT_EQ(json::parse(requests[1].body)["model"], "gpt-4.1");
}

TEST_F(LLMClientTest, AppleWithACustomEndpointSpeaksTheOpenAIFormat) {
    m_server.enqueue(ScriptedResponse::json(200, kOpenAIReply));
    CoachConfig config = configFor(Provider::apple, "/openai-compatible/v1/chat/completions");
    config.model = "apple-proxy-model";

    EXPECT_EQ(ask(config), "Open **File**, then Export.");

    RecordedRequest request = onlyRequest();
    expectCommonRequest(request, "/openai-compatible/v1/chat/completions");
    EXPECT_EQ(request.header("Authorization"), "Bearer sk-test");
    json body = json::parse(request.body);
    EXPECT_EQ(body["model"], "apple-proxy-model");
    EXPECT_EQ(body["messages"].size(), 4u);
}

TEST_F(LLMClientTest, RolesAreCopiedUnchangedAndTheReplyIsReturnedAsItStands) {
    m_server.enqueue(ScriptedResponse::json(
        200, R"({"choices":[{"message":{"content":"\n  Step 1: Open File.\n\n"}}]})"));
    std::vector<LLMMessage> messages = {{"tool", "result"}, {"User", "Hi"}};

    EXPECT_EQ(ask(configFor(Provider::custom, "/c"), messages), "\n  Step 1: Open File.\n\n");

    EXPECT_EQ(
        json::parse(onlyRequest().body)["messages"],
        json::parse(R"([{"role":"tool","content":"result"},{"role":"User","content":"Hi"}])"));
}

TEST_F(LLMClientTest, TheKeyIsTrimmedBeforeItIsSent) {
    m_server.enqueue(ScriptedResponse::json(200, kOpenAIReply));
    ask(configFor(Provider::openai, "/v1/chat/completions", "  sk-padded \n"));
    EXPECT_EQ(onlyRequest().header("Authorization"), "Bearer sk-padded");
}

TEST_F(LLMClientTest, AnOpenAIRefusalWithNullContentIsTheReply) {
    m_server.enqueue(ScriptedResponse::json(
        200, R"({"choices":[{"index":0,"message":{"role":"assistant","content":null,)"
             R"("refusal":"I can't help with that."},"finish_reason":"stop"}]})"));
    EXPECT_EQ(ask(configFor(Provider::openai, "/v1/chat/completions")), "I can't help with that.");
}

TEST_F(LLMClientTest, AnOpenAIReplyWithOnlyAToolCallIsInvalid) {
    m_server.enqueue(ScriptedResponse::json(
        200, R"({"choices":[{"message":{"role":"assistant","content":null,"tool_calls":[)"
             R"({"id":"call_1","type":"function","function":{"name":"f","arguments":"{}"}}]},)"
             R"("finish_reason":"tool_calls"}]})"));
    EXPECT_EQ(failureKind(configFor(Provider::openai, "/v1/chat/completions")),
              CoachLLMError::Kind::invalidResponse);
}

// --- Anthropic Messages ------------------------------------------------------------------------

TEST_F(LLMClientTest, AnthropicSendsOnlyTheFirstSystemMessageAndItsOwnHeaders) {
    m_server.enqueue(ScriptedResponse::json(200, kAnthropicReply));
    std::vector<LLMMessage> messages = {{"system", "First rules."},
                                        {"user", "Question"},
                                        {"system", "Second rules."},
                                        {"assistant", "Answer"}};

    EXPECT_EQ(ask(configFor(Provider::anthropic, "/v1/messages"), messages),
              "Use the Export menu.");

    RecordedRequest request = onlyRequest();
    expectCommonRequest(request, "/v1/messages");
    EXPECT_EQ(request.header("x-api-key"), "sk-test");
    EXPECT_EQ(request.header("anthropic-version"), "2023-06-01");
    EXPECT_EQ(request.headerCount("Authorization"), 0u);
    EXPECT_EQ(json::parse(request.body), json::parse(R"({
        "model": "test-model",
        "system": "First rules.",
        "messages": [{"role": "user", "content": "Question"},
                     {"role": "assistant", "content": "Answer"}],
        "temperature": 0.25,
        "max_tokens": 777})"));
}

TEST_F(LLMClientTest, AnthropicAlwaysSendsASystemTextAndNoKeyHeaderWithoutAKey) {
    m_server.enqueue(ScriptedResponse::json(200, kAnthropicReply));
    ask(configFor(Provider::anthropic, "/v1/messages", ""), {{"user", "Hi"}});
    RecordedRequest request = onlyRequest();
    EXPECT_EQ(json::parse(request.body)["system"], "");
    EXPECT_EQ(request.headerCount("x-api-key"), 0u);
    EXPECT_EQ(request.header("anthropic-version"), "2023-06-01");
}

TEST_F(LLMClientTest, AnthropicReadsPastAThinkingBlock) {
    m_server.enqueue(ScriptedResponse::json(
        200, R"({"id":"msg_2","type":"message","role":"assistant","content":[)"
             R"({"type":"thinking","thinking":"The user wants PDF...","signature":"abc"},)"
             R"({"type":"text","text":"Choose File > Export > PDF."}],"stop_reason":"end_turn"})"));
    EXPECT_EQ(ask(configFor(Provider::anthropic, "/v1/messages")), "Choose File > Export > PDF.");
}

TEST_F(LLMClientTest, AnthropicReadsPastAToolUseBlock) {
    m_server.enqueue(ScriptedResponse::json(
        200, R"({"type":"message","content":[{"type":"tool_use","id":"toolu_1","name":"lookup",)"
             R"("input":{"q":"export"}},{"type":"text","text":"Here is how."}]})"));
    EXPECT_EQ(ask(configFor(Provider::anthropic, "/v1/messages")), "Here is how.");
}

TEST_F(LLMClientTest, AnthropicWithOnlyAToolUseOrNoBlocksIsInvalid) {
    m_server.enqueue(ScriptedResponse::json(
        200,
        R"({"type":"message","content":[{"type":"tool_use","id":"t","name":"f","input":{}}]})"));
    m_server.enqueue(ScriptedResponse::json(200, R"({"type":"message","content":[]})"));
    EXPECT_EQ(failureKind(configFor(Provider::anthropic, "/v1/messages")),
              CoachLLMError::Kind::invalidResponse);
    EXPECT_EQ(failureKind(configFor(Provider::anthropic, "/v1/messages")),
              CoachLLMError::Kind::invalidResponse);
}

// --- Gemini generateContent --------------------------------------------------------------------

TEST_F(LLMClientTest, GeminiJoinsEverySystemMessageAndMapsRoles) {
    m_server.enqueue(ScriptedResponse::json(200, kGeminiReply));
    std::vector<LLMMessage> messages = {{"system", "First rules."},
                                        {"user", "Question"},
                                        {"system", "Second rules."},
                                        {"assistant", "Answer"},
                                        {"user", "Thanks"}};

    EXPECT_EQ(ask(configFor(Provider::gemini, "/v1beta/models/custom:generateContent"), messages),
              "Choose Export.");

    RecordedRequest request = onlyRequest();
    expectCommonRequest(request, "/v1beta/models/custom:generateContent");
    EXPECT_EQ(request.header("x-goog-api-key"), "sk-test");
    EXPECT_EQ(request.headerCount("Authorization"), 0u);
    EXPECT_EQ(request.query, "");  // the key never travels in the URL
    EXPECT_EQ(json::parse(request.body), json::parse(R"({
        "contents": [{"role": "user", "parts": [{"text": "Question"}]},
                     {"role": "model", "parts": [{"text": "Answer"}]},
                     {"role": "user", "parts": [{"text": "Thanks"}]}],
        "generationConfig": {"temperature": 0.25, "maxOutputTokens": 777},
        "systemInstruction": {"parts": [{"text": "First rules.\n\nSecond rules."}]}})"));
}

TEST_F(LLMClientTest, GeminiWithoutSystemTextSendsNoSystemInstructionAndNoKeyWithoutAKey) {
    m_server.enqueue(ScriptedResponse::json(200, kGeminiReply));
    ask(configFor(Provider::gemini, "/g", ""), {{"user", "Hi"}});
    RecordedRequest request = onlyRequest();
    EXPECT_EQ(json::parse(request.body), json::parse(R"({
        "contents": [{"role": "user", "parts": [{"text": "Hi"}]}],
        "generationConfig": {"temperature": 0.25, "maxOutputTokens": 777}})"));
    EXPECT_EQ(request.headerCount("x-goog-api-key"), 0u);
}

TEST_F(LLMClientTest, GeminiWithACustomEndpointAddsNoModelAnywhere) {
    m_server.enqueue(ScriptedResponse::json(200, kGeminiReply));
    CoachConfig config = configFor(Provider::gemini, "/proxy");
    config.model = "gemini pro";
    ask(config, kChat, std::string("override model"));
    RecordedRequest request = onlyRequest();
    EXPECT_EQ(request.target, "/proxy");
    json body = json::parse(request.body);
    EXPECT_FALSE(body.contains("model"));
    EXPECT_EQ(request.body.find("gemini"), std::string::npos);
    EXPECT_EQ(request.body.find("override"), std::string::npos);
}

TEST_F(LLMClientTest, GeminiReadsPastAThoughtPart) {
    m_server.enqueue(
        ScriptedResponse::json(200, R"({"candidates":[{"content":{"role":"model","parts":[)"
                                    R"({"text":"Thinking about exports...","thought":true},)"
                                    R"({"text":"Use Export as PDF."}]},"finishReason":"STOP"}]})"));
    EXPECT_EQ(ask(configFor(Provider::gemini, "/g")), "Use Export as PDF.");
}

TEST_F(LLMClientTest, GeminiWithOnlyAFunctionCallIsInvalid) {
    m_server.enqueue(ScriptedResponse::json(
        200, R"({"candidates":[{"content":{"role":"model","parts":[{"functionCall":)"
             R"({"name":"lookup","args":{"q":"export"}}}]},"finishReason":"STOP"}]})"));
    EXPECT_EQ(failureKind(configFor(Provider::gemini, "/g")), CoachLLMError::Kind::invalidResponse);
}

TEST_F(LLMClientTest, GeminiCallsWithoutAnIdGetOneMarkedAsMadeUp) {
    m_server.enqueue(ScriptedResponse::json(
        200, R"({"candidates":[{"content":{"role":"model","parts":[)"
             R"({"functionCall":{"id":"call_7","name":"f","args":{}}},)"
             R"({"functionCall":{"name":"f","args":{}}}]},"finishReason":"STOP"}]})"));
    const LLMReply reply =
        m_client.streamWithTools(kChat, {{"f", "Does f.", R"({"type":"object"})"}},
                                 configFor(Provider::gemini, "/g"), std::nullopt, {}, {});
    ASSERT_EQ(reply.toolCalls.size(), 2u);
    EXPECT_EQ(reply.toolCalls[0].id, "call_7");  // the model's own, whatever it looks like
    EXPECT_FALSE(reply.toolCalls[0].idMadeUp);
    EXPECT_EQ(reply.toolCalls[1].id, "call_2");
    EXPECT_TRUE(reply.toolCalls[1].idMadeUp);
}

TEST_F(LLMClientTest, GeminiSendsBackTheModelsOwnCallIdsButNeverMadeUpOnes) {
    m_server.enqueue(ScriptedResponse::json(
        200, R"({"candidates":[{"content":{"role":"model","parts":[{"text":"Done."}]}}]})"));
    LLMMessage asked{"assistant", ""};
    asked.toolCalls = {{"call_abc", "f", "{}", false}, {"call_2", "f", "{}", true}};
    LLMMessage answered{"tool", ""};
    answered.toolResults = {{"call_abc", "f", "ok", false}, {"call_2", "f", "ok", false}};
    const std::vector<LLMMessage> messages = {{"user", "Go."}, asked, answered};
    m_client.streamWithTools(messages, {{"f", "Does f.", R"({"type":"object"})"}},
                             configFor(Provider::gemini, "/g"), std::nullopt, {}, {});
    const json contents = json::parse(onlyRequest().body)["contents"];
    EXPECT_EQ(contents[1]["parts"][0]["functionCall"]["id"], "call_abc");
    EXPECT_FALSE(contents[1]["parts"][1]["functionCall"].contains("id"));
    EXPECT_EQ(contents[2]["parts"][0]["functionResponse"]["id"], "call_abc");
    EXPECT_FALSE(contents[2]["parts"][1]["functionResponse"].contains("id"));
}

TEST_F(LLMClientTest, AGeminiReplyBlockedWithNoCandidatesIsInvalid) {
    m_server.enqueue(ScriptedResponse::json(
        200, R"({"promptFeedback":{"blockReason":"SAFETY","safetyRatings":[]}})"));
    EXPECT_EQ(failureKind(configFor(Provider::gemini, "/g")), CoachLLMError::Kind::invalidResponse);
}

TEST_F(LLMClientTest, AGeminiCandidateWithNoPartsIsInvalid) {
    m_server.enqueue(ScriptedResponse::json(
        200, R"({"candidates":[{"content":{"role":"model"},"finishReason":"SAFETY"}]})"));
    EXPECT_EQ(failureKind(configFor(Provider::gemini, "/g")), CoachLLMError::Kind::invalidResponse);
}

// --- Ollama chat -------------------------------------------------------------------------------

TEST_F(LLMClientTest, OllamaSendsOptionsWithoutStreamingAndNoKey) {
    m_server.enqueue(ScriptedResponse::json(200, kOllamaReply));
    CoachConfig config = configFor(Provider::local, "/api/chat", "ignored-key");
    config.model = "llama3.2";

    EXPECT_EQ(ask(config), "Local answer.");

    RecordedRequest request = onlyRequest();
    expectCommonRequest(request, "/api/chat");
    EXPECT_EQ(request.headerCount("Authorization"), 0u);
    EXPECT_EQ(request.headerCount("x-api-key"), 0u);
    EXPECT_EQ(json::parse(request.body), json::parse(R"({
        "model": "llama3.2",
        "messages": [{"role": "system", "content": "You are the coach."},
                     {"role": "user", "content": "How do I export?"},
                     {"role": "assistant", "content": "Which format?"},
                     {"role": "user", "content": "PDF."}],
        "stream": false,
        "options": {"temperature": 0.25, "num_predict": 777}})"));
}

TEST_F(LLMClientTest, OllamaNeverLooksAtTheKey) {
    m_server.enqueue(ScriptedResponse::json(200, kOllamaReply));
    EXPECT_EQ(ask(configFor(Provider::local, "/api/chat", "bad\nkey")), "Local answer.");
}

// --- the shared connection ---------------------------------------------------------------------

TEST_F(LLMClientTest, ConsecutiveRequestsReuseOneConnection) {
    m_server.setFallbackResponse(ScriptedResponse::json(200, kOpenAIReply));
    CoachConfig config = configFor(Provider::openai, "/v1/chat/completions");
    for (int i = 0; i < 5; ++i) ask(config);
    LLMClient another;
    another.complete(kChat, config, std::nullopt, {});

    EXPECT_EQ(m_server.requestCount(), 6u);
    EXPECT_EQ(m_server.acceptedConnections(), 1u);
    for (const RecordedRequest& request : m_server.requests()) EXPECT_EQ(request.connection, 1u);
}

TEST_F(LLMClientTest, ConcurrentRequestsEachGetTheirOwnReply) {
    m_server.setFallbackResponse(ScriptedResponse::json(200, kOllamaReply));
    CoachConfig config = configFor(Provider::local, "/api/chat");
    std::vector<std::thread> threads;
    std::atomic<int> answered{0};
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            LLMClient client;
            for (int i = 0; i < 5; ++i) {
                if (client.complete(kChat, config, std::nullopt, {}) == "Local answer.") ++answered;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(answered.load(), 20);
    EXPECT_EQ(m_server.requestCount(), 20u);
    EXPECT_LE(m_server.acceptedConnections(), 4u);
}

}  // namespace
