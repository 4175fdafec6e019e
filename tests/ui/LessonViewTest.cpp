// The lesson view: header with the canvas button only when the host has a canvas, numbered
// step groups of numbered and nested bullet lines, callouts by tone, and "Try Next" only when
// the lesson has suggestions.
#include "UiTestSupport.h"

#include <sagely/ui/CoachLessonView.h>

#include "Primitives.h"

#include <gtest/gtest.h>

#include <QLayout>
#include <QPushButton>
#include <QTest>

namespace sagely::testing {
namespace {

using ui::CoachLessonView;
using Line = CoachLesson::Line;
using Tone = CoachLesson::Callout::Tone;

CoachLesson plainLesson() {
    CoachLesson lesson;
    lesson.style = CoachLesson::Style::warning;
    lesson.title = "Back up first";
    lesson.blocks = {CoachLesson::Block::text("Copy the **library** folder.")};
    return lesson;
}

TEST(LessonViewTest, WithoutACanvasTheHeaderHasNoCanvasButton) {
    CoachLessonView view(CoachLessonLibrary::speechSetup(), {});
    EXPECT_EQ(visibleChild(&view, QStringLiteral("openInCanvasButton")), nullptr);
    EXPECT_EQ(buttonWithText(&view, QStringLiteral("AI Canvas")), nullptr);
}

TEST(LessonViewTest, WithACanvasTheButtonOpensIt) {
    int opened = 0;
    CoachLessonView view(CoachLessonLibrary::speechSetup(), {}, [&opened] { ++opened; });
    auto* button = visibleChild<QPushButton>(&view, QStringLiteral("openInCanvasButton"));
    ASSERT_NE(button, nullptr);
    EXPECT_EQ(button->text(), QStringLiteral("AI Canvas"));
    QTest::mouseClick(button, Qt::LeftButton);
    EXPECT_EQ(opened, 1);
}

TEST(LessonViewTest, ALessonWithoutSuggestionsHasNoTryNext) {
    CoachLessonView view(plainLesson(), {});
    EXPECT_EQ(visibleChild(&view, QStringLiteral("tryNext")), nullptr);
    EXPECT_FALSE(visibleTexts(&view).contains(QStringLiteral("TRY NEXT")));
    EXPECT_EQ(visibleChild(&view, QStringLiteral("lessonSubtitle")), nullptr);
}

TEST(LessonViewTest, AnEmptySubtitleIsNotShown) {
    CoachLesson lesson = plainLesson();
    lesson.subtitle = "";
    CoachLessonView view(lesson, {});
    EXPECT_EQ(visibleChild(&view, QStringLiteral("lessonSubtitle")), nullptr);
}

TEST(LessonViewTest, SuggestionsAreOfferedUnderTryNext) {
    std::vector<std::string> chosen;
    CoachLessonView view(CoachLessonLibrary::speechSetup(),
                         [&chosen](const std::string& text) { chosen.push_back(text); });
    auto* tryNext = visibleChild(&view, QStringLiteral("tryNext"));
    ASSERT_NE(tryNext, nullptr);
    EXPECT_EQ(visibleTexts(tryNext),
              (QStringList{QStringLiteral("TRY NEXT"),
                           QStringLiteral("What permissions do I need for voice?"),
                           QStringLiteral("How do I test speech safely?"),
                           QStringLiteral("What is Teach in Tessel?")}));
    const auto buttons = visibleChildren<QPushButton>(&view, QStringLiteral("suggestionButton"));
    ASSERT_EQ(buttons.size(), 3u);
    QTest::mouseClick(buttons[2], Qt::LeftButton);
    EXPECT_EQ(chosen, std::vector<std::string>{"What is Teach in Tessel?"});
}

TEST(LessonViewTest, StepGroupsAreNumberedAndCalloutsCountNot) {
    CoachLessonView view(CoachLessonLibrary::speechSetup(), {});
    QStringList badges;
    for (auto* badge : visibleChildren(&view, QStringLiteral("stepBadge")))
        badges << badge->accessibleName();
    EXPECT_EQ(badges, (QStringList{QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3"),
                                   QStringLiteral("4")}));
    QStringList titles;
    for (auto* title : visibleChildren<QLabel>(&view, QStringLiteral("stepGroupTitle")))
        titles << title->text();
    EXPECT_EQ(titles.first(), QStringLiteral("Open the Speech view"));
    EXPECT_EQ(titles.last(), QStringLiteral("Tune settings (optional)"));
    EXPECT_EQ(visibleChild<QLabel>(&view, QStringLiteral("lessonSummary"))
                  ->text()
                  .contains(QStringLiteral("grant three permissions")),
              true);
}

TEST(LessonViewTest, BulletLinesAfterANumberedLineAreNested) {
    CoachLesson::StepGroup group{
        "Tune",
        {Line("Open Preferences", Line::Kind::numbered), Line("Choose:", Line::Kind::numbered),
         Line("**STT Provider**", Line::Kind::bullet)}};
    EXPECT_EQ(
        CoachLessonView::nestedLines(group),
        (std::vector<CoachLessonView::NestedLine>{
            {"Open Preferences", 0, true}, {"Choose:", 0, true}, {"**STT Provider**", 1, false}}));
    CoachLesson::StepGroup bullets{"Only bullets", {Line("a", Line::Kind::bullet)}};
    EXPECT_EQ(CoachLessonView::nestedLines(bullets),
              (std::vector<CoachLessonView::NestedLine>{{"a", 0, false}}));
}

TEST(LessonViewTest, LinesDrawDotsOnlyForBulletsAndKeepBold) {
    CoachLesson lesson = plainLesson();
    lesson.blocks = {CoachLesson::Block::stepGroup(
        {"Tune",
         {Line("Choose:", Line::Kind::numbered), Line("**STT** engine", Line::Kind::bullet)}})};
    CoachLessonView view(lesson, {});
    const auto lines = visibleChildren(&view, QStringLiteral("lessonLine"));
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0]->findChildren<QWidget*>(QStringLiteral("lineDot")).size(), 0);
    EXPECT_EQ(lines[0]->findChild<QLabel*>(QStringLiteral("lineNumber"))->text(),
              QStringLiteral("1."));
    EXPECT_EQ(lines[1]->findChildren<QWidget*>(QStringLiteral("lineDot")).size(), 1);
    EXPECT_EQ(lines[1]->layout()->contentsMargins().left(), 18);
    EXPECT_TRUE(lines[1]
                    ->findChild<QLabel*>(QStringLiteral("lineText"))
                    ->text()
                    .contains(QStringLiteral("<b>STT</b> engine")));
}

TEST(LessonViewTest, CalloutsTakeTheirTonesLook) {
    CoachLesson lesson = plainLesson();
    lesson.blocks = {
        CoachLesson::Block::callout({"Tip", "Hold **Option**.", Tone::tip}),
        CoachLesson::Block::callout({"Careful", "It erases.", Tone::warning}),
        CoachLesson::Block::callout({"Verification", "It speaks.", Tone::verification})};
    CoachLessonView view(lesson, {});
    const auto symbols =
        view.findChildren<ui::detail::SymbolView*>(QStringLiteral("calloutSymbol"));
    ASSERT_EQ(symbols.size(), 3);
    EXPECT_EQ(symbols[0]->symbol(), QStringLiteral("lightbulb.fill"));
    EXPECT_EQ(symbols[0]->tint(), ui::detail::Tint::blue);
    EXPECT_EQ(symbols[1]->symbol(), QStringLiteral("lightbulb.fill"));
    EXPECT_EQ(symbols[1]->tint(), ui::detail::Tint::orange);
    EXPECT_EQ(symbols[2]->symbol(), QStringLiteral("checkmark.seal.fill"));
    EXPECT_EQ(symbols[2]->tint(), ui::detail::Tint::green);
    QStringList titles;
    for (auto* title : view.findChildren<QLabel*>(QStringLiteral("calloutTitle")))
        titles << title->text();
    EXPECT_EQ(titles, (QStringList{QStringLiteral("Tip"), QStringLiteral("Careful"),
                                   QStringLiteral("Verification")}));
    const auto bodies = view.findChildren<QLabel*>(QStringLiteral("calloutBody"));
    EXPECT_EQ(bodies[0]->text(),
              QStringLiteral("<span style=\"white-space:pre-wrap\">Hold Option.</span>"));
}

TEST(LessonViewTest, StyleTintsThePanel) {
    CoachLessonView view(plainLesson(), {});
    auto* panel = view.findChild<ui::detail::RoundedPanel*>(QStringLiteral("lessonPanel"));
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->fillTint(), ui::detail::Tint::orange);
}

}  // namespace
}  // namespace sagely::testing
