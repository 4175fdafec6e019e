// The actions sagely offers the model, in-process against a loopback server: read-only ones run
// at once, use/set ones are declined by ask unless --allow-actions and asked y/N by chat; each
// decided call prints its line and the saved settings change only when approved.
#include "support/CliHarness.h"
#include "support/LoopbackHttpServer.h"

#include <sagely/CoachSettingsStore.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace sagely::testing {
namespace {

using nlohmann::json;

std::string callReply(const std::string& name, const json& arguments) {
    return json{{"choices",
                 {{{"message",
                    {{"role", "assistant"},
                     {"content", nullptr},
                     {"tool_calls",
                      {{{"id", "call_a"},
                        {"type", "function"},
                        {"function", {{"name", name}, {"arguments", arguments.dump()}}}}}}}}}}}}
        .dump();
}

std::string textReply(const std::string& content) {
    return json{{"choices", {{{"message", {{"role", "assistant"}, {"content", content}}}}}}}.dump();
}

class CliActions : public ::testing::Test {
protected:
    CliResult run(const std::string& command, std::vector<std::string> more,
                  const std::string& input = "") {
        std::vector<std::string> arguments{
            command,      "--provider", "custom", "--endpoint", server.url("/v1/chat/completions"),
            "--no-stream"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return cli.run(arguments, input);
    }
    json requestBody(std::size_t index) const {
        return json::parse(server.requests().at(index).body);
    }
    /// The result of the request's last call.
    std::string toolResult(std::size_t request) const {
        const json body = requestBody(request);
        std::string result = "(none)";
        for (const auto& message : body["messages"])
            if (message["role"] == "tool") result = message["content"];
        return result;
    }

    CliHarness cli;
    LoopbackHttpServer server;
};

TEST_F(CliActions, TheModelReadsTheSettingsWithoutAsking) {
    server.enqueue(ScriptedResponse::json(200, callReply("read_settings", json::object())));
    server.enqueue(ScriptedResponse::json(200, textReply("You use the custom endpoint.")));
    const auto result = run("ask", {"Which provider do I use?"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Done: Read the settings\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("You use the custom endpoint."), std::string::npos);
    std::vector<std::string> offered;
    const json first = requestBody(0);
    for (const auto& tool : first["tools"]) offered.push_back(tool["function"]["name"]);
    EXPECT_EQ(offered, (std::vector<std::string>{"read_settings", "use_provider", "set_setting",
                                                 "list_conversations"}));
    EXPECT_NE(toolResult(1).find("Temperature"), std::string::npos) << toolResult(1);
}

TEST_F(CliActions, TheModelListsTheSavedConversations) {
    server.enqueue(ScriptedResponse::json(200, callReply("list_conversations", json::object())));
    server.enqueue(ScriptedResponse::json(200, textReply("One conversation.")));
    const auto result = run("ask", {"--new", "What have I asked?"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    const json listed = json::parse(toolResult(1));
    ASSERT_EQ(listed.size(), 1u);
    EXPECT_EQ(listed[0]["title"], "What have I asked?");
    EXPECT_EQ(listed[0]["current"], true);
}

TEST_F(CliActions, AskDeclinesAChangeUnlessActionsAreAllowed) {
    server.enqueue(ScriptedResponse::json(
        200, callReply("set_setting", {{"setting", "temperature"}, {"value", 0.9}})));
    server.enqueue(ScriptedResponse::json(200, textReply("I did not change it.")));
    auto result = run("ask", {"Set the temperature to 0.9."});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Declined: Change a setting\n"), std::string::npos) << result.out;
    EXPECT_NE(toolResult(1).find("declined"), std::string::npos);
    EXPECT_EQ(cli.run({"settings"}).out.find("Temperature:  0.9"), std::string::npos);

    server.enqueue(ScriptedResponse::json(
        200, callReply("set_setting", {{"setting", "temperature"}, {"value", 0.9}})));
    server.enqueue(ScriptedResponse::json(200, textReply("Changed.")));
    result = run("ask", {"--allow-actions", "Set the temperature to 0.9."});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Done: Change a setting\n"), std::string::npos) << result.out;
    EXPECT_EQ(toolResult(3), "Temperature: 0.9");
    EXPECT_NE(cli.run({"settings"}).out.find("Temperature:  0.9"), std::string::npos);
}

TEST_F(CliActions, HistoryShowsEachCallsOutcomeWhereItHappened) {
    server.enqueue(ScriptedResponse::json(
        200, callReply("set_setting", {{"setting", "temperature"}, {"value", 0.9}})));
    server.enqueue(ScriptedResponse::json(200, textReply("I did not change it.")));
    ASSERT_EQ(run("ask", {"Set the temperature to 0.9."}).exitCode, 0);
    server.enqueue(ScriptedResponse::json(200, callReply("read_settings", json::object())));
    server.enqueue(ScriptedResponse::json(200, textReply("It is 0.7.")));
    ASSERT_EQ(run("ask", {"What is it now?"}).exitCode, 0);

    const auto result = cli.run({"history", "show", "1"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(
        result.out.ends_with("\nYou: Set the temperature to 0.9.\n"
                             "\nCoach:\nDeclined: Change a setting\n"
                             "\nCoach:\nI did not change it.\n"
                             "\nYou: What is it now?\n"
                             "\nCoach:\nDone: Read the settings\n"
                             "\nCoach:\nIt is 0.7.\n"))
        << result.out;
}

TEST_F(CliActions, ChatAsksYesOrNoBeforeAChange) {
    server.enqueue(ScriptedResponse::json(
        200, callReply("use_provider", {{"provider", "anthropic"}, {"model", "claude-x"}})));
    server.enqueue(ScriptedResponse::json(200, textReply("Switched.")));
    server.enqueue(
        ScriptedResponse::json(200, callReply("use_provider", {{"provider", "gemini"}})));
    server.enqueue(ScriptedResponse::json(200, textReply("Left as is.")));
    const auto result = run("chat", {}, "Use Anthropic.\ny\nUse Gemini.\nn\n/quit\n");
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("Done: Use a provider\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("Declined: Use a provider\n"), std::string::npos) << result.out;
    const std::string settings = cli.run({"settings"}).out;
    EXPECT_NE(settings.find("anthropic"), std::string::npos) << settings;
    EXPECT_NE(settings.find("claude-x"), std::string::npos) << settings;
}

TEST_F(CliActions, InvalidArgumentsNeverReachTheSettings) {
    server.enqueue(
        ScriptedResponse::json(200, callReply("use_provider", {{"provider", "nonsense"}})));
    server.enqueue(ScriptedResponse::json(200, textReply("Sorry.")));
    const auto result = run("ask", {"--allow-actions", "Use nonsense."});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(toolResult(1).find("provider: must be one of"), std::string::npos) << toolResult(1);
    EXPECT_NE(result.out.find("Not run (invalid request): Use a provider"), std::string::npos);
}

}  // namespace
}  // namespace sagely::testing
