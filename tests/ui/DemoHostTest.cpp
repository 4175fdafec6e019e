// The demo host's own pieces: its complete manual, the local answer for speech set-up and the
// observation it adds to model replies, and the whole demo window answering locally.
#include "UiTestSupport.h"

#include "DemoActions.h"
#include "DemoContext.h"
#include "DemoWindows.h"

#include <sagely/CoachBundledManual.h>
#include <sagely/ui/CoachWorkspaceView.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <QApplication>
#include <QFile>
#include <QRegularExpression>
#include <QStyle>

namespace sagely::testing {
namespace {

using tessel::DemoContext;

std::string demoManual() {
    QFile file(QStringLiteral(SAGELY_DEMO_MANUAL));
    if (!file.open(QIODevice::ReadOnly)) return {};
    return file.readAll().toStdString();
}

TEST(DemoHostTest, ManualHasNineteenChaptersEndingWithSpeechAndASetupGuidesSection) {
    const QString manual = QString::fromStdString(demoManual());
    ASSERT_FALSE(manual.isEmpty());
    EXPECT_TRUE(CoachBundledManual::isCompleteManual(manual.toStdString()));
    QStringList chapters;
    const QRegularExpression heading(QStringLiteral(R"(^## (\d+)\. (.+)$)"),
                                     QRegularExpression::MultilineOption);
    for (auto match = heading.globalMatch(manual); match.hasNext();)
        chapters << match.next().captured(0);
    ASSERT_EQ(chapters.size(), 19);
    for (int i = 0; i < 19; ++i)
        EXPECT_TRUE(chapters[i].startsWith(QStringLiteral("## %1. ").arg(i + 1))) << i;
    EXPECT_EQ(chapters.last(), QStringLiteral("## 19. Speech & Voice Control"));
    EXPECT_TRUE(manual.contains(QStringLiteral("Setup Guides")));
}

TEST(DemoHostTest, SpeechSetupQuestionsGetTheBuiltInLesson) {
    DemoContext context;
    for (const char* question :
         {"How do I set up speech?", "Enable voice control please", "how to configure dictation"}) {
        const auto answer = context.localAction(question);
        ASSERT_TRUE(answer.has_value()) << question;
        ASSERT_TRUE(answer->lesson.has_value());
        EXPECT_EQ(*answer->lesson, CoachLessonLibrary::speechSetup());
        EXPECT_FALSE(answer->message.empty());
    }
    EXPECT_FALSE(context.localAction("What permissions do I need for voice?").has_value());
    EXPECT_FALSE(context.localAction("How do I schedule a flow?").has_value());
}

TEST(DemoHostTest, EveryModelReplyGetsTheLiveObservation) {
    const CoachReplyEnrichment enrichment = DemoContext::liveObservation();
    EXPECT_FALSE(enrichment.systemPromptSection.empty());
    ASSERT_TRUE(enrichment.observationCard.has_value());
    EXPECT_EQ(enrichment.observationCard->title, "What Tessel sees");
    EXPECT_EQ(enrichment.observationCard->sections.size(), 2u);
}

TEST(DemoHostTest, ContextDescribesTesselAndItsRecentActivity) {
    DemoContext context;
    EXPECT_NE(context.configurationSummary().find("Team Onboarding"), std::string::npos);
    const std::string activity = context.recentActivity(2);
    EXPECT_EQ(std::count(activity.begin(), activity.end(), '\n'), 2);
    EXPECT_EQ(context.shortcutInfo("Teach"),
              std::optional<std::string>("⌘⇧T starts or stops a Teach recording."));
    EXPECT_FALSE(context.shortcutInfo("nothing").has_value());
}

TEST(DemoHostTest, PreferencesGiveTheEmbeddedSettingsFormTheMarginsOfAPage) {
    CoachWorld world;
    tessel::PreferencesDialog preferences(*world.settings);
    preferences.show();
    settle();
    auto* page = visibleChild(&preferences, QStringLiteral("coachPreferencesPage"));
    auto* form = visibleChild(&preferences, QStringLiteral("settingsForm"));
    ASSERT_NE(page, nullptr);
    ASSERT_NE(form, nullptr);
    const int margin = page->style()->pixelMetric(QStyle::PM_LayoutLeftMargin);
    EXPECT_GE(margin, 6);
    // The first section of the form keeps that distance from the page's edges.
    auto* section = visibleChild(form, QStringLiteral("providerChoiceSection"));
    ASSERT_NE(section, nullptr);
    const QRect box(section->mapTo(page, QPoint(0, 0)), section->size());
    EXPECT_GE(box.left(), margin);
    EXPECT_GE(box.top(), margin);
    EXPECT_LE(box.right(), page->width() - margin);
    EXPECT_FALSE(saveScreenshot(&preferences, QStringLiteral("demo-preferences")).isEmpty());
}

TEST(DemoHostTest, TheDemoWindowAnswersASpeechQuestionWithTheLesson) {
    CoachWorld world;
    world.useOpenAI();
    auto context = std::make_shared<DemoContext>();
    AICoach coach(world.executor, context, world.settings.get(), "demo");
    tessel::DemoMainWindow window(coach, *world.settings, QStringLiteral("# Guide"));
    window.resize(1000, 720);
    window.show();
    window.workspace()->setMessageInput(QStringLiteral("How do I set up speech?"));
    window.workspace()->send();
    ASSERT_TRUE(waitUntil([&] { return visibleChild(&window, QStringLiteral("lessonView")); }));
    EXPECT_NE(visibleChild(&window, QStringLiteral("openInCanvasButton")), nullptr);
    EXPECT_EQ(world.server.requestCount(), 0u);
    EXPECT_FALSE(saveScreenshot(&window, QStringLiteral("demo-speech-lesson")).isEmpty());
}

TEST(DemoHostTest, TheGuideOpensAtAChapterByItsTitle) {
    const QString manual = QString::fromStdString(demoManual());
    const QStringList chapters = tessel::GuideWindow::chapterTitles(manual);
    ASSERT_EQ(chapters.size(), 19);
    EXPECT_EQ(chapters[6], QStringLiteral("The AI Canvas"));
    CoachWorld world;
    AICoach coach(world.executor, std::make_shared<DemoContext>(), world.settings.get(), "demo");
    tessel::DemoMainWindow window(coach, *world.settings, manual);
    window.show();
    ASSERT_TRUE(window.openGuideChapter(QStringLiteral("Teach Mode")));
    auto* guide = window.findChild<tessel::GuideWindow*>(QStringLiteral("guideWindow"));
    ASSERT_NE(guide, nullptr);
    EXPECT_TRUE(guide->isVisible());
    EXPECT_EQ(guide->currentHeading(), QStringLiteral("8. Teach Mode"));
    EXPECT_FALSE(window.openGuideChapter(QStringLiteral("Time Travel")));
}

TEST(DemoHostTest, TheAppearanceSwitchesBetweenLightAndDarkPalettes) {
    CoachWorld world;
    AICoach coach(world.executor, std::make_shared<DemoContext>(), world.settings.get(), "demo");
    tessel::DemoMainWindow window(coach, *world.settings, QStringLiteral("# Guide"));
    const QPalette original = QApplication::palette();
    window.useDarkAppearance(true);
    EXPECT_TRUE(window.usesDarkAppearance());
    EXPECT_LT(QApplication::palette().color(QPalette::Window).lightness(), 80);
    window.useDarkAppearance(false);
    EXPECT_FALSE(window.usesDarkAppearance());
    EXPECT_GT(QApplication::palette().color(QPalette::Window).lightness(), 150);
    QApplication::setPalette(original);
}

TEST(DemoHostTest, ACanvasIsCreatedWithItsName) {
    CoachWorld world;
    AICoach coach(world.executor, std::make_shared<DemoContext>(), world.settings.get(), "demo");
    tessel::DemoMainWindow window(coach, *world.settings, QStringLiteral("# Guide"));
    tessel::CanvasWindow* canvas = window.createCanvas(QStringLiteral("Launch"));
    ASSERT_NE(canvas, nullptr);
    EXPECT_TRUE(canvas->isVisible());
    EXPECT_EQ(canvas->title(), QStringLiteral("Launch"));
    EXPECT_TRUE(visibleTexts(canvas).contains(QStringLiteral("Launch")));
}

TEST(DemoHostTest, ItOffersThreeActionsAndOnlyTheGuideRunsWithoutAsking) {
    CoachWorld world;
    auto context = std::make_shared<DemoContext>();
    AICoach coach(world.executor, context, world.settings.get(), "demo");
    tessel::DemoMainWindow window(coach, *world.settings, QString::fromStdString(demoManual()));
    context->actions = tessel::demoActions(window);
    const std::vector<CoachHostAction> actions = context->hostActions();
    ASSERT_EQ(actions.size(), 3u);
    EXPECT_EQ(actions[0].name(), "open_guide_chapter");
    EXPECT_FALSE(actions[0].needsApproval());
    EXPECT_EQ(actions[1].name(), "switch_appearance");
    EXPECT_TRUE(actions[1].needsApproval());
    EXPECT_EQ(actions[2].name(), "create_canvas");
    EXPECT_TRUE(actions[2].needsApproval());
    EXPECT_EQ(actions[2].title(), "Create canvas");

    // Only the guide's own chapters fit the schema.
    EXPECT_TRUE(actions[0].argumentProblem({{"chapter", "Time Travel"}}).has_value());
    const auto opened = actions[0].run({{"chapter", "Teach Mode"}});
    EXPECT_FALSE(opened.failed) << opened.text;
    EXPECT_EQ(window.findChild<tessel::GuideWindow*>()->currentHeading(),
              QStringLiteral("8. Teach Mode"));

    const QPalette original = QApplication::palette();
    EXPECT_FALSE(actions[1].run({{"appearance", "dark"}}).failed);
    EXPECT_TRUE(window.usesDarkAppearance());
    window.useDarkAppearance(false);
    QApplication::setPalette(original);

    const auto canvas = actions[2].run({{"name", "Launch"}});
    EXPECT_FALSE(canvas.failed);
    ASSERT_TRUE(canvas.card.has_value());
    EXPECT_EQ(canvas.card->subtitle, std::optional<std::string>("Launch"));
    const auto canvases = window.findChildren<tessel::CanvasWindow*>();
    ASSERT_EQ(canvases.size(), 1);
    EXPECT_EQ(canvases[0]->title(), QStringLiteral("Launch"));
    EXPECT_TRUE(actions[2].run({{"name", "  "}}).failed);
}

}  // namespace
}  // namespace sagely::testing
