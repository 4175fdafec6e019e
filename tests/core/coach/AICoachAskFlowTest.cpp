// A question's way through the model: the messages and configuration sent, the enrichment, the
// reply or failure coming back on the main thread, and one request at a time.
#include "support/CoachHarness.h"

#include <sagely/AICoach.h>
#include <sagely/CoachConversation.h>
#include <sagely/CoachLLMError.h>
#include <sagely/CoachPromptBudget.h>
#include <sagely/CoachSystemPrompt.h>
#include <sagely/StaticCoachContextProvider.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace sagely {
namespace {

using namespace std::chrono_literals;
using testing::CoachHarness;
using testing::RecordingContextProvider;
using Role = CoachMessage::Role;
using Provider = CoachConfig::Provider;

std::vector<std::string> contents(const CoachConversation& conversation) {
    std::vector<std::string> result;
    for (const auto& message : conversation.messages()) result.push_back(message.content());
    return result;
}

class AICoachAskFlowTest : public ::testing::Test {
protected:
    void SetUp() override {
        harness.useProvider(Provider::openai, "sk-test");
        guide = std::make_shared<StaticCoachContextProvider>("Notes", "Two notebooks are open.",
                                                             "## Sharing\nUse the Share button.");
    }

    std::unique_ptr<AICoach> coachWithGuide() {
        return harness.makeCoach({.contextProvider = guide});
    }

    std::string expectedPrompt(Provider provider, const std::string& query,
                               const std::optional<std::string>& observation = std::nullopt) {
        return buildCoachSystemPrompt(provider, query, observation, guide.get());
    }

    CoachHarness harness;
    std::shared_ptr<StaticCoachContextProvider> guide;
};

TEST_F(AICoachAskFlowTest, AReplyIsAppendedAsTheModelWroteItAndSaved) {
    harness.llm->enqueueReply("  **Share** it.\n");
    auto coach = coachWithGuide();
    coach->setError("Old failure");
    auto recorder = harness.ask(*coach, " How do I share? ");

    EXPECT_TRUE(coach->isThinking().get());
    EXPECT_FALSE(coach->error().get().has_value());
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));

    EXPECT_EQ(recorder->calls, 1);
    ASSERT_TRUE(recorder->reply.has_value());
    const auto& conversation = *coach->currentConversation().get();
    EXPECT_EQ(contents(conversation),
              (std::vector<std::string>{"How do I share?", "  **Share** it.\n"}));
    const CoachMessage& reply = conversation.messages().back();
    EXPECT_EQ(reply.role(), Role::assistant);
    EXPECT_EQ(reply.id(), recorder->reply->id());
    EXPECT_FALSE(reply.card().has_value());
    EXPECT_FALSE(reply.lesson().has_value());
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_EQ(coach->conversations().get()[0].messages().size(), 2u);
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
}

TEST_F(AICoachAskFlowTest, TheModelGetsTheSystemPromptThenTheConversationAndTheConfiguration) {
    harness.llm->enqueueReply("First answer");
    harness.llm->enqueueReply("Second answer");
    auto coach = coachWithGuide();
    auto first = harness.ask(*coach, "How do I share?");
    ASSERT_TRUE(harness.runUntilAnswered(*first));
    auto second = harness.ask(*coach, "And export?");
    ASSERT_TRUE(harness.runUntilAnswered(*second));

    const auto calls = harness.llm->calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].messages, (std::vector<LLMMessage>{
                                     {"system", expectedPrompt(Provider::openai, "And export?")},
                                     {"user", "How do I share?"},
                                     {"assistant", "First answer"},
                                     {"user", "And export?"},
                                 }));
    EXPECT_EQ(calls[1].config, harness.settings->config());
    EXPECT_FALSE(calls[1].modelOverride.has_value());
}

TEST_F(AICoachAskFlowTest, SystemMessagesStayOutAndEmptyMessagesGoIn) {
    CoachConversation saved("Saved");
    saved.append(CoachMessage(Role::user, "Earlier question"));
    saved.append(CoachMessage(Role::system, "A note for the views only"));
    saved.append(CoachMessage(Role::assistant, ""));
    testing::writeFile(harness.conversationFile(), encodeConversations({saved}));
    harness.llm->enqueueReply("Answer");
    auto coach = coachWithGuide();
    auto recorder = harness.ask(*coach, "Next question");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));

    EXPECT_EQ(harness.llm->calls()[0].messages,
              (std::vector<LLMMessage>{
                  {"system", expectedPrompt(Provider::openai, "Next question")},
                  {"user", "Earlier question"},
                  {"assistant", ""},
                  {"user", "Next question"},
              }));
    EXPECT_EQ(coach->currentConversation().get()->title(), "Saved");
}

TEST_F(AICoachAskFlowTest, TheConfigurationIsReadAfreshForEveryQuestion) {
    harness.llm->enqueueReply("One");
    harness.llm->enqueueReply("Two");
    auto coach = harness.makeCoach();
    auto first = harness.ask(*coach, "Q1");
    ASSERT_TRUE(harness.runUntilAnswered(*first));
    harness.useProvider(Provider::local);
    harness.settings->model.set("llama3.2");
    auto second = harness.ask(*coach, "Q2");
    ASSERT_TRUE(harness.runUntilAnswered(*second));
    const auto calls = harness.llm->calls();
    EXPECT_EQ(calls[0].config.provider, Provider::openai);
    EXPECT_EQ(calls[1].config.provider, Provider::local);
    EXPECT_EQ(calls[1].config.model, "llama3.2");
    EXPECT_EQ(calls[1].messages[0].content, buildCoachSystemPrompt(Provider::local, "Q2", {}, {}));
}

TEST_F(AICoachAskFlowTest, TheOnDeviceProviderGetsSixHistoryMessagesCutToTheLastFour) {
    harness.useProvider(Provider::apple);
    CoachConversation saved("Saved");
    for (int i = 0; i < 5; ++i) {
        saved.append(CoachMessage(i % 2 ? Role::assistant : Role::user, "m" + std::to_string(i)));
    }
    testing::writeFile(harness.conversationFile(), encodeConversations({saved}));
    auto provider = std::make_shared<RecordingContextProvider>();
    provider->manual = "## Topic\nBody";
    provider->activity = "Opened a file";
    harness.llm->enqueueReply("Answer");
    auto coach = harness.makeCoach({.contextProvider = provider});
    auto recorder = harness.ask(*coach, "Question");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(provider->activityCalls, 0);
    EXPECT_EQ(provider->manualCalls, 1);
    EXPECT_EQ(provider->summaryCalls, 1);

    const std::string prompt =
        buildCoachSystemPrompt(Provider::apple, "Question", std::nullopt, provider.get());
    EXPECT_EQ(harness.llm->calls()[0].messages, (std::vector<LLMMessage>{
                                                    {"system", prompt},
                                                    {"user", "m2"},
                                                    {"assistant", "m3"},
                                                    {"user", "m4"},
                                                    {"user", "Question"},
                                                }));
}

TEST_F(AICoachAskFlowTest, CloudProvidersGetTheWholeHistory) {
    CoachConversation saved("Saved");
    for (int i = 0; i < 40; ++i) {
        saved.append(CoachMessage(i % 2 ? Role::assistant : Role::user, std::string(300, 'x')));
    }
    testing::writeFile(harness.conversationFile(), encodeConversations({saved}));
    harness.llm->enqueueReply("Answer");
    auto coach = harness.makeCoach();
    auto recorder = harness.ask(*coach, "Question");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(harness.llm->calls()[0].messages.size(), 42u);
}

TEST_F(AICoachAskFlowTest, AConversationOf500MessagesKeepsTheNewest500AfterAReply) {
    CoachConversation saved("Long");
    for (int i = 0; i < 500; ++i) {
        saved.append(CoachMessage(i % 2 ? Role::assistant : Role::user, std::to_string(i)));
    }
    testing::writeFile(harness.conversationFile(), encodeConversations({saved}));
    harness.llm->enqueueReply("Newest");
    auto coach = harness.makeCoach();
    auto recorder = harness.ask(*coach, "Question 501");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));

    EXPECT_EQ(harness.llm->calls()[0].messages.size(), 502u);  // the cap follows the reply
    const auto& messages = coach->currentConversation().get()->messages();
    ASSERT_EQ(messages.size(), 500u);
    EXPECT_EQ(messages.front().id(), saved.messages()[2].id());
    EXPECT_EQ(messages[497].content(), "499");
    EXPECT_EQ(messages[498].content(), "Question 501");
    EXPECT_EQ(messages[499].content(), "Newest");
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedConversations()[0].messages().size(), 500u);
}

TEST_F(AICoachAskFlowTest, ALocalAnswerNeverAppliesTheCap) {
    CoachConversation saved("Long");
    for (int i = 0; i < 500; ++i) saved.append(CoachMessage(Role::user, std::to_string(i)));
    testing::writeFile(harness.conversationFile(), encodeConversations({saved}));
    auto coach = harness.makeCoach({.resolver = [](const std::string&) {
        return std::optional(CoachLocalActionResult{"Local", {}, {}});
    }});
    coach->send("One more");
    EXPECT_EQ(coach->currentConversation().get()->messages().size(), 502u);
}

TEST_F(AICoachAskFlowTest, TheHostIsAskedInOrderOncePerQuestion) {
    auto provider = std::make_shared<RecordingContextProvider>();
    provider->manual = "## Topic\nBody";
    provider->summary = "Summary";
    provider->activity = "Activity";
    harness.llm->enqueueReply("Answer");
    auto coach = harness.makeCoach({.contextProvider = provider});
    coach->replyEnrichmentProvider = [&](auto done) {
        provider->calls.push_back("enrichment");
        done(std::nullopt);
    };
    auto recorder = harness.ask(*coach, "Q");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(provider->calls,
              (std::vector<std::string>{"localAction", "enrichment", "manualText",
                                        "configurationSummary", "recentActivity(10)"}));
}

// --- Enrichment ---

TEST_F(AICoachAskFlowTest, TheEnrichmentFeedsThePromptAndCardsTheReply) {
    const CoachCard card{CoachCard::Style::info, "Seen on screen", std::nullopt, {}, {}};
    harness.llm->enqueueReply("Answer");
    auto coach = coachWithGuide();
    int asked = 0;
    coach->replyEnrichmentProvider = [&](auto done) {
        ++asked;
        done(CoachReplyEnrichment{"The Share sheet is open.", card});
    };
    auto recorder = harness.ask(*coach, "What now?");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(asked, 1);
    EXPECT_EQ(harness.llm->calls()[0].messages[0].content,
              expectedPrompt(Provider::openai, "What now?", "The Share sheet is open."));
    EXPECT_EQ(coach->currentConversation().get()->messages().back().card(), card);
    EXPECT_EQ(recorder->reply->card(), card);
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
}

TEST_F(AICoachAskFlowTest, TheRequestWaitsForTheEnrichment) {
    harness.llm->enqueueReply("Answer");
    auto coach = coachWithGuide();
    std::function<void(std::optional<CoachReplyEnrichment>)> pending;
    coach->replyEnrichmentProvider = [&](auto done) { pending = std::move(done); };
    auto recorder = harness.ask(*coach, "What now?");
    harness.executor->runFor(50ms);
    EXPECT_EQ(harness.llm->callCount(), 0u);
    EXPECT_TRUE(coach->isThinking().get());
    ASSERT_TRUE(pending);
    pending(CoachReplyEnrichment{"", std::nullopt});
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(harness.llm->calls()[0].messages[0].content,
              expectedPrompt(Provider::openai, "What now?"));
    EXPECT_FALSE(recorder->reply->card().has_value());
}

TEST_F(AICoachAskFlowTest, OnlyTheFirstAnswerOfTheEnrichmentCounts) {
    const CoachCard first{CoachCard::Style::info, "First", std::nullopt, {}, {}};
    const CoachCard second{CoachCard::Style::warning, "Second", std::nullopt, {}, {}};
    harness.llm->enqueueReply("Answer");
    harness.llm->enqueueReply("Unexpected");
    auto coach = harness.makeCoach();
    coach->replyEnrichmentProvider = [&](auto done) {
        done(CoachReplyEnrichment{"first", first});
        done(CoachReplyEnrichment{"second", second});
    };
    auto recorder = harness.ask(*coach, "Q");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    harness.executor->runFor(50ms);
    EXPECT_EQ(harness.llm->callCount(), 1u);
    EXPECT_EQ(recorder->calls, 1);
    EXPECT_EQ(recorder->reply->card(), first);
}

TEST_F(AICoachAskFlowTest, AnEnrichmentDroppedWithoutAnswerMeansNone) {
    harness.llm->enqueueReply("Answer");
    auto coach = coachWithGuide();
    coach->replyEnrichmentProvider = [](auto) {};
    auto recorder = harness.ask(*coach, "Q");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(harness.llm->calls()[0].messages[0].content, expectedPrompt(Provider::openai, "Q"));
    EXPECT_EQ(recorder->reply->content(), "Answer");
}

TEST_F(AICoachAskFlowTest, AThrowingEnrichmentProviderMeansNone) {
    harness.llm->enqueueReply("Answer");
    auto coach = harness.makeCoach();
    coach->replyEnrichmentProvider = [](auto) { throw std::runtime_error("host bug"); };
    auto recorder = harness.ask(*coach, "Q");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(recorder->reply->content(), "Answer");
}

TEST_F(AICoachAskFlowTest, TheEnrichmentMayAnswerFromAnotherThread) {
    harness.llm->enqueueReply("Answer");
    auto coach = harness.makeCoach();
    std::thread helper;
    coach->replyEnrichmentProvider = [&](auto done) {
        helper = std::thread([done] { done(CoachReplyEnrichment{"From a helper", std::nullopt}); });
    };
    auto recorder = harness.ask(*coach, "Q");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    helper.join();
    EXPECT_EQ(harness.llm->calls()[0].messages[0].content,
              buildCoachSystemPrompt(Provider::openai, "Q", "From a helper", nullptr));
}

// An enrichment provider that keeps the first question's callback unanswered in `held` and
// answers every later question at once with no enrichment.
AICoach::ReplyEnrichmentProvider holdingTheFirst(
    std::vector<std::function<void(std::optional<CoachReplyEnrichment>)>>& held) {
    return [&held](auto done) {
        if (held.empty()) {
            held.push_back(std::move(done));
        } else {
            done(std::nullopt);
        }
    };
}

TEST_F(AICoachAskFlowTest, ANewQuestionEndsARequestStillWaitingForItsEnrichment) {
    harness.llm->enqueueReply("Second answer");
    auto coach = harness.makeCoach();
    std::vector<std::function<void(std::optional<CoachReplyEnrichment>)>> held;
    coach->replyEnrichmentProvider = holdingTheFirst(held);
    auto first = harness.ask(*coach, "First");
    auto second = harness.ask(*coach, "Second");
    ASSERT_TRUE(harness.runUntil([&] { return first->calls && second->calls; }));
    EXPECT_FALSE(first->reply.has_value());
    ASSERT_TRUE(second->reply.has_value());
    held.front()(CoachReplyEnrichment{"late", std::nullopt});
    harness.executor->runFor(50ms);
    EXPECT_EQ(harness.llm->callCount(), 1u);
    EXPECT_EQ(first->calls, 1);
    EXPECT_EQ(contents(*coach->currentConversation().get()),
              (std::vector<std::string>{"First", "Second", "Second answer"}));
    EXPECT_FALSE(coach->isThinking().get());
}

TEST_F(AICoachAskFlowTest, ARequestEndedBeforeItsWorkerStartedLeavesThinkingToTheNewerOne) {
    harness.llm->hold();
    harness.llm->enqueueReply("Second answer");
    auto coach = harness.makeCoach();
    std::vector<std::function<void(std::optional<CoachReplyEnrichment>)>> held;
    coach->replyEnrichmentProvider = holdingTheFirst(held);
    auto first = harness.ask(*coach, "First");
    auto second = harness.ask(*coach, "Second");
    ASSERT_TRUE(harness.runUntil([&] { return first->calls > 0; }));
    ASSERT_TRUE(harness.llm->waitForCalls(1, 5s));
    harness.executor->runFor(50ms);
    EXPECT_TRUE(coach->isThinking().get());  // the second question is still being answered

    harness.llm->release();
    ASSERT_TRUE(harness.runUntilAnswered(*second));
    EXPECT_EQ(second->reply->content(), "Second answer");
    EXPECT_FALSE(coach->isThinking().get());
}

// --- Failures ---

struct FailureCase {
    std::string name;
    std::exception_ptr error;
    std::string expected;
};

class AICoachFailureTest : public ::testing::TestWithParam<FailureCase> {};

TEST_P(AICoachFailureTest, StoresTheSentenceKeepsTheQuestionAndSaves) {
    CoachHarness harness;
    harness.useProvider(Provider::openai, "sk-test");
    harness.llm->enqueueError(GetParam().error);
    auto coach = harness.makeCoach();
    auto recorder = harness.ask(*coach, "Why?");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(recorder->calls, 1);
    EXPECT_FALSE(recorder->reply.has_value());
    EXPECT_EQ(coach->error().get(), GetParam().expected);
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_EQ(contents(*coach->currentConversation().get()), (std::vector<std::string>{"Why?"}));
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
}

INSTANTIATE_TEST_SUITE_P(
    Errors, AICoachFailureTest,
    ::testing::Values(
        FailureCase{"RateLimited", std::make_exception_ptr(CoachLLMError::rateLimited()),
                    "The AI provider rate-limited the request. Please wait and try again."},
        FailureCase{"ServerError",
                    std::make_exception_ptr(CoachLLMError::serverError("HTTP 500: oops")),
                    "HTTP 500: oops"},
        FailureCase{"InvalidResponse", std::make_exception_ptr(CoachLLMError::invalidResponse()),
                    "The AI response could not be parsed."},
        FailureCase{"InvalidURL", std::make_exception_ptr(CoachLLMError::invalidURL()),
                    "Invalid AI endpoint URL."},
        FailureCase{"CoachError", std::make_exception_ptr(AICoach::CoachError::rateLimited()),
                    "The AI provider rate-limited the request. Please wait and try again."},
        FailureCase{"Transport",
                    std::make_exception_ptr(TransportError("Could not connect to the server.")),
                    "Could not connect to the server."},
        FailureCase{"NotJson",
                    std::make_exception_ptr(DecodingError(
                        "The data couldn’t be read because it isn’t in the correct format.")),
                    "The data couldn’t be read because it isn’t in the correct format."},
        FailureCase{"Unknown", std::make_exception_ptr(std::runtime_error("std internals")),
                    "The AI request failed for an unknown reason."},
        FailureCase{"NotAnException", std::make_exception_ptr(42),
                    "The AI request failed for an unknown reason."}),
    [](const auto& info) { return info.param.name; });

TEST_F(AICoachAskFlowTest, ACancelledRequestLeavesTheErrorAlone) {
    harness.llm->enqueueError(CancelledError());
    auto coach = harness.makeCoach();
    auto recorder = harness.ask(*coach, "Q");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_FALSE(recorder->reply.has_value());
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
}

TEST_F(AICoachAskFlowTest, AFailingContextProviderFailsTheRequest) {
    struct BrokenProvider : RecordingContextProvider {
        std::string manualText() override { throw CoachLLMError::serverError("No guide today."); }
    };
    auto coach = harness.makeCoach({.contextProvider = std::make_shared<BrokenProvider>()});
    auto recorder = harness.ask(*coach, "Q");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(coach->error().get(), "No guide today.");
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_EQ(harness.llm->callCount(), 0u);
}

TEST_F(AICoachAskFlowTest, AContextProviderThrowingANonStandardExceptionFailsTheRequest) {
    struct BrokenProvider : RecordingContextProvider {
        std::string manualText() override { throw 42; }
    };
    auto coach = harness.makeCoach({.contextProvider = std::make_shared<BrokenProvider>()});
    auto recorder = harness.ask(*coach, "Q");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(coach->error().get(), "The AI request failed for an unknown reason.");
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_EQ(harness.llm->callCount(), 0u);
}

TEST_F(AICoachAskFlowTest, ALocalAnswerLeavesAnEarlierModelErrorInPlace) {
    harness.llm->enqueueError(CoachLLMError::invalidResponse());
    auto coach = harness.makeCoach({.resolver = [](const std::string& question) {
        if (question != "local") return std::optional<CoachLocalActionResult>();
        return std::optional(CoachLocalActionResult{"Local answer", {}, {}});
    }});
    auto recorder = harness.ask(*coach, "model");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    coach->send("local");
    EXPECT_EQ(coach->error().get(), "The AI response could not be parsed.");
}

// --- One request at a time ---

TEST_F(AICoachAskFlowTest, TwoQuickQuestionsAppendOnlyTheLaterReply) {
    harness.llm->hold();
    harness.llm->enqueueReply("Second reply");
    auto coach = harness.makeCoach();
    auto first = harness.ask(*coach, "First");
    ASSERT_TRUE(harness.llm->waitForCalls(1, 5s));
    auto second = harness.ask(*coach, "Second");
    ASSERT_TRUE(harness.llm->waitForCalls(2, 5s));
    harness.llm->release();
    ASSERT_TRUE(harness.runUntil([&] { return first->calls && second->calls; }));
    harness.executor->runFor(20ms);

    EXPECT_EQ(first->calls, 1);
    EXPECT_FALSE(first->reply.has_value());
    EXPECT_EQ(second->calls, 1);
    ASSERT_TRUE(second->reply.has_value());
    EXPECT_EQ(harness.llm->cancelledCount(), 1u);
    EXPECT_EQ(contents(*coach->currentConversation().get()),
              (std::vector<std::string>{"First", "Second", "Second reply"}));
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_FALSE(coach->error().get().has_value());
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
}

TEST_F(AICoachAskFlowTest, ASupersededReplyThatArrivesAnywayIsDropped) {
    harness.llm->hold();
    harness.llm->setHonoursCancellation(false);
    harness.llm->enqueueReply("Stale reply");
    harness.llm->enqueueReply("Fresh reply");
    auto coach = harness.makeCoach();
    std::vector<bool> thinking;
    auto subscription =
        coach->isThinking().onDidChange([&](bool value) { thinking.push_back(value); });
    auto first = harness.ask(*coach, "First");
    ASSERT_TRUE(harness.llm->waitForCalls(1, 5s));
    auto second = harness.ask(*coach, "Second");
    ASSERT_TRUE(harness.llm->waitForCalls(2, 5s));

    harness.llm->allowCalls(1);
    ASSERT_TRUE(harness.runUntil([&] { return first->calls > 0; }));
    EXPECT_FALSE(first->reply.has_value());
    EXPECT_TRUE(coach->isThinking().get());  // the newer request owns it
    EXPECT_EQ(coach->currentConversation().get()->messages().size(), 2u);

    harness.llm->release();
    ASSERT_TRUE(harness.runUntilAnswered(*second));
    EXPECT_EQ(contents(*coach->currentConversation().get()),
              (std::vector<std::string>{"First", "Second", "Fresh reply"}));
    EXPECT_EQ(thinking, (std::vector<bool>{true, true, false}));
}

TEST_F(AICoachAskFlowTest, ASupersededFailureClearsThinkingButNotTheError) {
    harness.llm->hold();
    harness.llm->setHonoursCancellation(false);
    harness.llm->enqueueError(CoachLLMError::serverError("Stale failure"));
    harness.llm->enqueueReply("Fresh reply");
    auto coach = harness.makeCoach();
    auto first = harness.ask(*coach, "First");
    ASSERT_TRUE(harness.llm->waitForCalls(1, 5s));
    auto second = harness.ask(*coach, "Second");
    ASSERT_TRUE(harness.llm->waitForCalls(2, 5s));

    harness.llm->allowCalls(1);
    ASSERT_TRUE(harness.runUntil([&] { return first->calls > 0; }));
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_FALSE(coach->isThinking().get());
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedConversations()[0].messages().size(), 2u);

    harness.llm->release();
    ASSERT_TRUE(harness.runUntilAnswered(*second));
    EXPECT_EQ(second->reply->content(), "Fresh reply");
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_FALSE(coach->isThinking().get());
}

TEST_F(AICoachAskFlowTest, ALocalAnswerDoesNotCancelTheRequestAndIsKept) {
    harness.llm->hold();
    harness.llm->enqueueReply("Model reply");
    auto coach = harness.makeCoach({.resolver = [](const std::string& question) {
        if (question != "local") return std::optional<CoachLocalActionResult>();
        return std::optional(CoachLocalActionResult{"Local answer", {}, {}});
    }});
    auto modelQuestion = harness.ask(*coach, "model");
    ASSERT_TRUE(harness.llm->waitForCalls(1, 5s));
    coach->send("local");
    harness.llm->release();
    ASSERT_TRUE(harness.runUntilAnswered(*modelQuestion));
    EXPECT_EQ(harness.llm->cancelledCount(), 0u);
    EXPECT_EQ(contents(*coach->currentConversation().get()),
              (std::vector<std::string>{"model", "local", "Local answer", "Model reply"}));
}

TEST_F(AICoachAskFlowTest, TheReplyLandsInTheConversationItWasAskedIn) {
    harness.llm->hold();
    harness.llm->enqueueReply("Reply");
    auto coach = harness.makeCoach();
    auto recorder = harness.ask(*coach, "Asked here");
    const Uuid askedIn = coach->currentConversation().get()->id();
    ASSERT_TRUE(harness.llm->waitForCalls(1, 5s));
    coach->newConversation();
    harness.llm->release();
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    const auto& list = coach->conversations().get();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_TRUE(list[0].messages().empty());
    EXPECT_EQ(contents(list[1]), (std::vector<std::string>{"Asked here", "Reply"}));
    EXPECT_EQ(coach->currentConversation().get()->id(), askedIn);
}

TEST_F(AICoachAskFlowTest, SendAsksWithoutACompletion) {
    harness.llm->enqueueReply("Reply");
    auto coach = harness.makeCoach();
    coach->send("Q");
    ASSERT_TRUE(harness.runUntil([&] { return !coach->isThinking().get(); }));
    EXPECT_EQ(contents(*coach->currentConversation().get()),
              (std::vector<std::string>{"Q", "Reply"}));
}

TEST_F(AICoachAskFlowTest, ObserversSeeEveryChangeBeforeAndAfterItIsStored) {
    harness.llm->enqueueReply("Reply");
    auto coach = harness.makeCoach();
    std::vector<std::string> events;
    auto will = coach->isThinking().onWillChange([&](bool old, bool next) {
        events.push_back("will " + std::to_string(old) + "->" + std::to_string(next) + " stored " +
                         std::to_string(coach->isThinking().get()));
    });
    auto did = coach->isThinking().onDidChange(
        [&](bool value) { events.push_back("did " + std::to_string(value)); });
    auto recorder = harness.ask(*coach, "Q");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder));
    EXPECT_EQ(events, (std::vector<std::string>{"will 0->1 stored 0", "did 1", "will 1->0 stored 1",
                                                "did 0"}));
}

}  // namespace
}  // namespace sagely
