// A coach that goes away while a request runs: no crash, nothing delivered afterwards, and no
// long wait for the destroying thread.
#include "support/CoachHarness.h"

#include <sagely/AICoach.h>
#include <sagely/CoachConversation.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <thread>

namespace sagely {
namespace {

using namespace std::chrono_literals;
using testing::CoachHarness;
using Clock = std::chrono::steady_clock;

class AICoachLifetimeTest : public ::testing::Test {
protected:
    void SetUp() override { harness.useProvider(CoachConfig::Provider::openai, "sk-test"); }

    /// Destroys the coach and returns how long that took.
    static Clock::duration destroy(std::unique_ptr<AICoach>& coach) {
        const auto start = Clock::now();
        coach.reset();
        return Clock::now() - start;
    }

    // A held request never ends on its own, so a destroy that waits for it takes forever; the
    // bound only has to survive a loaded machine.
    static constexpr auto kPromptly = 1s;

    CoachHarness harness;
};

TEST_F(AICoachLifetimeTest, DestroyingTheCoachCancelsItsRequestAndDeliversNothing) {
    harness.llm->hold();
    harness.llm->enqueueReply("Too late");
    auto coach = harness.makeCoach();
    auto recorder = harness.ask(*coach, "Question");
    ASSERT_TRUE(harness.llm->waitForCalls(1, 5s));

    EXPECT_LT(destroy(coach), kPromptly);
    ASSERT_TRUE(harness.llm->waitUntilIdle(5s));
    harness.executor->runFor(50ms);
    EXPECT_EQ(recorder->calls, 0);
    EXPECT_EQ(harness.llm->cancelledCount(), 1u);
    // The question is kept, as a cancelled request keeps it.
    const auto saved = harness.savedConversations();
    ASSERT_EQ(saved.size(), 1u);
    ASSERT_EQ(saved[0].messages().size(), 1u);
    EXPECT_EQ(saved[0].messages()[0].content(), "Question");
}

TEST_F(AICoachLifetimeTest, AServiceThatIgnoresTheCancelDoesNotHoldUpTheDestroyingThread) {
    harness.llm->hold();
    harness.llm->setHonoursCancellation(false);
    harness.llm->enqueueReply("Much too late");
    auto coach = harness.makeCoach();
    auto recorder = harness.ask(*coach, "Question");
    ASSERT_TRUE(harness.llm->waitForCalls(1, 5s));

    EXPECT_LT(destroy(coach), kPromptly);
    harness.llm->release();
    ASSERT_TRUE(harness.llm->waitUntilIdle(5s));
    harness.executor->runFor(50ms);
    EXPECT_EQ(recorder->calls, 0);
    EXPECT_EQ(harness.savedConversations()[0].messages().size(), 1u);
}

TEST_F(AICoachLifetimeTest, AReplyQueuedForTheMainThreadIsDroppedWhenTheCoachIsGone) {
    harness.llm->enqueueReply("Queued reply");
    auto coach = harness.makeCoach();
    auto recorder = harness.ask(*coach, "Question");
    ASSERT_TRUE(harness.llm->waitForCalls(1, 5s));
    ASSERT_TRUE(harness.llm->waitUntilIdle(5s));
    coach.reset();
    harness.executor->runFor(50ms);
    EXPECT_EQ(recorder->calls, 0);
    EXPECT_EQ(harness.savedConversations()[0].messages().size(), 1u);
}

TEST_F(AICoachLifetimeTest, AnEnrichmentArrivingAfterTheCoachIsGoneDoesNothing) {
    auto coach = harness.makeCoach();
    std::function<void(std::optional<CoachReplyEnrichment>)> pending;
    coach->replyEnrichmentProvider = [&](auto done) { pending = std::move(done); };
    auto recorder = harness.ask(*coach, "Question");
    coach.reset();
    ASSERT_TRUE(pending);
    pending(CoachReplyEnrichment{"late", std::nullopt});
    pending = nullptr;
    harness.executor->runFor(50ms);
    EXPECT_EQ(recorder->calls, 0);
    EXPECT_EQ(harness.llm->callCount(), 0u);
}

TEST_F(AICoachLifetimeTest, TheCompletionMayDestroyTheCoach) {
    harness.llm->enqueueReply("Reply");
    auto coach = harness.makeCoach();
    std::optional<CoachMessage> delivered;
    coach->sendAndReturnReply("Question", [&](std::optional<CoachMessage> reply) {
        delivered = std::move(reply);
        coach.reset();
    });
    ASSERT_TRUE(harness.runUntil([&] { return coach == nullptr; }));
    ASSERT_TRUE(delivered.has_value());
    EXPECT_EQ(delivered->content(), "Reply");
    EXPECT_EQ(harness.savedConversations()[0].messages().size(), 2u);
}

TEST_F(AICoachLifetimeTest, AnImmediateCompletionMayDestroyTheCoach) {
    CoachHarness::CoachOptions options;
    options.allowsLLMCompletion = false;
    auto coach = harness.makeCoach(std::move(options));
    int calls = 0;
    coach->sendAndReturnReply("Question", [&](std::optional<CoachMessage>) {
        ++calls;
        coach.reset();
    });
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(coach, nullptr);
    EXPECT_EQ(harness.savedConversations()[0].messages().size(), 1u);
}

TEST_F(AICoachLifetimeTest, ManyCoachesComeAndGoWhileTheirRequestsRun) {
    harness.llm->hold();
    for (int i = 0; i < 20; ++i) {
        auto coach = harness.makeCoach();
        coach->send("Question " + std::to_string(i));
        ASSERT_TRUE(harness.llm->waitForCalls(static_cast<std::size_t>(i) + 1, 5s));
        EXPECT_LT(destroy(coach), kPromptly);
    }
    ASSERT_TRUE(harness.llm->waitUntilIdle(5s));
    harness.executor->runFor(20ms);
    EXPECT_EQ(harness.llm->cancelledCount(), 20u);
}

}  // namespace
}  // namespace sagely
