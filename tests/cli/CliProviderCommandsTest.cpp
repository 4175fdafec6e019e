// sagely models and sagely check, in-process against a real loopback server: what they print,
// which key they send, their exit codes, and that they save nothing.
#include "support/CliHarness.h"
#include "support/LoopbackHttpServer.h"

#include <sagely/CoachPriceTable.h>

#include <gtest/gtest.h>

#include <filesystem>

namespace sagely::testing {
namespace {

class CliProviderCommands : public ::testing::Test {
protected:
    CliResult run(const std::vector<std::string>& arguments) { return cli.run(arguments); }
    /// Asks twice in one conversation; the replies say they used 1,000 and 100 tokens, then
    /// twice that.
    void askTwice(const std::vector<std::string>& how);
    void SetUp() override {
        // Prices of our own, so that the figures do not follow the shipped table.
        CoachPriceTable prices;
        prices.setChecked("2025-06-01");
        prices.setPrice(CoachConfig::Provider::openai, "gpt-4o-mini", {0.15, 0.6});
        CoachPriceTable::setCurrent(prices);
    }
    void TearDown() override { CoachPriceTable::setCurrent(CoachPriceTable::bundled()); }

    CliHarness cli;
    LoopbackHttpServer server;
};

TEST_F(CliProviderCommands, ModelsListsAnOllamaServersInstalledModels) {
    server.enqueue(ScriptedResponse::json(200, R"({"models":[
        {"name":"llama3.2:latest","size":2019393189,"modified_at":"2025-05-01T10:00:00Z"},
        {"name":"gemma3:4b","size":3338801804,"modified_at":"2025-04-12T08:30:00Z"}]})"));
    const auto result =
        run({"models", "local", "--endpoint", server.url("/api/chat"), "--model", "gemma3:4b"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out,
              "Models of Local (Ollama) (" + server.url("/api/tags") +
                  "):\n"
                  "  llama3.2:latest                   2.0 GB    2025-05-01\n"
                  "  gemma3:4b                         3.3 GB    2025-04-12  [current]\n");
    ASSERT_EQ(server.requestCount(), 1u);
    EXPECT_EQ(server.requests()[0].method, "GET");
    EXPECT_FALSE(std::filesystem::exists(cli.settingsFile()));
}

TEST_F(CliProviderCommands, ModelsSendsTheKeyFromTheEnvironment) {
    cli.environment["ANTHROPIC_API_KEY"] = "sk-ant-env";
    server.enqueue(ScriptedResponse::json(
        200, R"({"data":[{"id":"claude-x","display_name":"Claude X"}],"has_more":false})"));
    const auto result = run({"models", "anthropic", "--endpoint", server.url("/v1/messages")});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("  claude-x                          Claude X\n"), std::string::npos)
        << result.out;
    EXPECT_EQ(server.requests()[0].header("x-api-key"), "sk-ant-env");
}

TEST_F(CliProviderCommands, AFailingListIsAFailureWithTheKitsText) {
    server.enqueue(ScriptedResponse::text(401, "bad key"));
    const auto result = run({"models", "openai", "--endpoint", server.url("/v1/chat/completions")});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "sagely: HTTP 401: bad key\n");
}

TEST_F(CliProviderCommands, AnUnknownProviderIsAUsageError) {
    const auto result = run({"models", "frobnicator"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(CliProviderCommands, CheckSaysWhatWorksAndExitsZero) {
    server.enqueue(ScriptedResponse::json(200, R"({"models":[{"name":"llama3.2:latest"}]})"));
    const auto result = run(
        {"check", "local", "--endpoint", server.url("/api/chat"), "--model", "llama3.2:latest"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(result.out.starts_with("Local (Ollama) answered in ")) << result.out;
    EXPECT_TRUE(result.out.ends_with(" ms: llama3.2:latest is installed (1 model in all).\n"))
        << result.out;
    EXPECT_FALSE(std::filesystem::exists(cli.settingsFile()));
}

TEST_F(CliProviderCommands, CheckWithoutAKeyFailsWithoutSendingAnything) {
    const auto result = run({"check", "openai", "--endpoint", server.url("/v1/chat/completions")});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.out, "There is no API key for OpenAI.\n");
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(CliProviderCommands, CheckNeverPrintsTheKey) {
    cli.environment["OPENAI_API_KEY"] = "sk-very-secret";
    server.enqueue(ScriptedResponse::text(401, "Incorrect API key provided: sk-ve***cret"));
    const auto result = run({"check", "openai", "--endpoint", server.url("/v1/chat/completions")});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_EQ(result.out.find("sk-very-secret"), std::string::npos);
    EXPECT_EQ(result.err.find("sk-very-secret"), std::string::npos);
    EXPECT_EQ(server.requests()[0].header("Authorization"), "Bearer sk-very-secret");
}

TEST_F(CliProviderCommands, CtrlCStopsAWaitingCheck) {
    server.enqueue(ScriptedResponse::noAnswer());
    cli.interrupted = [this] { return server.requestCount() > 0; };
    const auto result = run({"check", "local", "--endpoint", server.url("/api/chat")});
    EXPECT_EQ(result.exitCode, 130);
}

void CliProviderCommands::askTwice(const std::vector<std::string>& how) {
    for (int i = 1; i <= 2; ++i) {
        server.enqueue(ScriptedResponse::json(
            200, R"({"choices":[{"message":{"content":"Fine."}}],"usage":{"prompt_tokens":)" +
                     std::to_string(1000 * i) + R"(,"completion_tokens":)" +
                     std::to_string(100 * i) + "}}"));
        std::vector<std::string> arguments{"ask", "--endpoint", server.url("/v1/chat/completions")};
        arguments.insert(arguments.end(), how.begin(), how.end());
        arguments.push_back("Question");
        const auto asked = run(arguments);
        ASSERT_EQ(asked.exitCode, 0) << asked.err;
    }
}

TEST_F(CliProviderCommands, HistoryShowsWhatEachReplyCostWithTheModelsPrice) {
    cli.environment["OPENAI_API_KEY"] = "sk-test";
    askTwice({"--provider", "openai", "--model", "gpt-4o-mini"});
    const auto result = run({"history", "show", "1", "--usage"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    // 1,000 × $0.15 + 100 × $0.60 per million, then twice that.
    EXPECT_NE(result.out.find("Tokens: 1000 in, 100 out (gpt-4o-mini, \u2248 $0.0002)\n"),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("Tokens: 2000 in, 200 out (gpt-4o-mini, \u2248 $0.0004)\n"),
              std::string::npos)
        << result.out;
    EXPECT_TRUE(
        result.out.ends_with("\nTokens in all: 3000 in, 300 out (2 replies)\n"
                             "Estimated cost: \u2248 $0.0006 (prices checked 2025-06-01)\n"))
        << result.out;
}

TEST_F(CliProviderCommands, HistoryShowsTokensOnlyForAModelWithoutAPrice) {
    askTwice({"--provider", "custom", "--model", "house-model"});
    const auto result = run({"history", "show", "1", "--usage"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Tokens: 1000 in, 100 out (house-model, no price known)\n"),
              std::string::npos)
        << result.out;
    EXPECT_TRUE(result.out.ends_with("\nTokens in all: 3000 in, 300 out (2 replies)\n"))
        << result.out;
    const std::string plain = run({"history", "show", "1"}).out;
    EXPECT_EQ(plain,
              "Question\n\nYou: Question\n\nCoach:\nFine.\n\nYou: Question\n\nCoach:\nFine.\n");
    EXPECT_EQ(run({"history", "list", "--usage"}).exitCode, 2);
}

}  // namespace
}  // namespace sagely::testing
