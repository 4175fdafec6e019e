// What reaches the terminal: text from a model, a server, a guide or a saved history never
// carries control characters or escape sequences, whether standard output is a terminal (styled)
// or a pipe (plain); the JSON output escapes them.
#include "cli/TerminalText.h"
#include "support/CliHarness.h"
#include "support/LoopbackHttpServer.h"
#include "support/TemporaryDirectory.h"

#include <sagely/CoachConversation.h>
#include <sagely/ConversationFile.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace sagely::testing {
namespace {

using cli::terminalSafe;
using cli::terminalSafeJson;

// Title, screen clear, cursor move, clipboard write (OSC 52), an 8-bit CSI and a DCS.
const std::string kHostile =
    "Hi\x1b]0;owned\x07 there\x1b[2J\x1b[H\x1b]52;c;ZXZpbA==\x1b\\ friend\xC2\x9B"
    "31m\x1bP1$r\x1b\\!\r\x08\x7f";

// Only our own styling (ESC [ digits ; m) may remain in styled output.
bool holdsOnlyStyling(const std::string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == 0x1B) {
            std::size_t j = i + 1;
            if (j >= text.size() || text[j] != '[') return false;
            ++j;
            while (j < text.size() &&
                   (std::isdigit(static_cast<unsigned char>(text[j])) || text[j] == ';'))
                ++j;
            if (j >= text.size() || text[j] != 'm') return false;
            i = j;
        } else if ((c < 0x20 && c != '\n' && c != '\t') || c == 0x7F) {
            return false;
        } else if (c == 0xC2 && i + 1 < text.size() &&
                   static_cast<unsigned char>(text[i + 1]) <= 0x9F) {
            return false;
        }
    }
    return true;
}

TEST(TerminalText, RemovesEscapeSequencesAndControlsButKeepsTheWords) {
    EXPECT_EQ(terminalSafe(kHostile), "Hi there friend!");
    EXPECT_EQ(terminalSafe("line one\n\tindented\r\n"), "line one\n\tindented\n");
    EXPECT_EQ(terminalSafe("caf\u00e9 \u2014 \U0001F600"), "caf\u00e9 \u2014 \U0001F600");
    EXPECT_EQ(terminalSafe("\x1b]2;unterminated title\nnext line"), "\nnext line");
    EXPECT_EQ(terminalSafe("a\x1b"
                           "cb\x1b(Bc"),
              "abc");
    EXPECT_EQ(terminalSafe("bad \xff\xfe bytes"), "bad \uFFFD\uFFFD bytes");
    EXPECT_EQ(terminalSafe("\xC2\x9D"
                           "8;;http://x\xC2\x9Clink"),
              "link");
}

TEST(TerminalText, JsonKeepsItsValueWithEveryControlEscaped) {
    const nlohmann::json value = {{"text", "a\u007f\u0085\u009bb\u00e9"}};
    const std::string safe = terminalSafeJson(value.dump());
    EXPECT_TRUE(holdsOnlyStyling(safe)) << safe;
    EXPECT_EQ(nlohmann::json::parse(safe), value);
}

class TerminalSafety : public ::testing::TestWithParam<bool> {
protected:
    TerminalSafety() {
        cli.outIsTerminal = GetParam();
        cli.environment["TERM"] = "xterm-256color";
    }
    std::vector<std::string> atServer(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin() + 1,
                         {"--provider", "custom", "--endpoint", server.url("/v1/chat")});
        return arguments;
    }

    CliHarness cli;
    LoopbackHttpServer server;
};

TEST_P(TerminalSafety, AModelsReplyIsPrintedWithoutItsControls) {
    const std::string reply = "Step 1: Open " + kHostile + "\nStep 2: Save\x1b[8m";
    server.enqueue(ScriptedResponse::json(
        200, nlohmann::json{{"choices", {{{"message", {{"content", reply}}}}}}}.dump()));
    const CliResult result = cli.run(atServer({"ask", "How?"}));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(holdsOnlyStyling(result.out)) << result.out;
    EXPECT_NE(result.out.find("Hi there friend!"), std::string::npos) << result.out;
    // What is stored is what the model wrote.
    ASSERT_EQ(cli.conversations().size(), 1u);
    EXPECT_EQ(cli.conversations()[0].messages().back().content(), reply);
}

TEST_P(TerminalSafety, JsonOutputEscapesEveryControl) {
    server.enqueue(ScriptedResponse::json(
        200, nlohmann::json{{"choices", {{{"message", {{"content", kHostile}}}}}}}.dump()));
    const CliResult result = cli.run(atServer({"ask", "--json", "How?"}));
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(holdsOnlyStyling(result.out)) << result.out;
    EXPECT_EQ(nlohmann::json::parse(result.out)["content"], kHostile);
}

TEST_P(TerminalSafety, AServersErrorTextIsPrintedWithoutItsControls) {
    server.enqueue(ScriptedResponse::text(500, "broken " + kHostile));
    const CliResult result = cli.run(atServer({"ask", "How?"}));
    EXPECT_NE(result.exitCode, 0);
    EXPECT_TRUE(holdsOnlyStyling(result.err)) << result.err;
    EXPECT_NE(result.err.find("HTTP 500: broken Hi there friend!"), std::string::npos)
        << result.err;
}

TEST_P(TerminalSafety, AGuidesAnswerIsPrintedWithoutItsControls) {
    const auto guide = cli.folder.path() / "guide.md";
    writeFile(guide,
              "# Widget Guide\n\n## Widgets\n\nWidgets live in the \x1b]0;t\x07Widget "
              "panel\x1b[2J.\n");
    const CliResult result =
        cli.run({"ask", "--offline", "--guide", guide.string(), "Where are widgets?"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(holdsOnlyStyling(result.out)) << result.out;
    EXPECT_NE(result.out.find("Widget panel."), std::string::npos) << result.out;
}

TEST_P(TerminalSafety, ASavedHistoryIsListedAndShownWithoutItsControls) {
    CoachConversation conversation("Title\x1b]52;c;ZXZpbA==\x07 of it");
    conversation.append(CoachMessage(CoachMessage::Role::user, "Question \x1b]0;title\x07one"));
    conversation.append(CoachMessage(CoachMessage::Role::assistant, "Answer\x1b[1;1H\x1b[2J here"));
    std::filesystem::create_directories(cli.storageDirectory());
    ASSERT_TRUE(ConversationFile::save(cli.conversationFile(), {conversation}));
    for (const std::vector<std::string>& command :
         {std::vector<std::string>{"history", "list"}, {"history", "show", "1"}}) {
        const CliResult result = cli.run(command);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_TRUE(holdsOnlyStyling(result.out)) << result.out;
        EXPECT_NE(result.out.find(command[1] == "list" ? "Title of it" : "Question one"),
                  std::string::npos)
            << result.out;
    }
}

INSTANTIATE_TEST_SUITE_P(TerminalAndPipe, TerminalSafety, ::testing::Bool());

}  // namespace
}  // namespace sagely::testing
