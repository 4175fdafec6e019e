// The coach with the real model client against an HTTP server on the loopback interface (and the
// on-device path against a fake model): what reaches the wire, what lands in the conversation,
// and what is on disk after each step.
#include "support/CoachHarness.h"
#include "support/FakeOnDeviceModel.h"
#include "support/LoopbackHttpServer.h"
#include "support/RetryWaits.h"

#include <sagely/AICoach.h>
#include <sagely/CoachConversation.h>
#include <sagely/CoachSystemPrompt.h>
#include <sagely/LLMClient.h>
#include <sagely/OperatingSystem.h>
#include <sagely/StaticCoachContextProvider.h>
#include <sagely/Text.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace sagely {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::CoachHarness;
using testing::FakeOnDeviceModel;
using testing::LoopbackHttpServer;
using testing::RecordedRequest;
using testing::RetryWaits;
using testing::ScriptedResponse;
using Provider = CoachConfig::Provider;
using Clock = std::chrono::steady_clock;

const char* const kGuide =
    "## Sharing\nUse the Share button in the toolbar.\n\n## Exporting\nChoose File > Export.";
const char* const kSummary = "Two notebooks are open; sync is on.";
const char* const kObservation = "The Share sheet is open.";

std::string openAIReply(const std::string& text) {
    return json{{"choices", {{{"message", {{"role", "assistant"}, {"content", text}}}}}}}.dump();
}
std::string anthropicReply(const std::string& text) {
    return json{{"content", {{{"type", "text"}, {"text", text}}}}}.dump();
}
std::string geminiReply(const std::string& text) {
    return json{{"candidates", {{{"content", {{"parts", {{{"text", text}}}}}}}}}}.dump();
}
std::string ollamaReply(const std::string& text) {
    return json{{"message", {{"role", "assistant"}, {"content", text}}}}.dump();
}

/// The system prompt the coach must send, put together here from its parts.
std::string expectedSystemPrompt(bool withRecentActivity) {
    std::string prompt(coachBasePrompt());
    prompt += std::string("\n\n--- APP GUIDE ---\n\n") + kGuide + "\n\n--- END APP GUIDE ---\n";
    prompt += std::string("\n\n--- LIVE APP CONTEXT ---\n\n") + kSummary +
              "\n\n--- END LIVE APP CONTEXT ---\n";
    if (withRecentActivity) {
        prompt +=
            "\n\n--- RECENT ACTIVITY ---\n\nNo live app activity is connected for Notes."
            "\n\n--- END RECENT ACTIVITY ---\n";
    }
    prompt += std::string("\n\n--- LIVE MAC OBSERVATION (read-only) ---\n\n") + kObservation +
              "\n\nUse this observation to ground your answer. Do not claim you clicked or typed "
              "anything.\n\n--- END LIVE MAC OBSERVATION ---\n";
    return prompt;
}

json chatMessages(const std::vector<std::pair<std::string, std::string>>& messages) {
    json result = json::array();
    for (const auto& [role, content] : messages) {
        result.push_back({{"role", role}, {"content", content}});
    }
    return result;
}

class AICoachEndToEndTest : public ::testing::Test {
protected:
    void configure(Provider provider, const std::string& key, const std::string& path) {
        harness.useProvider(provider, key, server.url(path));
        harness.settings->model.set("test-model");
        harness.settings->temperature.set(0.5);
        harness.settings->maxTokens.set(1024);
    }

    // The kit's client, its retries waiting in `retryWaits` (at once unless held).
    void makeCoach(std::shared_ptr<LLMService> llm = nullptr) {
        if (!llm) llm = retryWaits->client();
        coach = harness.makeCoach({.contextProvider = guide, .llm = std::move(llm)});
        coach->replyEnrichmentProvider = [this](auto done) {
            done(CoachReplyEnrichment{kObservation, observationCard});
        };
    }

    std::optional<CoachMessage> ask(const std::string& question) {
        auto recorder = harness.ask(*coach, question);
        EXPECT_TRUE(harness.runUntilAnswered(*recorder, 30s));
        EXPECT_EQ(recorder->calls, 1);
        return recorder->reply;
    }

    /// Asks two questions, checking the conversation and the file after each; returns the
    /// second request as the server saw it.
    RecordedRequest askTwice(const std::string& firstReplyBody,
                             const std::string& secondReplyBody) {
        server.enqueue(ScriptedResponse::json(200, firstReplyBody));
        server.enqueue(ScriptedResponse::json(200, secondReplyBody));
        makeCoach();
        expectReply(ask("How do I share?"), "First answer");
        expectConversation({"How do I share?", "First answer"});
        expectReply(ask("And export?"), "Second answer");
        expectConversation({"How do I share?", "First answer", "And export?", "Second answer"});
        const auto requests = server.requests();
        EXPECT_EQ(requests.size(), 2u);
        return requests.size() == 2 ? requests[1] : RecordedRequest{};
    }

    void expectReply(const std::optional<CoachMessage>& reply, const std::string& text) {
        ASSERT_TRUE(reply.has_value());
        EXPECT_EQ(reply->content(), text);
        EXPECT_EQ(reply->role(), CoachMessage::Role::assistant);
        EXPECT_EQ(reply->card(), observationCard);
        EXPECT_EQ(coach->currentConversation().get()->messages().back().id(), reply->id());
    }

    void expectConversation(const std::vector<std::string>& contents) {
        coach->waitForPendingSaves();
        const auto saved = harness.savedConversations();
        ASSERT_EQ(saved.size(), 1u);
        std::vector<std::string> savedContents;
        for (const auto& message : saved[0].messages()) savedContents.push_back(message.content());
        EXPECT_EQ(savedContents, contents);
        coach->waitForPendingSaves();
        EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
        EXPECT_FALSE(coach->isThinking().get());
        EXPECT_FALSE(coach->error().get().has_value());
    }

    /// The history of the second request, as every chat format but Gemini's carries it.
    static json history() {
        return chatMessages(
            {{"user", "How do I share?"}, {"assistant", "First answer"}, {"user", "And export?"}});
    }

    std::string failureFor(ScriptedResponse response, int times = 1) {
        configure(Provider::openai, "sk-test", "/v1/chat/completions");
        for (int i = 0; i < times; ++i) server.enqueue(response);
        makeCoach();
        EXPECT_FALSE(ask("Why?").has_value());
        EXPECT_EQ(coach->currentConversation().get()->messages().size(), 1u);
        coach->waitForPendingSaves();
        EXPECT_EQ(harness.savedConversations()[0].messages().size(), 1u);
        EXPECT_FALSE(coach->isThinking().get());
        return coach->error().get().value_or("(none)");
    }

    CoachHarness harness;
    LoopbackHttpServer server;
    std::shared_ptr<RetryWaits> retryWaits = std::make_shared<RetryWaits>();
    std::shared_ptr<StaticCoachContextProvider> guide =
        std::make_shared<StaticCoachContextProvider>("Notes", kSummary, kGuide);
    CoachCard observationCard{CoachCard::Style::info, "Observed", "Share sheet", {}, {}};
    std::unique_ptr<AICoach> coach;
};

// --- The wire formats ---

TEST_F(AICoachEndToEndTest, OpenAI) {
    configure(Provider::openai, "sk-openai", "/v1/chat/completions");
    const auto request = askTwice(openAIReply("First answer"), openAIReply("Second answer"));
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.path, "/v1/chat/completions");
    EXPECT_EQ(request.header("Authorization"), "Bearer sk-openai");
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    json messages = chatMessages({{"system", expectedSystemPrompt(true)}});
    for (const auto& message : history()) messages.push_back(message);
    EXPECT_EQ(json::parse(request.body), (json{{"model", "test-model"},
                                               {"messages", messages},
                                               {"temperature", 0.5},
                                               {"max_tokens", 1024}}));
}

TEST_F(AICoachEndToEndTest, AReplyKeepsWhatItCostAndSavesIt) {
    configure(Provider::openai, "sk-openai", "/v1/chat/completions");
    server.enqueue(ScriptedResponse::json(
        200, json{{"choices", {{{"message", {{"role", "assistant"}, {"content", "Costly"}}}}}},
                  {"usage", {{"prompt_tokens", 812}, {"completion_tokens", 44}}}}
                 .dump()));
    makeCoach();
    const auto reply = ask("How much?");
    ASSERT_TRUE(reply.has_value());
    // The reply names the provider and the model asked, so that its cost can be told later.
    TokenUsage expected{812, 44};
    expected.provider = "openai";
    expected.model = "test-model";
    EXPECT_EQ(reply->usage(), expected);
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedConversations()[0].messages().back().usage(), expected);
    EXPECT_EQ(harness.savedConversations()[0].messages().front().usage(), std::nullopt);
}

TEST_F(AICoachEndToEndTest, AWaitBeforeARetryIsPublishedAndClearedWithTheReply) {
    configure(Provider::openai, "sk-openai", "/v1/chat/completions");
    auto busy = ScriptedResponse::json(429, "{}");
    busy.headers.emplace_back("retry-after-ms", "1500");
    server.enqueue(busy);
    server.enqueue(ScriptedResponse::json(200, openAIReply("After the wait")));
    makeCoach();
    std::vector<std::string> statuses;
    const Subscription watching = coach->retryStatus().onDidChange(
        [&](const std::string& status) { statuses.push_back(status); });
    const auto reply = ask("Busy?");
    ASSERT_TRUE(reply.has_value());
    EXPECT_EQ(reply->content(), "After the wait");
    EXPECT_EQ(retryWaits->waits(), std::vector<std::chrono::milliseconds>{1500ms});
    EXPECT_EQ(statuses, (std::vector<std::string>{"Retrying in 2 s\u2026", ""}));
    EXPECT_FALSE(coach->error().get().has_value());
}

TEST_F(AICoachEndToEndTest, StopEndsAWaitBeforeARetryAtOnce) {
    configure(Provider::openai, "sk-openai", "/v1/chat/completions");
    server.enqueue(ScriptedResponse::json(503, "{}"));
    retryWaits->hold();
    makeCoach();
    auto recorder = harness.ask(*coach, "Busy?");
    ASSERT_TRUE(harness.runPolling([&] { return !coach->retryStatus().get().empty(); }));
    EXPECT_EQ(coach->retryStatus().get(), "Retrying in 1 s\u2026");
    coach->stop();
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_FALSE(recorder->reply.has_value());
    EXPECT_EQ(coach->retryStatus().get(), "");
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_EQ(server.requestCount(), 1u);
    EXPECT_EQ(coach->currentConversation().get()->messages().size(), 1u);
}

TEST_F(AICoachEndToEndTest, Anthropic) {
    configure(Provider::anthropic, "sk-ant", "/v1/messages");
    const auto request = askTwice(anthropicReply("First answer"), anthropicReply("Second answer"));
    EXPECT_EQ(request.path, "/v1/messages");
    EXPECT_EQ(request.header("x-api-key"), "sk-ant");
    EXPECT_EQ(request.header("anthropic-version"), "2023-06-01");
    EXPECT_EQ(request.headerCount("Authorization"), 0u);
    EXPECT_EQ(json::parse(request.body), (json{{"model", "test-model"},
                                               {"system", expectedSystemPrompt(true)},
                                               {"messages", history()},
                                               {"temperature", 0.5},
                                               {"max_tokens", 1024}}));
}

TEST_F(AICoachEndToEndTest, Gemini) {
    configure(Provider::gemini, "gm-key", "/gemini");
    const auto request = askTwice(geminiReply("First answer"), geminiReply("Second answer"));
    EXPECT_EQ(request.target, "/gemini");
    EXPECT_EQ(request.header("x-goog-api-key"), "gm-key");
    const json contents = {
        {{"role", "user"}, {"parts", {{{"text", "How do I share?"}}}}},
        {{"role", "model"}, {"parts", {{{"text", "First answer"}}}}},
        {{"role", "user"}, {"parts", {{{"text", "And export?"}}}}},
    };
    EXPECT_EQ(json::parse(request.body),
              (json{{"contents", contents},
                    {"generationConfig", {{"temperature", 0.5}, {"maxOutputTokens", 1024}}},
                    {"systemInstruction", {{"parts", {{{"text", expectedSystemPrompt(true)}}}}}}}));
}

TEST_F(AICoachEndToEndTest, LocalOllama) {
    configure(Provider::local, "", "/api/chat");
    const auto request = askTwice(ollamaReply("First answer"), ollamaReply("Second answer"));
    EXPECT_EQ(request.path, "/api/chat");
    EXPECT_EQ(request.headerCount("Authorization"), 0u);
    json messages = chatMessages({{"system", expectedSystemPrompt(true)}});
    for (const auto& message : history()) messages.push_back(message);
    EXPECT_EQ(json::parse(request.body),
              (json{{"model", "test-model"},
                    {"messages", messages},
                    {"stream", false},
                    {"options", {{"temperature", 0.5}, {"num_predict", 1024}}}}));
}

TEST_F(AICoachEndToEndTest, CustomWithAKey) {
    configure(Provider::custom, "sk-custom", "/v1/chat/completions");
    const auto request = askTwice(openAIReply("First answer"), openAIReply("Second answer"));
    EXPECT_EQ(request.header("Authorization"), "Bearer sk-custom");
    json messages = chatMessages({{"system", expectedSystemPrompt(true)}});
    for (const auto& message : history()) messages.push_back(message);
    EXPECT_EQ(json::parse(request.body)["messages"], messages);
}

TEST_F(AICoachEndToEndTest, CustomWithoutAKey) {
    configure(Provider::custom, "", "/v1/chat/completions");
    const auto request = askTwice(openAIReply("First answer"), openAIReply("Second answer"));
    EXPECT_EQ(request.headerCount("Authorization"), 0u);
    EXPECT_EQ(json::parse(request.body)["model"], "test-model");
}

TEST_F(AICoachEndToEndTest, ASecondCoachContinuesTheSavedConversation) {
    configure(Provider::openai, "sk-openai", "/v1/chat/completions");
    server.enqueue(ScriptedResponse::json(200, openAIReply("First answer")));
    server.enqueue(ScriptedResponse::json(200, openAIReply("Second answer")));
    makeCoach();
    expectReply(ask("How do I share?"), "First answer");
    coach.reset();
    makeCoach();
    expectReply(ask("And export?"), "Second answer");
    json messages = chatMessages({{"system", expectedSystemPrompt(true)}});
    for (const auto& message : history()) messages.push_back(message);
    EXPECT_EQ(json::parse(server.requests()[1].body)["messages"], messages);
}

// --- Failures, as the user reads them ---

TEST_F(AICoachEndToEndTest, ANewQuestionEndsAWaitBeforeARetryAtOnce) {
    configure(Provider::openai, "sk-openai", "/v1/chat/completions");
    server.enqueue(ScriptedResponse::json(529, "{}"));
    server.enqueue(ScriptedResponse::json(200, openAIReply("Here now")));
    retryWaits->hold();  // only a stopped token ends this wait
    makeCoach();
    auto first = harness.ask(*coach, "Busy?");
    ASSERT_TRUE(harness.runPolling([&] { return !coach->retryStatus().get().empty(); }));
    auto second = harness.ask(*coach, "And now?");
    ASSERT_TRUE(harness.runUntilAnswered(*second));
    ASSERT_TRUE(second->reply.has_value());
    EXPECT_EQ(second->reply->content(), "Here now");
    EXPECT_TRUE(harness.runUntilAnswered(*first));
    EXPECT_FALSE(first->reply.has_value());
    EXPECT_EQ(server.requestCount(), 2u);
    EXPECT_EQ(retryWaits->waits().size(), 1u);
    EXPECT_EQ(coach->retryStatus().get(), "");
}

TEST_F(AICoachEndToEndTest, RateLimitedAfterTheLastRetry) {
    EXPECT_EQ(failureFor(ScriptedResponse::json(429, R"({"error":"slow down"})"), 4),
              "The AI provider rate-limited the request. Please wait and try again.");
    EXPECT_EQ(server.requestCount(), 4u);
    EXPECT_EQ(retryWaits->waits().size(), 3u);
    EXPECT_EQ(coach->retryStatus().get(), "");
}

TEST_F(AICoachEndToEndTest, ServerErrorCarriesTheFirst300CharactersOfTheBody) {
    const std::string body = std::string(300, 'e') + std::string(700, 'z');
    EXPECT_EQ(failureFor(ScriptedResponse::text(500, body)), "HTTP 500: " + std::string(300, 'e'));
}

TEST_F(AICoachEndToEndTest, InvalidResponse) {
    EXPECT_EQ(failureFor(ScriptedResponse::json(200, R"({"choices":[]})")),
              "The AI response could not be parsed.");
}

TEST_F(AICoachEndToEndTest, AReplyThatIsNotJson) {
    EXPECT_EQ(failureFor(ScriptedResponse::text(200, "<html>busy</html>")),
              "The data couldn’t be read because it isn’t in the correct format.");
}

TEST_F(AICoachEndToEndTest, TransportFailure) {
    std::string deadEndpoint;
    {
        LoopbackHttpServer gone;
        deadEndpoint = gone.url("/v1/chat/completions");
    }
    harness.useProvider(Provider::openai, "sk-test", deadEndpoint);
    makeCoach();
    EXPECT_FALSE(ask("Anyone there?").has_value());
    EXPECT_EQ(coach->error().get(), "Could not connect to the server.");
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedConversations()[0].messages().size(), 1u);
}

// --- One request at a time, and lifetime ---

TEST_F(AICoachEndToEndTest, TwoQuickQuestionsAgainstASlowServerAppendOnlyTheLaterReply) {
    configure(Provider::openai, "sk-test", "/v1/chat/completions");
    server.enqueue(ScriptedResponse::slowHeaders(10s, openAIReply("Slow answer")));
    server.enqueue(ScriptedResponse::json(200, openAIReply("Quick answer")));
    makeCoach();
    auto first = harness.ask(*coach, "First");
    ASSERT_TRUE(harness.runPolling([&] { return server.requestCount() >= 1; }));
    auto second = harness.ask(*coach, "Second");
    ASSERT_TRUE(harness.runUntil([&] { return first->calls && second->calls; }, 30s));
    harness.executor->runFor(50ms);

    EXPECT_FALSE(first->reply.has_value());
    ASSERT_TRUE(second->reply.has_value());
    EXPECT_EQ(second->reply->content(), "Quick answer");
    const auto& messages = coach->currentConversation().get()->messages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_EQ(messages[0].content(), "First");
    EXPECT_EQ(messages[1].content(), "Second");
    EXPECT_EQ(messages[2].content(), "Quick answer");
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_FALSE(coach->error().get().has_value());
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
}

TEST_F(AICoachEndToEndTest, DestroyingTheCoachWhileTheServerIsSilent) {
    configure(Provider::openai, "sk-test", "/v1/chat/completions");
    server.enqueue(ScriptedResponse::noAnswer());
    makeCoach();
    auto recorder = harness.ask(*coach, "Hello?");
    ASSERT_TRUE(harness.runPolling([&] { return server.requestCount() >= 1; }));
    const auto start = Clock::now();
    coach.reset();
    // Waiting for the silent server would take the whole idle time-out (90 s).
    EXPECT_LT(Clock::now() - start, 1s);
    harness.executor->runFor(300ms);
    EXPECT_EQ(recorder->calls, 0);
    EXPECT_EQ(harness.savedConversations()[0].messages().size(), 1u);
}

// --- The on-device model ---

class AICoachOnDeviceTest : public AICoachEndToEndTest {
protected:
    void SetUp() override {
        harness.useProvider(Provider::apple);
        makeCoach(std::make_shared<LLMClient>(onDevice));
    }

    std::string expectedFirstPrompt(const std::string& question) {
        return "System instructions:\n" + expectedSystemPrompt(false) + "\n\n" + question;
    }

    ScopedOperatingSystemOverride macOS26{{true, 26, 0, 0}};
    std::shared_ptr<FakeOnDeviceModel> onDevice = std::make_shared<FakeOnDeviceModel>();
};

TEST_F(AICoachOnDeviceTest, AnswersWithTheDefaultModel) {
    onDevice->enqueue(FakeOnDeviceModel::reply("On-device answer"));
    expectReply(ask("How do I share?"), "On-device answer");
    expectConversation({"How do I share?", "On-device answer"});
    const auto calls = onDevice->respondCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].model, "default");
    EXPECT_EQ(calls[0].prompt, expectedFirstPrompt("How do I share?"));
    EXPECT_EQ(calls[0].options.temperature, harness.settings->config().temperature);
}

TEST_F(AICoachOnDeviceTest, AnOverflowingPromptIsRetriedWithItsBeginning) {
    onDevice->enqueue(FakeOnDeviceModel::exceededContextWindow());
    onDevice->enqueue(FakeOnDeviceModel::reply("Shorter answer"));
    expectReply(ask("How do I share?"), "Shorter answer");
    expectConversation({"How do I share?", "Shorter answer"});
    const auto calls = onDevice->respondCalls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].prompt, expectedFirstPrompt("How do I share?"));
    EXPECT_EQ(calls[1].prompt, text::prefixCharacters(calls[0].prompt, 1500));
    EXPECT_EQ(calls[1].session, calls[0].session);
    EXPECT_EQ(calls[1].options.maximumResponseTokens, 256);
}

TEST_F(AICoachOnDeviceTest, AFailedRetryShowsTheContextWindowSentence) {
    onDevice->enqueue(FakeOnDeviceModel::exceededContextWindow());
    onDevice->enqueue(FakeOnDeviceModel::exceededContextWindow());
    EXPECT_FALSE(ask("How do I share?").has_value());
    EXPECT_EQ(coach->error().get(),
              "Exceeded the on-device model context window. Ask a shorter question, or switch "
              "Coach to OpenAI, Anthropic, or Gemini.");
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedConversations()[0].messages().size(), 1u);
}

TEST_F(AICoachOnDeviceTest, AModelThatIsNotReadySaysSo) {
    onDevice->setDefaultAvailability(OnDeviceAvailability::modelNotReady);
    EXPECT_FALSE(ask("How do I share?").has_value());
    EXPECT_EQ(coach->error().get(),
              "The on-device model is still downloading. Stay on Wi-Fi, wait until Apple "
              "Intelligence finishes setup, then ask again.");
}

}  // namespace
}  // namespace sagely
