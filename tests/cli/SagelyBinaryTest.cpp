// The built `sagely` executable, end to end: a temporary home and data folder, the kit's real
// settings and conversation files, the loopback server for `ask` and `chat`, keys read from
// standard input, exit codes, and Ctrl-C during a slow reply.
#include "support/LoopbackHttpServer.h"
#include "support/SagelyProcess.h"
#include "support/TemporaryDirectory.h"

#include <sagely/CoachConversation.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/SecretStore.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iostream>

namespace sagely::testing {
namespace {

using namespace std::chrono_literals;

std::string openAIReply(const std::string& content) {
    return nlohmann::json{
        {"choices", {{{"message", {{"role", "assistant"}, {"content", content}}}}}}}
        .dump();
}

class SagelyBinary : public ::testing::Test {
protected:
    SagelyBinary() {
        std::filesystem::create_directories(runtimeDirectory());
        std::filesystem::create_directories(temporaryFolder());
        std::filesystem::permissions(runtimeDirectory(), std::filesystem::perms::owner_all);
        environment = {{"HOME", home.path().string()},
                       {"XDG_DATA_HOME", (home.path() / "data").string()},
                       // No session bus here: the secret store is unreachable unless a test
                       // passes the real one through.
                       {"XDG_RUNTIME_DIR", runtimeDirectory().string()},
                       {"PATH", "/usr/bin:/bin"},
                       {"TMPDIR", temporaryFolder().string()},
                       {"LANG", "C.UTF-8"}};
        for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
            if (const char* value = std::getenv(name)) environment[name] = value;
    }

    std::filesystem::path runtimeDirectory() const { return home.path() / "run"; }
    std::filesystem::path temporaryFolder() const { return home.path() / "tmp"; }
    /// What runs left in the temporary folder.
    std::vector<std::string> temporaryLeftovers() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(temporaryFolder()))
            names.push_back(entry.path().filename().string());
        return names;
    }
    std::filesystem::path storage() const {
        return home.path() / "data" / "Brindlewood" / "Sagely";
    }
    std::vector<CoachConversation> conversations() const {
        const std::string bytes = readFile(storage() / "cli-conversations.json");
        return bytes.empty() ? std::vector<CoachConversation>{} : decodeConversations(bytes);
    }
    ProcessOutcome sagely(const std::vector<std::string>& arguments,
                          const std::string& input = "") {
        return runSagely(arguments, environment, input);
    }
    /// The command with its run pointed at the loopback server as a keyless custom endpoint.
    std::vector<std::string> atServer(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin() + 1, {"--provider", "custom", "--endpoint",
                                                 server.url("/v1/chat/completions")});
        return arguments;
    }

    TemporaryDirectory home;
    std::map<std::string, std::string> environment;
    LoopbackHttpServer server;
};

TEST_F(SagelyBinary, ProvidersListsTheCatalogue) {
    const auto result = sagely({"providers"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(result.out.starts_with("apple      Apple (On-Device) — no key needed\n"));
    EXPECT_NE(result.out.find("\ncustom     Custom API"), std::string::npos);
}

TEST_F(SagelyBinary, UsageMistakesExitWith2) {
    const auto none = sagely({});
    EXPECT_EQ(none.exitCode, 2);
    EXPECT_TRUE(
        none.err.starts_with("sagely: no command given\nusage: sagely COMMAND [options]\n"));
    const auto unknown = sagely({"frobnicate"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_TRUE(unknown.err.starts_with("sagely: unknown command 'frobnicate'\n"));
    const auto option = sagely({"ask", "--frob", "hi"});
    EXPECT_EQ(option.exitCode, 2);
    EXPECT_EQ(option.err,
              "sagely ask: unknown option '--frob'\nusage: sagely ask [options] QUESTION\n");
    EXPECT_EQ(option.out, "");
}

TEST_F(SagelyBinary, EveryCommandAnswersHelp) {
    for (const std::string command : {"ask", "chat", "prompt", "use", "set", "key", "settings",
                                      "status", "providers", "history", "format"}) {
        const auto result = sagely({command, "--help"});
        EXPECT_EQ(result.exitCode, 0) << command;
        EXPECT_TRUE(result.out.starts_with("usage: sagely " + command)) << result.out;
    }
    EXPECT_EQ(sagely({"--help"}).exitCode, 0);
}

TEST_F(SagelyBinary, OfflineAnswersAQuestionAboutTheKitFromTheBundledGuide) {
    const auto result = sagely({"ask", "--offline", "Tell me about API Keys"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("\n┃ API Keys\n┃ From the guide\n"), std::string::npos) << result.out;
    EXPECT_EQ(result.out.find('\x1b'), std::string::npos);
    const auto saved = conversations();
    ASSERT_EQ(saved.size(), 1u);
    EXPECT_EQ(saved[0].messages().size(), 2u);
}

TEST_F(SagelyBinary, JsonOutputDecodesWithTheKitsTypes) {
    const auto result = sagely({"ask", "--offline", "--json", "Tell me about Conversations"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const CoachMessage message = decodeMessage(result.out);
    EXPECT_EQ(message.role(), CoachMessage::Role::assistant);
    EXPECT_EQ(message.card()->title, "Conversations");
    EXPECT_EQ(message.id(), conversations()[0].messages()[1].id());
}

TEST_F(SagelyBinary, AskGetsItsReplyFromTheServer) {
    server.enqueue(ScriptedResponse::json(200, openAIReply("Open **Settings**, then save.")));
    environment["OPENAI_API_KEY"] = "sk-from-env";
    const auto result = sagely(
        {"ask", "--provider", "openai", "--endpoint", server.url("/v1/chat/completions"), "How?"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "Open Settings, then save.\n");
    ASSERT_EQ(server.requestCount(), 1u);
    EXPECT_EQ(server.requests()[0].header("Authorization"), "Bearer sk-from-env");
    EXPECT_EQ(conversations()[0].messages()[1].content(), "Open **Settings**, then save.");
}

TEST_F(SagelyBinary, ExitCodesTellMissingKeysFromProviderFailures) {
    const auto missing = sagely({"ask", "hello"});
    EXPECT_EQ(missing.exitCode, 3);
    EXPECT_TRUE(missing.err.starts_with("OpenAI needs an API key.")) << missing.err;
    const auto offline = sagely({"ask", "--offline", "zzqx wvvk"});
    EXPECT_EQ(offline.exitCode, 3);
    server.enqueue(ScriptedResponse::json(500, R"({"error": {"message": "It broke."}})"));
    const auto failed = sagely(atServer({"ask", "hello"}));
    EXPECT_EQ(failed.exitCode, 4);
    EXPECT_FALSE(failed.err.empty());
}

TEST_F(SagelyBinary, ChatFollowsAScript) {
    server.enqueue(ScriptedResponse::json(200, openAIReply("First.")));
    server.enqueue(ScriptedResponse::json(200, openAIReply("Second.")));
    const auto result = sagely(atServer({"chat"}), "one\n/list\ntwo\n/quit\n");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "First.\n* 1. one (2 messages)\nSecond.\n");
    EXPECT_EQ(conversations()[0].messages().size(), 4u);
}

TEST_F(SagelyBinary, SettingsChangeOnlyThroughUseSetAndKey) {
    EXPECT_EQ(sagely({"use", "gemini", "--model", "gemini-1.5-pro"}).exitCode, 0);
    EXPECT_EQ(sagely({"set", "temperature", "0.5"}).exitCode, 0);
    EXPECT_EQ(sagely({"set", "max-tokens", "1024"}).exitCode, 0);
    const auto refused = sagely({"set", "temperature", "1.5"});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_TRUE(refused.err.starts_with(
        "sagely set: temperature must be 0.0 to 1.2 in steps of 0.1 (got '1.5')\n"));
    EXPECT_EQ(sagely({"set", "max-tokens", "9000"}).exitCode, 2);
    const std::string before = readFile(storage() / "settings.json");
    server.enqueue(ScriptedResponse::json(200, openAIReply("Fine.")));
    EXPECT_EQ(sagely(atServer({"ask", "--model", "x", "hi"})).exitCode, 0);
    EXPECT_EQ(readFile(storage() / "settings.json"), before);
    const auto saved = decodePersistedSettings(before);
    EXPECT_EQ(saved.provider, Provider::gemini);
    EXPECT_EQ(saved.model, "gemini-1.5-pro");
    EXPECT_EQ(saved.temperature, 0.5);
    EXPECT_EQ(saved.maxTokens, 1024);
    const auto settings = sagely({"settings"});
    EXPECT_EQ(settings.out,
              "Provider:     Google Gemini (gemini)\n"
              "Model:        gemini-1.5-pro\n"
              "Endpoint:     https://generativelanguage.googleapis.com/v1beta/models/"
              "gemini-1.5-pro:generateContent (default)\n"
              "Temperature:  0.5\n"
              "Max tokens:   1024\n"
              "Saved keys:   none\n");
}

TEST_F(SagelyBinary, HistoryListsShowsAndDeletes) {
    sagely({"ask", "--offline", "Tell me about API Keys"});
    sagely({"ask", "--offline", "--new", "Tell me about Conversations"});
    EXPECT_EQ(sagely({"history"}).out,
              "  1. Tell me about Conversations (2 messages)\n"
              "  2. Tell me about API Keys (2 messages)\n");
    const auto shown = sagely({"history", "show", "2"});
    EXPECT_EQ(shown.exitCode, 0);
    EXPECT_TRUE(
        shown.out.starts_with("Tell me about API Keys\n\nYou: Tell me about API Keys\n\n"
                              "Coach:\n"))
        << shown.out;
    EXPECT_EQ(sagely({"history", "show", "3"}).exitCode, 2);
    EXPECT_EQ(sagely({"history", "delete", "1"}).out, "Deleted “Tell me about Conversations”.\n");
    EXPECT_EQ(sagely({"history", "list"}).out, "  1. Tell me about API Keys (2 messages)\n");
    EXPECT_EQ(conversations().size(), 1u);
}

TEST_F(SagelyBinary, PromptShowsWhatTheModelWouldBeSent) {
    const auto result = sagely({"prompt", "--summary", "Sync: on", "How do keys work?"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const auto json = nlohmann::json::parse(result.out);
    const std::string system = json.at("systemPrompt");
    EXPECT_NE(system.find("Sync: on"), std::string::npos);
    ASSERT_EQ(json.at("messages").size(), 2u);
    EXPECT_EQ(json["messages"][0], (nlohmann::json{{"role", "system"}, {"content", system}}));
    EXPECT_EQ(json["messages"][1],
              (nlohmann::json{{"role", "user"}, {"content", "How do keys work?"}}));
    EXPECT_FALSE(std::filesystem::exists(storage() / "cli-conversations.json"));
}

TEST_F(SagelyBinary, FormatReadsStandardInput) {
    const auto result = sagely({"format", "--normalize"}, "Done!Restart the app");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "Done!\nRestart the app\n");
}

TEST_F(SagelyBinary, StatusReportsTheOnDeviceModel) {
    const auto result = sagely({"status"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_TRUE(
        result.out.starts_with("Apple Intelligence (on-device): not supported on this "
                               "system\n"));
}

// With the system's secret store (gnome-keyring under the test script) the key lands there;
// without one, `key set` says so and names the environment variables. The item is restored
// afterwards, so running this on a desktop does not lose a real key.
TEST_F(SagelyBinary, AKeyReadFromStandardInputLandsInTheSecretStore) {
    for (const char* name : {"DBUS_SESSION_BUS_ADDRESS", "XDG_RUNTIME_DIR"})
        if (const char* value = std::getenv(name)) environment[name] = value;
    auto secrets = SecretStore::system();
    const std::string service = "com.brindlewood.sagely", account = "coach-api-key.gemini";
    if (!secrets->isAvailable()) {
        ASSERT_EQ(std::getenv("SAGELY_REQUIRE_SECRET_SERVICE"), nullptr)
            << "the Secret Service of the test script is not reachable";
        const auto result = sagely({"key", "set", "gemini"}, "g-test-key\n");
        EXPECT_EQ(result.exitCode, 3);
        EXPECT_NE(result.err.find("OPENAI_API_KEY, ANTHROPIC_API_KEY or GEMINI_API_KEY"),
                  std::string::npos);
        std::cout << "[ note ] no secret store here: the refusal was checked\n";
        return;
    }
    const auto previous = secrets->read(service, account);
    const auto result = sagely({"key", "set", "gemini"}, "g-test-key\n");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "Saved the Google Gemini key.\n");
    EXPECT_EQ(secrets->read(service, account), "g-test-key");
    EXPECT_NE(sagely({"settings"}).out.find("Saved keys:   gemini\n"), std::string::npos);
    EXPECT_EQ(sagely({"key", "clear", "gemini"}).exitCode, 0);
    EXPECT_EQ(secrets->read(service, account), std::nullopt);
    if (previous) secrets->write(service, account, *previous);
}

// Timing-dependent (generous): the reply never comes, so the run ends only through Ctrl-C; it is
// given five seconds (it takes about a tenth of one) and the figure is printed.
TEST_F(SagelyBinary, CtrlCDuringASlowReplyExits130AndKeepsTheQuestion) {
    server.enqueue(ScriptedResponse::noAnswer());
    SagelyProcess process(atServer({"ask", "A slow question"}), environment);
    ASSERT_TRUE(server.waitForRequests(1, 30s));
    const auto pressed = std::chrono::steady_clock::now();
    process.interrupt();
    const auto outcome = process.wait(5s);
    const auto took = std::chrono::steady_clock::now() - pressed;
    std::cout << "[ note ] exited "
              << std::chrono::duration_cast<std::chrono::milliseconds>(took).count()
              << " ms after Ctrl-C\n";
    ASSERT_TRUE(outcome.exited) << "signal " << outcome.signal;
    EXPECT_EQ(outcome.exitCode, 130);
    EXPECT_EQ(outcome.err, "Cancelled.\n");
    const auto saved = conversations();
    ASSERT_EQ(saved.size(), 1u);
    ASSERT_EQ(saved[0].messages().size(), 1u);
    EXPECT_EQ(saved[0].messages()[0].content(), "A slow question");
}

TEST_F(SagelyBinary, APipeSeesTheFirstLineOfAStreamedReplyBeforeTheRestArrives) {
    server.enqueue(
        ScriptedResponse::eventStream({openAIStreamEvent("First **words** here.\nStill "),
                                       openAIStreamEvent("the rest."), "data: [DONE]\n\n"},
                                      3s));
    SagelyProcess process(atServer({"ask", "Stream it"}), environment);
    const auto start = std::chrono::steady_clock::now();
    const std::string early = process.waitForOutput("First words here.\n", 30s);
    const auto seen = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(early, "First words here.\n");  // styled as a whole line, nothing of the rest
    const auto outcome = process.wait(30s);
    const auto ended = std::chrono::steady_clock::now() - start;
    ASSERT_TRUE(outcome.exited);
    EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "First words here.\nStill the rest.\n");
    // The first line came a whole pause before the end.
    EXPECT_LT(seen + 2s, ended);
    EXPECT_EQ(conversations().at(0).messages().at(1).content(),
              "First **words** here.\nStill the rest.");
}

TEST_F(SagelyBinary, JsonAndNoStreamPrintOnlyTheFinalReply) {
    server.enqueue(ScriptedResponse::eventStream(
        {openAIStreamEvent("One\n"), openAIStreamEvent("two"), "data: [DONE]\n\n"}, 0ms));
    const auto json = sagely(atServer({"ask", "--json", "Q"}));
    EXPECT_EQ(json.exitCode, 0) << json.err;
    EXPECT_EQ(nlohmann::json::parse(json.out)["content"], "One\ntwo");
    server.enqueue(ScriptedResponse::json(200, openAIReply("Whole.")));
    const auto whole = sagely(atServer({"ask", "--no-stream", "Q"}));
    EXPECT_EQ(whole.out, "Whole.\n");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(nlohmann::json::parse(requests[0].body)["stream"], true);
    EXPECT_FALSE(nlohmann::json::parse(requests[1].body).contains("stream"));
}

TEST_F(SagelyBinary, CtrlCDuringAStreamKeepsTheTextSoFarAndExits130) {
    server.enqueue(ScriptedResponse::eventStream(
        {openAIStreamEvent("Kept line.\nand a half"), "data: [DONE]\n\n"}, 60s));
    SagelyProcess process(atServer({"ask", "Stream then stop"}), environment);
    ASSERT_EQ(process.waitForOutput("Kept line.\n", 30s), "Kept line.\n");
    process.interrupt();
    const auto outcome = process.wait(5s);
    ASSERT_TRUE(outcome.exited) << "signal " << outcome.signal;
    EXPECT_EQ(outcome.exitCode, 130);
    EXPECT_EQ(outcome.out, "Kept line.\nand a half\n");
    const auto saved = conversations();
    ASSERT_EQ(saved.size(), 1u);
    ASSERT_EQ(saved[0].messages().size(), 2u);
    EXPECT_EQ(saved[0].messages()[1].content(), "Kept line.\nand a half");
}

// SIGTERM and SIGHUP end a run as Ctrl-C does (the question kept), then the process dies of
// the signal so its parent sees why.
TEST_F(SagelyBinary, TermAndHangUpEndARunAsCleanlyAsCtrlC) {
    for (int signalNumber : {SIGTERM, SIGHUP}) {
        server.clearRequests();
        server.enqueue(ScriptedResponse::noAnswer());
        const std::string question = "A question ended by signal " + std::to_string(signalNumber);
        SagelyProcess process(atServer({"ask", "--new", question}), environment);
        ASSERT_TRUE(server.waitForRequests(1, 30s));
        process.sendSignal(signalNumber);
        const auto outcome = process.wait(5s);
        EXPECT_FALSE(outcome.exited) << "exit code " << outcome.exitCode;
        EXPECT_EQ(outcome.signal, signalNumber);
        EXPECT_EQ(outcome.err, "Cancelled.\n");
        bool kept = false;
        for (const auto& conversation : conversations())
            for (const auto& message : conversation.messages())
                kept = kept || message.content() == question;
        EXPECT_TRUE(kept) << "signal " << signalNumber;
    }
    EXPECT_TRUE(temporaryLeftovers().empty());
}

// A run keeps its settings in memory: killed outright, it leaves no copy of the history or the
// settings anywhere.
TEST_F(SagelyBinary, KilledRunsLeaveNothingInTheTemporaryFolder) {
    for (int run = 0; run < 5; ++run) {
        server.enqueue(ScriptedResponse::noAnswer());
        SagelyProcess process(atServer({"ask", "Question " + std::to_string(run)}), environment);
        ASSERT_TRUE(server.waitForRequests(static_cast<std::size_t>(run) + 1, 30s));
        process.sendSignal(SIGKILL);
        EXPECT_EQ(process.wait(5s).signal, SIGKILL);
    }
    EXPECT_TRUE(temporaryLeftovers().empty());
    for (const auto& entry : std::filesystem::directory_iterator(storage())) {
        const std::string name = entry.path().filename().string();
        // The lock file stays beside the history on purpose: every host locks the same file.
        EXPECT_TRUE(name == "cli-conversations.json" || name == "settings.json" ||
                    name == "cli-conversations.json.lock" ||
                    name.rfind(".cli-conversations.json.tmp-", 0) == 0)
            << name;
    }
}

}  // namespace
}  // namespace sagely::testing
