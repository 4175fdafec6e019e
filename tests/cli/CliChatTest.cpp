// sagely chat with scripted standard input: questions, suggestions chosen by number, the slash
// commands, failures that do not end the session, and Ctrl-C.
#include "support/CliHarness.h"
#include "support/LoopbackHttpServer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace sagely::testing {
namespace {

std::string openAIReply(const std::string& content) {
    return nlohmann::json{
        {"choices", {{{"message", {{"role", "assistant"}, {"content", content}}}}}}}
        .dump();
}

class CliChat : public ::testing::Test {
protected:
    CliResult chat(const std::string& input, std::vector<std::string> options = {"--offline"}) {
        options.insert(options.begin(), "chat");
        return cli.run(options, input);
    }

    CliHarness cli;
    LoopbackHttpServer server;
};

TEST_F(CliChat, QuestionsAreAnsweredInOneConversation) {
    const auto result = chat("Tell me about API Keys\nTell me about Conversations\n");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_NE(result.out.find("┃ API Keys\n"), std::string::npos);
    EXPECT_NE(result.out.find("┃ Conversations\n"), std::string::npos);
    const auto conversations = cli.conversations();
    ASSERT_EQ(conversations.size(), 1u);
    EXPECT_EQ(conversations[0].messages().size(), 4u);
}

TEST_F(CliChat, ANumberSendsThatSuggestionOfTheLastReply) {
    const auto first = chat("Tell me about API Keys\n");
    const auto start = first.out.find("  1) ");
    ASSERT_NE(start, std::string::npos) << first.out;
    const auto end = first.out.find('\n', start);
    const std::string suggestion = first.out.substr(start + 5, end - start - 5);

    const auto result = chat("Tell me about API Keys\n1\n", {"--offline", "--new"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.out.find("> " + suggestion + "\n"), std::string::npos) << result.out;
    const auto messages = cli.conversations()[0].messages();
    ASSERT_EQ(messages.size(), 4u);
    EXPECT_EQ(messages[2].content(), suggestion);
}

TEST_F(CliChat, ANumberWithoutSuchASuggestionIsAskedAsItStands) {
    const auto result = chat("Tell me about API Keys\n9\n");
    EXPECT_EQ(cli.conversations()[0].messages()[2].content(), "9");
    EXPECT_NE(result.err.find("The guide has no section that answers this question."),
              std::string::npos);
}

TEST_F(CliChat, SlashCommandsManageTheConversations) {
    const auto result = chat(
        "Tell me about API Keys\n/new\nTell me about Conversations\n/list\n/switch 2\n"
        "Tell me about Local Answers\n/delete 1\n/list\n/quit\nTell me about Ignored\n");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_NE(result.out.find("Started Conversation 2.\n"), std::string::npos);
    EXPECT_NE(result.out.find("* 1. Tell me about Conversations (2 messages)\n"
                              "  2. Tell me about API Keys (2 messages)\n"),
              std::string::npos)
        << result.out;
    EXPECT_NE(result.out.find("Switched to “Tell me about API Keys”.\n"), std::string::npos);
    EXPECT_NE(result.out.find("Deleted “Tell me about Conversations”.\n"), std::string::npos);
    EXPECT_NE(result.out.find("* 1. Tell me about API Keys (4 messages)\n"), std::string::npos);
    const auto conversations = cli.conversations();
    ASSERT_EQ(conversations.size(), 1u);
    EXPECT_EQ(conversations[0].title(), "Tell me about API Keys");
    EXPECT_EQ(conversations[0].messages().size(), 4u);
}

TEST_F(CliChat, MistakesAreReportedAndTheSessionGoesOn) {
    const auto result = chat("/frob\n/switch 7\n/delete x\n\n   \nTell me about API Keys\n");
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.err,
              "Unknown command /frob. Commands: /new, /list, /switch N, /delete N, /quit.\n"
              "/switch needs the number of a conversation (see /list).\n"
              "/delete needs the number of a conversation (see /list).\n");
    EXPECT_EQ(cli.conversations()[0].messages().size(), 2u);
}

TEST_F(CliChat, AnEmptyListSaysSo) {
    EXPECT_EQ(chat("/list\n").out, "No conversations yet.\n");
}

TEST_F(CliChat, AMissingKeyIsExplainedAndTheSessionGoesOn) {
    const auto result = chat("first\nsecond\n", {});
    EXPECT_EQ(result.exitCode, 0);
    const std::string sentence =
        "OpenAI needs an API key. Save one with `sagely key set openai` (it reads the key from "
        "standard input), or set OPENAI_API_KEY for one run. `sagely ask --offline` answers from "
        "the guide without a key.\n";
    EXPECT_EQ(result.err, sentence + sentence);
    EXPECT_EQ(cli.conversations()[0].messages().size(), 2u);
}

TEST_F(CliChat, RepliesFromAModelFollowTheConversation) {
    server.enqueue(ScriptedResponse::json(200, openAIReply("First **answer**.")));
    server.enqueue(ScriptedResponse::json(200, openAIReply("Second answer.")));
    const auto result = chat(
        "one\ntwo\n", {"--provider", "custom", "--endpoint", server.url("/v1/chat/completions")});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "First answer.\nSecond answer.\n");
    const auto body = nlohmann::json::parse(server.requests().back().body);
    ASSERT_EQ(body["messages"].size(), 4u);
    EXPECT_EQ(body["messages"][1]["content"], "one");
    EXPECT_EQ(body["messages"][2]["content"], "First **answer**.");
    EXPECT_EQ(body["messages"][3]["content"], "two");
}

TEST_F(CliChat, JsonPrintsOneMessagePerLine) {
    const auto result =
        chat("Tell me about API Keys\nTell me about Conversations\n", {"--offline", "--json"});
    const auto newline = result.out.find('\n');
    ASSERT_NE(newline, std::string::npos);
    const auto first = decodeMessage(result.out.substr(0, newline));
    const auto second = decodeMessage(result.out.substr(newline + 1));
    EXPECT_EQ(first.card()->title, "API Keys");
    EXPECT_EQ(second.card()->title, "Conversations");
}

TEST_F(CliChat, CtrlCWhileWaitingEndsTheSessionWith130) {
    server.enqueue(ScriptedResponse::noAnswer());
    cli.interrupted = [this] { return server.requestCount() > 0; };
    const auto result = chat("slow one\nnever asked\n", {"--provider", "custom", "--endpoint",
                                                         server.url("/v1/chat/completions")});
    EXPECT_EQ(result.exitCode, 130);
    EXPECT_EQ(result.err, "Cancelled.\n");
    const auto messages = cli.conversations()[0].messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].content(), "slow one");
}

TEST_F(CliChat, OnATerminalItGreetsAndPrompts) {
    cli.inIsTerminal = true;
    const auto result = chat("/list\n");
    EXPECT_EQ(result.out,
              "Sagely chat — answers from the guide (offline). Commands: /new, /list, /switch N, "
              "/delete N, /quit.\nyou> No conversations yet.\nyou> ");
}

TEST_F(CliChat, ChatTakesNoQuestionOnTheCommandLine) {
    const auto result = cli.run({"chat", "hello"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_EQ(result.err,
              "sagely chat: unexpected argument 'hello'\nusage: sagely chat [options]\n");
}

}  // namespace
}  // namespace sagely::testing
