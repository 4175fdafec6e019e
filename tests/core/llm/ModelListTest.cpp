// The providers' live model lists and the connection check, against a real loopback server:
// where each list is asked for, with which key header, how pages are followed, what is kept, and
// what a user is told when something does not work.
#include <sagely/CoachLLMError.h>
#include <sagely/LLMClient.h>

#include "support/LoopbackHttpServer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using namespace sagely;
using namespace std::chrono_literals;
using sagely::testing::LoopbackHttpServer;
using sagely::testing::ScriptedResponse;

namespace {

class ModelListTest : public ::testing::Test {
protected:
    LoopbackHttpServer server;
    LLMClient client;

    CoachConfig configFor(Provider provider, const std::string& chatPath,
                          std::string key = "sk-test", std::string model = "test-model") {
        CoachConfig config;
        config.provider = provider;
        config.apiKey = std::move(key);
        config.model = std::move(model);
        config.customEndpoint = server.url(chatPath);
        return config;
    }

    std::vector<std::string> ids(const std::vector<ProviderModel>& models) {
        std::vector<std::string> out;
        for (const auto& model : models) out.push_back(model.id);
        return out;
    }

    template <typename E>
    std::string failureOf(const CoachConfig& config) {
        try {
            client.listModels(config, {});
        } catch (const E& error) {
            return error.what();
        } catch (const std::exception& other) {
            ADD_FAILURE() << "unexpected error: " << other.what();
            return {};
        }
        ADD_FAILURE() << "no error";
        return {};
    }
};

// --- where the list is ------------------------------------------------------------------------

TEST_F(ModelListTest, EachProviderDerivesItsListFromItsChatEndpoint) {
    CoachConfig config;
    config.provider = Provider::openai;
    EXPECT_EQ(LLMClient::modelListURL(config), "https://api.openai.com/v1/models");
    config.provider = Provider::anthropic;
    EXPECT_EQ(LLMClient::modelListURL(config), "https://api.anthropic.com/v1/models?limit=1000");
    config.provider = Provider::gemini;
    config.model = "gemini-2.5-flash";
    EXPECT_EQ(LLMClient::modelListURL(config),
              "https://generativelanguage.googleapis.com/v1beta/models?pageSize=1000");
    config.provider = Provider::local;
    EXPECT_EQ(LLMClient::modelListURL(config), "http://127.0.0.1:11434/api/tags");
}

TEST_F(ModelListTest, ACustomEndpointHasAListOnlyWhenItEndsInChatCompletions) {
    CoachConfig config;
    config.provider = Provider::custom;
    config.customEndpoint = "https://llm.example.com/openai/v1/chat/completions?api-version=2";
    EXPECT_EQ(LLMClient::modelListURL(config), "https://llm.example.com/openai/v1/models");
    config.customEndpoint = "https://llm.example.com/openai/v1/chat/completions/";
    EXPECT_EQ(LLMClient::modelListURL(config), "https://llm.example.com/openai/v1/models");
    config.customEndpoint = "https://llm.example.com/generate";
    EXPECT_EQ(LLMClient::modelListURL(config), std::nullopt);
    config.customEndpoint = "";
    EXPECT_EQ(LLMClient::modelListURL(config), std::nullopt);
}

TEST_F(ModelListTest, AGeminiEndpointInTheProfileKeepsItsHostAndVersion) {
    CoachConfig config;
    config.provider = Provider::gemini;
    config.customEndpoint = "https://proxy.example.com/v1/models/gemini-x:generateContent";
    EXPECT_EQ(LLMClient::modelListURL(config), "https://proxy.example.com/v1/models?pageSize=1000");
    config.customEndpoint = "https://proxy.example.com/v1/chat";
    EXPECT_EQ(LLMClient::modelListURL(config), std::nullopt);
}

TEST_F(ModelListTest, TheOnDeviceModelHasNoList) {
    CoachConfig config;
    config.provider = Provider::apple;
    EXPECT_EQ(LLMClient::modelListURL(config), std::nullopt);
    EXPECT_EQ(failureOf<CoachLLMError>(config), std::string(LLMClient::kNoModelList));
}

// --- what each provider's list gives ------------------------------------------------------------

TEST_F(ModelListTest, OpenAIListsEveryModelSortedWithTheBearerKey) {
    server.enqueue(ScriptedResponse::json(200, R"({"object":"list","data":[
        {"id":"gpt-4o-mini","object":"model","created":1721172741,"owned_by":"system"},
        {"id":"gpt-4o","object":"model","created":1715367049,"owned_by":"system"},
        {"object":"model"},
        {"id":"text-embedding-3-small","object":"model","created":1705948997}]})"));
    const auto models =
        client.listModels(configFor(Provider::openai, "/v1/chat/completions", "sk-live"), {});
    EXPECT_EQ(ids(models),
              (std::vector<std::string>{"gpt-4o", "gpt-4o-mini", "text-embedding-3-small"}));
    EXPECT_EQ(models[0].displayName, "gpt-4o");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "GET");
    EXPECT_EQ(requests[0].target, "/v1/models");
    EXPECT_EQ(requests[0].header("Authorization"), "Bearer sk-live");
    EXPECT_EQ(requests[0].body, "");
}

TEST_F(ModelListTest, AnthropicFollowsItsPagesByTheLastId) {
    server.enqueue(ScriptedResponse::json(200, R"({"data":[
        {"type":"model","id":"claude-b","display_name":"Claude B","created_at":"2025-05-14T00:00:00Z"},
        {"type":"model","id":"claude-a","display_name":"Claude A","created_at":"2025-02-19T00:00:00Z"}],
        "has_more":true,"first_id":"claude-b","last_id":"claude-a"})"));
    server.enqueue(ScriptedResponse::json(200, R"({"data":[
        {"type":"model","id":"claude-old","created_at":"2024-03-07T00:00:00Z"}],
        "has_more":false,"first_id":"claude-old","last_id":"claude-old"})"));
    const auto models = client.listModels(configFor(Provider::anthropic, "/v1/messages"), {});
    EXPECT_EQ(ids(models), (std::vector<std::string>{"claude-b", "claude-a", "claude-old"}));
    EXPECT_EQ(models[0].displayName, "Claude B");
    EXPECT_EQ(models[2].displayName, "claude-old");
    EXPECT_EQ(models[1].modifiedAt, "2025-02-19T00:00:00Z");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].target, "/v1/models?limit=1000");
    EXPECT_EQ(requests[1].target, "/v1/models?limit=1000&after_id=claude-a");
    EXPECT_EQ(requests[1].header("x-api-key"), "sk-test");
    EXPECT_EQ(requests[1].header("anthropic-version"), "2023-06-01");
}

TEST_F(ModelListTest, GeminiKeepsOnlyModelsThatCanChatAndFollowsItsPageToken) {
    server.enqueue(ScriptedResponse::json(200, R"({"models":[
        {"name":"models/gemini-2.5-flash","displayName":"Gemini 2.5 Flash",
         "supportedGenerationMethods":["generateContent","countTokens"]},
        {"name":"models/text-embedding-004","displayName":"Text Embedding 004",
         "supportedGenerationMethods":["embedContent"]}],
        "nextPageToken":"page two/+="})"));
    server.enqueue(ScriptedResponse::json(200, R"({"models":[
        {"name":"models/gemini-2.5-pro","supportedGenerationMethods":["generateContent"]}]})"));
    const auto models = client.listModels(
        configFor(Provider::gemini, "/v1beta/models/gemini-2.5-flash:generateContent"), {});
    EXPECT_EQ(ids(models), (std::vector<std::string>{"gemini-2.5-flash", "gemini-2.5-pro"}));
    EXPECT_EQ(models[0].displayName, "Gemini 2.5 Flash");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].target, "/v1beta/models?pageSize=1000");
    EXPECT_EQ(requests[1].target, "/v1beta/models?pageSize=1000&pageToken=page%20two%2F%2B%3D");
    EXPECT_EQ(requests[0].header("x-goog-api-key"), "sk-test");
    EXPECT_EQ(requests[0].target.find("key="), std::string::npos);  // never in the URL
}

TEST_F(ModelListTest, OllamaListsTheInstalledModelsThatCanChatWithSizeAndDate) {
    server.enqueue(ScriptedResponse::json(200, R"({"models":[
        {"name":"llama3.2:latest","model":"llama3.2:latest","modified_at":"2025-05-01T10:00:00.1-07:00",
         "size":2019393189,"digest":"a80c","details":{"family":"llama"},"capabilities":["completion","tools"]},
        {"name":"nomic-embed-text:latest","size":274302450,"capabilities":["embedding"]},
        {"model":"qwen3:8b","size":5225388164}]})"));
    const auto models = client.listModels(configFor(Provider::local, "/api/chat", ""), {});
    EXPECT_EQ(ids(models), (std::vector<std::string>{"llama3.2:latest", "qwen3:8b"}));
    EXPECT_EQ(models[0].sizeBytes, 2019393189u);
    EXPECT_EQ(models[0].modifiedAt, "2025-05-01T10:00:00.1-07:00");
    EXPECT_EQ(models[1].modifiedAt, std::nullopt);
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].target, "/api/tags");
    EXPECT_EQ(requests[0].header("Authorization"), std::nullopt);
}

TEST_F(ModelListTest, AnOllamaWithNothingPulledHasAnEmptyList) {
    server.enqueue(ScriptedResponse::json(200, R"({"models":[]})"));
    EXPECT_TRUE(client.listModels(configFor(Provider::local, "/api/chat", ""), {}).empty());
}

// --- failures ---------------------------------------------------------------------------------

TEST_F(ModelListTest, AnErrorStatusIsReportedAsForAQuestion) {
    server.enqueue(ScriptedResponse::json(
        401,
        R"({"error":{"message":"Incorrect API key provided.","type":"invalid_request_error"}})"));
    EXPECT_EQ(failureOf<CoachLLMError>(configFor(Provider::openai, "/v1/chat/completions")),
              "HTTP 401: {\"error\":{\"message\":\"Incorrect API key provided.\",\"type\":"
              "\"invalid_request_error\"}}");
    server.enqueue(ScriptedResponse::json(429, "{}"));
    EXPECT_EQ(failureOf<CoachLLMError>(configFor(Provider::openai, "/v1/chat/completions")),
              CoachLLMError::rateLimited().what());
}

TEST_F(ModelListTest, AnAnswerThatIsNoListIsAnInvalidResponse) {
    server.enqueue(ScriptedResponse::json(200, R"({"object":"list"})"));
    EXPECT_EQ(failureOf<CoachLLMError>(configFor(Provider::openai, "/v1/chat/completions")),
              CoachLLMError::invalidResponse().what());
    server.enqueue(ScriptedResponse::text(200, "<html>Welcome</html>"));
    EXPECT_EQ(failureOf<DecodingError>(configFor(Provider::openai, "/v1/chat/completions")),
              "The data couldn\u2019t be read because it isn\u2019t in the correct format.");
}

TEST_F(ModelListTest, AServerThatAlwaysHasAnotherPageEndsTheWalkNotTheKit) {
    // Each page names a new last id: the walk stops at the page limit.
    for (int i = 0; i < LLMClient::kMaxModelListPages + 5; ++i) {
        server.enqueue(ScriptedResponse::json(200, R"({"data":[{"id":"m)" + std::to_string(i) +
                                                       R"("}],"has_more":true,"last_id":"m)" +
                                                       std::to_string(i) + R"("})"));
    }
    const auto models = client.listModels(configFor(Provider::anthropic, "/v1/messages"), {});
    EXPECT_EQ(models.size(), static_cast<std::size_t>(LLMClient::kMaxModelListPages));
    EXPECT_EQ(server.requestCount(), static_cast<std::size_t>(LLMClient::kMaxModelListPages));
}

TEST_F(ModelListTest, APageThatPointsToItselfIsReadOnce) {
    server.enqueue(
        ScriptedResponse::json(200, R"({"data":[{"id":"a"}],"has_more":true,"last_id":"a"})"));
    server.enqueue(
        ScriptedResponse::json(200, R"({"data":[{"id":"a"}],"has_more":true,"last_id":"a"})"));
    const auto models = client.listModels(configFor(Provider::anthropic, "/v1/messages"), {});
    EXPECT_EQ(ids(models), std::vector<std::string>{"a"});
    EXPECT_EQ(server.requestCount(), 2u);
}

TEST_F(ModelListTest, ACustomProviderWithoutAnEndpointIsAnInvalidURL) {
    CoachConfig config;
    config.provider = Provider::custom;
    EXPECT_EQ(failureOf<CoachLLMError>(config), CoachLLMError::invalidURL().what());
}

// --- the connection check ---------------------------------------------------------------------

TEST_F(ModelListTest, TheCheckSaysTheKeyAndModelWorkAndHowLongItTook) {
    server.enqueue(ScriptedResponse::json(
        200, R"({"data":[{"id":"gpt-4o"},{"id":"test-model"},{"id":"o3"}]})"));
    const ConnectionCheck check = client.checkConnection(
        configFor(Provider::openai, "/v1/chat/completions", "sk-secret"), {});
    EXPECT_TRUE(check.works);
    const std::string prefix = "OpenAI answered in " + std::to_string(check.elapsed.count()) +
                               " ms: the key works and test-model is available (3 models in all).";
    EXPECT_EQ(check.summary, prefix);
    EXPECT_EQ(check.summary.find("sk-secret"), std::string::npos);
}

TEST_F(ModelListTest, TheCheckSaysWhenTheModelIsNotOffered) {
    server.enqueue(ScriptedResponse::json(200, R"({"data":[{"id":"gpt-4o"},{"id":"o3"}]})"));
    const ConnectionCheck check = client.checkConnection(
        configFor(Provider::openai, "/v1/chat/completions", "sk-test", "gpt-retired"), {});
    EXPECT_FALSE(check.works);
    EXPECT_EQ(check.summary, "OpenAI answered in " + std::to_string(check.elapsed.count()) +
                                 " ms and the key works, but it does not offer the model "
                                 "gpt-retired (2 models offered).");
}

TEST_F(ModelListTest, TheCheckTellsAnOllamaUserHowToInstallAMissingModel) {
    server.enqueue(ScriptedResponse::json(200, R"({"models":[{"name":"llama3.2:latest"}]})"));
    const ConnectionCheck check =
        client.checkConnection(configFor(Provider::local, "/api/chat", "", "gemma3:4b"), {});
    EXPECT_FALSE(check.works);
    EXPECT_EQ(check.summary,
              "Local (Ollama) answered in " + std::to_string(check.elapsed.count()) +
                  " ms, but the model gemma3:4b is not installed (1 model installed). Install "
                  "it with \u201collama pull gemma3:4b\u201d.");
}

TEST_F(ModelListTest, TheCheckReportsTheFailureInTheKitsWords) {
    server.enqueue(ScriptedResponse::text(401, "invalid x-api-key"));
    const ConnectionCheck check =
        client.checkConnection(configFor(Provider::anthropic, "/v1/messages"), {});
    EXPECT_FALSE(check.works);
    EXPECT_EQ(check.summary, "The check failed after " + std::to_string(check.elapsed.count()) +
                                 " ms: HTTP 401: invalid x-api-key");
}

TEST_F(ModelListTest, WithoutAKeyTheCheckSendsNothing) {
    const ConnectionCheck check = client.checkConnection(
        configFor(Provider::gemini, "/v1beta/models/g:generateContent", " "), {});
    EXPECT_FALSE(check.works);
    EXPECT_EQ(check.summary, "There is no API key for Google Gemini.");
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(ModelListTest, AnEndpointWithoutAListIsCheckedWithATinyChat) {
    server.enqueue(ScriptedResponse::json(
        200, R"({"choices":[{"message":{"role":"assistant","content":"Hello"}}]})"));
    const ConnectionCheck check =
        client.checkConnection(configFor(Provider::custom, "/generate", ""), {});
    EXPECT_TRUE(check.works);
    EXPECT_EQ(check.summary, "Custom API answered in " + std::to_string(check.elapsed.count()) +
                                 " ms: the endpoint and the model test-model work.");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests[0].method, "POST");
    const auto body = nlohmann::json::parse(requests[0].body);
    EXPECT_EQ(body["messages"], nlohmann::json::parse(R"([{"role":"user","content":"Hi"}])"));
    EXPECT_EQ(body["max_tokens"], LLMClient::kCheckMaxTokens);
}

TEST_F(ModelListTest, ACancelledCheckThrows) {
    server.enqueue(ScriptedResponse::noAnswer());
    CancellationToken token;
    token.requestStop();
    EXPECT_THROW(client.checkConnection(configFor(Provider::openai, "/v1/chat/completions"), token),
                 CancelledError);
}

}  // namespace
