#include <sagely/CoachMessageFormatting.h>

#include <sagely/Text.h>

#include "format/IcuRegex.h"
#include "format/ReplyMarkers.h"

#include <gtest/gtest.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <array>
#include <chrono>
#include <random>
#include <span>
#include <string>
#include <thread>
#include <vector>

using sagely::CoachMessageFormatting;

namespace {

std::string normalize(const std::string& text) {
    return CoachMessageFormatting::normalize(text);
}

// Both ways of cleaning, which must agree: reading the text, and taking it over.
std::string clean(const std::string& text) {
    std::string cleaned = CoachMessageFormatting::cleanDisplayMarkdown(std::string_view(text));
    EXPECT_EQ(CoachMessageFormatting::cleanDisplayMarkdown(std::string(text)), cleaned)
        << "taken over: " << text;
    return cleaned;
}

std::vector<std::string> titlesOf(const CoachMessageFormatting::ProceduralContent& content) {
    std::vector<std::string> titles;
    for (const auto& step : content.steps) titles.push_back(step.title);
    return titles;
}

}  // namespace

// --- normalize ------------------------------------------------------------------------------

TEST(Normalize, SeparatesRunTogetherStepsFromTheIntroAndFromTheirTitles) {
    EXPECT_EQ(normalize("Do this.Step 1: Open Settings.Step 2:Click Save"),
              "Do this.\n\nStep 1:\n Open Settings.\n\nStep 2:\n\nClick Save");
}

TEST(Normalize, DropsALineOfOnlyHeadingMarksButKeepsATitledHeading) {
    EXPECT_EQ(normalize("Intro\n###\nText"), "Intro\nText");
    EXPECT_EQ(normalize("### Setup\nText"), "### Setup\nText");
    EXPECT_EQ(normalize("# Title"), "# Title");
    EXPECT_EQ(normalize("A\n  ## \t\nB"), "A\nB");
    EXPECT_EQ(normalize("##"), "");
}

TEST(Normalize, KeepsBlankLinesWhileDroppingHeadingMarks) {
    // The dropped line leaves three line breaks in a row, which collapse to one blank line.
    EXPECT_EQ(normalize("A\n\n#\n\nB"), "A\n\nB");
    EXPECT_EQ(normalize("A\n\nB"), "A\n\nB");
}

TEST(Normalize, SplitsAnActionGluedToTheEndOfASentence) {
    EXPECT_EQ(normalize("Done!Restart the app"), "Done!\nRestart the app");
    EXPECT_EQ(normalize("Done. Restart the app"), "Done. Restart the app");
    EXPECT_EQ(normalize("reOpen"), "re\nOpen");
    EXPECT_EQ(normalize("Open SettingsClick Save"), "Open Settings\nClick Save");
    EXPECT_EQ(normalize("(see below)Select All"), "(see below)\nSelect All");
    EXPECT_EQ(normalize("Step 3Toggle it"), "Step 3\nToggle it");
}

TEST(Normalize, MatchesPhrasesWithTheirTrailingBlankOnly) {
    EXPECT_EQ(normalize("ThenAfter that, save"), "Then\nAfter that, save");
    EXPECT_EQ(normalize("ThenAfterwards save"), "ThenAfterwards save");
    EXPECT_EQ(normalize("OkNow go"), "Ok\nNow go");
    EXPECT_EQ(normalize("OkNowhere"), "OkNowhere");
    EXPECT_EQ(normalize("FineTry it"), "Fine\nTry it");
}

TEST(Normalize, SplitsPhrasesInTheirTableOrder) {
    // "Add a" comes first and already breaks the line before "Add an" could.
    EXPECT_EQ(normalize("SettingsAdd an item"), "Settings\nAdd an item");
    EXPECT_EQ(normalize("SettingsWould you like"), "Settings\nWould you like");
    EXPECT_EQ(normalize("SettingsIn the menu"), "Settings\nIn the menu");
}

TEST(Normalize, PhraseMatchingIsCaseSensitive) {
    EXPECT_EQ(normalize("settingsclick save"), "settingsclick save");
}

TEST(Normalize, StartsANewParagraphForInlineNumberedItems) {
    EXPECT_EQ(normalize("Do these:1. First 2. Second"), "Do these:\n\n1. First \n\n2. Second");
    EXPECT_EQ(normalize("1. First"), "1. First");
    EXPECT_EQ(normalize("Version 2.5 is out"), "Version 2.5 is out");
}

TEST(Normalize, FindsStepMarkersWhateverTheirCase) {
    EXPECT_EQ(normalize("first.step 2: go"), "first.\n\nstep 2:\n go");
    EXPECT_EQ(normalize("Done.Step 2 next"), "Done.\n\nStep 2 next");
}

TEST(Normalize, TreatsCarriageReturnLineFeedPairsAsLineFeeds) {
    EXPECT_EQ(normalize("Line one\r\nLine two\r\n\r\n\r\nLine three"),
              "Line one\nLine two\n\nLine three");
    EXPECT_EQ(normalize("\r\n  Text  \r\n"), "Text");
}

TEST(Normalize, CollapsesRunsOfBlankLines) {
    EXPECT_EQ(normalize("A\n\n\n\n\nB"), "A\n\nB");
}

TEST(Normalize, KeepsEmojiAndCombiningMarksAroundStepMarkers) {
    EXPECT_EQ(normalize("\U0001F44D\U0001F3FDStep 1: Open\U0001F600Step 2: Save"),
              "\U0001F44D\U0001F3FD\n\nStep 1:\n Open\U0001F600\n\nStep 2:\n Save");
    EXPECT_EQ(normalize("Cafe\u0301Step 1:Open it.Step 2: Close it"),
              "Cafe\u0301\n\nStep 1:\n\nOpen it.\n\nStep 2:\n Close it");
}

TEST(Normalize, OfEmptyTextIsEmpty) {
    EXPECT_EQ(normalize(""), "");
    EXPECT_EQ(normalize(" \n\t "), "");
}

// --- cleanDisplayMarkdown --------------------------------------------------------------------

TEST(CleanDisplayMarkdown, StripsHeadingMarksBoldAndBullets) {
    EXPECT_EQ(clean("## **Title**"), "Title");
    EXPECT_EQ(clean("- item"), "item");
    EXPECT_EQ(clean("**Bold** text"), "Bold text");
}

TEST(CleanDisplayMarkdown, HandlesBoldAroundHeadingsAndOtherMarks) {
    EXPECT_EQ(clean("**## Title**"), "Title");
    EXPECT_EQ(clean("* bullet"), "bullet");
    EXPECT_EQ(clean("__under__ line"), "under line");
    EXPECT_EQ(clean("  ### Heading  \n"), "Heading");
    EXPECT_EQ(clean("**a** *"), "a");
}

TEST(CleanDisplayMarkdown, RemovesOnlyTheFinalRunOfTrailingStars) {
    EXPECT_EQ(clean("a* *"), "a*");
}

// A reply handed over is cleaned where it lies: a long one is not copied to cut its marks off.
TEST(CleanDisplayMarkdown, CleansAReplyHandedOverInItsOwnBuffer) {
    const std::string words(1 << 20, 'w');
    for (const std::string& reply :
         {words, "## " + words + " **", "**" + words + "**", "- " + words + " __x__"}) {
        std::string handedOver = reply;
        const char* buffer = handedOver.data();
        std::string cleaned = CoachMessageFormatting::cleanDisplayMarkdown(std::move(handedOver));
        EXPECT_EQ(cleaned.data(), buffer);
        EXPECT_EQ(cleaned, clean(reply));
        EXPECT_EQ(cleaned.substr(0, 8), "wwwwwwww");
    }
    // Literals still read as text.
    EXPECT_EQ(CoachMessageFormatting::cleanDisplayMarkdown("## **Title**"), "Title");
}

TEST(CleanDisplayMarkdown, KeepsALoneDashAndPlainText) {
    EXPECT_EQ(clean("-"), "-");
    EXPECT_EQ(clean("-item"), "-item");
    EXPECT_EQ(clean("Plain words"), "Plain words");
    EXPECT_EQ(clean(""), "");
}

// --- parseProceduralContent ----------------------------------------------------------------

TEST(ParseProceduralContent, SplitsTheWorkedExampleIntoIntroAndTwoSteps) {
    auto content = CoachMessageFormatting::parseProceduralContent(
        "Do this.Step 1: Open Settings.Step 2:Click Save");
    ASSERT_TRUE(content.has_value());
    EXPECT_EQ(content->intro, "Do this.");
    ASSERT_EQ(content->steps.size(), 2u);
    EXPECT_EQ(content->steps[0].title, "Open Settings.");
    EXPECT_TRUE(content->steps[0].details.empty());
    EXPECT_EQ(content->steps[1].title, "Click Save");
    EXPECT_TRUE(content->steps[1].details.empty());
}

TEST(ParseProceduralContent, NeedsAtLeastTwoSteps) {
    EXPECT_FALSE(
        CoachMessageFormatting::parseProceduralContent("Step 1: Open Settings").has_value());
    EXPECT_FALSE(
        CoachMessageFormatting::parseProceduralContent("Open Settings and save.").has_value());
    EXPECT_FALSE(CoachMessageFormatting::parseProceduralContent("").has_value());
}

TEST(ParseProceduralContent, CleansTitlesAndDetailsAndKeepsALoneDash) {
    auto content = CoachMessageFormatting::parseProceduralContent(
        "Intro\nStep 1:\n**Open Settings**\n- Choose General\n\n-\nStep 2:\nClick Save");
    ASSERT_TRUE(content.has_value());
    EXPECT_EQ(content->intro, "Intro");
    ASSERT_EQ(content->steps.size(), 2u);
    EXPECT_EQ(content->steps[0].title, "Open Settings");
    EXPECT_EQ(content->steps[0].details, (std::vector<std::string>{"Choose General", "-"}));
    EXPECT_EQ(content->steps[1].title, "Click Save");
    EXPECT_TRUE(content->steps[1].details.empty());
}

TEST(ParseProceduralContent, DropsDetailsThatCleanToNothing) {
    auto content =
        CoachMessageFormatting::parseProceduralContent("Step 1: First\n**\nkept\nStep 2: Second");
    ASSERT_TRUE(content.has_value());
    EXPECT_EQ(content->steps[0].details, (std::vector<std::string>{"kept"}));
}

TEST(ParseProceduralContent, NumbersStepsByOrderOfAppearance) {
    auto content =
        CoachMessageFormatting::parseProceduralContent("Step 1: One\nStep 1: Two\nStep 3: Three");
    ASSERT_TRUE(content.has_value());
    EXPECT_EQ(content->intro, "");
    EXPECT_EQ(titlesOf(*content), (std::vector<std::string>{"One", "Two", "Three"}));
}

TEST(ParseProceduralContent, SkipsMarkersWithoutABody) {
    auto content =
        CoachMessageFormatting::parseProceduralContent("Step 1:\nStep 2:\nOpen\nStep 3:\nClose");
    ASSERT_TRUE(content.has_value());
    EXPECT_EQ(titlesOf(*content), (std::vector<std::string>{"Open", "Close"}));
    EXPECT_FALSE(
        CoachMessageFormatting::parseProceduralContent("Step 1:\nStep 2: Close").has_value());
}

TEST(ParseProceduralContent, ReadsCarriageReturnLineFeedReplies) {
    auto content = CoachMessageFormatting::parseProceduralContent(
        "Here is how:\r\nStep 1: Open\r\nthe menu\r\nStep 2: Save\r\n");
    ASSERT_TRUE(content.has_value());
    EXPECT_EQ(content->intro, "Here is how:");
    EXPECT_EQ(titlesOf(*content), (std::vector<std::string>{"Open", "Save"}));
    EXPECT_EQ(content->steps[0].details, (std::vector<std::string>{"the menu"}));
}

TEST(ParseProceduralContent, KeepsEmojiAndCombiningMarksWhole) {
    auto content = CoachMessageFormatting::parseProceduralContent(
        "\U0001F44D\U0001F3FDStep 1: Open\U0001F600Step 2: Save");
    ASSERT_TRUE(content.has_value());
    EXPECT_EQ(content->intro, "\U0001F44D\U0001F3FD");
    EXPECT_EQ(titlesOf(*content), (std::vector<std::string>{"Open\U0001F600", "Save"}));

    auto marked =
        CoachMessageFormatting::parseProceduralContent("Cafe\u0301Step 1:Open it.Step 2: Close it");
    ASSERT_TRUE(marked.has_value());
    EXPECT_EQ(marked->intro, "Cafe\u0301");
    EXPECT_EQ(titlesOf(*marked), (std::vector<std::string>{"Open it.", "Close it"}));
}

// --- blocks ---------------------------------------------------------------------------------

TEST(Blocks, CutsTheNormalisedTextIntoParagraphs) {
    EXPECT_EQ(CoachMessageFormatting::blocks("A\n\n\n\nB"), (std::vector<std::string>{"A", "B"}));
    EXPECT_EQ(CoachMessageFormatting::blocks("Do this.Step 1: Open Settings.Step 2:Click Save"),
              (std::vector<std::string>{"Do this.", "Step 1:\n Open Settings.",
                                        "Step 2:", "Click Save"}));
}

TEST(Blocks, OfBlankTextIsEmpty) {
    EXPECT_TRUE(CoachMessageFormatting::blocks("").empty());
    EXPECT_TRUE(CoachMessageFormatting::blocks(" \n\n ##\n").empty());
}

// --- Skipping patterns that cannot match never changes a result -----------------------------

namespace {

using sagely::detail::IcuRegex;

// The repair done the long way: every pattern compiled afresh and applied unconditionally.
std::string applied(const std::string& text, std::u16string_view pattern, uint32_t flags,
                    std::u16string_view replacement) {
    icu::UnicodeString input = icu::UnicodeString::fromUTF8(text);
    icu::UnicodeString output =
        IcuRegex(pattern, flags)
            .replaceAll(input, icu::UnicodeString(replacement.data(),
                                                  static_cast<int32_t>(replacement.size())));
    std::string result;
    output.toUTF8String(result);
    return result;
}

std::string referenceDropEmptyHeadings(const std::string& text) {
    std::vector<std::string> kept;
    std::size_t start = 0;
    while (true) {
        std::size_t end = text.find('\n', start);
        std::string line = text.substr(start, end == std::string::npos ? end : end - start);
        std::string trimmedLine = sagely::text::trimmedSpacesAndTabs(line);
        bool heading = IcuRegex(u"^#+\\s*.*$").find(icu::UnicodeString::fromUTF8(trimmedLine));
        std::string rest;
        for (char c : trimmedLine)
            if (c != '#') rest.push_back(c);
        if (!heading || !sagely::text::trimmedSpacesAndTabs(rest).empty()) kept.push_back(line);
        if (end == std::string::npos) break;
        start = end + 1;
    }
    std::string joined;
    for (std::size_t i = 0; i < kept.size(); ++i) joined += (i ? "\n" : "") + kept[i];
    return joined;
}

std::string referenceNormalize(std::string text) {
    for (std::size_t at = text.find("\r\n"); at != std::string::npos; at = text.find("\r\n", at))
        text.replace(at, 2, "\n");
    text = referenceDropEmptyHeadings(sagely::text::trimmed(text));
    text = applied(text, u"(?i)(Step\\s+\\d+\\s*:)([A-Za-z])", 0, u"$1\n\n$2");
    text = applied(text, u"(?<!\n)(Step\\s+\\d+\\s*:)", UREGEX_CASE_INSENSITIVE, u"\n\n$1\n");
    text = applied(text, u"(?<!\n)(\\d+\\.\\s)", 0, u"\n\n$1");
    text = applied(text, u"([:.!?])(Step\\s+\\d+)", UREGEX_CASE_INSENSITIVE, u"$1\n\n$2");
    // The phrases hold letters and blanks only, so each one is its own literal pattern.
    for (std::u16string_view phrase :
         {u"Click",  u"Select", u"Open",  u"In the", u"Name your", u"Add a",
          u"Add an", u"Press",  u"Type",  u"Toggle", u"Ensure",    u"Verify",
          u"Switch", u"Return", u"Grant", u"Test",   u"Optional",  u"Would you",
          u"After ", u"Now ",   u"Try ",  u"Restart"})
        text = applied(text, u"([a-zA-Z0-9!)])(" + std::u16string(phrase) + u")", 0, u"$1\n$2");
    text = referenceDropEmptyHeadings(text);
    return sagely::text::trimmed(applied(text, u"\n{3,}", 0, u"\n\n"));
}

std::string referenceClean(const std::string& input) {
    std::string text = sagely::text::trimmed(input);
    text = applied(text, u"^\\**\\s*#+\\s*", 0, u"");
    text = applied(text, u"\\s*\\**$", 0, u"");
    text = applied(text, u"^\\*\\*(.+?)\\*\\*$", 0, u"$1");
    text = applied(text, u"^[-*]\\s+", 0, u"");
    for (std::string mark : {"**", "__"})
        for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at))
            text.erase(at, 2);
    return sagely::text::trimmed(text);
}

// `count` strings of up to `maxPieces` pieces each, drawn at random.
std::vector<std::string> concatenationsOf(std::span<const std::string> pieces, unsigned seed,
                                          std::size_t count, std::size_t maxPieces) {
    std::mt19937 random(seed);
    std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1), length(0, maxPieces);
    std::vector<std::string> replies;
    for (std::size_t i = 0; i < count; ++i) {
        std::string reply;
        for (std::size_t n = length(random); n > 0; --n) reply += pieces[piece(random)];
        replies.push_back(reply);
    }
    return replies;
}

std::vector<std::string> randomReplies(std::size_t count, std::size_t maxPieces = 24) {
    // Includes characters that case-fold to "s" or "st", digits outside ASCII (one of them
    // outside the basic plane) and line separators, where shortcuts would most likely go wrong.
    static const std::array<std::string, 42> pieces = {
        "Step",      "step",       "STEP",   " ",      "  ",      "1",
        "23",        ":",          ".",      "!",      "?",       ")",
        "Click",     "Open",       "Add a",  "Add an", "After ",  "Now",
        "Try ",      "\n",         "\r\n",   "\r",     "#",       "##",
        "*",         "**",         "-",      "_",      "e\u0301", "\U0001F44D\U0001F3FD",
        "\u017Ftep", "\u2028",     "\u0663", "a",      "\u00DF",  "\uFB06ep",
        "\u1E9E",    "\U0001D7CE", "\u212A", "\u0130", "\t",      "\u0085"};
    return concatenationsOf(pieces, 20240611, count, maxPieces);
}

}  // namespace

// The step split done the long way: the marker pattern searched over the whole text.
std::vector<std::string> referenceStepBodies(const std::string& reply) {
    icu::UnicodeString text = icu::UnicodeString::fromUTF8(normalize(reply));
    auto matches = IcuRegex(u"(?i)Step\\s+(\\d+)\\s*:\\s*").matchRanges(text);
    std::vector<std::string> bodies;
    for (std::size_t i = 0; i < matches.size(); ++i) {
        int32_t end = i + 1 < matches.size() ? matches[i + 1].first : text.length();
        std::string body;
        text.tempSubString(matches[i].second, end - matches[i].second).toUTF8String(body);
        bodies.push_back(sagely::text::trimmed(body));
    }
    return bodies;
}

TEST(FormattingShortcuts, GiveTheSameResultsAsApplyingEveryPattern) {
    for (const std::string& reply : randomReplies(800)) {
        ASSERT_EQ(normalize(reply), referenceNormalize(reply)) << "reply: " << reply;
        ASSERT_EQ(clean(reply), referenceClean(reply)) << "line: " << reply;
    }
}

// Long replies are scanned a block of characters at a time; matches and marks fall at the ends
// of blocks and across them.
TEST(FormattingShortcuts, GiveTheSameResultsOnLongRepliesAsApplyingEveryPattern) {
    for (const std::string& reply : randomReplies(150, 600))
        ASSERT_EQ(normalize(reply), referenceNormalize(reply)) << "reply: " << reply;
}

TEST(FormattingShortcuts, FindTheSameStepsAsSearchingTheWholeText) {
    for (const std::string& reply : randomReplies(800)) {
        std::vector<std::string> bodies = referenceStepBodies(reply);
        std::size_t withText = 0;
        for (const std::string& body : bodies) withText += body.empty() ? 0 : 1;
        auto content = CoachMessageFormatting::parseProceduralContent(reply);
        ASSERT_EQ(content.has_value(), withText >= 2) << reply;
        if (content) {
            ASSERT_EQ(content->steps.size(), withText) << reply;
        }
    }
}

TEST(FormattingShortcuts, TryingEveryPositionFindsWhatASearchFinds) {
    IcuRegex marker(u"(?<!\n)(Step\\s+\\d+\\s*:)", UREGEX_CASE_INSENSITIVE);
    for (const std::string& reply : randomReplies(300)) {
        icu::UnicodeString text = icu::UnicodeString::fromUTF8(reply);
        std::vector<int32_t> everywhere(static_cast<std::size_t>(text.length()));
        for (int32_t i = 0; i < text.length(); ++i) everywhere[static_cast<std::size_t>(i)] = i;
        ASSERT_EQ(marker.matchRangesAt(text, everywhere), marker.matchRanges(text)) << reply;
    }
}

TEST(FormattingShortcuts, GiveTheSameResultsOnManyThreadsAtOnce) {
    std::vector<std::string> replies = randomReplies(200);
    std::vector<std::string> expected;
    for (const std::string& reply : replies) expected.push_back(normalize(reply));
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (std::size_t i = 0; i < replies.size(); ++i)
                if (normalize(replies[i]) != expected[i]) ++mismatches[static_cast<std::size_t>(t)];
        });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(mismatches, (std::vector<int>{0, 0, 0, 0}));
}

// Replies dense in blanks beyond ASCII, line separators, malformed bytes (lone continuation
// bytes, truncated sequences, overlong forms, encoded surrogates), CJK and emoji, among the
// marks the patterns look for: the scans pass over such characters without trying them.
TEST(FormattingShortcuts, GiveThePatternsResultsOnTextBeyondAsciiAndMalformedBytes) {
    static const std::array<std::string, 40> pieces = {"\u3000",
                                                       "\u3000\u3000\u3000",
                                                       "\u00A0",
                                                       "\u00A0\u00A0",
                                                       "\u2000",
                                                       "\u2005",
                                                       "\u200A",
                                                       "\u2028",
                                                       "\u2029",
                                                       "\u0085",
                                                       "\u1680",
                                                       "\u202F",
                                                       "\u205F",
                                                       "\x80",
                                                       "\xBF",
                                                       "\xE3\x80",
                                                       "\xC2",
                                                       "\xC0\xAF",
                                                       "\xE0\x80\xAF",
                                                       "\xED\xA0\x80",
                                                       "\xF0\x9F\x98",
                                                       "\xFF",
                                                       "\u6253\u5F00",
                                                       "\u3002",
                                                       "\U0001F44D\U0001F3FD",
                                                       "\uFB06ep",
                                                       "\u017Ftep",
                                                       "Step",
                                                       " 1",
                                                       ":",
                                                       ".",
                                                       "*",
                                                       "**",
                                                       "__",
                                                       "#",
                                                       "- ",
                                                       "\n",
                                                       "\r\n",
                                                       "Click",
                                                       "7."};
    std::vector<std::string> replies = concatenationsOf(pieces, 3000, 1500, 30);
    for (std::string& reply : concatenationsOf(pieces, 3001, 60, 700)) replies.push_back(reply);
    for (const std::string& reply : replies) {
        ASSERT_EQ(normalize(reply), referenceNormalize(reply)) << "reply: " << reply;
        // A line with no mark at its ends keeps its malformed bytes (the patterns never read
        // it), where the reference, applying every pattern, replaces them.
        if (sagely::text::isValidUtf8(reply)) {
            ASSERT_EQ(clean(reply), referenceClean(reply)) << "line: " << reply;
        }
        ASSERT_EQ(clean(normalize(reply)), referenceClean(referenceNormalize(reply)))
            << "reply: " << reply;
    }
}

// A marker glued to the word of the next one: the letter that ends the first match is where the
// next marker starts, and a search goes on after the first match, so the second is not found.
TEST(FormattingShortcuts, AMarkerGluedToTheNextMarkerIsFoundAsASearchFindsIt) {
    for (const char* reply :
         {"Step 1:Step 2:x", "Step 1:step 2: a", "intro Step 1:Step 2:Step 3:y",
          "STEP 1:\u017Ftep 2:z", "x.Step 1:Step 2:a", "Step 1:Step", "Step 1:S"})
        EXPECT_EQ(normalize(reply), referenceNormalize(reply)) << reply;
}

// The numbered items, the markers after a sentence and the sentence starts are found in the
// same text and their line feeds put in together; a numbered item's line feeds before a number
// are the only blanks "Step\s+\d+" after a sentence can need.
TEST(FormattingShortcuts, LineFeedsOfANumberedItemMakeAMarkerAfterASentence) {
    for (const char* reply :
         {".Step12. x", "!step7. and", ":Step\n12. x", "x.Step1.\ty", ".Step1.Step2. z",
          "?STEP\u0663. x", "a.Step12.b", ".Step 1. x", "x\n1.Step2. Click", "Test.Step3. Click"})
        EXPECT_EQ(normalize(reply), referenceNormalize(reply)) << reply;
}

TEST(FormattingShortcuts, PassesWorkedOutTogetherGiveThePatternsResults) {
    static const std::array<std::string, 18> pieces = {
        "Step", "step", "1",  "12", ".",      ":",     " ",      "\n",        "a",
        "!",    "Test", "ep", ". ", "Step12", "Click", "Select", "\u017Ftep", "?"};
    for (const std::string& reply : concatenationsOf(pieces, 2026, 3000, 16))
        ASSERT_EQ(normalize(reply), referenceNormalize(reply)) << "reply: " << reply;
}

// Numbered items in text of ASCII alone are found a block of 64 characters at a time, from bits
// of where digits, full stops and blanks stand: replies long enough for whole blocks, with runs
// of digits after a line feed, across the ends of blocks, and at the start of the text.
TEST(FormattingShortcuts, NumberedItemsInLongAsciiRepliesGiveThePatternsResults) {
    static const std::array<std::string, 12> pieces = {
        "1", "23", "456", ". ", ".", "\n", " ", "\t", "x", "Step 1:", "a.", "7777777"};
    for (const std::string& reply : concatenationsOf(pieces, 1125, 400, 160))
        ASSERT_EQ(normalize(reply), referenceNormalize(reply)) << "reply: " << reply;
}

// A marker glued to a letter, not at the start of a line, gets three line feeds after it, which
// go in as two: the run they make collapses to two in the end whatever stands around it, also
// when a line of heading marks between it and another run is dropped and the two runs join.
TEST(FormattingShortcuts, MoreThanTwoLineFeedsAtAPlaceEndAsTheRunTheyMakeWould) {
    for (const char* reply :
         {"xStep 1:a", "xStep 1:a\n#\nb", "xStep 1:a\n\n##\n\nb", "x Step 1:b## \n\n\nc",
          "#\nxStep 1:a", "xStep 1:\n#\na", "Step 1:Step 2:a\n#", "a\n\nxStep 1:a#\n\n\n"})
        EXPECT_EQ(normalize(reply), referenceNormalize(reply)) << reply;
    static const std::array<std::string, 9> pieces = {"Step 1:", "a", "\n",   "#",       "## ",
                                                      "x",       " ", "\n\n", "Step 2:b"};
    for (const std::string& reply : concatenationsOf(pieces, 1124, 3000, 14))
        ASSERT_EQ(normalize(reply), referenceNormalize(reply)) << "reply: " << reply;
}

// Each thread keeps the repair's working text and second buffer from reply to reply: what a long
// reply left in them shows in no later reply, whatever its length, and a reply longer than what
// is kept is repaired as well.
TEST(FormattingShortcuts, ARepliesResultDoesNotDependOnTheRepliesBeforeIt) {
    std::string markers;
    for (int i = 0; i < 20000; ++i) markers += "Step 1:a";
    const std::string huge(9 << 20, 'x');  // more than the 8 MB kept
    std::string items;                     // written to a second buffer of more than the 8 MB kept
    for (int i = 0; i < (1 << 20); ++i) items += "1. ";
    // "\n\n" before each item but the last, whose blank is trimmed first, and trimmed again
    EXPECT_EQ(normalize(items).size(), 5 * items.size() / 3 - 5);
    const std::string tail = "x.Step 2: y";
    for (const std::string* before :
         std::initializer_list<const std::string*>{&markers, &huge, &items, &tail}) {
        SCOPED_TRACE(before->size());
        normalize(*before);
        EXPECT_EQ(normalize("Step 1:a"), "Step 1:\n\na");
        EXPECT_EQ(normalize(""), "");
        EXPECT_EQ(normalize(tail), referenceNormalize(tail));
        EXPECT_EQ(normalize(huge.substr(0, 100) + tail),
                  referenceNormalize(huge.substr(0, 100) + tail));
        auto layout = CoachMessageFormatting::layout("Step 1: a\nStep 2: b");
        ASSERT_TRUE(layout.procedure.has_value());
        EXPECT_EQ(layout.procedure->steps.size(), 2U);
    }
}

// The line feeds of a step are kept in blocks, a first one of 128 and then blocks of 4,096:
// replies with more markers than one block holds, where a block ends amid them.
TEST(FormattingShortcuts, RepliesWithThousandsOfMarkersGiveThePatternsResults) {
    for (const char* unit : {"x1. ", "Step 1:a", ".Step 1", "aClick"})
        for (int count : {127, 128, 129, 4223, 4224, 4225, 9000}) {
            std::string reply;
            for (int i = 0; i < count; ++i) reply += unit;
            ASSERT_EQ(normalize(reply), referenceNormalize(reply)) << count << " of " << unit;
        }
}

// Runs of line feeds are found a block of 64 characters at a time, three characters at each
// place, and the text moved down as they are: runs of two to five line feeds, put at every
// offset around the ends of the first blocks, after a run or not.
TEST(FormattingShortcuts, CollapseRunsOfLineFeedsWhereverABlockEnds) {
    for (std::size_t offset = 55; offset <= 140; ++offset)
        for (std::size_t run = 2; run <= 5; ++run)
            for (const char* before : {"", "a\n\n\n\n\nb"})  // a run already moved down
                for (const char* after : {"", "y", "\n\n\ny"}) {
                    std::string reply =
                        before + std::string(offset, 'x') + std::string(run, '\n') + after;
                    ASSERT_EQ(normalize(reply), referenceNormalize(reply)) << offset << ", " << run;
                }
}

// "Step" is compared four ASCII characters at a time where four are left: the word and pieces
// of it in every case, near the end of the text and beside characters beyond ASCII.
TEST(FormattingShortcuts, FindStepWhereverItsLettersEnd) {
    for (const char* word : {"Step", "STEP", "sTeP", "Ste", "St", "S", "Stép", "\u017Ftep",
                             "\uFB06ep", "S\u00A0ep", "Stepp", "Sstep", "Stop", "Step\u0301"})
        for (const char* rest : {"", " 1:", " 1:a", " 1", "\u00A01:x", "1:"})
            for (const char* before : {"", ".", "x", "a:"}) {
                const std::string reply = std::string(before) + word + rest;
                ASSERT_EQ(normalize(reply), referenceNormalize(reply)) << reply;
            }
}

// --- Long runs: the patterns that used to read a run once per position of it ----------------

namespace {

// Replies made of long runs of what "(?<!\n)(\d+\.\s)" and "\s*\**$" repeat over (digits of
// several scripts, blanks of several kinds, stars), with the marks that end or break such runs.
std::vector<std::string> repliesWithLongRuns(std::size_t count) {
    static const std::array<std::string, 20> units = {
        "7",  "\u0663", "\U0001D7CE", " ",   "\t", "\u00A0", "\u3000", "\u2028", "*",  "#",
        "\n", ".",      ". ",         ".\n", "x",  "- ",     "**",     "\v",     "\f", "\u2029"};
    std::mt19937 random(1515);
    std::uniform_int_distribution<std::size_t> unit(0, units.size() - 1), runs(1, 8);
    std::uniform_int_distribution<int> repeat(1, 300);
    std::vector<std::string> replies;
    for (std::size_t i = 0; i < count; ++i) {
        std::string reply;
        for (std::size_t n = runs(random); n > 0; --n) {
            const std::string& piece = units[unit(random)];
            // Short marks stay short; digits and blanks come in long runs.
            bool isRun = piece.size() == 1 && piece != "." && piece != "x";
            int times = isRun ? repeat(random) : 1;
            for (int k = 0; k < times; ++k) reply += piece;
        }
        replies.push_back(reply);
    }
    return replies;
}

}  // namespace

TEST(FormattingShortcuts, GiveTheSameResultsOnLongRunsAsThePatterns) {
    std::vector<std::string> replies = repliesWithLongRuns(800);
    for (std::string edge :
         {std::string(3000, '1') + ".", std::string(3000, '1') + ". x",
          "\n" + std::string(3000, '1') + ". x", std::string("x\n1. y"), std::string("x\n12. y"),
          "x\n" + std::string(3000, '1') + ". y", "*" + std::string(3000, ' ') + "x*",
          "x" + std::string(3000, ' ') + "*", "* " + std::string(3000, ' ') + " *",
          std::string("*\u00A0\u3000**")})
        replies.push_back(edge);
    // A fully bold line is only left when blanks stand between its closing stars and the last.
    for (const char* edge : {"**- a\u2028b** *", "**- a\u0085b** *", "**- a\vb**\t*", "**- ab** *",
                             "**ab** *", "** **  *", "**\n** *", "**\xff** *", "*****", "****",
                             "-\u3000x", "*\xC3 #", "#\u3000\u2029##  x*"})
        replies.emplace_back(edge);
    for (const std::string& reply : replies) {
        ASSERT_EQ(normalize(reply), referenceNormalize(reply)) << "reply: " << reply;
        ASSERT_EQ(clean(reply), referenceClean(reply)) << "line: " << reply;
    }
}

// Blanks are read 32 bytes at a time where they are all ASCII: a character that is not, put at
// every offset of runs around that size, and lines that are only bold with a line terminator
// (or a character that starts like one) inside.
TEST(FormattingShortcuts, CleanGivesThePatternsResultsWhereverABlockOfBlanksEnds) {
    std::vector<std::string> lines;
    for (const char* odd : {"\u3000", "\u00A0", "x", "\xC3", "\xE2\x80", "\t", "\u2028"})
        for (std::size_t run : {31, 32, 33, 64, 65, 97})
            for (std::size_t at = 0; at <= run; ++at) {
                std::string blanks = std::string(at, ' ') + odd + std::string(run - at, ' ');
                lines.push_back("*" + blanks + "x*");
                lines.push_back("x" + blanks + "*");
                lines.push_back("-" + blanks + "#" + blanks + "**y**" + blanks + "**");
            }
    for (const char* inside : {"\n", "\r", "\v", "\f", "\u0085", "\u2028", "\u2029", "\u00A0",
                               "\u2020", "\xC2", "\xE2\x80", "\xE2", "_", "__"})
        for (std::string around : {std::string(), std::string("a"), std::string(40, 'a')})
            lines.push_back("**" + around + inside + around + "**");
    // Blanks left at the ends once the marks are gone, and malformed bytes next to them (only
    // a marked line has those replaced, as the patterns do).
    for (std::size_t run : {31, 33, 70}) {
        std::string blanks(run, ' ');
        for (const char* odd : {"x", "\u3000", "\u00A0"}) {
            lines.push_back("__" + blanks + odd + blanks + "__");
            lines.push_back(blanks + odd + "**" + blanks);
            lines.push_back(odd + blanks + "**" + odd);
            lines.push_back(blanks + "\u3000" + blanks + odd + "__");
        }
        for (const char* odd : {"\xff", "\xC3", "\xE3\x80", "\x80\x80"}) {
            lines.push_back("*" + blanks + odd + blanks + "**" + blanks + "*");
            lines.push_back("-" + blanks + "__" + odd + "__" + blanks + odd);
        }
    }
    // Runs of marks are taken whole.
    for (std::size_t before = 0; before < 5; ++before)
        for (std::size_t stars = 0; stars < 6; ++stars)
            for (std::size_t after = 0; after < 5; ++after) {
                std::string marks =
                    std::string(before, '_') + std::string(stars, '*') + std::string(after, '_');
                lines.push_back("a" + marks + "b" + marks);
                lines.push_back("- a_" + marks + "**");
            }
    for (const std::string& line : lines) ASSERT_EQ(clean(line), referenceClean(line)) << line;
}

// Trailing stars are stripped with the White_Space set, which is what "\s" means to ICU.
TEST(FormattingShortcuts, BlanksBeforeTrailingStarsAreWhatTheSPatternMatches) {
    IcuRegex blank(u"^\\s$");
    for (UChar32 c = 0; c < 0x10000; ++c) {
        if (U_IS_SURROGATE(c)) continue;
        ASSERT_EQ(blank.find(icu::UnicodeString(c)),
                  static_cast<bool>(u_hasBinaryProperty(c, UCHAR_WHITE_SPACE)))
            << "U+" << std::hex << c;
    }
}

// A quadratic step takes minutes on these; a linear one a few milliseconds. The bound only
// catches that difference, on a loaded machine.
TEST(FormattingShortcuts, LongRunsTakeTimeInProportionToTheirLength) {
    const std::string digits = std::string(256 * 1024, '7') + ".";
    const std::string blanks = "*" + std::string(256 * 1024, ' ') + "x*";
    auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(normalize(digits), digits);
    EXPECT_EQ(clean(blanks), "x");
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
}

// One normalisation for a view's layout gives what the two separate calls give.
TEST(Layout, IsTheProcedureElseTheParagraphs) {
    for (const std::string& reply : randomReplies(400)) {
        auto layout = CoachMessageFormatting::layout(reply);
        auto procedure = CoachMessageFormatting::parseProceduralContent(reply);
        ASSERT_EQ(layout.procedure.has_value(), procedure.has_value()) << reply;
        if (procedure) {
            EXPECT_EQ(layout.procedure->intro, procedure->intro);
            ASSERT_EQ(layout.procedure->steps.size(), procedure->steps.size());
            for (std::size_t i = 0; i < procedure->steps.size(); ++i) {
                EXPECT_EQ(layout.procedure->steps[i].title, procedure->steps[i].title);
                EXPECT_EQ(layout.procedure->steps[i].details, procedure->steps[i].details);
            }
            EXPECT_TRUE(layout.blocks.empty());
        } else {
            EXPECT_EQ(layout.blocks, CoachMessageFormatting::blocks(reply)) << reply;
        }
    }
}

// Sentence starts are split in one pass over the text; phrases that meet, repeat or share a
// start must split as the phrase patterns, applied one after another, split them.
TEST(FormattingShortcuts, SplitSentenceStartsAsThePhrasePatternsDo) {
    static const std::array<std::string, 16> pieces = {
        "Click", "Open", "Add a", "Add an", "Add", "Test", "Restart", "Try ",
        "Now ",  "x",    "1",     "!",      ")",   " ",    "\n",      "In the"};
    std::mt19937 random(2026);
    std::uniform_int_distribution<std::size_t> piece(0, pieces.size() - 1), length(1, 14);
    std::vector<std::string> replies = {"xClickClick", "xAdd anAdd a", "aOpenClick", "TestTestTest",
                                        "1Restart!Try Now Try x"};
    for (int i = 0; i < 1500; ++i) {
        std::string reply;
        for (std::size_t n = length(random); n > 0; --n) reply += pieces[piece(random)];
        replies.push_back(reply);
    }
    for (const std::string& reply : replies)
        ASSERT_EQ(normalize(reply), referenceNormalize(reply)) << "reply: " << reply;
}

// --- Markers found by hand, against the patterns they stand for ------------------------------

namespace {

using sagely::detail::TextRange;
using MatchEnd = int32_t (*)(std::u16string_view, int32_t);

struct MarkerPattern {
    const char16_t* pattern;
    uint32_t flags;
    MatchEnd matchEnd;
};

const std::array<MarkerPattern, 5> kMarkerPatterns = {{
    {u"(?i)(Step\\s+\\d+\\s*:)([A-Za-z])", 0, sagely::detail::stepMarkerBeforeLetterEnd},
    {u"(?<!\n)(Step\\s+\\d+\\s*:)", UREGEX_CASE_INSENSITIVE,
     sagely::detail::stepMarkerNotAtLineStartEnd},
    {u"([:.!?])(Step\\s+\\d+)", UREGEX_CASE_INSENSITIVE,
     sagely::detail::stepMarkerAfterSentenceEnd},
    {u"(?i)Step\\s+(\\d+)\\s*:\\s*", 0, sagely::detail::stepHeadingEnd},
    {u"(?<!\n)(\\d+\\.\\s)", 0, sagely::detail::numberedItemNotAtLineStartEnd},
}};

// The matcher tried at every position, as successive finds try a pattern.
std::vector<TextRange> matchesTryingEveryPosition(std::u16string_view text, MatchEnd matchEnd) {
    std::vector<TextRange> matches;
    for (int32_t at = 0; at < static_cast<int32_t>(text.size());) {
        const int32_t end = matchEnd(text, at);
        if (end < 0) {
            ++at;
            continue;
        }
        matches.emplace_back(at, end);
        at = end;
    }
    return matches;
}

// Compares each matcher, tried at every position, with a search of its pattern.
void expectSameMarkersAsThePatterns(const icu::UnicodeString& text, const std::string& what) {
    const std::u16string_view view(text.getBuffer(), static_cast<std::size_t>(text.length()));
    for (const MarkerPattern& marker : kMarkerPatterns) {
        std::string pattern;
        icu::UnicodeString(marker.pattern).toUTF8String(pattern);
        ASSERT_EQ(matchesTryingEveryPosition(view, marker.matchEnd),
                  IcuRegex(marker.pattern, marker.flags).matchRanges(text))
            << what << " with " << pattern;
    }
}

// Text dense in what a marker is made of: the word in every case and in the characters that
// fold onto its letters, blanks of every kind, digits of several scripts, colons, sentence
// ends and line feeds, and near misses.
std::vector<std::string> repliesDenseInMarkers(std::size_t count, std::size_t maxPieces) {
    static const std::array<std::string, 36> pieces = {
        "Step",     "step",   "STEP",   "sTeP",       "\u017Ftep", "\uFB06ep",
        "\uFB05ep", "St",     "ep",     "S",          "Ste",       "te",
        " ",        "\t",     "\n",     "\u00A0",     "\u3000",    "\u2028",
        "\u0085",   "\v",     "1",      "23",         "\u0663",    "\U0001D7CE",
        ":",        ".",      "!",      "?",          "x",         "\u212A",
        "\u017F",   "\u1E9E", "\u0130", "\U0001F44D", "\r",        "\u00DF"};
    return concatenationsOf(pieces, 2215, count, maxPieces);
}

}  // namespace

TEST(ReplyMarkers, AreWhatThePatternsFindInTextDenseInThem) {
    for (const std::string& reply : repliesDenseInMarkers(3000, 30))
        expectSameMarkersAsThePatterns(icu::UnicodeString::fromUTF8(reply), reply);
}

// Markers with long runs of blanks, digits and line feeds, as the benchmark's adversarial text.
TEST(ReplyMarkers, AreWhatThePatternsFindAcrossLongRuns) {
    const std::string blanks(2048, ' '), digits(2048, '7'), feeds(1024, '\n');
    for (const std::string& text :
         {"Step" + blanks + digits + feeds + ":x", "x.Step" + blanks + digits,
          "Step" + blanks + digits + blanks + ":" + blanks + "Step 1:" + feeds,
          "Step" + feeds + digits + ":Step" + blanks + ":", ".step" + blanks + "\u0663" + digits,
          feeds + "STEP\u3000" + digits + "\u2028:k"})
        expectSameMarkersAsThePatterns(icu::UnicodeString::fromUTF8(text), text.substr(0, 12));
    for (const std::string& reply : repliesDenseInMarkers(40, 3000))
        expectSameMarkersAsThePatterns(icu::UnicodeString::fromUTF8(reply), "a long reply");
}

// Every character in every place of a marker: only the characters that fold onto the word's
// letters, the blanks, the digits and the letters after a marker may take part.
TEST(ReplyMarkers, TakeEachCharacterWhereThePatternsTakeIt) {
    for (UChar32 c = 0; c <= 0x10FFFF; c = c < 0xFFFF ? c + 1 : c + 0x101) {
        if (U_IS_SURROGATE(c)) continue;
        icu::UnicodeString x(c);
        icu::UnicodeString text = x + u"tep 1:x S" + x + u"ep 1:x St" + x + u"p 1:x Ste" + x +
                                  u" 1:x " + x + u"ep 2:y Step" + x + u"1:x Step 1" + x +
                                  u":x Step 1:" + x + u" ." + u"Step " + x + u" Step 3 " + x +
                                  u" 4" + x + u". 5." + x + x + u"6. ";
        std::string utf8;
        text.toUTF8String(utf8);
        expectSameMarkersAsThePatterns(text, utf8);
        if (HasFatalFailure()) return;
    }
}

namespace {

// The full case folding of one code point, as ICU folds it.
std::u16string fullCaseFolding(UChar32 c) {
    UChar units[2] = {};
    int32_t count = 0;
    U16_APPEND_UNSAFE(units, count, c);
    UChar folded[8] = {};
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length = u_strFoldCase(folded, 8, units, count, U_FOLD_CASE_DEFAULT, &status);
    EXPECT_TRUE(U_SUCCESS(status)) << "U+" << std::hex << c;
    return std::u16string(folded, static_cast<std::size_t>(U_SUCCESS(status) ? length : 0));
}

}  // namespace

// The scans try a "Step" only where mayStartStepWord holds: every code point whose full case
// folding could start the word must be one of those.
TEST(ReplyMarkers, EveryCharacterThatFoldsOntoTheStartOfStepIsACandidate) {
    constexpr std::u16string_view kWord = u"step";
    for (UChar32 c = 0; c <= 0x10FFFF; ++c) {
        if (U_IS_SURROGATE(c)) continue;
        const std::u16string fold = fullCaseFolding(c);
        if (!fold.empty() && kWord.starts_with(fold)) {
            const auto firstUnit = static_cast<char16_t>(c < 0x10000 ? c : U16_LEAD(c));
            ASSERT_TRUE(sagely::detail::mayStartStepWord(firstUnit)) << "U+" << std::hex << c;
        }
    }
}

// The word is matched beyond ASCII from a short list: every code point whose full case folding
// could stand for a piece of "step" must be on it, with that folding.
TEST(ReplyMarkers, OnlyTheLongSAndTheStLigaturesFoldOntoPiecesOfStep) {
    constexpr std::u16string_view kWord = u"step";
    for (UChar32 c = 0x80; c <= 0x10FFFF; ++c) {
        if (U_IS_SURROGATE(c)) continue;
        const std::u16string fold = fullCaseFolding(c);
        bool piece = false;
        for (std::size_t at = 0; at < kWord.size(); ++at)
            piece |= !fold.empty() && kWord.substr(at).starts_with(fold);
        ASSERT_EQ(sagely::detail::stepLettersFoldedFrom(c), piece ? fold : std::u16string_view())
            << "U+" << std::hex << c;
    }
}

TEST(ReplyMarkers, DecimalDigitsAreWhatIcuCallsDigits) {
    for (UChar32 c = 0; c <= 0x10FFFF; ++c) {
        if (U_IS_SURROGATE(c)) continue;
        ASSERT_EQ(sagely::detail::isDecimalDigit(c), static_cast<bool>(u_isdigit(c)))
            << "U+" << std::hex << c;
    }
}
