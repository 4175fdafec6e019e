#include <sagely/CoachPromptBudget.h>

#include <sagely/Text.h>

#include <gtest/gtest.h>

#include "support/SampleGuides.h"

#include <set>
#include <string>
#include <vector>

using sagely::CoachPromptBudget;
using Section = CoachPromptBudget::ManualSection;

namespace {

const std::string kPreface = "PREFER THESE SETUP GUIDE SECTIONS WHEN ANSWERING:\n\n";

std::string repeated(std::string_view piece, std::size_t times) {
    std::string out;
    for (std::size_t i = 0; i < times; ++i) out += piece;
    return out;
}

std::string excerpt(const std::string& manual, const std::string& query, std::size_t maxChars) {
    return CoachPromptBudget::relevantManualExcerpt(manual, query, maxChars);
}

struct Expected {
    std::string title;
    std::string body;
    int order;
};

void expectSections(const std::string& manual, const std::vector<Expected>& expected) {
    auto sections = CoachPromptBudget::splitSections(manual);
    ASSERT_EQ(sections.size(), expected.size()) << manual;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(sections[i].title, expected[i].title);
        EXPECT_EQ(sections[i].body, expected[i].body);
        EXPECT_EQ(sections[i].order, expected[i].order);
    }
}

std::vector<std::pair<std::string, int>> ranking(const std::string& manual,
                                                 const std::string& query) {
    std::vector<std::pair<std::string, int>> out;
    for (const auto& entry : CoachPromptBudget::rankSections(manual, query))
        out.emplace_back(entry.section.title, entry.score);
    return out;
}

const std::string& kSetupGuide = sagely::testing::kSampleSetupGuide;

// Four sections of 100-character bodies; only the last three mention widgets.
std::string widgetGuide() {
    std::string guide;
    for (int i = 1; i <= 4; ++i) {
        std::string body = i == 1 ? std::string(100, 'p') : "widget" + std::string(94, 'a' + i);
        guide += "## S" + std::to_string(i) + "\n" + body + "\n\n";
    }
    return guide;
}

std::string widgetBody(int i) {
    return "widget" + std::string(94, static_cast<char>('a' + i));
}

}  // namespace

// --- Splitting the guide into sections -------------------------------------------------------

TEST(GuideSections, StartWithAnIntroductionAndOpenAtLevelTwoToFourHeadings) {
    expectSections("Welcome.\n## First\nOne\n### Second\nTwo\n#### Third\nThree",
                   {{"Introduction", "Welcome.", 0},
                    {"First", "One", 1},
                    {"Second", "Two", 2},
                    {"Third", "Three", 3}});
}

TEST(GuideSections, OfAGuideWithoutHeadingsAreOneIntroduction) {
    expectSections("Just text\nmore text\n", {{"Introduction", "Just text\nmore text", 0}});
}

TEST(GuideSections, TreatLevelOneAndLevelFiveHeadingsAsBodyText) {
    expectSections("# Title\nBody\n# Other\nMore",
                   {{"Introduction", "# Title\nBody\n# Other\nMore", 0}});
    expectSections("## A\n##### Five\n##NoSpace\nx", {{"A", "##### Five\n##NoSpace\nx", 0}});
}

TEST(GuideSections, LetAHeadingDirectlyAfterAHeadingReplaceItsTitle) {
    expectSections("## A\n## B\nBody B", {{"B", "Body B", 0}});
}

TEST(GuideSections, KeepAHeadingFollowedOnlyByBlankLines) {
    expectSections("## A\n\n## B\nx", {{"A", "", 0}, {"B", "x", 1}});
    expectSections("## A\nx\n## B\n\n  \n", {{"A", "x", 0}, {"B", "", 1}});
}

TEST(GuideSections, DropAnEmptyIntroductionButKeepItsPosition) {
    expectSections("\n## A\nx", {{"A", "x", 1}});
    expectSections("## Introduction\n\n## B\nb", {{"B", "b", 1}});
    expectSections("## A\nx", {{"A", "x", 0}});
}

TEST(GuideSections, OfAGuideMadeOnlyOfHeadingsAreNone) {
    EXPECT_TRUE(CoachPromptBudget::splitSections("## A\n## B").empty());
    EXPECT_TRUE(CoachPromptBudget::splitSections("").empty());
    EXPECT_TRUE(CoachPromptBudget::splitSections("\n\n").empty());
}

TEST(GuideSections, TrimTitlesOfMarksAndSpacesAndBodiesOfAllWhiteSpace) {
    expectSections("##   Title ##  \n\n  body  \n\n", {{"Title", "body", 0}});
    expectSections("## \tTabbed\u00A0\nx", {{"Tabbed", "x", 0}});
    // A title keeps a carriage return: only spaces and tabs are trimmed from it.
    expectSections("## Title\r\nbody\r\n", {{"Title\r", "body", 0}});
}

// --- Query terms -------------------------------------------------------------------------------

TEST(QueryTerms, KeepDistinctLowerCasedWordsOfThreeCharactersThatAreNotStopWords) {
    EXPECT_EQ(CoachPromptBudget::queryTerms("Export the PDF export, quickly!"),
              (std::set<std::string>{"export", "pdf", "quickly"}));
    EXPECT_EQ(CoachPromptBudget::queryTerms("ipv6 x11 on"), (std::set<std::string>{"ipv6", "x11"}));
}

TEST(QueryTerms, IgnoreEveryStopWord) {
    EXPECT_TRUE(CoachPromptBudget::queryTerms(
                    "a an the is are what does do how can you tell me about in for to of and or "
                    "tessel pro this that it i app")
                    .empty());
    EXPECT_TRUE(
        CoachPromptBudget::queryTerms("What does Tessel Pro do? Tell me about this app.").empty());
}

TEST(QueryTerms, AddTheRelatedTermsTheQueryImplies) {
    EXPECT_EQ(CoachPromptBudget::queryTerms("How do I set up the Speech view?"),
              (std::set<std::string>{"set", "setup", "speech", "view"}));
    EXPECT_EQ(CoachPromptBudget::queryTerms("setup"), (std::set<std::string>{"setup", "speech"}));
    EXPECT_EQ(CoachPromptBudget::queryTerms("Please configure it"),
              (std::set<std::string>{"please", "configure"}));
    EXPECT_EQ(CoachPromptBudget::queryTerms("Voiceover settings"),
              (std::set<std::string>{"voiceover", "settings", "voice"}));
    EXPECT_EQ(CoachPromptBudget::queryTerms("Configuration"),
              (std::set<std::string>{"configuration"}));
}

TEST(QueryTerms, SplitOnlyAtCharactersThatAreNotLettersMarksOrNumbers) {
    EXPECT_EQ(CoachPromptBudget::queryTerms("Einstellungen f\u00FCr \u00DCbersetzung"),
              (std::set<std::string>{"einstellungen", "f\u00FCr", "\u00FCbersetzung"}));
    EXPECT_EQ(CoachPromptBudget::queryTerms("cafe\u0301s e-mail"),
              (std::set<std::string>{"cafe\u0301s", "mail"}));
    // Two characters (four code points) are too short.
    EXPECT_TRUE(CoachPromptBudget::queryTerms("e\u0301e\u0301").empty());
    EXPECT_EQ(CoachPromptBudget::queryTerms("speech speech SPEECH"),
              (std::set<std::string>{"speech"}));
}

TEST(SetupIntent, IsAnyOfTheHowToPhrases) {
    for (const char* query : {"Set up speech", "SETUP", "configure the coach", "Get started",
                              "getting started", "How do I export", "how to export"})
        EXPECT_TRUE(CoachPromptBudget::hasSetupIntent(query)) << query;
    for (const char* query : {"What is speech?", "settings", "Who do I call"})
        EXPECT_FALSE(CoachPromptBudget::hasSetupIntent(query)) << query;
}

// --- Scoring and ranking -------------------------------------------------------------------

TEST(SectionRanking, ScoresTermsAndEverySetupAndTopicBonus) {
    EXPECT_EQ(ranking(kSetupGuide, "How do I set up speech?"),
              (std::vector<std::pair<std::string, int>>{{"Set Up Speech", 31},
                                                        {"Setup Guides", 21},
                                                        {"Speech & Voice Control", 10},
                                                        {"Set Up Coach", 4},
                                                        {"Keyboard Shortcuts", 0},
                                                        {"Permissions", 0}}));
}

TEST(SectionRanking, GivesShortcutAndPermissionBonusesOnTheTitleOnly) {
    EXPECT_EQ(ranking(kSetupGuide, "Which keyboard shortcut opens permissions?"),
              (std::vector<std::pair<std::string, int>>{{"Keyboard Shortcuts", 13},
                                                        {"Permissions", 9},
                                                        {"Setup Guides", 0},
                                                        {"Set Up Speech", 0},
                                                        {"Set Up Coach", 0},
                                                        {"Speech & Voice Control", 0}}));
}

TEST(SectionRanking, GivesTheSetUpBonusForEachTopicWordOnlyWithSetupIntent) {
    std::string guide = "## Set Up Speech, Teach and Coach\nx\n";
    EXPECT_EQ(ranking(guide, "set up speech teach coach"),
              (std::vector<std::pair<std::string, int>>{{"Set Up Speech, Teach and Coach", 67}}));
    EXPECT_EQ(ranking(kSetupGuide, "speech")[0],
              (std::pair<std::string, int>{"Set Up Speech", 11}));
}

TEST(SectionRanking, LetsTheBodyContributeOnlyThroughTerms) {
    std::string guide = "## Notes\nsetup guide, shortcut, permission, speech\n";
    // "shortcut" in the body: 1; the body earns no setup, shortcut or speech bonus.
    EXPECT_EQ(ranking(guide, "how to setup a shortcut"),
              (std::vector<std::pair<std::string, int>>{{"Notes", 3}}));
}

TEST(SectionRanking, KeepsGuideOrderForEqualScores) {
    std::string guide = "## Alpha\nwidget\n## Beta\nnothing\n## Gamma\nwidget\n## Delta\nwidget\n";
    EXPECT_EQ(ranking(guide, "widget"),
              (std::vector<std::pair<std::string, int>>{
                  {"Alpha", 1}, {"Gamma", 1}, {"Delta", 1}, {"Beta", 0}}));
}

TEST(SectionRanking, ScoresAsciiAndOtherGuidesAlike) {
    // Terms at the very edges of bodies, across a body's end into the next heading, inside
    // heading lines and in the blank lines between sections.
    std::string guide =
        "setup words first\n"
        "## Speech Setup\n\n"
        "speech at the start and at the end: setup\n\n"
        "## Voice Control Permissions\n"
        "ends with spe\n"
        "## ech continues in a heading\n"
        "shortcut\n"
        "#### Set Up Coach\n"
        "nothing here\n";
    std::string accented = guide + "## Caf\u00E9\ncr\u00E8me\n";
    for (const char* query : {"How do I set up speech?", "speech", "voice control permission",
                              "shortcut coach", "ech", "What is this?"}) {
        auto ascii = ranking(guide, query);
        auto unicode = ranking(accented, query);
        ASSERT_EQ(unicode.size(), ascii.size() + 1) << query;
        std::erase_if(unicode, [](const auto& entry) { return entry.first == "Caf\u00E9"; });
        EXPECT_EQ(ascii, unicode) << query;
    }
    EXPECT_EQ(ranking(guide, "speech"),
              (std::vector<std::pair<std::string, int>>{{"Speech Setup", 11},
                                                        {"Voice Control Permissions", 6},
                                                        {"Introduction", 0},
                                                        {"ech continues in a heading", 0},
                                                        {"Set Up Coach", 0}}));
}

// --- Choosing the excerpt --------------------------------------------------------------------

TEST(ManualExcerpt, OfAnEmptyGuideIsEmpty) {
    EXPECT_EQ(excerpt("", "anything", 100), "");
    EXPECT_EQ(excerpt(" \n\t\n", "anything", 100), "");
}

TEST(ManualExcerpt, ReturnsAGuideWithinTheLimitWholeAndTrimmed) {
    EXPECT_EQ(excerpt("  \n## A\nBody\n\n", "query", 100), "## A\nBody");
    std::string exact = "## A\n" + std::string(95, 'b');  // exactly 100 characters
    EXPECT_EQ(excerpt(exact, "query", 100), exact);
    std::string emoji = repeated("\U0001F44D\U0001F3FD", 100);  // 100 characters, 800 bytes
    EXPECT_EQ(excerpt(emoji, "query", 100), emoji);
}

TEST(ManualExcerpt, ChoosesSectionsOnceTheGuideIsOneCharacterOverTheLimit) {
    std::string guide = "## Alpha\n" + std::string(40, 'a') + "\n## Beta\nwidget " +
                        std::string(42, 'b');  // 101 characters
    EXPECT_EQ(excerpt(guide, "widget", 100), "### Beta\n\nwidget " + std::string(42, 'b'));
}

TEST(ManualExcerpt, FallsBackToTheStartOfAGuideWithoutHeadings) {
    EXPECT_EQ(excerpt(std::string(500, 'x'), "anything", 100), std::string(99, 'x') + "\u2026");
}

TEST(ManualExcerpt, FallsBackToTheStartOfAGuideOfOnlyHeadings) {
    std::string guide = repeated("## Heading\n", 20);
    EXPECT_EQ(excerpt(guide, "heading", 100),
              sagely::text::prefixCharacters(sagely::text::trimmed(guide), 99) + "\u2026");
}

TEST(ManualExcerpt, TakesTheFirstSectionAloneForAQueryOfStopWords) {
    std::string guide = "## Alpha\n" + std::string(300, 'a') + "\n## Beta\n" +
                        std::string(300, 'b') + "\n## Gamma\n" + std::string(300, 'c');
    EXPECT_EQ(excerpt(guide, "What is this app?", 800), "### Alpha\n\n" + std::string(300, 'a'));
}

TEST(ManualExcerpt, FallsBackWhenTheFirstSectionIsShorterThanAQuarter) {
    std::string guide = "## Alpha\nshort body\n## Beta\n" + std::string(900, 'b');
    EXPECT_EQ(excerpt(guide, "What is this app?", 800),
              sagely::text::prefixCharacters(guide, 799) + "\u2026");
}

TEST(ManualExcerpt, StopsOnceTwoThirdsOfTheLimitAreFilled) {
    EXPECT_EQ(excerpt(widgetGuide(), "widget", 300),
              "### S2\n\n" + widgetBody(2) + "\n\n### S3\n\n" + widgetBody(3));
}

TEST(ManualExcerpt, StopsBeforeASectionThatWouldOverflow) {
    EXPECT_EQ(excerpt(widgetGuide(), "widget", 200), "### S2\n\n" + widgetBody(2));
}

TEST(ManualExcerpt, CountsCharactersNotBytesWhenFillingTheLimit) {
    std::string guide = "## Emoji\n" + repeated("\U0001F44D\U0001F3FD", 150) + "\n## Other\n" +
                        std::string(200, 'z');
    EXPECT_EQ(excerpt(guide, "emoji", 200),
              "### Emoji\n\n" + repeated("\U0001F44D\U0001F3FD", 150));
}

TEST(ManualExcerpt, NeverSplitsACharacterInTheFallback) {
    std::string guide = std::string(98, 'x') + "\U0001F44D\U0001F3FD" + std::string(500, 'y');
    EXPECT_EQ(excerpt(guide, "q", 100), std::string(98, 'x') + "\U0001F44D\U0001F3FD\u2026");
    EXPECT_EQ(excerpt(repeated("e\u0301", 300), "q", 100), repeated("e\u0301", 99) + "\u2026");
}

TEST(ManualExcerpt, PrefacesSetupSectionsForASetupQuestion) {
    std::string guide = kSetupGuide + "## Filler\n" + std::string(400, 'f');
    // Only "Setup Guides" scores (12, its bonus); its 47 characters pass a quarter of 180.
    std::string result = excerpt(guide, "How do I get started?", 180);
    EXPECT_EQ(result, kPreface + "### Setup Guides\n\nStart here to set up the app.");
    // With a limit of 200 the same section falls under a quarter: the start of the guide.
    EXPECT_EQ(excerpt(guide, "How do I get started?", 200),
              kPreface + sagely::text::prefixCharacters(guide, 199) + "\u2026");
}

TEST(ManualExcerpt, PrefacesASetUpSpeechSectionWhateverTheQuestion) {
    std::string guide = kSetupGuide + "## Filler\n" + std::string(400, 'f');
    std::string result = excerpt(guide, "speech input", 200);
    EXPECT_EQ(result.substr(0, kPreface.size() + 17), kPreface + "### Set Up Speech");
}

TEST(ManualExcerpt, LeavesOtherExcerptsWithoutThePreface) {
    std::string guide = kSetupGuide + "## Filler\n" + std::string(400, 'f');
    // Setup intent, but a guide without either heading.
    std::string exportGuide =
        "## Export\nChoose File > Export.\n## Filler\n" + std::string(400, 'f');
    EXPECT_EQ(excerpt(exportGuide, "How do I export?", 120), "### Export\n\nChoose File > Export.");
    // "Setup Guides" without setup intent.
    std::string plain =
        "## Setup Guides\nWidgets explained here.\n## Filler\n" + std::string(400, 'f');
    EXPECT_EQ(excerpt(plain, "widgets", 100), "### Setup Guides\n\nWidgets explained here.");
}

TEST(ManualExcerpt, StaysWithinTheOnDeviceLimitExceptForThePreface) {
    std::string guide;
    for (int i = 0; i < 40; ++i)
        guide += "## Topic " + std::to_string(i) + (i % 7 == 0 ? " Setup Guides" : "") + "\n" +
                 repeated(i % 3 ? "speech widget text " : "caf\u00E9 \U0001F44D\U0001F3FD ", 30) +
                 "\n";
    ASSERT_GT(sagely::text::characterCount(guide), 10000u);
    for (const char* query : {"how to set up speech", "widget", "What is this app?", "caf\u00E9",
                              "topic 12", "Topic 3 Setup Guides"}) {
        std::string result = excerpt(guide, query, 1500);
        if (result.starts_with(kPreface)) result.erase(0, kPreface.size());
        EXPECT_LE(sagely::text::characterCount(result), 1500u) << query;
        EXPECT_FALSE(result.empty()) << query;
    }
}
