// The commands that need no model: usage and help, the catalogue, settings, keys, status and the
// reply formatter, run in-process on a temporary storage folder with in-memory keys.
#include "cli/Commands.h"
#include "support/CliHarness.h"

#include <sagely/CoachPromptBudget.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/CoachSystemPrompt.h>
#include <sagely/SagelyKnowledge.h>
#include <sagely/StaticCoachContextProvider.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace sagely::testing {
namespace {

class CliCommands : public ::testing::Test {
protected:
    CliResult run(const std::vector<std::string>& arguments, const std::string& input = "") {
        return cli.run(arguments, input);
    }
    std::string settingsBytes() const { return readFile(cli.settingsFile()); }

    CliHarness cli;
};

// --- usage and help ---

TEST_F(CliCommands, NoCommandIsRefusedWithTheUsage) {
    const auto result = run({});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "sagely: no command given\n" + cli::overallUsage());
}

TEST_F(CliCommands, AnUnknownCommandIsRefusedWithTheUsage) {
    const auto result = run({"frobnicate", "now"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "sagely: unknown command 'frobnicate'\n" + cli::overallUsage());
}

TEST_F(CliCommands, AnUnknownOptionBeforeTheCommandIsRefused) {
    const auto result = run({"--verbose"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "sagely: unknown option '--verbose'\n" + cli::overallUsage());
}

TEST_F(CliCommands, AnUnknownOptionOfACommandIsRefusedWithThatCommandsUsage) {
    const auto result = run({"settings", "--verbose"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err, "sagely settings: unknown option '--verbose'\nusage: sagely settings\n");
    EXPECT_EQ(run({"ask", "--temperature", "1", "hi"}).err,
              "sagely ask: unknown option '--temperature'\nusage: sagely ask [options] QUESTION\n");
}

TEST_F(CliCommands, EveryCommandHasHelp) {
    for (const auto& command : cli::commands()) {
        const auto result = run({std::string(command.name), "--help"});
        EXPECT_EQ(result.exitCode, 0) << command.name;
        EXPECT_EQ(result.out, std::string(command.usage) + "\n\n" + std::string(command.details));
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(run({"help", std::string(command.name)}).out, result.out);
    }
}

TEST_F(CliCommands, TheOverallHelpListsEveryCommand) {
    const auto result = run({"--help"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, cli::overallUsage());
    for (const auto& command : cli::commands())
        EXPECT_NE(result.out.find("\n  " + std::string(command.name) + " "), std::string::npos);
    EXPECT_EQ(run({"help"}).out, cli::overallUsage());
    EXPECT_EQ(run({"-h"}).out, cli::overallUsage());
}

// --- providers and status ---

TEST_F(CliCommands, ProvidersListsTheCatalogue) {
    const auto result = run({"providers"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out,
              "apple      Apple (On-Device) — no key needed\n"
              "    system-default             Apple Intelligence (on-device)  [default]\n"
              "    content-tagging            Content Tagging\n"
              "openai     OpenAI — API key (or OPENAI_API_KEY for one run)\n"
              "    gpt-4o-mini                GPT-4o mini (fast, cheap)  [default]\n"
              "    gpt-4o                     GPT-4o (balanced)\n"
              "    gpt-4.1                    GPT-4.1 (advanced)\n"
              "    o3-mini                    o3-mini (reasoning)\n"
              "anthropic  Anthropic — API key (or ANTHROPIC_API_KEY for one run)\n"
              "    claude-sonnet-4-20250514   Claude Sonnet 4 (balanced)  [default]\n"
              "    claude-3-5-haiku-20241022  Claude 3.5 Haiku (fast, cheap)\n"
              "gemini     Google Gemini — API key (or GEMINI_API_KEY for one run)\n"
              "    gemini-2.0-flash           Gemini 2.0 Flash (fast)  [default]\n"
              "    gemini-2.0-flash-lite      Gemini 2.0 Flash-Lite (cheap)\n"
              "    gemini-1.5-pro             Gemini 1.5 Pro (advanced)\n"
              "local      Local (Ollama) — no key needed\n"
              "    gemma3:4b                  Gemma 3 4B (lightweight, vision)  [default]\n"
              "    gemma3:12b                 Gemma 3 12B (balanced)\n"
              "    llama3                     Llama 3\n"
              "    mistral                    Mistral\n"
              "custom     Custom API — API key (optional for an endpoint without one)\n"
              "    gpt-4o-mini                Example: gpt-4o-mini  [default]\n"
              "    gemini-2.0-flash           Example: gemini-2.0-flash\n");
    EXPECT_EQ(run({"providers", "extra"}).exitCode, 2);
}

TEST_F(CliCommands, StatusOffMacOSExplainsAndListsTheSetupSteps) {
    const auto result = run({"status"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out,
              "Apple Intelligence (on-device): not supported on this system\n"
              "Requires macOS 26 (Tahoe) or later on Apple silicon. macOS 15 can run Apple "
              "Intelligence features, but apps cannot call the Foundation Model until macOS 26.\n"
              "Model: No Foundation Models API (needs macOS 26+)\n"
              "\n"
              "Setup:\n"
              "  1. Open System Settings → Apple Intelligence & Siri.\n"
              "  2. Turn on Apple Intelligence.\n"
              "  3. Wait for the on-device model download to finish (Wi‑Fi recommended).\n"
              "  4. Return here — no API key needed.\n"
              "Download: about 2–4 GB (one-time, managed by macOS)\n");
}

// --- settings, use and set ---

TEST_F(CliCommands, SettingsShowsTheDefaultsAndWritesNothing) {
    const auto result = run({"settings"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out,
              "Provider:     OpenAI (openai)\n"
              "Model:        gpt-4o-mini\n"
              "Endpoint:     https://api.openai.com/v1/chat/completions (default)\n"
              "Temperature:  0.3\n"
              "Max tokens:   4096\n"
              "Saved keys:   none\n");
    EXPECT_FALSE(std::filesystem::exists(cli.settingsFile()));
}

TEST_F(CliCommands, UseSavesTheProviderAndItsModel) {
    const auto result = run({"use", "anthropic", "--model", "claude-3-5-haiku-20241022"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out,
              "Provider:     Anthropic (anthropic)\n"
              "Model:        claude-3-5-haiku-20241022\n"
              "Endpoint:     https://api.anthropic.com/v1/messages (default)\n"
              "Temperature:  0.3\n"
              "Max tokens:   4096\n"
              "Saved keys:   none\n"
              "No key is saved for Anthropic: run `sagely key set anthropic`.\n");
    const auto saved = decodePersistedSettings(settingsBytes());
    EXPECT_EQ(saved.provider, Provider::anthropic);
    EXPECT_EQ(saved.model, "claude-3-5-haiku-20241022");
    EXPECT_EQ(saved.userChoseProvider, true);
}

TEST_F(CliCommands, UseTakesTheProvidersDisplayNameToo) {
    EXPECT_EQ(run({"use", "Google Gemini"}).exitCode, 0);
    EXPECT_EQ(decodePersistedSettings(settingsBytes()).provider, Provider::gemini);
}

TEST_F(CliCommands, UseSetsAndClearsTheEndpoint) {
    const auto result = run({"use", "custom", "--endpoint", "http://10.0.0.5/v1/chat/completions"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.out.find("Endpoint:     http://10.0.0.5/v1/chat/completions\n"),
              std::string::npos);
    const auto cleared = run({"use", "custom", "--endpoint="});
    EXPECT_NE(cleared.out.find("Endpoint:     none — set one with `sagely use custom --endpoint "
                               "URL`\n"),
              std::string::npos);
    EXPECT_EQ(decodePersistedSettings(settingsBytes()).customEndpoint, "");
}

TEST_F(CliCommands, EachProviderKeepsItsOwnModel) {
    run({"use", "openai", "--model", "gpt-4o"});
    run({"use", "gemini"});
    const auto back = run({"use", "openai"});
    EXPECT_NE(back.out.find("Model:        gpt-4o\n"), std::string::npos) << back.out;
}

TEST_F(CliCommands, UseRefusesUnknownProvidersAndMissingOnes) {
    const auto unknown = run({"use", "mistral"});
    EXPECT_EQ(unknown.exitCode, 2);
    EXPECT_EQ(unknown.err,
              "sagely use: unknown provider 'mistral' (choose one of apple, openai, anthropic, "
              "gemini, local, custom)\nusage: sagely use PROVIDER [--model ID] [--endpoint URL]\n");
    EXPECT_EQ(run({"use"}).exitCode, 2);
    EXPECT_FALSE(std::filesystem::exists(cli.settingsFile()));
}

TEST_F(CliCommands, KeylessProvidersNeedNoKeyHint) {
    const auto result = run({"use", "local"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out.find("No key is saved"), std::string::npos);
    EXPECT_NE(result.out.find("Endpoint:     http://127.0.0.1:11434/api/chat (default)\n"),
              std::string::npos)
        << result.out;
}

TEST_F(CliCommands, SetTemperatureTakesTenthsFromZeroTo1Point2) {
    for (const std::string value : {"0", "0.0", "0.7", "1.2", "1.20"}) {
        const auto result = run({"set", "temperature", value});
        EXPECT_EQ(result.exitCode, 0) << value;
        EXPECT_EQ(decodePersistedSettings(settingsBytes()).temperature, std::stod(value));
    }
    EXPECT_EQ(run({"set", "temperature", "0.7"}).out, "Temperature: 0.7\n");
    EXPECT_NE(run({"settings"}).out.find("Temperature:  0.7\n"), std::string::npos);
}

TEST_F(CliCommands, SetTemperatureRefusesValuesOutsideTheRangeOrBetweenSteps) {
    run({"set", "temperature", "0.5"});
    const std::string before = settingsBytes();
    for (const std::string value : {"1.3", "-0.1", "0.25", "2", "abc", "", "nan", "0.5x"}) {
        const auto result = run({"set", "temperature", value});
        EXPECT_EQ(result.exitCode, 2) << value;
        EXPECT_EQ(result.err, "sagely set: temperature must be 0.0 to 1.2 in steps of 0.1 (got '" +
                                  value + "')\nusage: sagely set temperature|max-tokens VALUE\n");
    }
    EXPECT_EQ(settingsBytes(), before);
}

TEST_F(CliCommands, SetMaxTokensTakesStepsOf256From256To8192) {
    for (const std::string value : {"256", "2048", "8192"}) {
        EXPECT_EQ(run({"set", "max-tokens", value}).exitCode, 0) << value;
        EXPECT_EQ(decodePersistedSettings(settingsBytes()).maxTokens, std::stoll(value));
    }
    EXPECT_EQ(run({"set", "max-tokens", "1024"}).out, "Max tokens: 1024\n");
    for (const std::string value : {"128", "300", "8448", "0", "-256", "1e3", "2048.0"}) {
        const auto result = run({"set", "max-tokens", value});
        EXPECT_EQ(result.exitCode, 2) << value;
        EXPECT_EQ(result.err, "sagely set: max-tokens must be 256 to 8192 in steps of 256 (got '" +
                                  value + "')\nusage: sagely set temperature|max-tokens VALUE\n");
    }
    EXPECT_EQ(decodePersistedSettings(settingsBytes()).maxTokens, 1024);
}

TEST_F(CliCommands, SetRefusesUnknownSettingsAndMissingValues) {
    EXPECT_EQ(run({"set", "model", "x"}).err,
              "sagely set: unknown setting 'model' (temperature or max-tokens)\n"
              "usage: sagely set temperature|max-tokens VALUE\n");
    EXPECT_EQ(run({"set", "temperature"}).exitCode, 2);
    EXPECT_EQ(run({"set"}).exitCode, 2);
}

// --- keys ---

TEST_F(CliCommands, KeySetReadsTheKeyFromStandardInput) {
    const auto result = run({"key", "set", "openai"}, "  sk-live-123 \n");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "Saved the OpenAI key.\n");
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(savedKey(*cli.secrets, "openai"), "sk-live-123");
    const auto settings = run({"settings"}).out;
    EXPECT_NE(settings.find("Saved keys:   openai\n"), std::string::npos);
    EXPECT_EQ(settings.find("sk-live"), std::string::npos);
}

TEST_F(CliCommands, OnATerminalKeySetAsksForTheKey) {
    cli.inIsTerminal = true;
    const auto result = run({"key", "set", "gemini"}, "g-123\n");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "API key for Google Gemini: \n");
    EXPECT_EQ(savedKey(*cli.secrets, "gemini"), "g-123");
}

TEST_F(CliCommands, KeySetForAnotherProviderLeavesTheCurrentProviderAlone) {
    EXPECT_EQ(run({"key", "set", "Anthropic"}, "sk-ant\n").out, "Saved the Anthropic key.\n");
    EXPECT_EQ(savedKey(*cli.secrets, "anthropic"), "sk-ant");
    EXPECT_EQ(savedKey(*cli.secrets, "openai"), std::nullopt);
    const auto settings = run({"settings"}).out;
    EXPECT_NE(settings.find("Provider:     OpenAI (openai)\n"), std::string::npos);
    EXPECT_NE(settings.find("Saved keys:   anthropic\n"), std::string::npos);
}

TEST_F(CliCommands, KeyClearRemovesTheKey) {
    run({"key", "set", "openai"}, "sk-1\n");
    run({"key", "set", "gemini"}, "g-1\n");
    EXPECT_EQ(run({"key", "clear", "openai"}).out, "Cleared the OpenAI key.\n");
    EXPECT_EQ(run({"key", "clear", "gemini"}).out, "Cleared the Google Gemini key.\n");
    EXPECT_EQ(savedKey(*cli.secrets, "openai"), std::nullopt);
    EXPECT_EQ(savedKey(*cli.secrets, "gemini"), std::nullopt);
    EXPECT_NE(run({"settings"}).out.find("Saved keys:   none\n"), std::string::npos);
}

TEST_F(CliCommands, KeyNeverComesFromTheCommandLine) {
    const auto result = run({"key", "set", "openai", "sk-visible"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err,
              "sagely key: unexpected argument (the key is read from standard input, not from the "
              "command line)\nusage: sagely key set|clear PROVIDER\n");
    EXPECT_EQ(savedKey(*cli.secrets, "openai"), std::nullopt);
}

TEST_F(CliCommands, AnEmptyKeyIsRefused) {
    const auto result = run({"key", "set", "openai"}, "   \n");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err,
              "sagely key: no key was given on standard input; nothing was saved\n"
              "usage: sagely key set|clear PROVIDER\n");
    EXPECT_EQ(run({"key", "set", "openai"}, "").exitCode, 2);
}

TEST_F(CliCommands, KeylessProvidersAndUnknownActionsAreRefused) {
    EXPECT_EQ(run({"key", "set", "apple"}, "x\n").err,
              "sagely key: Apple (On-Device) needs no API key\n"
              "usage: sagely key set|clear PROVIDER\n");
    EXPECT_EQ(run({"key", "set", "local"}, "x\n").exitCode, 2);
    EXPECT_EQ(run({"key", "show", "openai"}).err,
              "sagely key: unknown key action 'show' (set or clear)\n"
              "usage: sagely key set|clear PROVIDER\n");
    EXPECT_EQ(run({"key", "set"}).exitCode, 2);
    EXPECT_EQ(run({"key", "set", "acme"}, "x\n").exitCode, 2);
}

// A system without a secret service.
class UnavailableSecretStore final : public SecretStore {
public:
    std::optional<std::string> read(const std::string&, const std::string&) override {
        return std::nullopt;
    }
    void write(const std::string&, const std::string&, const std::string&) override { ++writes; }
    void remove(const std::string&, const std::string&) override {}
    bool isAvailable() override { return false; }
    int writes = 0;
};

TEST_F(CliCommands, WithoutASecretStoreKeySetNamesTheEnvironmentVariables) {
    auto store = std::make_shared<UnavailableSecretStore>();
    cli.secrets = store;
    const auto result = run({"key", "set", "openai"}, "sk-1\n");
    EXPECT_EQ(result.exitCode, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "There is no secret store on this system (the Secret Service is not running), so "
              "keys cannot be saved. Set OPENAI_API_KEY, ANTHROPIC_API_KEY or GEMINI_API_KEY to "
              "supply a key for one run.\n");
    EXPECT_EQ(store->writes, 0);
}

// --- history ---

TEST_F(CliCommands, HistoryOfAnEmptyNamespaceSaysSo) {
    const auto result = run({"history"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "No conversations yet.\n");
    EXPECT_FALSE(std::filesystem::exists(cli.conversationFile()));
}

TEST_F(CliCommands, HistoryWorksPerNamespace) {
    run({"ask", "--offline", "--namespace", "notes", "Tell me about API Keys"});
    EXPECT_EQ(run({"history", "--namespace", "notes"}).out,
              "  1. Tell me about API Keys (2 messages)\n");
    EXPECT_EQ(run({"history"}).out, "No conversations yet.\n");
    EXPECT_EQ(run({"history", "delete", "1", "--namespace=notes"}).out,
              "Deleted “Tell me about API Keys”.\n");
    EXPECT_EQ(readFile(cli.conversationFile("notes")), "[]");
}

TEST_F(CliCommands, HistoryRefusesWhatItCannotDo) {
    run({"ask", "--offline", "Tell me about API Keys"});
    const std::string usage =
        "\nusage: sagely history [list|show N [--usage]|delete N] [--namespace NAME]\n";
    EXPECT_EQ(run({"history", "show", "2"}).err,
              "sagely history: no conversation number 2 (there are 1)" + usage);
    EXPECT_EQ(run({"history", "show"}).err,
              "sagely history: show needs one conversation number" + usage);
    EXPECT_EQ(run({"history", "delete", "first"}).err,
              "sagely history: no conversation number first (there are 1)" + usage);
    EXPECT_EQ(run({"history", "forget", "1"}).err,
              "sagely history: unknown history action 'forget' (list, show or delete)" + usage);
    EXPECT_EQ(run({"history", "list", "1"}).exitCode, 2);
    EXPECT_EQ(cli.conversations().size(), 1u);
}

// --- prompt ---

nlohmann::json expectedPrompt(Provider provider, const std::string& question,
                              const std::vector<CoachMessage>& history,
                              const std::string& summary = "") {
    StaticCoachContextProvider context("sagely", summary, SagelyKnowledge::bundledGuideText());
    const std::string system = buildCoachSystemPrompt(provider, question, std::nullopt, &context);
    std::vector<LLMMessage> messages{{"system", system}};
    for (const auto& message : history)
        messages.push_back({std::string(rawValue(message.role())), message.content()});
    messages.push_back({"user", question});
    nlohmann::json list = nlohmann::json::array();
    for (const auto& message : CoachPromptBudget::budgetMessages(messages, provider))
        list.push_back({{"role", message.role}, {"content", message.content}});
    return {{"systemPrompt", system}, {"messages", list}};
}

TEST_F(CliCommands, PromptShowsTheSystemPromptAndTheBudgetedMessages) {
    const auto result = run({"prompt", "--summary", "Theme: dark", "How do keys work?"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(nlohmann::json::parse(result.out),
              expectedPrompt(Provider::openai, "How do keys work?", {}, "Theme: dark"));
    EXPECT_TRUE(result.out.starts_with("{\n  \"systemPrompt\": ")) << result.out.substr(0, 40);
}

TEST_F(CliCommands, PromptIncludesTheConversationTheQuestionWouldJoin) {
    for (const char* question :
         {"Tell me about API Keys", "Tell me about Conversations", "Tell me about Local Answers"})
        run({"ask", "--offline", question});
    const std::string before = readFile(cli.conversationFile());
    const auto history = cli.conversations()[0].messages();
    ASSERT_EQ(history.size(), 6u);

    const auto onDevice = run({"prompt", "--provider", "apple", "Why?"});
    EXPECT_EQ(onDevice.exitCode, 0);
    const auto json = nlohmann::json::parse(onDevice.out);
    EXPECT_EQ(json, expectedPrompt(Provider::apple, "Why?", history));
    EXPECT_LT(json["messages"].size(), 8u);  // the on-device budget keeps the newest turns

    EXPECT_EQ(nlohmann::json::parse(run({"prompt", "--new", "Why?"}).out),
              expectedPrompt(Provider::openai, "Why?", {}));
    EXPECT_EQ(readFile(cli.conversationFile()), before);
    EXPECT_FALSE(std::filesystem::exists(cli.settingsFile()));
}

TEST_F(CliCommands, PromptNeedsAQuestion) {
    EXPECT_EQ(run({"prompt"}).err,
              "sagely prompt: a question is needed\nusage: sagely prompt [options] QUESTION\n");
    EXPECT_EQ(run({"prompt", "--offline", "x"}).exitCode, 2);
}

// --- format ---

constexpr const char* kReply = "Do this.Step 1: Open Settings.Step 2:Click Save";

TEST_F(CliCommands, FormatNormalizesStandardInput) {
    const auto result = run({"format", "--normalize"}, kReply);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "Do this.\n\nStep 1:\n Open Settings.\n\nStep 2:\n\nClick Save\n");
}

TEST_F(CliCommands, FormatCutsBlocksAsAJsonArray) {
    const auto result = run({"format", "--blocks"}, "A\n\n\n\nB");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "[\n  \"A\",\n  \"B\"\n]\n");
    EXPECT_EQ(run({"format", "--blocks"}, "  \n").out, "[]\n");
}

TEST_F(CliCommands, FormatParsesStepsAsJson) {
    const auto result = run({"format", "--steps"}, kReply);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(nlohmann::json::parse(result.out),
              nlohmann::json::parse(R"({"intro": "Do this.", "steps": [
                  {"title": "Open Settings.", "details": []},
                  {"title": "Click Save", "details": []}]})"));
    EXPECT_EQ(run({"format", "--steps"}, "Step 1: only one").out, "null\n");
}

TEST_F(CliCommands, FormatWithoutAnOptionRendersTheReply) {
    EXPECT_EQ(run({"format"}, kReply).out, "Do this.\n\n1. Open Settings.\n2. Click Save\n");
}

TEST_F(CliCommands, FormatTakesOneModeAndNoArguments) {
    EXPECT_EQ(run({"format", "--steps", "--blocks"}, kReply).err,
              "sagely format: choose one of --normalize, --blocks and --steps\n"
              "usage: sagely format [--normalize|--blocks|--steps]\n");
    EXPECT_EQ(run({"format", "reply.txt"}).exitCode, 2);
}

TEST_F(CliCommands, ColourIsUsedOnATerminalUnlessNoColorIsSet) {
    cli.outIsTerminal = true;
    EXPECT_EQ(run({"format"}, "Use **bold**").out, "Use \x1b[0m\x1b[1mbold\x1b[0m\n");
    cli.environment["NO_COLOR"] = "1";
    EXPECT_EQ(run({"format"}, "Use **bold**").out, "Use bold\n");
    cli.environment["NO_COLOR"] = "";
    EXPECT_EQ(run({"format"}, "Use **bold**").out, "Use \x1b[0m\x1b[1mbold\x1b[0m\n");
}

}  // namespace
}  // namespace sagely::testing
