// Screenshots of the workspace in its main states, for the README and for people reviewing the
// look; each also checks that the state it pictures is the one on screen.
#include "UiTestSupport.h"

#include <sagely/CoachLesson.h>
#include <sagely/ui/CoachWorkspaceView.h>

#include <gtest/gtest.h>

#include <QApplication>
#include <QFileInfo>
#include <QImage>
#include <QPalette>
#include <QTest>

namespace sagely::testing {
namespace {

using ui::CoachBranding;
using ui::CoachWorkspaceView;

CoachBranding branding() {
    return CoachBranding(
        "Tessel", "Tessel Coach", "Ask anything about Tessel.",
        {"How do I set up speech?", "What is Teach mode?", "How do I export a canvas?"},
        "Ask Tessel Coach…",
        "Add an OpenAI, Anthropic or Gemini key in Coach Settings, or switch "
        "to a local model.");
}

const char* kProcedureReply =
    "Here is how to share a canvas with your team.Step 1: Open the canvas you want to share."
    "Step 2: Click **Share** in the toolbar.\n- Pick *People* or *Link*\nStep 3: Press "
    "`Send`.";

class WorkspaceScreenshotTest : public ::testing::Test {
protected:
    void SetUp() override {
        world.useOpenAI();
        coach = world.makeCoach();
    }
    void TearDown() override {
        view.reset();
        coach.reset();
    }
    void makeView(CoachWorkspaceView::Actions actions = {}) {
        view = std::make_unique<CoachWorkspaceView>(*coach, branding(), std::move(actions));
        view->resize(900, 640);
        view->show();
        settle();
    }
    void ask(const std::string& question) {
        view->setMessageInput(QString::fromStdString(question));
        view->send();
    }

    CoachWorld world;
    std::unique_ptr<AICoach> coach;
    std::unique_ptr<CoachWorkspaceView> view;
};

CoachWorkspaceView::Actions hostActions() {
    return {[] {}, [] {}, {}, [](const CoachLesson&) {}};
}

TEST_F(WorkspaceScreenshotTest, EmptyWorkspace) {
    makeView(hostActions());
    ASSERT_NE(visibleChild(view.get(), "emptyState"), nullptr);
    EXPECT_FALSE(saveScreenshot(view.get(), "workspace-empty").isEmpty());
}

TEST_F(WorkspaceScreenshotTest, ConversationWithAProcedureReply) {
    world.server.enqueue(ScriptedResponse::json(200, chatCompletionBody(kProcedureReply)));
    makeView(hostActions());
    ask("How do I share a canvas?");
    ASSERT_TRUE(waitUntil([&] { return visibleChildren(view.get(), "stepBadge").size() == 3; }));
    EXPECT_FALSE(saveScreenshot(view.get(), "workspace-procedure").isEmpty());
}

TEST_F(WorkspaceScreenshotTest, CardAndLesson) {
    CoachCard card{CoachCard::Style::success,
                   "Speech is ready",
                   "Checked just now",
                   {{"Permissions", {"Microphone granted", "Speech Recognition granted"}}},
                   {"Test hold-to-talk"}};
    world.settings->apiKey.set("");
    coach = world.makeCoach({.resolver = [card](const std::string&) {
        return std::optional<CoachLocalActionResult>(
            {"Here is the speech setup for Tessel.", card, CoachLessonLibrary::speechSetup()});
    }});
    makeView(hostActions());
    ask("How do I set up speech?");
    ASSERT_TRUE(waitUntil([&] { return visibleChild(view.get(), "lessonView") != nullptr; }));
    view->resize(900, 1500);
    EXPECT_FALSE(saveScreenshot(view.get(), "workspace-card-and-lesson").isEmpty());
}

TEST_F(WorkspaceScreenshotTest, MissingKeyBanner) {
    world.settings->apiKey.set("");
    makeView(hostActions());
    ask("How do I share a canvas?");
    ASSERT_TRUE(waitUntil([&] { return visibleChild(view.get(), "missingKeyBanner") != nullptr; }));
    EXPECT_FALSE(saveScreenshot(view.get(), "workspace-missing-key").isEmpty());
}

TEST_F(WorkspaceScreenshotTest, NarrowWindow) {
    world.server.enqueue(ScriptedResponse::json(
        200, chatCompletionBody(
                 "Here is how to share a canvas.Step 1: Open the canvas that you want to share "
                 "with the whole team and make sure it is saved before you continue with the "
                 "next step.Step 2: Click **Share** in the toolbar.\n- You can revoke access "
                 "later in Settings.\n--\nStep 3: Press `Send`.")));
    makeView(hostActions());
    view->resize(560, 720);
    ask("How do I share a canvas with my whole team so that everyone can edit it?\nThanks!");
    ASSERT_TRUE(waitUntil([&] { return visibleChildren(view.get(), "stepBadge").size() == 3; }));
    EXPECT_FALSE(saveScreenshot(view.get(), "workspace-narrow").isEmpty());
}

TEST_F(WorkspaceScreenshotTest, DarkPaletteKeepsTextReadable) {
    const QPalette previous = QApplication::palette();
    QApplication::setPalette(darkPalette());
    world.server.enqueue(ScriptedResponse::json(200, chatCompletionBody(kProcedureReply)));
    makeView(hostActions());
    ask("How do I share a canvas?");
    ASSERT_TRUE(waitUntil([&] { return visibleChildren(view.get(), "stepBadge").size() == 3; }));
    const QImage image = view->grab().toImage();
    EXPECT_LT(image.pixelColor(view->width() / 2, view->height() / 2).lightness(), 80);
    auto* title = visibleChildren<QLabel>(view.get(), "stepTitle").front();
    EXPECT_GT(title->palette().color(QPalette::WindowText).lightness(), 180);
    EXPECT_FALSE(saveScreenshot(view.get(), "workspace-dark").isEmpty());
    view.reset();
    QApplication::setPalette(previous);
}

}  // namespace
}  // namespace sagely::testing
