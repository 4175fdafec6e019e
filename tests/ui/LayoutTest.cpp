// How the views lay out what they show, at a wide and a narrow width: no wrapped text loses its
// lower lines, user messages read from a straight left edge, and sidebar titles that do not fit
// end in "…" with the whole title in a tooltip.
#include "UiTestSupport.h"

#include <sagely/CoachLesson.h>
#include <sagely/ui/CoachSettingsView.h>
#include <sagely/ui/CoachWorkspaceView.h>

#include "Primitives.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QImage>
#include <QListWidget>
#include <QTest>

namespace sagely::testing {
namespace {

using ui::CoachBranding;
using ui::CoachWorkspaceView;

const char* kLongProcedure =
    "Here is how to share a canvas.\n"
    "Step 1: Open the canvas that you want to share with the whole team and make sure it is "
    "saved before you continue with the next step.\n"
    "- Choose File, then Save, and wait until the title bar no longer shows the dot that marks "
    "unsaved changes.\n"
    "Step 2: Click Share in the toolbar.\n"
    "- You can revoke access later in Settings.\n"
    "Step 3: Press Send.";

CoachBranding branding() {
    return tesselBranding(
        "Add an OpenAI, Anthropic or Gemini key in Coach Settings, or switch to a local model, "
        "and ask again.");
}

CoachCard longCard() {
    return {CoachCard::Style::warning,
            "Speech needs two permissions before hold-to-talk can work in every window",
            "Checked just now, while the microphone was in use by another application",
            {{"Permissions",
              {"Microphone access is granted for Tessel in System Settings, Privacy and "
               "Security",
               "Speech Recognition is not yet granted; open the panel and turn it on"}}},
            {"Open the Speech Recognition panel in System Settings and grant access"}};
}

// Wrapped labels under `root` that are shorter than the height their text needs at their
// width, described for the failure message.
QStringList clippedLabels(const QWidget* root) {
    QStringList clipped;
    for (QLabel* label : root->findChildren<QLabel*>()) {
        if (!label->isVisibleTo(root) || !label->wordWrap() || label->text().isEmpty()) continue;
        const int needed = label->heightForWidth(label->width());
        if (label->height() < needed)
            clipped << QStringLiteral("%1 \"%2…\" is %3 px high at %4 px wide, needs %5")
                           .arg(label->objectName(), label->text().left(40))
                           .arg(label->height())
                           .arg(label->width())
                           .arg(needed);
    }
    return clipped;
}

class LayoutTest : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { world.useOpenAI(""); }
    void TearDown() override {
        view.reset();
        coach.reset();
    }
    void makeWorkspace() {
        coach = world.makeCoach({.resolver = [](const std::string& question) {
            if (question.starts_with("card"))
                return std::optional<CoachLocalActionResult>(
                    {"Here is what I found about speech on this computer.", longCard(),
                     CoachLessonLibrary::speechSetup()});
            return std::optional<CoachLocalActionResult>({kLongProcedure, {}, {}});
        }});
        view = std::make_unique<CoachWorkspaceView>(*coach, branding(),
                                                    CoachWorkspaceView::Actions{[] {}, [] {}});
        view->resize(GetParam(), 4000);
        view->show();
        settle();
    }
    void ask(const QString& question) {
        view->setMessageInput(question);
        view->send();
        settle();
    }

    CoachWorld world;
    std::unique_ptr<AICoach> coach;
    std::unique_ptr<CoachWorkspaceView> view;
};

TEST_P(LayoutTest, WrappedTextInMessagesCardsLessonsAndBannersKeepsAllItsLines) {
    makeWorkspace();
    ask(
        QStringLiteral("How do I share a canvas with the whole team so that everyone can edit "
                       "it, and can I take that back later?\nAnd a second line."));
    ask(QStringLiteral("card please"));
    coach->setError(std::string(AICoach::kNoAPIKeyCode));
    settle();
    ASSERT_TRUE(waitUntil([&] { return visibleChild(view.get(), "lessonView") != nullptr; }));
    ASSERT_NE(visibleChild(view.get(), "missingKeyBanner"), nullptr);
    ASSERT_EQ(visibleChildren(view.get(), "stepTitle").size(), 3u);
    settle();
    const QStringList clipped = clippedLabels(view.get());
    EXPECT_TRUE(clipped.isEmpty()) << clipped.join(u'\n').toStdString();
    saveScreenshot(view.get(), QStringLiteral("layout-workspace-%1").arg(GetParam()));
}

TEST_P(LayoutTest, SettingsHelpTextsKeepAllTheirLines) {
    for (auto provider : {CoachConfig::Provider::apple, CoachConfig::Provider::openai,
                          CoachConfig::Provider::custom, CoachConfig::Provider::local}) {
        world.settings->selectProvider(provider);
        ui::CoachSettingsView settings(world.settings.get());
        settings.setAppleStatusSource([] { return AppleIntelligenceInfo::Status::needsSetup; });
        settings.resize(GetParam(), 1600);
        settings.show();
        settle();
        const QStringList clipped = clippedLabels(&settings);
        EXPECT_TRUE(clipped.isEmpty()) << int(provider) << clipped.join(u'\n').toStdString();
    }
}

TEST_P(LayoutTest, UserMessagesAreLeftAlignedInsideTheirBubble) {
    makeWorkspace();
    ask(QStringLiteral("A first line that is clearly the longest one\nshort\nmiddle line"));
    auto* label = visibleChild<QLabel>(view.get(), "userMessageLabel");
    ASSERT_NE(label, nullptr);
    EXPECT_TRUE(label->alignment() & Qt::AlignLeft);
    // The first ink of every text line starts at the same x.
    QWidget* bubble = label;
    while (bubble && bubble->objectName() != QStringLiteral("textBubble"))
        bubble = bubble->parentWidget();
    ASSERT_NE(bubble, nullptr);
    const QImage image = bubble->grab().toImage();
    const QRect box(label->mapTo(bubble, QPoint(0, 0)), label->size());
    const int lineHeight = label->fontMetrics().lineSpacing();
    const QColor background = image.pixelColor(box.left() - 4, box.center().y());
    QList<int> starts;
    for (int top = box.top(); top + lineHeight <= box.bottom() + 1; top += lineHeight) {
        int first = -1;
        for (int x = box.left(); x <= box.right() && first < 0; ++x)
            for (int y = top; y < top + lineHeight && first < 0; ++y)
                if (std::abs(image.pixelColor(x, y).lightness() - background.lightness()) > 60)
                    first = x;
        if (first >= 0) starts << first;
    }
    ASSERT_EQ(starts.size(), 3);
    EXPECT_LE(std::abs(starts[1] - starts[0]), 2) << starts[0] << " " << starts[1];
    EXPECT_LE(std::abs(starts[2] - starts[0]), 2) << starts[0] << " " << starts[2];
    // The bubble itself still sits at the right.
    QWidget* row = bubble;
    while (row && row->objectName() != QStringLiteral("messageBubble")) row = row->parentWidget();
    ASSERT_NE(row, nullptr);
    EXPECT_GT(bubble->mapTo(row, QPoint(bubble->width(), 0)).x(), row->width() - 60);
}

TEST_P(LayoutTest, LongSidebarTitlesEndInAnEllipsisAndShowTheWholeTitleAsTooltip) {
    makeWorkspace();
    ask(QStringLiteral("How do I share a canvas with the whole team and keep the old versions?"));
    const QString title = QString::fromStdString(coach->conversations().get()[0].title());
    auto* list = visibleChild<QListWidget>(view.get(), "conversationList");
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->count(), 1);
    auto* label = dynamic_cast<ui::detail::ElidedLabel*>(
        list->itemWidget(list->item(0))->findChild<QLabel*>(QStringLiteral("conversationTitle")));
    ASSERT_NE(label, nullptr);
    EXPECT_EQ(label->text(), title);
    EXPECT_EQ(label->toolTip(), title);
    const QString shown = label->shownText();
    EXPECT_TRUE(shown.endsWith(QChar(0x2026))) << shown.toStdString();
    EXPECT_LE(label->fontMetrics().horizontalAdvance(shown), label->contentsRect().width());
    // The row stays inside the list, so the text never runs past the selection highlight.
    const QRect row = list->visualItemRect(list->item(0));
    const QRect labelBox(label->mapTo(list->viewport(), QPoint(0, 0)), label->size());
    EXPECT_LE(labelBox.right(), row.right());
    EXPECT_LE(row.right(), list->viewport()->width());
}

INSTANTIATE_TEST_SUITE_P(Widths, LayoutTest, ::testing::Values(1000, 560));

}  // namespace
}  // namespace sagely::testing
