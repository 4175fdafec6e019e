#include "support/CoachHarness.h"

#include <sagely/CoachLocalAction.h>
#include <sagely/CoachReplyEnrichment.h>
#include <sagely/CoachSystemPrompt.h>
#include <sagely/StaticCoachContextProvider.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using sagely::CoachConfig;
using sagely::CoachLocalActionHandler;
using sagely::CoachLocalActionResult;
using sagely::StaticCoachContextProvider;

namespace {

const std::string kShortcutSentence =
    "Shortcut-style automations are product-specific. Ask the connected app for its current "
    "shortcuts or command surface.";

// A host whose fixed context also answers some questions itself.
class AnsweringHost : public StaticCoachContextProvider, public CoachLocalActionHandler {
public:
    AnsweringHost() : StaticCoachContextProvider("Notes", "", "") {}

    std::optional<CoachLocalActionResult> localAction(const std::string& question) override {
        questions.push_back(question);
        return CoachLocalActionResult{"Handled by the host.", std::nullopt, std::nullopt};
    }

    std::vector<std::string> questions;
};

std::string lastReply(sagely::AICoach& coach) {
    return coach.currentConversation().get()->messages().back().content();
}

}  // namespace

TEST(StaticCoachContextProvider, KeepsItsValuesAndAnswersWithThem) {
    StaticCoachContextProvider provider("Notes", "Dark mode on.", "# Guide\nUse it.");
    EXPECT_EQ(provider.title(), "Notes");
    EXPECT_EQ(provider.summary(), "Dark mode on.");
    EXPECT_EQ(provider.guideText(), "# Guide\nUse it.");
    EXPECT_EQ(provider.configurationSummary(), "Dark mode on.");
    EXPECT_EQ(provider.manualText(), "# Guide\nUse it.");
}

TEST(StaticCoachContextProvider, RecentActivityNamesTheTitleWhateverTheLimit) {
    StaticCoachContextProvider provider("Notes", "", "");
    EXPECT_EQ(provider.recentActivity(3), "No live app activity is connected for Notes.");
    EXPECT_EQ(provider.recentActivity(0), "No live app activity is connected for Notes.");
    EXPECT_EQ(provider.recentActivity(10), "No live app activity is connected for Notes.");
    EXPECT_EQ(StaticCoachContextProvider("", "", "").recentActivity(1),
              "No live app activity is connected for .");
}

TEST(StaticCoachContextProvider, ShortcutInfoIsOneFixedSentenceForAnyName) {
    StaticCoachContextProvider provider("Notes", "", "");
    for (const char* name : {"", "Export", "⌘K", "no such shortcut"}) {
        std::optional<std::string> info = provider.shortcutInfo(name);
        ASSERT_TRUE(info) << name;
        EXPECT_EQ(*info, kShortcutSentence) << name;
    }
}

TEST(StaticCoachContextProvider, AnswersNoLocalActions) {
    std::shared_ptr<sagely::CoachContextProvider> provider =
        std::make_shared<StaticCoachContextProvider>("Notes", "", "");
    EXPECT_EQ(dynamic_cast<CoachLocalActionHandler*>(provider.get()), nullptr);
}

TEST(StaticCoachContextProvider, EmptySummaryLeavesOutTheLiveContextSection) {
    StaticCoachContextProvider quiet("Notes", "", "");
    std::string prompt = buildCoachSystemPrompt(CoachConfig::Provider::openai, "How do I sync?",
                                                std::nullopt, &quiet);
    EXPECT_EQ(prompt.find("LIVE APP CONTEXT"), std::string::npos);
    EXPECT_NE(prompt.find("No live app activity is connected for Notes."), std::string::npos);

    StaticCoachContextProvider talkative("Notes", "Sync: iCloud, on.", "");
    prompt = buildCoachSystemPrompt(CoachConfig::Provider::openai, "How do I sync?", std::nullopt,
                                    &talkative);
    EXPECT_NE(prompt.find("\n\n--- LIVE APP CONTEXT ---\n\nSync: iCloud, on."), std::string::npos);
}

TEST(CoachLocalActions, AHostProviderThatHandlesLocalActionsAnswersWhenNoResolverIsGiven) {
    sagely::testing::CoachHarness harness;
    auto host = std::make_shared<AnsweringHost>();
    auto coach = harness.makeCoach({.contextProvider = host});
    coach->send("open the sidebar");
    EXPECT_EQ(host->questions, (std::vector<std::string>{"open the sidebar"}));
    EXPECT_EQ(lastReply(*coach), "Handled by the host.");
    EXPECT_EQ(harness.llm->callCount(), 0u);
}

TEST(CoachLocalActions, AGivenResolverTakesPrecedenceAndTheHandlerIsNeverAsked) {
    sagely::testing::CoachHarness harness;
    auto host = std::make_shared<AnsweringHost>();
    auto coach = harness.makeCoach(
        {.contextProvider = host, .resolver = [](const std::string& question) {
             return std::optional(CoachLocalActionResult{"Resolved: " + question, {}, {}});
         }});
    coach->send("open the sidebar");
    EXPECT_TRUE(host->questions.empty());
    EXPECT_EQ(lastReply(*coach), "Resolved: open the sidebar");

    auto declining = harness.makeCoach(
        {.contextProvider = host,
         .resolver = [](const std::string&) { return std::optional<CoachLocalActionResult>(); },
         .allowsLLMCompletion = false,
         .conversationNamespace = "other"});
    declining->send("open the sidebar");
    EXPECT_TRUE(host->questions.empty());
}

TEST(CoachLocalActions, ResultsAndEnrichmentsAreMemberwiseValues) {
    sagely::CoachCard card{sagely::CoachCard::Style::info, "Card", std::nullopt, {}, {}};
    CoachLocalActionResult result{"Text", card, sagely::CoachLessonLibrary::speechSetup()};
    EXPECT_EQ(result.message, "Text");
    EXPECT_EQ(result.card, card);
    EXPECT_EQ(result.lesson, sagely::CoachLessonLibrary::speechSetup());
    sagely::CoachReplyEnrichment enrichment{"Observed.", card};
    EXPECT_EQ(enrichment.systemPromptSection, "Observed.");
    EXPECT_EQ(enrichment.observationCard, card);
}
