// The engine while a reply streams in: the partial text, its coalesced updates, Stop, and a new
// question overtaking a stream.
#include <sagely/AICoach.h>
#include <sagely/ConversationFile.h>

#include "support/CoachHarness.h"

#include <gtest/gtest.h>

#include <chrono>

using namespace sagely;
using namespace std::chrono_literals;
using sagely::testing::CoachHarness;
using Role = CoachMessage::Role;

namespace {

class AICoachStreamingTest : public ::testing::Test {
protected:
    void SetUp() override {
        harness.useProvider(CoachConfig::Provider::openai, "sk-test");
        coach = harness.makeCoach();
    }

    CoachHarness harness;
    std::unique_ptr<AICoach> coach;
};

}  // namespace

TEST_F(AICoachStreamingTest, ThePartialTextGrowsThenTheWholeReplyIsAppendedAndItEmpties) {
    harness.llm->enqueuePieces({"Open ", "**File**", ", then Export."});
    harness.llm->enqueueReply("Open **File**, then Export.");
    harness.llm->hold();
    std::vector<std::string> seen;
    auto watch =
        coach->partialReply().onDidChange([&](const std::string& text) { seen.push_back(text); });
    auto recorder = harness.ask(*coach, "How do I export?");
    EXPECT_TRUE(coach->isThinking().get());
    ASSERT_TRUE(harness.runUntil(
        [&] { return coach->partialReply().get() == "Open **File**, then Export."; }));
    EXPECT_FALSE(coach->isThinking().get());  // the first text ends the thinking
    harness.llm->release();
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(coach->partialReply().get(), "");
    ASSERT_TRUE(recorder->reply);
    EXPECT_EQ(recorder->reply->content(), "Open **File**, then Export.");
    // Every update was a longer prefix of the reply, and the last one emptied it.
    ASSERT_GE(seen.size(), 2u);
    for (std::size_t i = 0; i + 1 < seen.size(); ++i) {
        EXPECT_TRUE(std::string("Open **File**, then Export.").starts_with(seen[i])) << seen[i];
    }
    EXPECT_EQ(seen.back(), "");
}

TEST_F(AICoachStreamingTest, StopKeepsTheTextSoFarAsTheReplyAndSavesIt) {
    harness.llm->enqueuePieces({"Half ", "an answer"});
    harness.llm->hold();
    auto recorder = harness.ask(*coach, "Tell me everything");
    ASSERT_TRUE(harness.runUntil([&] { return coach->partialReply().get() == "Half an answer"; }));
    const auto start = std::chrono::steady_clock::now();
    coach->stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 1s);  // no wait for the network
    EXPECT_EQ(recorder->calls, 1);
    ASSERT_TRUE(recorder->reply);
    EXPECT_EQ(recorder->reply->role(), Role::assistant);
    EXPECT_EQ(recorder->reply->content(), "Half an answer");
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_EQ(coach->partialReply().get(), "");
    EXPECT_FALSE(coach->error().get());
    coach->waitForPendingSaves();
    const auto saved = harness.savedConversations();
    ASSERT_EQ(saved.size(), 1u);
    ASSERT_EQ(saved[0].messages().size(), 2u);
    EXPECT_EQ(saved[0].messages()[1].content(), "Half an answer");
    // The stopped request's own ending changes nothing afterwards.
    ASSERT_TRUE(harness.llm->waitUntilIdle(10s));
    harness.executor->runFor(100ms);
    EXPECT_EQ(coach->currentConversation().get()->messages().size(), 2u);
    EXPECT_EQ(harness.llm->cancelledCount(), 1u);
    EXPECT_EQ(recorder->calls, 1);
}

TEST_F(AICoachStreamingTest, StopKeepsTextThatArrivedAfterTheLastUpdate) {
    harness.llm->enqueuePieces({"Shown, ", "then not yet shown"}, 300ms);
    harness.llm->hold();
    auto recorder = harness.ask(*coach, "Tell me everything");
    ASSERT_TRUE(harness.runUntil([&] { return coach->partialReply().get() == "Shown, "; }));
    // The second piece arrives while the main thread runs nothing: its update is still queued.
    ASSERT_TRUE(harness.llm->waitForCalls(1, 10s));
    EXPECT_EQ(coach->partialReply().get(), "Shown, ");
    coach->stop();
    ASSERT_TRUE(recorder->reply);
    EXPECT_EQ(recorder->reply->content(), "Shown, then not yet shown");
    // The queued update finds the request gone and shows nothing again.
    harness.executor->runFor(100ms);
    EXPECT_EQ(coach->partialReply().get(), "");
    EXPECT_EQ(coach->currentConversation().get()->messages().size(), 2u);
}

TEST_F(AICoachStreamingTest, StopBeforeAnyUpdateKeepsTheTextReceived) {
    harness.llm->enqueuePieces({"Received ", "but never shown"});
    harness.llm->hold();
    auto recorder = harness.ask(*coach, "Tell me everything");
    ASSERT_TRUE(harness.llm->waitForCalls(1, 10s));
    EXPECT_EQ(coach->partialReply().get(), "");
    coach->stop();
    ASSERT_TRUE(recorder->reply);
    EXPECT_EQ(recorder->reply->content(), "Received but never shown");
}

TEST_F(AICoachStreamingTest, StopBeforeAnyTextAppendsNothing) {
    harness.llm->hold();
    auto recorder = harness.ask(*coach, "Anything?");
    ASSERT_TRUE(harness.llm->waitForCalls(1, 10s));
    harness.executor->runPending();
    coach->stop();
    EXPECT_EQ(recorder->calls, 1);
    EXPECT_FALSE(recorder->reply);
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_FALSE(coach->error().get());
    EXPECT_EQ(coach->currentConversation().get()->messages().size(), 1u);
    coach->waitForPendingSaves();
    ASSERT_EQ(harness.savedConversations().at(0).messages().size(), 1u);
}

TEST_F(AICoachStreamingTest, StopWithNoRequestDoesNothing) {
    coach->stop();
    EXPECT_FALSE(coach->currentConversation().get());
}

TEST_F(AICoachStreamingTest, ANewQuestionCancelsTheStreamAndAppendsNothingOfIt) {
    harness.llm->enqueuePieces({"Old ", "text"});
    harness.llm->hold();
    auto first = harness.ask(*coach, "First");
    ASSERT_TRUE(harness.runUntil([&] { return coach->partialReply().get() == "Old text"; }));
    harness.llm->enqueueError(CancelledError());  // unused: the held call is cancelled
    auto second = harness.ask(*coach, "Second");
    EXPECT_EQ(coach->partialReply().get(), "");
    EXPECT_TRUE(coach->isThinking().get());
    ASSERT_TRUE(harness.runUntilAnswered(*first));
    EXPECT_FALSE(first->reply);
    std::vector<std::string> contents;
    for (const auto& message : coach->currentConversation().get()->messages())
        contents.push_back(message.content());
    EXPECT_EQ(contents, (std::vector<std::string>{"First", "Second"}));
    coach->stop();
}

TEST_F(AICoachStreamingTest, ManyPiecesAreAnnouncedInFarFewerUpdates) {
    std::vector<std::string> pieces(300, "ab ");
    harness.llm->enqueuePieces(pieces, 1ms);
    harness.llm->enqueueReply("done");
    int updates = 0;
    auto watch = coach->partialReply().onDidChange([&](const std::string&) { ++updates; });
    const auto start = std::chrono::steady_clock::now();
    auto recorder = harness.ask(*coach, "Stream a lot");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - start);
    // One update per ~30 ms at most (plus the final clearing), never one per piece.
    EXPECT_GT(updates, 1);
    EXPECT_LE(updates, took.count() / 30 * 2 + 3) << took.count() << " ms";
    EXPECT_LT(updates, 150);
}
