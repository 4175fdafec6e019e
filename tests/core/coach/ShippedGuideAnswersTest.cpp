// The shipped guide answers real questions: each question of ShippedGuideQuestions.tsv is asked
// the way `sagely ask --offline` asks it (the guide-answer resolver over the bundled guide), and
// at least 36 of the 40 must be answered by the section named beside it. Every suggestion of an
// answer leads to the section it names, never back to the answer itself or to the introduction.
#include <sagely/CoachGuideAnswers.h>
#include <sagely/SagelyKnowledge.h>

#include <gtest/gtest.h>

#include "support/TemporaryDirectory.h"

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace sagely {
namespace {

struct GuideQuestion {
    std::string section;
    std::string question;
};

std::vector<GuideQuestion> guideQuestions() {
    std::istringstream lines(testing::readFile(SAGELY_GUIDE_QUESTIONS));
    std::vector<GuideQuestion> questions;
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line.starts_with("#")) continue;
        const auto tab = line.find('\t');
        if (tab == std::string::npos) continue;
        questions.push_back({line.substr(0, tab), line.substr(tab + 1)});
    }
    return questions;
}

constexpr std::string_view kSuggestionPrefix = "Tell me about ";

TEST(ShippedGuideAnswers, AtLeast36OfThe40QuestionsGetTheSectionThatAnswersThem) {
    const auto questions = guideQuestions();
    ASSERT_EQ(questions.size(), 40u);
    const auto resolve = makeGuideAnswerResolver(SagelyKnowledge::bundledGuideText());
    int answered = 0;
    for (const GuideQuestion& entry : questions) {
        const auto answer = resolve(entry.question);
        const std::string section = answer && answer->card ? answer->card->title : "(none)";
        if (section == entry.section)
            ++answered;
        else
            std::cout << "  \"" << entry.question << "\" got \"" << section << "\", not \""
                      << entry.section << "\"\n";
    }
    std::cout << "Answered by the expected section: " << answered << "/" << questions.size()
              << "\n";
    EXPECT_GE(answered, 36);
}

TEST(ShippedGuideAnswers, SuggestionsLeadToTheSectionTheyNameAndNeverBack) {
    const std::string guide = SagelyKnowledge::bundledGuideText();
    for (const GuideQuestion& entry : guideQuestions()) {
        const auto answer = answerFromGuide(guide, entry.question);
        if (!answer || !answer->card) continue;
        for (const std::string& suggestion : answer->card->suggestions) {
            ASSERT_TRUE(suggestion.starts_with(kSuggestionPrefix)) << suggestion;
            const std::string named = suggestion.substr(kSuggestionPrefix.size());
            EXPECT_NE(named, "Introduction") << entry.question;
            EXPECT_NE(named, answer->card->title) << entry.question;
            const auto followed = answerFromGuide(guide, suggestion);
            ASSERT_TRUE(followed && followed->card) << suggestion;
            EXPECT_EQ(followed->card->title, named) << entry.question << " -> " << suggestion;
        }
    }
}

}  // namespace
}  // namespace sagely
