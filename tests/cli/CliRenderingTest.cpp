// How replies, cards and lessons look in a terminal: ANSI styles on a terminal, plain text
// otherwise, and the same layout in both.
#include "cli/InlineMarkdown.h"
#include "cli/Rendering.h"
#include "cli/Replies.h"
#include "cli/Spinner.h"

#include <sagely/CoachLesson.h>
#include <sagely/CoachMessage.h>

#include <gtest/gtest.h>

#include <sstream>

namespace sagely::cli {
namespace {

std::string plain(std::string_view markdown) {
    return renderInlineMarkdown(markdown, false);
}
std::string coloured(std::string_view markdown) {
    return renderInlineMarkdown(markdown, true);
}

TEST(CliInlineMarkdown, PlainTextDropsEmphasisMarksAndKeepsTheWords) {
    EXPECT_EQ(plain("**Open** Settings"), "Open Settings");
    EXPECT_EQ(plain("__Open__ Settings"), "Open Settings");
    EXPECT_EQ(plain("*tap* here, _then_ wait"), "tap here, then wait");
    EXPECT_EQ(plain("a **b *c* d** e"), "a b c d e");
}

TEST(CliInlineMarkdown, PlainCodeKeepsItsBackticks) {
    EXPECT_EQ(plain("run `sagely key set openai` first"), "run `sagely key set openai` first");
    EXPECT_EQ(plain("``a `tick` inside``"), "``a `tick` inside``");
}

TEST(CliInlineMarkdown, LinksShowTheirAddress) {
    EXPECT_EQ(plain("see [the guide](https://example.com/guide)."),
              "see the guide (https://example.com/guide).");
    EXPECT_EQ(plain("[https://example.com](https://example.com)"), "https://example.com");
}

TEST(CliInlineMarkdown, TextThatOnlyLooksLikeMarkdownStaysAsItIs) {
    EXPECT_EQ(plain("snake_case_name and __init__"), "snake_case_name and init");
    EXPECT_EQ(plain("my_file_name.txt"), "my_file_name.txt");
    EXPECT_EQ(plain("2 * 3 * 4"), "2 * 3 * 4");
    EXPECT_EQ(plain("**unclosed bold"), "**unclosed bold");
    EXPECT_EQ(plain("an `unclosed code"), "an `unclosed code");
    EXPECT_EQ(plain("[not a link] (x)"), "[not a link] (x)");
    EXPECT_EQ(plain("\\*literal stars\\*"), "*literal stars*");
    EXPECT_EQ(plain("ends with a star*"), "ends with a star*");
}

TEST(CliInlineMarkdown, ColourTurnsEmphasisIntoAnsiStyles) {
    EXPECT_EQ(coloured("**Open** it"), "\x1b[0m\x1b[1mOpen\x1b[0m it");
    EXPECT_EQ(coloured("a *b* c"), "a \x1b[0m\x1b[3mb\x1b[0m c");
    EXPECT_EQ(coloured("`x`"), "\x1b[0m\x1b[36mx\x1b[0m");
    EXPECT_EQ(coloured("[guide](u)"), "\x1b[0m\x1b[4mguide\x1b[0m (u)");
}

TEST(CliInlineMarkdown, NestedStylesAreRestoredWhenAnInnerOneEnds) {
    EXPECT_EQ(coloured("**a *b* c**"),
              "\x1b[0m\x1b[1ma \x1b[0m\x1b[1m\x1b[3mb\x1b[0m\x1b[1m c\x1b[0m");
    EXPECT_EQ(coloured("**run `x` now**"),
              "\x1b[0m\x1b[1mrun \x1b[0m\x1b[1m\x1b[36mx\x1b[0m\x1b[1m now\x1b[0m");
}

TEST(CliRendering, AStepReplyBecomesANumberedProcedure) {
    const Renderer renderer(false);
    EXPECT_EQ(renderer.replyText("Do this.Step 1: Open Settings.Step 2:Click Save"),
              "Do this.\n\n1. Open Settings.\n2. Click Save\n");
}

TEST(CliRendering, StepsKeepTheirDetailsAsBullets) {
    const Renderer renderer(false);
    EXPECT_EQ(renderer.replyText("Step 1: **Open Settings**\n- Choose General\nStep 2: Save"),
              "1. Open Settings\n   • Choose General\n2. Save\n");
}

TEST(CliRendering, StepsAreNumberedInOrderWhateverTheModelWrote) {
    const Renderer renderer(false);
    EXPECT_EQ(renderer.replyText("Step 1: A\nStep 1: B\nStep 3: C"), "1. A\n2. B\n3. C\n");
}

TEST(CliRendering, OtherRepliesAreParagraphsWithInlineMarkdown) {
    const Renderer renderer(false);
    EXPECT_EQ(renderer.replyText("First with **bold**.\n\n\n\n## Second"),
              "First with bold.\n\nSecond\n");
    EXPECT_EQ(renderer.replyText(""), "");
}

TEST(CliRendering, HeadingsAndBulletsKeepTheirLines) {
    EXPECT_EQ(Renderer(false).replyText("## Options\nPick one:\n- **fast**\n  * small\n1. first"),
              "Options\nPick one:\n• fast\n  • small\n1. first\n");
    EXPECT_EQ(Renderer(true).replyText("### Setup"), "\x1b[1mSetup\x1b[0m\n");
    EXPECT_EQ(Renderer(false).replyText("#hashtag and # sign"), "#hashtag and # sign\n");
}

TEST(CliRendering, ColouredProceduresHaveBlueNumbersAndBoldTitles) {
    const Renderer renderer(true);
    EXPECT_EQ(renderer.replyText("Step 1: A\nStep 2: B"),
              "\x1b[34m1.\x1b[0m \x1b[1mA\x1b[0m\n\x1b[34m2.\x1b[0m \x1b[1mB\x1b[0m\n");
}

CoachCard keysCard() {
    CoachCard card;
    card.title = "API Keys";
    card.subtitle = "From the guide";
    card.sections = {{"Where", {"Secret **Service**", "Keychain"}}};
    card.suggestions = {"Tell me about X", "Tell me about Y"};
    return card;
}

TEST(CliRendering, ACardShowsItsTitleSectionsAndNumberedSuggestions) {
    std::vector<std::string> suggestions{"an earlier one"};
    EXPECT_EQ(Renderer(false).card(keysCard(), suggestions),
              "┃ API Keys\n"
              "┃ From the guide\n"
              "┃\n"
              "┃ Where\n"
              "┃   • Secret Service\n"
              "┃   • Keychain\n"
              "┃\n"
              "┃ Try Next\n"
              "┃   2) Tell me about X\n"
              "┃   3) Tell me about Y\n");
    EXPECT_EQ(suggestions,
              (std::vector<std::string>{"an earlier one", "Tell me about X", "Tell me about Y"}));
}

TEST(CliRendering, ABareCardShowsOnlyItsHeaderAndNoTryNext) {
    CoachCard card;
    card.title = "Done";
    std::vector<std::string> suggestions;
    EXPECT_EQ(Renderer(false).card(card, suggestions), "┃ Done\n");
    EXPECT_TRUE(suggestions.empty());
}

TEST(CliRendering, ACardsBarIsTintedByItsStyle) {
    CoachCard card;
    card.title = "Careful";
    card.style = CoachCard::Style::warning;
    std::vector<std::string> suggestions;
    EXPECT_EQ(Renderer(true).card(card, suggestions), "\x1b[33m┃\x1b[0m \x1b[1mCareful\x1b[0m\n");
    card.style = CoachCard::Style::success;
    EXPECT_EQ(Renderer(true).card(card, suggestions), "\x1b[32m┃\x1b[0m \x1b[1mCareful\x1b[0m\n");
}

TEST(CliRendering, ALessonShowsStepGroupsCalloutsAndSuggestions) {
    std::vector<std::string> suggestions;
    EXPECT_EQ(
        Renderer(false).lesson(CoachLessonLibrary::speechSetup(), suggestions),
        "┃ Set Up Speech\n"
        "┃ Voice input, spoken replies, and a system-wide listen hotkey\n"
        "┃\n"
        "┃ Open Speech in the sidebar, grant three permissions, then test hold-to-talk or "
        "⌃⌥Space.\n"
        "┃\n"
        "┃ 1. Open the Speech view\n"
        "┃    In the editor sidebar, click Speech (waveform icon).\n"
        "┃    The top bar shows permission indicators — green = granted, orange = needed.\n"
        "┃\n"
        "┃ 2. Grant permissions\n"
        "┃    Microphone — Privacy & Security → Microphone\n"
        "┃    Speech Recognition — Privacy & Security → Speech Recognition\n"
        "┃    Accessibility — required for the system-wide hotkey\n"
        "┃    • Click Allow in the Speech view or approve each macOS prompt.\n"
        "┃\n"
        "┃ 3. Test listening\n"
        "┃    Press and hold Hold to talk — red while listening, transcribes on release.\n"
        "┃    Optional: enable the hotkey (default ⌃⌥Space) — tap once to start, tap again to "
        "stop.\n"
        "┃\n"
        "┃ 4. Tune settings (optional)\n"
        "┃    Open Preferences → Speech (menu bar ⚡ → Preferences).\n"
        "┃    Choose:\n"
        "┃    • STT Provider — Apple (default) or Whisper (offline)\n"
        "┃    • TTS Voice — any installed Mac voice\n"
        "┃    • Speech Rate — default 180 wpm\n"
        "┃\n"
        "┃ ✓ Verification\n"
        "┃   Press ⌃⌥Space (or hold Hold to talk) and say a short phrase — it should appear in "
        "the conversation log.\n"
        "┃\n"
        "┃ Try Next\n"
        "┃   1) What permissions do I need for voice?\n"
        "┃   2) How do I test speech safely?\n"
        "┃   3) What is Teach in Tessel?\n");
    EXPECT_EQ(suggestions.size(), 3u);
}

TEST(CliRendering, ALessonWithoutSubtitleSummaryOrSuggestionsShowsNeither) {
    CoachLesson lesson;
    lesson.title = "Short";
    lesson.subtitle = "";
    lesson.blocks = {CoachLesson::Block::text("Just **one** paragraph."),
                     CoachLesson::Block::callout(
                         {"Careful", "Mind the gap.", CoachLesson::Callout::Tone::warning})};
    std::vector<std::string> suggestions;
    EXPECT_EQ(Renderer(false).lesson(lesson, suggestions),
              "┃ Short\n┃\n┃ Just one paragraph.\n┃\n┃ ! Careful\n┃   Mind the gap.\n");
}

TEST(CliRendering, AMessageShowsItsTextThenItsCardThenItsLessonWithOneNumbering) {
    CoachCard card;
    card.title = "Card";
    card.suggestions = {"first"};
    CoachLesson lesson;
    lesson.title = "Lesson";
    lesson.suggestions = {"second", "third"};
    const CoachMessage message(CoachMessage::Role::assistant, "Hello.", card, lesson);
    std::vector<std::string> suggestions;
    EXPECT_EQ(Renderer(false).assistantMessage(message, suggestions),
              "Hello.\n\n┃ Card\n┃\n┃ Try Next\n┃   1) first\n\n┃ Lesson\n┃\n┃ Try Next\n"
              "┃   2) second\n┃   3) third\n");
    EXPECT_EQ(suggestions, (std::vector<std::string>{"first", "second", "third"}));
}

TEST(CliRendering, HistoryMessagesSayWhoSpoke) {
    const Renderer renderer(false);
    EXPECT_EQ(renderer.historyMessage(CoachMessage(CoachMessage::Role::user, "How **now**?")),
              "You: How **now**?\n");
    EXPECT_EQ(renderer.historyMessage(CoachMessage(CoachMessage::Role::assistant, "Like **so**.")),
              "Coach:\nLike so.\n");
}

TEST(CliSpinner, OnATerminalItShowsAFrameTheLabelAndWholeSeconds) {
    std::ostringstream err;
    auto now = std::chrono::steady_clock::time_point{} + std::chrono::hours(1);
    Spinner spinner(err, true, [&] { return now; });
    spinner.start("Thinking");
    now += std::chrono::milliseconds(2500);
    spinner.tick();
    spinner.stop();
    EXPECT_EQ(err.str(),
              "\r\x1b[2K⠋ Thinking… 0s"
              "\r\x1b[2K⠙ Thinking… 2s"
              "\r\x1b[2K");
}

TEST(CliSpinner, ANoteFollowsTheSecondsUntilItIsEmptied) {
    std::ostringstream err;
    auto now = std::chrono::steady_clock::time_point{} + std::chrono::hours(1);
    Spinner spinner(err, true, [&] { return now; });
    spinner.start("Thinking");
    now += std::chrono::milliseconds(1200);
    spinner.setNote("Retrying in 2 s…");
    spinner.setNote("");
    spinner.stop();
    EXPECT_EQ(err.str(),
              "\r\x1b[2K⠋ Thinking… 0s"
              "\r\x1b[2K⠙ Thinking… 1s  Retrying in 2 s…"
              "\r\x1b[2K⠹ Thinking… 1s"
              "\r\x1b[2K");
}

TEST(CliSpinner, ElsewhereItWritesNothing) {
    std::ostringstream err;
    {
        Spinner spinner(err, false);
        spinner.start("Thinking");
        spinner.tick();
    }
    EXPECT_EQ(err.str(), "");
}

TEST(CliSpinner, ADestroyedSpinnerErasesItsLine) {
    std::ostringstream err;
    { Spinner(err, true).start("Thinking"); }
    EXPECT_TRUE(err.str().ends_with("\r\x1b[2K")) << err.str();
}

TEST(CliStreamedReply, WholeLinesAsTheyArriveThenTheRestOfTheReply) {
    std::istringstream in;
    std::ostringstream out, err;
    Host host(in, out, err);
    StreamedReplyWriter writer(host);
    writer.update("Open the menu\nthe");
    EXPECT_EQ(out.str(), "Open the menu\n");
    std::vector<std::string> suggestions;
    writer.finish(CoachMessage(CoachMessage::Role::assistant, "Open the menu\nthen Export."),
                  suggestions);
    EXPECT_EQ(out.str(), "Open the menu\nthen Export.\n");
}

TEST(CliStreamedReply, AReplyThatRewroteWrittenTextFollowsWhole) {
    std::istringstream in;
    std::ostringstream out, err;
    Host host(in, out, err);
    StreamedReplyWriter writer(host);
    writer.update("Open the menu\n");
    std::vector<std::string> suggestions;
    writer.finish(CoachMessage(CoachMessage::Role::assistant, "Open a menu\nthen Export."),
                  suggestions);
    EXPECT_EQ(out.str(), "Open the menu\n\nOpen a menu\nthen Export.\n");
}

TEST(CliStreamedReply, ARewriteIsNoticedWhereverItIsInTheWrittenLines) {
    // Shorter than what was written, one byte changed in the first of several updates, or
    // the same length with a byte changed at the end: each is written again, whole.
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"Open", "Open the menu\nChoose Export\n\nOpen\n"},
        {"Open thE menu\nChoose Export\nDone.",
         "Open the menu\nChoose Export\n\nOpen thE menu\nChoose Export\nDone.\n"},
        {"Open the menu\nChoose Expory\n",
         "Open the menu\nChoose Export\n\nOpen the menu\nChoose Expory\n"},
    };
    for (const auto& [final, expected] : cases) {
        std::istringstream in;
        std::ostringstream out, err;
        Host host(in, out, err);
        StreamedReplyWriter writer(host);
        writer.update("Open the menu\n");
        writer.update("Open the menu\nChoose Export\n");
        std::vector<std::string> suggestions;
        writer.finish(CoachMessage(CoachMessage::Role::assistant, final), suggestions);
        EXPECT_EQ(out.str(), expected) << final;
    }
}

TEST(CliStreamedReply, AReplyThatGoesOnFromWhatWasWrittenAddsOnlyTheRest) {
    std::istringstream in;
    std::ostringstream out, err;
    Host host(in, out, err);
    StreamedReplyWriter writer(host);
    writer.update("Open the menu\n");
    writer.update("Open the menu\nChoose Export\nthen");
    std::vector<std::string> suggestions;
    writer.finish(
        CoachMessage(CoachMessage::Role::assistant, "Open the menu\nChoose Export\nthen Save."),
        suggestions);
    EXPECT_EQ(out.str(), "Open the menu\nChoose Export\nthen Save.\n");
}

}  // namespace
}  // namespace sagely::cli
