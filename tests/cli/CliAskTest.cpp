// sagely ask, in-process: offline answers from the guide, real requests to a loopback server,
// the failures and their exit codes, options that last one run, and Ctrl-C.
#include "cli/Rendering.h"
#include "support/CliHarness.h"
#include "support/LoopbackHttpServer.h"

#include <sagely/CoachGuideAnswers.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/SagelyKnowledge.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace sagely::testing {
namespace {

std::string openAIReply(const std::string& content) {
    return nlohmann::json{
        {"choices", {{{"message", {{"role", "assistant"}, {"content", content}}}}}}}
        .dump();
}

class CliAsk : public ::testing::Test {
protected:
    CliResult ask(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), "ask");
        return cli.run(arguments);
    }
    /// ask against the loopback server as a keyless custom endpoint.
    CliResult askServer(const std::string& question, std::vector<std::string> more = {}) {
        std::vector<std::string> arguments{"--provider", "custom", "--endpoint",
                                           server.url("/v1/chat/completions")};
        arguments.insert(arguments.end(), more.begin(), more.end());
        arguments.push_back(question);
        return ask(arguments);
    }
    nlohmann::json lastRequestBody() const {
        return nlohmann::json::parse(server.requests().back().body);
    }

    CliHarness cli;
    LoopbackHttpServer server;
};

// --- offline answers from the guide ---

TEST_F(CliAsk, OfflineAnswersFromTheBundledGuide) {
    const std::string question = "Tell me about API Keys";
    const auto expected = answerFromGuide(SagelyKnowledge::bundledGuideText(), question);
    ASSERT_TRUE(expected.has_value());
    const auto result = ask({"--offline", question});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    std::vector<std::string> suggestions;
    EXPECT_EQ(result.out,
              cli::Renderer(false).assistantMessage(
                  CoachMessage(CoachMessage::Role::assistant, expected->message, expected->card),
                  suggestions));
    EXPECT_EQ(expected->card->title, "API Keys");
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(CliAsk, TheConversationIsSavedWithQuestionAndAnswer) {
    ask({"--offline", "Tell me about API Keys"});
    const auto conversations = cli.conversations();
    ASSERT_EQ(conversations.size(), 1u);
    const auto& messages = conversations[0].messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].role(), CoachMessage::Role::user);
    EXPECT_EQ(messages[0].content(), "Tell me about API Keys");
    EXPECT_EQ(messages[1].role(), CoachMessage::Role::assistant);
    EXPECT_EQ(messages[1].card()->title, "API Keys");
    EXPECT_EQ(conversations[0].title(), "Tell me about API Keys");
}

TEST_F(CliAsk, JsonPrintsTheAppendedMessageAsTheKitWritesIt) {
    const auto result = ask({"--offline", "--json", "Tell me about API Keys"});
    EXPECT_EQ(result.exitCode, 0);
    ASSERT_TRUE(result.out.ends_with("}\n"));
    const CoachMessage message = decodeMessage(result.out);
    const auto saved = cli.conversations()[0].messages().back();
    EXPECT_EQ(message.id(), saved.id());
    EXPECT_EQ(message.role(), CoachMessage::Role::assistant);
    EXPECT_EQ(message.content(), saved.content());
    EXPECT_EQ(message.card(), saved.card());
    EXPECT_EQ(result.out, encodeJson(saved) + "\n");
}

TEST_F(CliAsk, ALaterQuestionGoesOnWithTheLatestConversationUnlessNew) {
    ask({"--offline", "Tell me about API Keys"});
    ask({"--offline", "Tell me about Conversations"});
    ASSERT_EQ(cli.conversations().size(), 1u);
    EXPECT_EQ(cli.conversations()[0].messages().size(), 4u);
    ask({"--offline", "--new", "Tell me about Local Answers"});
    const auto conversations = cli.conversations();
    ASSERT_EQ(conversations.size(), 2u);
    EXPECT_EQ(conversations[0].title(), "Tell me about Local Answers");
    EXPECT_EQ(conversations[0].messages().size(), 2u);
}

TEST_F(CliAsk, TheNamespaceChoosesTheConversationFile) {
    ask({"--offline", "--namespace", "notes", "Tell me about API Keys"});
    EXPECT_EQ(cli.conversations("notes").size(), 1u);
    EXPECT_FALSE(std::filesystem::exists(cli.conversationFile("cli")));
    EXPECT_EQ(ask({"--namespace", "a/b", "hi"}).exitCode, 2);
}

TEST_F(CliAsk, AGuideFileReplacesTheBundledGuide) {
    const auto guide = cli.folder.path() / "guide.md";
    writeFile(guide, "# Widget Guide\n\n## Widgets\n\nWidgets live in the Widget panel.\n");
    const auto result = ask({"--offline", "--guide", guide.string(), "Where are widgets?"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.out.starts_with("Widgets live in the Widget panel.\n")) << result.out;
    EXPECT_NE(result.out.find("┃ Widgets\n"), std::string::npos);
}

TEST_F(CliAsk, AnUnreadableGuideFileIsAUsageError) {
    const auto missing = (cli.folder.path() / "missing.md").string();
    const auto result = ask({"--offline", "--guide", missing, "Where are widgets?"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "sagely ask: cannot read the guide file '" + missing +
                              "'\nusage: sagely ask [options] QUESTION\n");
}

TEST_F(CliAsk, OfflineWithoutAMatchingSectionExplainsAndExits3) {
    const auto result = ask({"--offline", "zzqx wvvk"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "The guide has no section that answers this question. Try other words, or ask "
              "without --offline to ask OpenAI.\n");
    const auto messages = cli.conversations()[0].messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].content(), "zzqx wvvk");
}

TEST_F(CliAsk, AQuestionIsNeeded) {
    EXPECT_EQ(ask({}).err,
              "sagely ask: a question is needed\nusage: sagely ask [options] QUESTION\n");
    EXPECT_EQ(ask({"   "}).exitCode, 2);
}

// --- missing key and endpoint ---

TEST_F(CliAsk, AMissingKeySaysHowToSetOneAndExits3) {
    const auto result = ask({"How do I start?"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "OpenAI needs an API key. Save one with `sagely key set openai` (it reads the key "
              "from standard input), or set OPENAI_API_KEY for one run. `sagely ask --offline` "
              "answers from the guide without a key.\n");
}

TEST_F(CliAsk, CustomWithoutEndpointOrKeyNamesTheEndpoint) {
    const auto result = ask({"--provider", "custom", "hi"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err,
              "Custom API needs an endpoint URL or an API key. Set the endpoint with `sagely use "
              "custom --endpoint URL` (or --endpoint for one run), or save a key with `sagely key "
              "set custom`.\n");
}

TEST_F(CliAsk, CustomWithAKeyButNoEndpointShowsTheKitsSentence) {
    cli.run({"key", "set", "custom"}, "ck-1\n");
    const auto result = ask({"--provider", "custom", "hi"});
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.err,
              "Custom API requires an endpoint URL (OpenAI-compatible /v1/chat/completions). Set "
              "one with `sagely use custom --endpoint URL`.\n");
}

// --- requests to a model ---

TEST_F(CliAsk, ARepliedQuestionIsPrintedAsAProcedure) {
    server.enqueue(ScriptedResponse::json(200, openAIReply("Step 1: Open Settings\nStep 2: Save")));
    const auto result = askServer("How do I save?");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "1. Open Settings\n2. Save\n");
    EXPECT_EQ(result.err, "");
    const auto body = lastRequestBody();
    EXPECT_EQ(body["model"], "gpt-4o-mini");
    EXPECT_EQ(body["messages"].front()["role"], "system");
    EXPECT_EQ(body["messages"].back(),
              (nlohmann::json{{"role", "user"}, {"content", "How do I save?"}}));
    EXPECT_FALSE(server.requests().back().header("Authorization").has_value());
    EXPECT_EQ(cli.conversations()[0].messages().back().content(),
              "Step 1: Open Settings\nStep 2: Save");
}

TEST_F(CliAsk, TheSystemPromptCarriesTheGuideAndTheSummary) {
    server.enqueue(ScriptedResponse::json(200, openAIReply("Fine.")));
    askServer("How are API keys kept?", {"--summary", "Theme: dark; Sync: on"});
    const std::string system = lastRequestBody()["messages"].front()["content"];
    EXPECT_NE(system.find("Theme: dark; Sync: on"), std::string::npos);
    EXPECT_NE(system.find("No live app activity is connected for sagely."), std::string::npos);
    EXPECT_NE(system.find("API Keys"), std::string::npos);
}

TEST_F(CliAsk, TheModelOptionAppliesToThisRun) {
    server.enqueue(ScriptedResponse::json(200, openAIReply("Fine.")));
    askServer("hi", {"--model", "my-model"});
    EXPECT_EQ(lastRequestBody()["model"], "my-model");
}

TEST_F(CliAsk, AKeyFromTheEnvironmentIsUsedForOneRunAndNotSaved) {
    server.enqueue(ScriptedResponse::json(200, openAIReply("Fine.")));
    cli.environment["OPENAI_API_KEY"] = "sk-env";
    const auto result =
        ask({"--provider", "openai", "--endpoint", server.url("/v1/chat/completions"), "hi"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(server.requests().back().header("Authorization"), "Bearer sk-env");
    EXPECT_EQ(savedKey(*cli.secrets, "openai"), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(cli.settingsFile()));
}

TEST_F(CliAsk, TheEnvironmentKeyWinsOverTheSavedOneAndTheSavedOneServesOtherwise) {
    cli.run({"key", "set", "openai"}, "sk-saved\n");
    const std::vector<std::string> arguments{"--endpoint", server.url("/v1/chat/completions"),
                                             "hi"};
    server.enqueue(ScriptedResponse::json(200, openAIReply("One.")));
    ask(arguments);
    EXPECT_EQ(server.requests().back().header("Authorization"), "Bearer sk-saved");
    server.enqueue(ScriptedResponse::json(200, openAIReply("Two.")));
    cli.environment["OPENAI_API_KEY"] = "sk-env";
    ask(arguments);
    EXPECT_EQ(server.requests().back().header("Authorization"), "Bearer sk-env");
    EXPECT_EQ(savedKey(*cli.secrets, "openai"), "sk-saved");
}

TEST_F(CliAsk, RunOptionsLeaveTheSavedSettingsAlone) {
    cli.run({"use", "gemini", "--model", "gemini-1.5-pro"});
    cli.run({"key", "set", "gemini"}, "g-key\n");
    const std::string before = readFile(cli.settingsFile());
    server.enqueue(ScriptedResponse::json(200, openAIReply("Fine.")));
    const auto result = askServer("hi", {"--model", "other"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(readFile(cli.settingsFile()), before);
    EXPECT_EQ(savedKey(*cli.secrets, "gemini"), "g-key");
    EXPECT_EQ(savedKey(*cli.secrets, "custom"), std::nullopt);
    EXPECT_NE(cli.run({"settings"}).out.find("Model:        gemini-1.5-pro\n"), std::string::npos);
}

TEST_F(CliAsk, AnotherProviderForOneRunUsesItsRememberedModel) {
    cli.run({"use", "custom", "--model", "remembered-model"});
    cli.run({"use", "openai"});
    server.enqueue(ScriptedResponse::json(200, openAIReply("Fine.")));
    ask({"--provider", "Custom API", "--endpoint", server.url("/v1/chat/completions"), "hi"});
    EXPECT_EQ(lastRequestBody()["model"], "remembered-model");
}

TEST_F(CliAsk, AProviderFailureShowsTheKitsTextAndExits4) {
    // Rate-limited on every try, each time with a wait of a millisecond.
    auto limited = ScriptedResponse::json(429, R"({"error": {"message": "slow down"}})");
    limited.headers.emplace_back("retry-after-ms", "1");
    for (int i = 0; i < 4; ++i) server.enqueue(limited);
    const auto result = askServer("hi");
    EXPECT_EQ(server.requestCount(), 4u);
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "The AI provider rate-limited the request. Please wait and try again.\n");
    EXPECT_EQ(cli.conversations()[0].messages().size(), 1u);
}

TEST_F(CliAsk, ANetworkFailureExits4) {
    const std::string closedPort = "http://127.0.0.1:1/v1/chat/completions";
    const auto result = ask({"--provider", "custom", "--endpoint", closedPort, "hi"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.err, "Could not connect to the server.\n");
}

TEST_F(CliAsk, CtrlCCancelsTheRequestAndKeepsTheQuestion) {
    server.enqueue(ScriptedResponse::noAnswer());
    cli.interrupted = [this] { return server.requestCount() > 0; };
    const auto result = askServer("A slow question");
    EXPECT_EQ(result.exitCode, 130);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "Cancelled.\n");
    const auto conversations = cli.conversations();
    ASSERT_EQ(conversations.size(), 1u);
    ASSERT_EQ(conversations[0].messages().size(), 1u);
    EXPECT_EQ(conversations[0].messages()[0].content(), "A slow question");
}

}  // namespace
}  // namespace sagely::testing
