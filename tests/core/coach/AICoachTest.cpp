// The coach's conversations, local answers, refusals, manual preloading and persistence: all
// that happens without a model reply.
#include "support/CoachHarness.h"

#include <sagely/AICoach.h>
#include <sagely/CoachConversation.h>
#include <sagely/Log.h>
#include <sagely/StaticCoachContextProvider.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

namespace sagely {
namespace {

using testing::CoachHarness;
using testing::RecordingContextProvider;
using Role = CoachMessage::Role;

std::vector<std::string> titles(const std::vector<CoachConversation>& conversations) {
    std::vector<std::string> result;
    for (const auto& conversation : conversations) result.push_back(conversation.title());
    return result;
}

std::vector<std::string> contents(const CoachConversation& conversation) {
    std::vector<std::string> result;
    for (const auto& message : conversation.messages()) result.push_back(message.content());
    return result;
}

std::string repeated(const std::string& piece, int count) {
    std::string result;
    for (int i = 0; i < count; ++i) result += piece;
    return result;
}

class AICoachTest : public ::testing::Test {
protected:
    void SetUp() override { harness.useProvider(CoachConfig::Provider::openai, "sk-test"); }

    std::unique_ptr<AICoach> localOnlyCoach(CoachLocalActionResolver resolver = {}) {
        CoachHarness::CoachOptions options;
        options.allowsLLMCompletion = false;
        options.resolver = std::move(resolver);
        return harness.makeCoach(std::move(options));
    }

    CoachHarness harness;
};

// --- Construction ---

TEST_F(AICoachTest, StartsEmptyAndCreatesNoConversationOrFile) {
    auto coach = harness.makeCoach();
    EXPECT_TRUE(coach->conversations().get().empty());
    EXPECT_FALSE(coach->currentConversation().get().has_value());
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_FALSE(coach->isLoadingManual().get());
    EXPECT_FALSE(coach->manualReady().get());
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_FALSE(std::filesystem::exists(harness.conversationFile()));
}

TEST_F(AICoachTest, ReportsItsSettingsNamespaceAndFlag) {
    CoachHarness::CoachOptions options;
    options.conversationNamespace = "support";
    options.allowsLLMCompletion = false;
    auto coach = harness.makeCoach(std::move(options));
    EXPECT_EQ(&coach->settings(), harness.settings.get());
    EXPECT_EQ(coach->conversationNamespace(), "support");
    EXPECT_FALSE(coach->allowsLLMCompletion());
    EXPECT_TRUE(harness.makeCoach()->allowsLLMCompletion());
}

TEST(AICoachErrorTest, DescriptionsAreTheFixedSentences) {
    EXPECT_STREQ(AICoach::CoachError::serverError("Boom.").what(), "Boom.");
    EXPECT_EQ(AICoach::CoachError::serverError("Boom.").errorDescription(), "Boom.");
    EXPECT_EQ(AICoach::CoachError::invalidURL().errorDescription(), "Invalid AI endpoint URL.");
    EXPECT_EQ(AICoach::CoachError::invalidResponse().errorDescription(),
              "The AI response could not be parsed.");
    EXPECT_EQ(AICoach::CoachError::rateLimited().errorDescription(),
              "The AI provider rate-limited the request. Please wait and try again.");
    EXPECT_EQ(AICoach::CoachError::rateLimited().kind(), CoachLLMError::Kind::rateLimited);
    EXPECT_STREQ(AICoach::kLocalOnlyCode, "LOCAL_ONLY");
    EXPECT_STREQ(AICoach::kNoAPIKeyCode, "NO_API_KEY");
}

// --- Conversations ---

TEST_F(AICoachTest, NewConversationsAreNumberedInsertedFirstMadeCurrentAndSaved) {
    auto coach = harness.makeCoach();
    coach->newConversation();
    coach->newConversation();
    EXPECT_EQ(titles(coach->conversations().get()),
              (std::vector<std::string>{"Conversation 2", "Conversation 1"}));
    const auto& current = coach->currentConversation().get();
    ASSERT_TRUE(current.has_value());
    EXPECT_EQ(current->id(), coach->conversations().get().front().id());
    EXPECT_TRUE(current->messages().empty());
    EXPECT_LE(current->createdAt(), current->updatedAt());
    EXPECT_LT(Timestamp::now().secondsSinceReferenceDate() -
                  current->createdAt().secondsSinceReferenceDate(),
              60.0);
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
}

TEST_F(AICoachTest, SelectingAConversationShowsItAndSavesNothing) {
    auto coach = harness.makeCoach();
    coach->newConversation();
    coach->newConversation();
    std::filesystem::remove(harness.conversationFile());
    const CoachConversation older = coach->conversations().get()[1];
    coach->selectConversation(older);
    EXPECT_EQ(coach->currentConversation().get()->id(), older.id());
    EXPECT_FALSE(std::filesystem::exists(harness.conversationFile()));
}

TEST_F(AICoachTest, DeletingTheCurrentConversationSelectsTheNextFirst) {
    auto coach = harness.makeCoach();
    coach->newConversation();
    coach->newConversation();
    coach->newConversation();
    const auto list = coach->conversations().get();
    coach->deleteConversation(list[0]);
    EXPECT_EQ(titles(coach->conversations().get()),
              (std::vector<std::string>{"Conversation 2", "Conversation 1"}));
    EXPECT_EQ(coach->currentConversation().get()->id(), list[1].id());
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
}

TEST_F(AICoachTest, DeletingAnotherConversationKeepsTheCurrentOne) {
    auto coach = harness.makeCoach();
    coach->newConversation();
    coach->newConversation();
    const auto list = coach->conversations().get();
    coach->deleteConversation(list[1]);
    EXPECT_EQ(titles(coach->conversations().get()), (std::vector<std::string>{"Conversation 2"}));
    EXPECT_EQ(coach->currentConversation().get()->id(), list[0].id());
}

TEST_F(AICoachTest, DeletingTheLastConversationLeavesNoneAndWritesAnEmptyList) {
    auto coach = harness.makeCoach();
    coach->newConversation();
    coach->deleteConversation(coach->conversations().get().front());
    EXPECT_TRUE(coach->conversations().get().empty());
    EXPECT_FALSE(coach->currentConversation().get().has_value());
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), "[]");
}

TEST_F(AICoachTest, NumberingCountsTheConversationsThatExistNow) {
    auto coach = harness.makeCoach();
    coach->newConversation();
    coach->newConversation();
    coach->deleteConversation(coach->conversations().get().back());
    coach->newConversation();
    EXPECT_EQ(titles(coach->conversations().get()),
              (std::vector<std::string>{"Conversation 2", "Conversation 2"}));
}

// --- The first steps of a question ---

TEST_F(AICoachTest, FirstQuestionCreatesConversationOneTitledFromTheQuestion) {
    auto coach = localOnlyCoach();
    std::vector<std::string> currentTitles;
    auto subscription = coach->currentConversation().onDidChange(
        [&](const std::optional<CoachConversation>& c) { currentTitles.push_back(c->title()); });
    coach->send("  How do I pick a provider?\n");
    ASSERT_EQ(coach->conversations().get().size(), 1u);
    const auto& conversation = coach->conversations().get()[0];
    EXPECT_EQ(conversation.title(), "How do I pick a provider?");
    EXPECT_EQ(contents(conversation), (std::vector<std::string>{"How do I pick a provider?"}));
    EXPECT_EQ(conversation.messages()[0].role(), Role::user);
    EXPECT_EQ(coach->currentConversation().get()->id(), conversation.id());
    ASSERT_FALSE(currentTitles.empty());
    EXPECT_EQ(currentTitles.front(), "Conversation 1");
    EXPECT_EQ(currentTitles.back(), "How do I pick a provider?");
}

TEST_F(AICoachTest, AQuestionOf51CharactersIsTitledWithItsFirst50AndThreeDots) {
    auto coach = localOnlyCoach();
    const std::string question = repeated("a", 50) + "b";
    coach->send(question);
    EXPECT_EQ(coach->currentConversation().get()->title(), repeated("a", 50) + "...");
}

TEST_F(AICoachTest, AQuestionOf50CharactersIsTheWholeTitle) {
    auto coach = localOnlyCoach();
    const std::string question = repeated("x", 50);
    coach->send(question);
    EXPECT_EQ(coach->currentConversation().get()->title(), question);
}

TEST_F(AICoachTest, TitleCountsUserPerceivedCharacters) {
    auto coach = localOnlyCoach();
    const std::string accented = "e\xCC\x81";  // e + combining acute: one character
    coach->send(repeated(accented, 51));
    EXPECT_EQ(coach->currentConversation().get()->title(), repeated(accented, 50) + "...");
}

TEST_F(AICoachTest, ASecondQuestionDoesNotChangeTheTitle) {
    auto coach = localOnlyCoach();
    coach->send("First question");
    coach->send("Second question");
    const auto& conversation = *coach->currentConversation().get();
    EXPECT_EQ(conversation.title(), "First question");
    EXPECT_EQ(contents(conversation),
              (std::vector<std::string>{"First question", "Second question"}));
}

TEST_F(AICoachTest, QuestionIntoAFreshConversationIsTitledEvenIfOthersExist) {
    auto coach = localOnlyCoach();
    coach->send("Old question");
    coach->newConversation();
    coach->send("New question");
    EXPECT_EQ(titles(coach->conversations().get()),
              (std::vector<std::string>{"New question", "Old question"}));
}

TEST_F(AICoachTest, AnEmptyOrBlankQuestionChangesNothing) {
    auto coach = harness.makeCoach();
    for (const char* question : {"", "   ", "\n\t \u00A0"}) {
        auto recorder = harness.ask(*coach, question);
        EXPECT_EQ(recorder->calls, 1);
        EXPECT_FALSE(recorder->reply.has_value());
    }
    EXPECT_TRUE(coach->conversations().get().empty());
    EXPECT_FALSE(coach->currentConversation().get().has_value());
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_FALSE(std::filesystem::exists(harness.conversationFile()));
    EXPECT_EQ(harness.llm->callCount(), 0u);
}

// --- Local answers ---

TEST_F(AICoachTest, ALocalAnswerIsAppendedWithoutAnyModel) {
    CoachCard card{CoachCard::Style::success, "Done", "Subtitle", {}, {"Next?"}};
    CoachLesson lesson;
    lesson.title = "Try it";
    lesson.blocks.push_back(CoachLesson::Block::text("Open the **menu**."));
    std::vector<std::string> asked;
    auto coach = harness.makeCoach({.resolver = [&](const std::string& question) {
        asked.push_back(question);
        return std::optional(CoachLocalActionResult{"Here you go.", card, lesson});
    }});
    std::vector<std::string> deliveredLessons;
    coach->onLocalLessonDelivered = [&](const CoachLesson& delivered) {
        deliveredLessons.push_back(delivered.title);
    };
    coach->setError("Earlier failure");
    int thinkingChanges = 0;
    auto subscription = coach->isThinking().onDidChange([&](bool) { ++thinkingChanges; });

    auto recorder = harness.ask(*coach, "  show me  ");

    EXPECT_EQ(asked, (std::vector<std::string>{"show me"}));
    ASSERT_EQ(recorder->calls, 1);
    ASSERT_TRUE(recorder->reply.has_value());
    const auto& conversation = *coach->currentConversation().get();
    ASSERT_EQ(conversation.messages().size(), 2u);
    const CoachMessage& answer = conversation.messages()[1];
    EXPECT_EQ(answer.id(), recorder->reply->id());
    EXPECT_EQ(answer.role(), Role::assistant);
    EXPECT_EQ(answer.content(), "Here you go.");
    EXPECT_EQ(answer.card(), card);
    EXPECT_EQ(answer.lesson(), lesson);
    EXPECT_EQ(encodeJson(answer), encodeJson(*recorder->reply));
    EXPECT_EQ(deliveredLessons, (std::vector<std::string>{lesson.title}));
    EXPECT_EQ(thinkingChanges, 0);
    EXPECT_EQ(coach->error().get(), "Earlier failure");
    EXPECT_EQ(harness.llm->callCount(), 0u);
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
}

TEST_F(AICoachTest, ALocalAnswerWithoutLessonDoesNotCallTheLessonHandler) {
    auto coach = harness.makeCoach({.resolver = [](const std::string&) {
        return std::optional(CoachLocalActionResult{"Plain.", std::nullopt, std::nullopt});
    }});
    int lessons = 0;
    coach->onLocalLessonDelivered = [&](const CoachLesson&) { ++lessons; };
    coach->send("hello");
    EXPECT_EQ(lessons, 0);
    EXPECT_FALSE(coach->currentConversation().get()->messages()[1].card().has_value());
}

TEST_F(AICoachTest, AContextProviderThatHandlesLocalActionsAnswersWhenNoResolverIsGiven) {
    auto provider = std::make_shared<RecordingContextProvider>();
    provider->localAnswer = [](const std::string& question) {
        return std::optional(CoachLocalActionResult{"Handled: " + question, {}, {}});
    };
    auto coach = harness.makeCoach({.contextProvider = provider});
    coach->send("open settings");
    EXPECT_EQ(provider->localActionQuestions, (std::vector<std::string>{"open settings"}));
    EXPECT_EQ(contents(*coach->currentConversation().get()),
              (std::vector<std::string>{"open settings", "Handled: open settings"}));
    EXPECT_EQ(harness.llm->callCount(), 0u);
}

TEST_F(AICoachTest, AGivenResolverTakesPrecedenceOverTheProvidersHandler) {
    auto provider = std::make_shared<RecordingContextProvider>();
    provider->localAnswer = [](const std::string&) {
        return std::optional(CoachLocalActionResult{"From the handler", {}, {}});
    };
    auto coach = harness.makeCoach(
        {.contextProvider = provider, .resolver = [](const std::string&) {
             return std::optional(CoachLocalActionResult{"From the resolver", {}, {}});
         }});
    coach->send("open settings");
    EXPECT_TRUE(provider->localActionQuestions.empty());
    EXPECT_EQ(coach->currentConversation().get()->messages().back().content(), "From the resolver");
}

TEST_F(AICoachTest, AResolverWithoutAnAnswerHandsTheQuestionOn) {
    auto provider = std::make_shared<RecordingContextProvider>();
    provider->localAnswer = [](const std::string&) {
        return std::optional(CoachLocalActionResult{"From the handler", {}, {}});
    };
    auto coach = harness.makeCoach(
        {.contextProvider = provider,
         .resolver = [](const std::string&) { return std::optional<CoachLocalActionResult>(); },
         .allowsLLMCompletion = false});
    coach->send("anything");
    EXPECT_TRUE(provider->localActionQuestions.empty());
    EXPECT_EQ(coach->error().get(), "LOCAL_ONLY");
}

TEST_F(AICoachTest, AStaticContextProviderAnswersNoLocalActions) {
    auto provider = std::make_shared<StaticCoachContextProvider>("Notes", "", "");
    CoachHarness::CoachOptions options;
    options.contextProvider = provider;
    options.allowsLLMCompletion = false;
    auto coach = harness.makeCoach(std::move(options));
    coach->send("hello");
    EXPECT_EQ(coach->error().get(), "LOCAL_ONLY");
}

TEST_F(AICoachTest, AThrowingResolverCountsAsNoLocalAnswer) {
    auto coach = localOnlyCoach([](const std::string&) -> std::optional<CoachLocalActionResult> {
        throw std::runtime_error("host bug");
    });
    auto recorder = harness.ask(*coach, "hello");
    EXPECT_EQ(recorder->calls, 1);
    EXPECT_EQ(coach->error().get(), "LOCAL_ONLY");
}

// --- Refusals before any model ---

TEST_F(AICoachTest, ALocalOnlyCoachWithoutLocalAnswerKeepsTheQuestionAndSaysLocalOnly) {
    auto coach = localOnlyCoach();
    auto recorder = harness.ask(*coach, "What can you do?");
    EXPECT_EQ(recorder->calls, 1);
    EXPECT_FALSE(recorder->reply.has_value());
    EXPECT_EQ(coach->error().get(), "LOCAL_ONLY");
    EXPECT_EQ(contents(*coach->currentConversation().get()),
              (std::vector<std::string>{"What can you do?"}));
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_EQ(harness.llm->callCount(), 0u);
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
}

struct ProviderCheckCase {
    CoachConfig::Provider provider;
    std::string key;
    std::string endpoint;
    std::optional<std::string> error;  // none: the question goes to the model
};

class AICoachProviderCheckTest : public ::testing::TestWithParam<ProviderCheckCase> {};

TEST_P(AICoachProviderCheckTest, StopsOrPassesTheQuestion) {
    const auto& check = GetParam();
    CoachHarness harness;
    harness.useProvider(check.provider, check.key, check.endpoint);
    harness.llm->enqueueReply("Answer");
    auto coach = harness.makeCoach();
    auto recorder = harness.ask(*coach, "Question");
    if (check.error) {
        EXPECT_EQ(recorder->calls, 1);
        EXPECT_EQ(coach->error().get(), check.error);
        EXPECT_FALSE(coach->isThinking().get());
        EXPECT_EQ(harness.llm->callCount(), 0u);
        EXPECT_EQ(contents(*coach->currentConversation().get()),
                  (std::vector<std::string>{"Question"}));
        coach->waitForPendingSaves();
        EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
    } else {
        ASSERT_TRUE(harness.runUntilAnswered(*recorder));
        EXPECT_EQ(harness.llm->callCount(), 1u);
        EXPECT_FALSE(coach->error().get().has_value());
        ASSERT_TRUE(recorder->reply.has_value());
        EXPECT_EQ(recorder->reply->content(), "Answer");
    }
}

const char* const kEndpointSentence =
    "Custom API requires an endpoint URL (OpenAI-compatible /v1/chat/completions).";

INSTANTIATE_TEST_SUITE_P(
    Providers, AICoachProviderCheckTest,
    ::testing::Values(
        ProviderCheckCase{CoachConfig::Provider::openai, "", "", "NO_API_KEY"},
        ProviderCheckCase{CoachConfig::Provider::anthropic, "", "", "NO_API_KEY"},
        ProviderCheckCase{CoachConfig::Provider::gemini, "", "", "NO_API_KEY"},
        ProviderCheckCase{CoachConfig::Provider::custom, "", "", "NO_API_KEY"},
        ProviderCheckCase{CoachConfig::Provider::custom, "", " \n\t", "NO_API_KEY"},
        ProviderCheckCase{CoachConfig::Provider::custom, "sk-1", "", kEndpointSentence},
        ProviderCheckCase{CoachConfig::Provider::custom, "sk-1", " \n ", kEndpointSentence},
        ProviderCheckCase{CoachConfig::Provider::custom, "", "http://127.0.0.1:9/v1", {}},
        ProviderCheckCase{CoachConfig::Provider::custom, "sk-1", "http://127.0.0.1:9/v1", {}},
        ProviderCheckCase{CoachConfig::Provider::openai, "sk-1", "", {}},
        ProviderCheckCase{CoachConfig::Provider::anthropic, "sk-1", "", {}},
        ProviderCheckCase{CoachConfig::Provider::gemini, "sk-1", "", {}},
        ProviderCheckCase{CoachConfig::Provider::apple, "", "", {}},
        ProviderCheckCase{CoachConfig::Provider::local, "", "", {}}));

TEST_F(AICoachTest, ALocalAnswerComesBeforeTheLocalOnlyAndKeyChecks) {
    harness.useProvider(CoachConfig::Provider::openai, "");
    auto coach = localOnlyCoach([](const std::string&) {
        return std::optional(CoachLocalActionResult{"Local.", {}, {}});
    });
    coach->send("hi");
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_EQ(coach->currentConversation().get()->messages().back().content(), "Local.");
}

TEST_F(AICoachTest, AThrowingCompletionDoesNotDisturbTheCoach) {
    auto coach = localOnlyCoach();
    coach->sendAndReturnReply(
        "first", [](std::optional<CoachMessage>) { throw std::runtime_error("host bug"); });
    coach->send("second");
    EXPECT_EQ(contents(*coach->currentConversation().get()),
              (std::vector<std::string>{"first", "second"}));
}

TEST_F(AICoachTest, TheViewsMayClearTheError) {
    auto coach = localOnlyCoach();
    coach->send("hi");
    std::vector<std::optional<std::string>> seen;
    auto subscription = coach->error().onWillChange(
        [&](const std::optional<std::string>& old, const std::optional<std::string>&) {
            seen.push_back(old);
        });
    coach->setError(std::nullopt);
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_EQ(seen, (std::vector<std::optional<std::string>>{std::string("LOCAL_ONLY")}));
}

// --- Manual preloading ---

TEST_F(AICoachTest, PreloadingReportsAReadyManualAfterTheMainLoopRuns) {
    auto provider = std::make_shared<RecordingContextProvider>();
    provider->manual = "## Guide\nText";
    auto coach = harness.makeCoach({.contextProvider = provider});
    coach->preloadManual();
    EXPECT_TRUE(coach->isLoadingManual().get());
    EXPECT_EQ(provider->manualCalls, 0);
    coach->preloadManual();  // already loading: nothing more
    harness.executor->runPending();
    EXPECT_FALSE(coach->isLoadingManual().get());
    EXPECT_TRUE(coach->manualReady().get());
    EXPECT_EQ(provider->manualCalls, 1);
    coach->preloadManual();  // already ready: nothing more
    harness.executor->runPending();
    EXPECT_EQ(provider->manualCalls, 1);
    EXPECT_FALSE(coach->isLoadingManual().get());
}

TEST_F(AICoachTest, PreloadingAnEmptyManualIsNotReadyAndMayBeRetried) {
    auto provider = std::make_shared<RecordingContextProvider>();
    auto coach = harness.makeCoach({.contextProvider = provider});
    coach->preloadManual();
    harness.executor->runPending();
    EXPECT_FALSE(coach->isLoadingManual().get());
    EXPECT_FALSE(coach->manualReady().get());
    provider->manual = "Now there is a guide.";
    coach->preloadManual();
    harness.executor->runPending();
    EXPECT_TRUE(coach->manualReady().get());
    EXPECT_EQ(provider->manualCalls, 2);
}

TEST_F(AICoachTest, PreloadingWithoutContextProviderFindsNoManual) {
    auto coach = harness.makeCoach();
    coach->preloadManual();
    harness.executor->runPending();
    EXPECT_FALSE(coach->isLoadingManual().get());
    EXPECT_FALSE(coach->manualReady().get());
}

TEST_F(AICoachTest, APreloadOutlivedByItsCoachDoesNothing) {
    auto provider = std::make_shared<RecordingContextProvider>();
    provider->manual = "Guide";
    auto coach = harness.makeCoach({.contextProvider = provider});
    coach->preloadManual();
    coach.reset();
    EXPECT_EQ(harness.executor->runPending(), 1u);
    EXPECT_EQ(provider->manualCalls, 0);
}

// --- Persistence ---

TEST_F(AICoachTest, ASecondCoachLoadsTheSavedConversationsWithTheFirstCurrent) {
    {
        auto coach = localOnlyCoach();
        coach->send("Older question");
        coach->newConversation();
        coach->send("Newer question");
    }
    auto coach = harness.makeCoach();
    EXPECT_EQ(titles(coach->conversations().get()),
              (std::vector<std::string>{"Newer question", "Older question"}));
    ASSERT_TRUE(coach->currentConversation().get().has_value());
    EXPECT_EQ(coach->currentConversation().get()->id(), coach->conversations().get().front().id());
    coach->waitForPendingSaves();
    EXPECT_EQ(encodeConversations(coach->conversations().get()), harness.savedBytes());
}

TEST_F(AICoachTest, AFileHoldingAnEmptyListLoadsAsNoConversations) {
    testing::writeFile(harness.conversationFile(), "[]");
    auto coach = harness.makeCoach();
    EXPECT_TRUE(coach->conversations().get().empty());
    EXPECT_FALSE(coach->currentConversation().get().has_value());
}

TEST_F(AICoachTest, EachNamespaceHasItsOwnFile) {
    auto first = localOnlyCoach();
    first->send("Main question");
    CoachHarness::CoachOptions options;
    options.conversationNamespace = "other";
    auto second = harness.makeCoach(std::move(options));
    EXPECT_TRUE(second->conversations().get().empty());
    EXPECT_EQ(harness.conversationFile().filename(), "main-conversations.json");
    EXPECT_EQ(harness.conversationFile("other").filename(), "other-conversations.json");
    second->newConversation();
    first->waitForPendingSaves();
    second->waitForPendingSaves();
    EXPECT_EQ(harness.savedConversations("other").size(), 1u);
    EXPECT_EQ(harness.savedConversations("main").size(), 1u);
}

TEST_F(AICoachTest, AFileWithOneMalformedConversationLoadsNothingAndIsLogged) {
    CoachConversation good("Good");
    std::string bytes = encodeConversations({good});
    bytes.insert(bytes.size() - 1, R"(,{"id":"not-a-uuid","title":"Bad"})");
    testing::writeFile(harness.conversationFile(), bytes);
    std::vector<std::string> lines;
    auto previous = setLogSink([&](std::string_view line) { lines.emplace_back(line); });
    auto coach = harness.makeCoach();
    setLogSink(previous);
    EXPECT_TRUE(coach->conversations().get().empty());
    EXPECT_FALSE(coach->currentConversation().get().has_value());
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
        return line.starts_with("[Sagely] Failed to load conversations: ");
    }));
}

class AICoachWithoutPersistenceTest : public AICoachTest {
protected:
    void SetUp() override {
        AICoachTest::SetUp();
        AICoach::setConversationPersistenceAllowed([] { return false; });
    }
    void TearDown() override { AICoach::setConversationPersistenceAllowed({}); }
};

TEST_F(AICoachWithoutPersistenceTest, NoFileIsReadOrWritten) {
    CoachConversation saved("Saved earlier");
    const std::string bytes = encodeConversations({saved});
    testing::writeFile(harness.conversationFile(), bytes);
    EXPECT_FALSE(AICoach::conversationPersistenceAllowed());
    auto coach = localOnlyCoach();
    EXPECT_TRUE(coach->conversations().get().empty());
    coach->send("Question");
    coach->newConversation();
    coach->deleteConversation(coach->conversations().get().back());
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedBytes(), bytes);
}

TEST_F(AICoachWithoutPersistenceTest, ResettingTheSwitchAllowsFilesAgain) {
    AICoach::setConversationPersistenceAllowed({});
    EXPECT_TRUE(AICoach::conversationPersistenceAllowed());
    auto coach = harness.makeCoach();
    coach->newConversation();
    coach->waitForPendingSaves();
    EXPECT_EQ(harness.savedConversations().size(), 1u);
}

}  // namespace
}  // namespace sagely
