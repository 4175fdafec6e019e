#include <sagely/CoachGuideAnswers.h>

#include <gtest/gtest.h>

#include "support/SampleGuides.h"

#include <string>

using sagely::answerFromGuide;
using sagely::CoachCard;
using sagely::CoachLocalActionResult;

namespace {

const std::string& kGuide = sagely::testing::kSampleSetupGuide;

CoachCard guideCard(std::string title, std::vector<std::string> suggestions) {
    CoachCard card;
    card.style = CoachCard::Style::info;
    card.title = std::move(title);
    card.subtitle = "From the guide";
    card.suggestions = std::move(suggestions);
    return card;
}

}  // namespace

TEST(GuideAnswers, AnswerWithTheBestSectionAndSuggestTheNextBest) {
    auto answer = answerFromGuide(kGuide, "Which keyboard shortcut opens permissions?");
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->message, "Press Command-K to open the palette.");
    EXPECT_EQ(answer->card, guideCard("Keyboard Shortcuts", {"Tell me about Permissions"}));
    EXPECT_FALSE(answer->lesson.has_value());
}

TEST(GuideAnswers, SuggestAtMostThreeSectionsInRankOrder) {
    std::string guide = kGuide + "## Speech Tips\nspeech\n";
    auto answer = answerFromGuide(guide, "How do I set up speech?");
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->message, "Enable speech input in Settings.");
    EXPECT_EQ(answer->card,
              guideCard("Set Up Speech", {"Tell me about Setup Guides", "Tell me about Speech Tips",
                                          "Tell me about Speech & Voice Control"}));
}

TEST(GuideAnswers, NeverSuggestTheIntroductionOrASectionThatItsQuestionWouldNotBring) {
    // Asked, "Tell me about Models" would bring "Models and Keys": not the section it names.
    const std::string guide =
        "Keys are kept safe.\n## Models and Keys\nModels and keys, briefly.\n"
        "## Keys\nKeys are kept in the store.\n## Models\nPick a model; keys stay.\n";
    auto answer = answerFromGuide(guide, "Where are keys kept?");
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->card, guideCard("Keys", {"Tell me about Models and Keys"}));
}

TEST(GuideAnswers, OfferNoSuggestionsWhenOnlyOneSectionMatches) {
    auto answer = answerFromGuide(kGuide, "palette");
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->card, guideCard("Keyboard Shortcuts", {}));
}

TEST(GuideAnswers, AreNoneWhenNoSectionScores) {
    EXPECT_FALSE(answerFromGuide(kGuide, "What is this app?").has_value());
    EXPECT_FALSE(answerFromGuide(kGuide, "quantum entanglement").has_value());
    EXPECT_FALSE(answerFromGuide("", "palette").has_value());
}

TEST(GuideAnswers, PassOverSectionsWithoutABody) {
    auto answer = answerFromGuide("## Widget\n\n## More\nwidget body\n", "widget");
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->message, "widget body");
    EXPECT_EQ(answer->card, guideCard("More", {}));
    EXPECT_FALSE(answerFromGuide("## Widget\n\n## Other\nnothing\n", "widget").has_value());
}

TEST(GuideAnswers, AnswerFromAGuideWithoutHeadingsAsItsIntroduction) {
    auto answer = answerFromGuide("Widgets live in the sidebar.", "widgets");
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->message, "Widgets live in the sidebar.");
    EXPECT_EQ(answer->card, guideCard("Introduction", {}));
}

TEST(GuideAnswerResolver, AnswersLikeTheFunctionFromItsOwnCopyOfTheGuide) {
    sagely::CoachLocalActionResolver resolver;
    {
        std::string guide = kGuide;
        resolver = sagely::makeGuideAnswerResolver(guide);
        guide.assign("## Nothing\nhere\n");
    }
    auto answer = resolver("Which keyboard shortcut opens permissions?");
    ASSERT_TRUE(answer.has_value());
    EXPECT_EQ(answer->message, "Press Command-K to open the palette.");
    EXPECT_EQ(answer->card, guideCard("Keyboard Shortcuts", {"Tell me about Permissions"}));
    EXPECT_FALSE(resolver("Tell me about this app").has_value());
}
