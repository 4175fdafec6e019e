// Message rendering: inline Markdown with its plain-text fallback, procedures numbered by
// position, bubbles by role, cards by style, and what appears only when there is content.
#include "UiTestSupport.h"

#include <sagely/CoachPriceTable.h>
#include <sagely/ui/CoachAssistantMessageText.h>
#include <sagely/ui/CoachCardView.h>
#include <sagely/ui/CoachLessonView.h>
#include <sagely/ui/CoachProceduralStepsView.h>
#include <sagely/ui/CoachUserMessageText.h>
#include <sagely/ui/MessageBubble.h>

#include "InlineMarkdown.h"
#include "Primitives.h"
#include "RelativeDate.h"
#include "ReplyLayouts.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <QHBoxLayout>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QTest>

namespace sagely::testing {
namespace {

using namespace ui;
namespace uid = ui::detail;
using uid::StyledText;

std::vector<QWidget*> inLayoutOrder(QWidget* parent) {
    std::vector<QWidget*> widgets;
    QLayout* layout = parent->layout();
    for (int i = 0; layout && i < layout->count(); ++i)
        if (QWidget* widget = layout->itemAt(i)->widget()) widgets.push_back(widget);
    return widgets;
}

QStringList labelTexts(const QWidget* root, const char* name) {
    QStringList texts;
    for (auto* label : visibleChildren<QLabel>(root, QString::fromLatin1(name)))
        texts << label->text();
    return texts;
}

TEST(InlineMarkdownTest, InlineSyntaxBecomesStyledText) {
    const auto html =
        uid::inlineMarkdownToRichText("Use *Share*, `Send` and [help](https://x.example)");
    ASSERT_TRUE(html.has_value());
    EXPECT_TRUE(html->contains(QStringLiteral("<i>Share</i>")));
    EXPECT_TRUE(html->contains(QStringLiteral("<code>Send</code>")));
    EXPECT_TRUE(html->contains(QStringLiteral("<a href=\"https://x.example\">help</a>")));
}

TEST(InlineMarkdownTest, BlockSyntaxStaysTextAndLineBreaksStay) {
    const auto html = uid::inlineMarkdownToRichText("# Title\n- item\n1. first\n> quoted");
    ASSERT_TRUE(html.has_value());
    EXPECT_EQ(*html, QStringLiteral("<span style=\"white-space:pre-wrap\"># Title<br>- item<br>"
                                    "1. first<br>&gt; quoted</span>"));
}

TEST(InlineMarkdownTest, SetextUnderlinesOfAnyLengthStayTextWithTheirLineBreaks) {
    const auto html = uid::inlineMarkdownToRichText("Go to **Settings**\n--\nthen");
    ASSERT_TRUE(html.has_value());
    EXPECT_EQ(*html, QStringLiteral("<span style=\"white-space:pre-wrap\">Go to <b>Settings</b>"
                                    "<br>--<br>then</span>"));
    for (const char* underline : {"-", "--", "----------", "=", "==", "-- ", "  ---"}) {
        const std::string source = std::string("A title\n") + underline + "\nnext";
        const auto text = uid::inlineMarkdownToRichText(source);
        ASSERT_TRUE(text.has_value()) << underline;
        EXPECT_TRUE(
            text->startsWith(QStringLiteral("<span style=\"white-space:pre-wrap\">A "
                                            "title<br>")))
            << underline << ": " << text->toStdString();
        EXPECT_TRUE(text->endsWith(QStringLiteral("<br>next</span>")))
            << underline << ": " << text->toStdString();
        EXPECT_TRUE(text->contains(QString::fromLatin1(underline).trimmed()))
            << underline << ": " << text->toStdString();
    }
}

TEST(InlineMarkdownTest, LeadingBlanksAreKeptNotTurnedIntoCode) {
    const auto html = uid::inlineMarkdownToRichText("top\n    indented <b>");
    ASSERT_TRUE(html.has_value());
    EXPECT_EQ(*html, QStringLiteral("<span style=\"white-space:pre-wrap\">top<br>"
                                    "\u00A0\u00A0\u00A0\u00A0indented &lt;b&gt;</span>"));
}

TEST(InlineMarkdownTest, BytesThatAreNotUtf8CannotBeParsed) {
    EXPECT_FALSE(uid::inlineMarkdownToRichText("Broken \xC3\x28 bytes").has_value());
    EXPECT_TRUE(uid::inlineMarkdownToRichText("Fine bytes").has_value());
}

std::optional<QString> failingParser(std::string_view) {
    return std::nullopt;
}

TEST(InlineMarkdownTest, MarkdownThatFailsToParseIsShownAsTheCleanedPlainText) {
    const StyledText text = uid::styledReplyText("## **Keep <this> *text***", failingParser);
    EXPECT_EQ(text.format, Qt::PlainText);
    EXPECT_EQ(text.text, QStringLiteral("Keep <this> *text"));
    auto* label = uid::textLabel(text.text, text.format, uid::TextStyle::body);
    EXPECT_EQ(label->textFormat(), Qt::PlainText);
    EXPECT_EQ(label->text(), QStringLiteral("Keep <this> *text"));
    delete label;
}

TEST(InlineMarkdownTest, ReplyTextIsRepairedAndCleanedBeforeParsing) {
    const StyledText text = uid::styledReplyText("## **Save often**");
    EXPECT_EQ(text.format, Qt::RichText);
    EXPECT_EQ(text.text, QStringLiteral("<span style=\"white-space:pre-wrap\">Save often</span>"));
}

// A reply is laid out (normalised) once per message: its bubble, its spoken text and every
// later render share that layout, until the message's content changes (a streamed reply).
TEST(ReplyLayoutsTest, AMessageIsLaidOutOncePerContent) {
    const CoachMessage message(CoachMessage::Role::assistant,
                               "Do this.Step 1: Open Settings.Step 2:Click Save");
    const auto first = uid::replyLayout(message);
    ASSERT_TRUE(first->procedure.has_value());
    EXPECT_EQ(first->procedure->steps.size(), 2u);
    EXPECT_EQ(uid::replyLayout(message), first);
    MessageBubble bubble(message, {}, {});
    EXPECT_EQ(uid::replyLayout(message), first);

    nlohmann::json grown = message;
    grown["content"] = "First paragraph.\n\nSecond.";
    const CoachMessage streamed = grown.get<CoachMessage>();
    ASSERT_EQ(streamed.id(), message.id());
    const auto second = uid::replyLayout(streamed);
    EXPECT_NE(second, first);
    EXPECT_FALSE(second->procedure.has_value());
    EXPECT_EQ(second->blocks, (std::vector<std::string>{"First paragraph.", "Second."}));
    EXPECT_EQ(uid::replyLayout(streamed), second);
}

TEST(ReplyLayoutsTest, AViewOfAMessageShowsWhatAViewOfItsTextShows) {
    for (const char* content : {"First paragraph.\n\n\n\nSecond *one*.",
                                "Do this.Step 3: Open Settings.\n- Choose General\nStep 4: Quit"}) {
        CoachAssistantMessageText ofText(content);
        CoachAssistantMessageText ofMessage(CoachMessage(CoachMessage::Role::assistant, content));
        EXPECT_EQ(ofMessage.content(), ofText.content());
        EXPECT_EQ(ofMessage.procedure() != nullptr, ofText.procedure() != nullptr);
        EXPECT_EQ(labelTexts(&ofMessage, "replyBlock"), labelTexts(&ofText, "replyBlock"));
        EXPECT_EQ(labelTexts(&ofMessage, "procedureIntro"), labelTexts(&ofText, "procedureIntro"));
    }
}

TEST(AssistantMessageTextTest, ParagraphsBecomeOneLabelEach) {
    CoachAssistantMessageText view("First paragraph.\n\n\n\nSecond *one*.");
    EXPECT_EQ(view.procedure(), nullptr);
    const auto blocks = visibleChildren<QLabel>(&view, QStringLiteral("replyBlock"));
    ASSERT_EQ(blocks.size(), 2u);
    EXPECT_EQ(blocks[0]->text(),
              QStringLiteral("<span style=\"white-space:pre-wrap\">First paragraph.</span>"));
    EXPECT_TRUE(blocks[1]->text().contains(QStringLiteral("<i>one</i>")));
    EXPECT_EQ(view.maximumWidth(), 560);
    EXPECT_TRUE(blocks[0]->textInteractionFlags() & Qt::TextSelectableByMouse);
}

TEST(AssistantMessageTextTest, AProcedureIsNumberedByPositionWhateverTheModelWrote) {
    CoachAssistantMessageText view(
        "Do this.Step 3: Open Settings.\n- Choose General\n\n-\nStep 3:Click Save\nStep 8: Quit");
    ASSERT_NE(view.procedure(), nullptr);
    EXPECT_EQ(labelTexts(&view, "procedureIntro"),
              QStringList{QStringLiteral("<span style=\"white-space:pre-wrap\">Do this.</span>")});
    QStringList badges;
    for (auto* badge : visibleChildren(&view, QStringLiteral("stepBadge")))
        badges << badge->accessibleName();
    EXPECT_EQ(badges, (QStringList{QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")}));
    const auto& steps = view.procedure()->steps();
    ASSERT_EQ(steps.size(), 3u);
    EXPECT_EQ(steps[0].title, "Open Settings.");
    EXPECT_EQ(steps[0].details, (std::vector<CoachProceduralStepsView::DetailLine>{
                                    {"Choose General", 0, false}, {"-", 0, false}}));
    EXPECT_EQ(steps[1].title, "Click Save");
    EXPECT_EQ(visibleChildren(&view, QStringLiteral("detailDot")).size(), 2u);
}

TEST(ProceduralStepsViewTest, DetailLinesKnowNumbersAndNesting) {
    EXPECT_EQ(CoachProceduralStepsView::detailLine("2. Pick a voice"),
              (CoachProceduralStepsView::DetailLine{"2. Pick a voice", 0, true}));
    EXPECT_EQ(CoachProceduralStepsView::detailLine("    tucked in"),
              (CoachProceduralStepsView::DetailLine{"    tucked in", 2, false}));
    CoachProceduralStepsView view(std::vector<CoachProceduralStepsView::Step>{
        {"Open Speech", {{"1. Click the icon", 0, true}, {"waveform", 1, false}}}, {"Test", {}}});
    const auto rows = visibleChildren(&view, QStringLiteral("stepDetail"));
    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0]->findChildren<QWidget*>(QStringLiteral("detailDot")).size(), 0);
    EXPECT_EQ(rows[0]->layout()->contentsMargins().left(), 0);
    EXPECT_EQ(rows[1]->findChildren<QWidget*>(QStringLiteral("detailDot")).size(), 1);
    EXPECT_EQ(rows[1]->layout()->contentsMargins().left(), 18);
}

TEST(UserMessageTextTest, ShowsThePlainTextTrailingWithItsLinesLeftAligned) {
    CoachUserMessageText view("**not bold** <b>");
    EXPECT_EQ(view.label()->textFormat(), Qt::PlainText);
    EXPECT_EQ(view.label()->text(), QStringLiteral("**not bold** <b>"));
    EXPECT_TRUE(view.label()->alignment() & Qt::AlignLeft);
    EXPECT_TRUE(view.layout()->itemAt(0)->alignment() & Qt::AlignRight);
    EXPECT_EQ(view.maximumWidth(), 560);
}

class MessageBubbleTest : public ::testing::Test {
protected:
    std::unique_ptr<MessageBubble> bubble(CoachMessage message,
                                          MessageBubble::CanvasHandler canvas = {}) {
        auto result = std::make_unique<MessageBubble>(
            std::move(message), [this](const std::string& text) { chosen.push_back(text); },
            std::move(canvas));
        result->resize(700, 600);
        result->show();
        settle();
        return result;
    }
    std::vector<std::string> chosen;
};

TEST_F(MessageBubbleTest, UserMessagesLeanTrailingWithTheAvatarLast) {
    auto view = bubble(CoachMessage(CoachMessage::Role::user, "Hi"));
    const auto row = inLayoutOrder(view.get());
    ASSERT_FALSE(row.empty());
    EXPECT_EQ(row.back()->objectName(), QStringLiteral("avatar"));
    EXPECT_EQ(static_cast<uid::SymbolView*>(row.back())->symbol(), QStringLiteral("person.fill"));
    auto* layout = static_cast<QHBoxLayout*>(view->layout());
    EXPECT_NE(layout->itemAt(0)->spacerItem(), nullptr);
    ASSERT_NE(visibleChild(view.get(), QStringLiteral("userMessageText")), nullptr);
    EXPECT_EQ(visibleChild(view.get(), QStringLiteral("assistantMessageText")), nullptr);
}

TEST_F(MessageBubbleTest, AssistantMessagesLeanLeadingWithTheAvatarFirst) {
    auto view = bubble(CoachMessage(CoachMessage::Role::assistant, "Hello"));
    const auto row = inLayoutOrder(view.get());
    ASSERT_FALSE(row.empty());
    EXPECT_EQ(row.front()->objectName(), QStringLiteral("avatar"));
    EXPECT_EQ(static_cast<uid::SymbolView*>(row.front())->symbol(), QStringLiteral("sparkles"));
    auto* layout = static_cast<QHBoxLayout*>(view->layout());
    EXPECT_NE(layout->itemAt(layout->count() - 1)->spacerItem(), nullptr);
}

TEST_F(MessageBubbleTest, ASystemMessageIsDrawnLikeTheAssistantWithoutAnAvatar) {
    auto view = bubble(CoachMessage(CoachMessage::Role::system, "Reset *done* now"));
    EXPECT_TRUE(visibleChildren(view.get(), QStringLiteral("avatar")).empty());
    ASSERT_NE(visibleChild(view.get(), QStringLiteral("assistantMessageText")), nullptr);
    EXPECT_TRUE(labelTexts(view.get(), "replyBlock")
                    .join(QString())
                    .contains(QStringLiteral("<i>done</i>")));
}

TEST_F(MessageBubbleTest, TheTimeOfAReplyTellsWhatItCostInItsTooltip) {
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    auto view = bubble(CoachMessage(CoachMessage::Role::assistant, "Hi.", std::nullopt,
                                    std::nullopt, TokenUsage{1210, 30}));
    auto* time = visibleChild<QLabel>(view.get(), QStringLiteral("messageTime"));
    ASSERT_NE(time, nullptr);
    EXPECT_EQ(time->toolTip(), QStringLiteral("1,210 tokens in, 30 out"));
    auto plain = bubble(CoachMessage(CoachMessage::Role::assistant, "Hi."));
    EXPECT_EQ(visibleChild<QLabel>(plain.get(), QStringLiteral("messageTime"))->toolTip(),
              QString());
    QLocale::setDefault(QLocale::system());
}

TEST_F(MessageBubbleTest, TheTimeTooltipAddsTheModelAndItsEstimatedCost) {
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    CoachPriceTable prices;
    prices.setPrice(CoachConfig::Provider::openai, "gpt-4o-mini", {0.15, 0.6});
    CoachPriceTable::setCurrent(prices);
    auto tooltip = [&](const std::string& model) {
        TokenUsage usage{1210, 30};
        usage.provider = "openai";
        usage.model = model;
        auto view = bubble(
            CoachMessage(CoachMessage::Role::assistant, "Hi.", std::nullopt, std::nullopt, usage));
        return visibleChild<QLabel>(view.get(), QStringLiteral("messageTime"))->toolTip();
    };
    // 1,210 × $0.15 + 30 × $0.60 per million: $0.0001995.
    EXPECT_EQ(tooltip("gpt-4o-mini"),
              QStringLiteral("1,210 tokens in, 30 out\ngpt-4o-mini \u00B7 \u2248 $0.0002"));
    EXPECT_EQ(tooltip("gpt-9"),
              QStringLiteral("1,210 tokens in, 30 out\ngpt-9 \u00B7 no price known"));
    CoachPriceTable::setCurrent(CoachPriceTable::bundled());
    QLocale::setDefault(QLocale::system());
}

TEST_F(MessageBubbleTest, CardAndLessonSitBelowTheTextAndAboveTheTime) {
    CoachCard card{CoachCard::Style::warning, "Check the microphone", std::nullopt, {}, {}};
    auto view = bubble(CoachMessage(CoachMessage::Role::assistant, "Here you go.", card,
                                    CoachLessonLibrary::speechSetup()));
    auto* text = visibleChild(view.get(), QStringLiteral("textBubble"));
    auto* cardView = visibleChild(view.get(), QStringLiteral("cardView"));
    auto* lessonView = visibleChild(view.get(), QStringLiteral("lessonView"));
    auto* time = visibleChild<QLabel>(view.get(), QStringLiteral("messageTime"));
    ASSERT_TRUE(text && cardView && lessonView && time);
    auto y = [&](QWidget* widget) { return widget->mapTo(view.get(), QPoint(0, 0)).y(); };
    EXPECT_LT(y(text), y(cardView));
    EXPECT_LT(y(cardView), y(lessonView));
    EXPECT_LT(y(lessonView), y(time));
    EXPECT_EQ(time->text(), MessageBubble::timeText(view->message().timestamp()));
    EXPECT_FALSE(time->text().isEmpty());
}

TEST_F(MessageBubbleTest, LessonCanvasButtonOnlyWithTheHostsCanvas) {
    auto without = bubble(CoachMessage(CoachMessage::Role::assistant, "Lesson", std::nullopt,
                                       CoachLessonLibrary::speechSetup()));
    EXPECT_EQ(visibleChild(without.get(), QStringLiteral("openInCanvasButton")), nullptr);
    std::vector<std::string> opened;
    auto with = bubble(CoachMessage(CoachMessage::Role::assistant, "Lesson", std::nullopt,
                                    CoachLessonLibrary::speechSetup()),
                       [&opened](const CoachLesson& lesson) { opened.push_back(lesson.title); });
    auto* canvas = visibleChild<QPushButton>(with.get(), QStringLiteral("openInCanvasButton"));
    ASSERT_NE(canvas, nullptr);
    QTest::mouseClick(canvas, Qt::LeftButton);
    EXPECT_EQ(opened, std::vector<std::string>{"Set Up Speech"});
}

TEST_F(MessageBubbleTest, CardSuggestionsReachTheBubblesHandler) {
    CoachCard card{CoachCard::Style::info, "Try these", "Two ideas", {}, {"First idea", "Second"}};
    auto view = bubble(CoachMessage(CoachMessage::Role::assistant, "Ideas", card));
    const auto buttons =
        visibleChildren<QPushButton>(view.get(), QStringLiteral("suggestionButton"));
    ASSERT_EQ(buttons.size(), 2u);
    QTest::mouseClick(buttons[1], Qt::LeftButton);
    EXPECT_EQ(chosen, std::vector<std::string>{"Second"});
}

TEST(CardViewTest, ACardWithOnlyATitleShowsOnlyItsHeader) {
    CoachCardView view({CoachCard::Style::success, "All set", std::nullopt, {}, {}}, {});
    EXPECT_EQ(visibleTexts(&view), QStringList{QStringLiteral("All set")});
    EXPECT_EQ(visibleChild(&view, QStringLiteral("tryNext")), nullptr);
    EXPECT_EQ(visibleChild(&view, QStringLiteral("cardSubtitle")), nullptr);
    EXPECT_TRUE(visibleChildren(&view, QStringLiteral("cardSectionTitle")).empty());
}

TEST(CardViewTest, SectionsAreUpperCasedAndTryNextAppearsWithSuggestions) {
    CoachCardView view({CoachCard::Style::info,
                        "Speech",
                        "What Tessel sees",
                        {{"Permissions", {"Microphone", "Accessibility"}}, {"Voice", {"Samantha"}}},
                        {"Test speech"}},
                       {});
    EXPECT_EQ(visibleTexts(&view),
              (QStringList{QStringLiteral("Speech"), QStringLiteral("What Tessel sees"),
                           QStringLiteral("PERMISSIONS"), QStringLiteral("Microphone"),
                           QStringLiteral("Accessibility"), QStringLiteral("VOICE"),
                           QStringLiteral("Samantha"), QStringLiteral("TRY NEXT"),
                           QStringLiteral("Test speech")}));
}

TEST(CardViewTest, StyleChoosesTheTintAndSymbol) {
    struct Case {
        CoachCard::Style style;
        const char* symbol;
        uid::Tint tint;
    };
    for (const Case& c :
         {Case{CoachCard::Style::info, "sparkles.rectangle.stack", uid::Tint::blue},
          Case{CoachCard::Style::success, "checkmark.circle.fill", uid::Tint::green},
          Case{CoachCard::Style::warning, "exclamationmark.triangle.fill", uid::Tint::orange}}) {
        CoachCardView view({c.style, "Title", std::nullopt, {}, {}}, {});
        auto* symbol = view.findChild<uid::SymbolView*>(QStringLiteral("cardSymbol"));
        ASSERT_NE(symbol, nullptr);
        EXPECT_EQ(symbol->symbol(), QString::fromLatin1(c.symbol));
        EXPECT_EQ(symbol->tint(), c.tint);
        EXPECT_EQ(CoachCardView::symbolName(c.style), QString::fromLatin1(c.symbol));
        auto* panel = view.findChild<uid::RoundedPanel*>(QStringLiteral("cardPanel"));
        ASSERT_NE(panel, nullptr);
        EXPECT_EQ(panel->fillTint(), c.tint);
    }
}

TEST(RelativeDateTest, NumericWithAbbreviatedUnits) {
    const Timestamp now(800'000'000.0);
    auto ago = [&](double seconds) {
        return uid::relativeDateText(Timestamp(now.secondsSinceReferenceDate() - seconds), now);
    };
    EXPECT_EQ(ago(0), QStringLiteral("in 0 sec."));
    EXPECT_EQ(ago(12), QStringLiteral("12 sec. ago"));
    EXPECT_EQ(ago(90), QStringLiteral("1 min. ago"));
    EXPECT_EQ(ago(3 * 3600 + 5), QStringLiteral("3 hr. ago"));
    EXPECT_EQ(ago(86400), QStringLiteral("1 day ago"));
    EXPECT_EQ(ago(3 * 86400), QStringLiteral("3 days ago"));
    EXPECT_EQ(ago(15 * 86400), QStringLiteral("2 wk. ago"));
    EXPECT_EQ(ago(400 * 86400), QStringLiteral("1 yr. ago"));
    EXPECT_EQ(ago(-120), QStringLiteral("in 2 min."));
}

}  // namespace
}  // namespace sagely::testing
