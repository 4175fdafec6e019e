// The embedding example of the README, as a host would write it, kept compiling and working.
#include "UiTestSupport.h"

#include <sagely/AICoach.h>
#include <sagely/StaticCoachContextProvider.h>
#include <sagely/ui/CoachSettingsView.h>
#include <sagely/ui/CoachWorkspaceView.h>
#include <sagely/ui/QtMainExecutor.h>

#include <gtest/gtest.h>

#include <QMainWindow>
#include <QPushButton>
#include <QTest>

namespace sagely::testing {
namespace {

TEST(EmbeddingExampleTest, AHostEmbedsTheWorkspaceAndTheSettingsInAFewLines) {
    CoachWorld world;  // stands in for the shared settings store of a real host
    CoachSettingsStore* store = world.settings.get();
    const std::string manualMarkdown = "# MyApp guide\nPress Start to begin.";

    // --- as in the README ---
    auto guide = std::make_shared<sagely::StaticCoachContextProvider>("MyApp", "Version 2.1",
                                                                      manualMarkdown);
    sagely::AICoach coach(std::make_shared<sagely::ui::QtMainExecutor>(), guide, store, "main");

    sagely::ui::CoachBranding branding("MyApp", "MyApp Coach", "Ask anything about MyApp.",
                                       {"How do I get started?"}, "Ask MyApp Coach…",
                                       "Add an API key in Coach Settings.");
    auto* settings = new sagely::ui::CoachSettingsView(store, /*embedInPreferences=*/false);
    auto* workspace = new sagely::ui::CoachWorkspaceView(
        coach, branding, {.onOpenSettings = [settings] { settings->show(); }});
    QMainWindow window;  // declared after the coach: views go before the coach they show
    window.setCentralWidget(workspace);
    // --- end of the example ---

    window.resize(900, 600);
    window.show();
    settle();
    EXPECT_TRUE(visibleTexts(workspace).contains(QStringLiteral("MyApp Coach")));
    coach.newConversation();
    settle();
    auto* gear = visibleChild<QPushButton>(workspace, QStringLiteral("openSettingsButton"));
    ASSERT_NE(gear, nullptr);
    QTest::mouseClick(gear, Qt::LeftButton);
    EXPECT_TRUE(settings->isVisible());
    delete settings;
}

}  // namespace
}  // namespace sagely::testing
