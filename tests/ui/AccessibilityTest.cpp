// The views as assistive technology and the keyboard meet them: what a screen reader speaks for
// messages, controls and banners (through the QAccessible interfaces), and the workspace worked
// from the keyboard alone (Tab order, Return, Escape, the arrow keys and Delete).
#include "UiTestSupport.h"

#include <sagely/CoachLesson.h>
#include <sagely/ui/CoachSettingsView.h>
#include <sagely/ui/CoachWorkspaceView.h>

#include "SpokenText.h"

#include <gtest/gtest.h>

#include <QAbstractSlider>
#include <QAccessible>
#include <QApplication>
#include <QComboBox>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QScrollArea>
#include <QTest>

namespace sagely::testing {
namespace {

using ui::CoachBranding;
using ui::CoachWorkspaceView;

QString spoken(QWidget* widget, QAccessible::Text text = QAccessible::Name) {
    QAccessibleInterface* face = QAccessible::queryAccessibleInterface(widget);
    return face ? face->text(text) : QString();
}

// The widgets announced to assistive technology while one of these lives.
class Announcements {
public:
    Announcements() {
        ui::detail::setAnnouncementListener(
            [this](QWidget* widget) { alerts << widget->objectName(); });
    }
    ~Announcements() { ui::detail::setAnnouncementListener({}); }
    QStringList alerts;
};

CoachCard speechCard() {
    return {CoachCard::Style::success,
            "Speech is ready",
            "Checked just now",
            {{"Permissions", {"Microphone granted"}}},
            {"Test hold-to-talk"}};
}

class AccessibilityTest : public ::testing::Test {
protected:
    void SetUp() override { world.useOpenAI(""); }
    void TearDown() override {
        view.reset();
        coach.reset();
    }
    void makeView() {
        coach = world.makeCoach({.resolver = [](const std::string& question) {
            if (question.find("speech") != std::string::npos)
                return std::optional<CoachLocalActionResult>(
                    {"Here is how.Step 1: Open **Settings**.Step 2: Choose Speech.", speechCard(),
                     CoachLessonLibrary::speechSetup()});
            return std::optional<CoachLocalActionResult>({"Short answer.", {}, {}});
        }});
        view = std::make_unique<CoachWorkspaceView>(*coach, tesselBranding(),
                                                    CoachWorkspaceView::Actions{[] {}, [] {}});
        view->resize(900, 700);
        view->show();
        QApplication::setActiveWindow(view.get());
        settle();
    }
    void ask(const char* question) {
        view->setMessageInput(QString::fromLatin1(question));
        view->send();
        settle();
    }
    template <typename T = QWidget>
    T* child(const char* name) const {
        return visibleChild<T>(view.get(), QString::fromLatin1(name));
    }

    CoachWorld world;
    std::unique_ptr<AICoach> coach;
    std::unique_ptr<CoachWorkspaceView> view;
};

TEST_F(AccessibilityTest, MessagesAreReadWithWhoSaidThemAndWhatTheyCarry) {
    makeView();
    ask("How do I set up speech?");
    auto bubbles = visibleChildren(view.get(), QStringLiteral("messageBubble"));
    ASSERT_EQ(bubbles.size(), 2u);
    EXPECT_EQ(spoken(bubbles[0]), QStringLiteral("You: How do I set up speech?"));
    EXPECT_EQ(spoken(bubbles[1]), QStringLiteral("Coach: Here is how.\nStep 1: Open Settings.\n"
                                                 "Step 2: Choose Speech."));
    const QString carried = spoken(bubbles[1], QAccessible::Description);
    EXPECT_TRUE(carried.startsWith(QStringLiteral(
        "Speech is ready. Checked just now. Permissions: Microphone granted. Try Next: Test "
        "hold-to-talk\n")))
        << carried.toStdString();
    const CoachLesson lesson = CoachLessonLibrary::speechSetup();
    EXPECT_TRUE(carried.contains(QString::fromStdString(lesson.title))) << carried.toStdString();
    EXPECT_TRUE(carried.contains(QStringLiteral("\nSent at "))) << carried.toStdString();
    auto* card = child("cardView");
    auto* lessonView = child("lessonView");
    auto* steps = child("proceduralSteps");
    ASSERT_TRUE(card && lessonView && steps);
    EXPECT_EQ(spoken(card), QStringLiteral("Speech is ready"));
    EXPECT_EQ(spoken(lessonView), QString::fromStdString(lesson.title));
    EXPECT_FALSE(spoken(lessonView, QAccessible::Description).isEmpty());
    EXPECT_EQ(spoken(steps, QAccessible::Description),
              QStringLiteral("Step 1: Open Settings.\nStep 2: Choose Speech."));
}

// Every control a user can reach under `root` that a screen reader would announce without a
// name, by object name.
QStringList unnamedControls(QWidget* root) {
    QStringList unnamed;
    for (QWidget* widget : root->findChildren<QWidget*>()) {
        if (!widget->isVisibleTo(root)) continue;
        const bool control =
            qobject_cast<QAbstractButton*>(widget) || qobject_cast<QLineEdit*>(widget) ||
            qobject_cast<QComboBox*>(widget) || qobject_cast<QAbstractSlider*>(widget) ||
            qobject_cast<QPlainTextEdit*>(widget) || qobject_cast<QListWidget*>(widget) ||
            qobject_cast<QScrollArea*>(widget);
        if (control && widget->focusPolicy() != Qt::NoFocus && spoken(widget).isEmpty())
            unnamed << widget->objectName() + QStringLiteral(" (") +
                           QString::fromLatin1(widget->metaObject()->className()) + u')';
    }
    return unnamed;
}

TEST_F(AccessibilityTest, EveryControlAndViewHasANameAndADescription) {
    makeView();
    ask("How do I set up speech?");
    coach->setError(std::string(AICoach::kNoAPIKeyCode));
    settle();
    EXPECT_EQ(unnamedControls(view.get()), QStringList());
    EXPECT_EQ(spoken(view.get()), QStringLiteral("Tessel Coach"));
    EXPECT_EQ(spoken(view.get(), QAccessible::Description),
              QStringLiteral("Ask anything about Tessel."));
    for (const char* name : {"conversationList", "messageScrollArea", "messageInput"}) {
        EXPECT_FALSE(spoken(child(name)).isEmpty()) << name;
        EXPECT_FALSE(spoken(child(name), QAccessible::Description).isEmpty()) << name;
    }
    EXPECT_EQ(spoken(child("sendButton")), QStringLiteral("Send"));
    EXPECT_EQ(spoken(child("newConversationButton")), QStringLiteral("New Conversation"));
    EXPECT_EQ(spoken(child("missingKeyBanner")), QStringLiteral("Sagely needs an API key"));
    EXPECT_EQ(spoken(child("missingKeyBanner"), QAccessible::Description),
              QStringLiteral("Add a key in Coach Settings."));
    for (auto provider : {CoachConfig::Provider::openai, CoachConfig::Provider::custom,
                          CoachConfig::Provider::apple}) {
        world.settings->selectProvider(provider);
        ui::CoachSettingsView settings(world.settings.get());
        settings.setAppleStatusSource([] { return AppleIntelligenceInfo::Status::needsSetup; });
        settings.show();
        settle();
        EXPECT_EQ(unnamedControls(&settings), QStringList()) << int(provider);
        EXPECT_EQ(spoken(&settings), QStringLiteral("Coach Settings"));
        EXPECT_FALSE(spoken(&settings, QAccessible::Description).isEmpty());
    }
}

TEST_F(AccessibilityTest, BannersAnnounceThemselvesWhenTheyAppear) {
    Announcements announcements;
    makeView();
    ASSERT_TRUE(waitUntil([&] { return view->isReadyBannerShown(); }));
    coach->setError(std::string(AICoach::kNoAPIKeyCode));
    settle();
    coach->setError(std::string("The network connection was lost."));
    settle();
    EXPECT_TRUE(announcements.alerts.contains(QStringLiteral("knowledgeBanner")))
        << announcements.alerts.join(u' ').toStdString();
    EXPECT_TRUE(announcements.alerts.contains(QStringLiteral("missingKeyBanner")));
    EXPECT_TRUE(announcements.alerts.contains(QStringLiteral("errorBanner")));
    EXPECT_EQ(spoken(child("errorBanner"), QAccessible::Description),
              QStringLiteral("The network connection was lost."));
}

TEST_F(AccessibilityTest, TabGoesFromTheSidebarToTheMessagesTheirSuggestionsTheInputAndSettings) {
    makeView();
    ask("How do I set up speech?");
    child("conversationList")->setFocus();
    settle();
    QStringList order;
    for (int press = 0; press < 40; ++press) {
        QWidget* focused = QApplication::focusWidget();
        ASSERT_NE(focused, nullptr);
        if (order.isEmpty() || order.back() != focused->objectName())
            order << focused->objectName();
        if (focused->objectName() == QStringLiteral("openSettingsButton")) break;
        QTest::keyClick(focused, Qt::Key_Tab);
    }
    const auto at = [&](const char* name) { return order.indexOf(QString::fromLatin1(name)); };
    ASSERT_GE(at("openSettingsButton"), 0) << order.join(u' ').toStdString();
    EXPECT_EQ(at("conversationList"), 0) << order.join(u' ').toStdString();
    EXPECT_EQ(at("messageScrollArea"), 1) << order.join(u' ').toStdString();
    EXPECT_GT(at("suggestionButton"), at("messageScrollArea"));
    EXPECT_GT(at("messageInput"), at("suggestionButton"));
    EXPECT_GT(at("openSettingsButton"), at("messageInput"));
}

TEST_F(AccessibilityTest, ReturnSendsEscapeDismissesArrowsMoveAndDeleteAsksFirst) {
    makeView();
    coach->newConversation();
    coach->newConversation();
    settle();
    auto* field = child<QPlainTextEdit>("messageInput");
    field->setFocus();
    QTest::keyClicks(field, QStringLiteral("Hello"));
    QTest::keyClick(field, Qt::Key_Return);
    ASSERT_TRUE(
        waitUntil([&] { return coach->currentConversation().get()->messages().size() == 2; }));
    coach->setError(std::string("The network connection was lost."));
    settle();
    ASSERT_NE(child("errorBanner"), nullptr);
    QTest::keyClick(field, Qt::Key_Escape);
    settle();
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_EQ(child("errorBanner"), nullptr);

    auto* list = child<QListWidget>("conversationList");
    list->setFocus();
    ASSERT_EQ(coach->currentConversation().get()->title(), "Hello");
    QTest::keyClick(list, Qt::Key_Down);
    settle();
    EXPECT_EQ(coach->currentConversation().get()->title(), "Conversation 1");
    QTest::keyClick(list, Qt::Key_Up);
    settle();
    EXPECT_EQ(coach->currentConversation().get()->title(), "Hello");

    // Delete asks; Escape keeps the conversation, the Delete button removes it.
    QTest::keyClick(list, Qt::Key_Delete);
    settle();
    auto* box = view->findChild<QMessageBox*>(QStringLiteral("deleteConversationConfirmation"));
    ASSERT_NE(box, nullptr);
    EXPECT_TRUE(box->isVisible());
    EXPECT_TRUE(box->text().contains(QStringLiteral("Hello")));
    QTest::keyClick(box, Qt::Key_Escape);
    settle();
    EXPECT_EQ(coach->conversations().get().size(), 2u);
    QTest::keyClick(list, Qt::Key_Delete);
    settle();
    box = view->findChild<QMessageBox*>(QStringLiteral("deleteConversationConfirmation"));
    ASSERT_NE(box, nullptr);
    QTest::mouseClick(box->findChild<QPushButton*>(QStringLiteral("confirmDeleteButton")),
                      Qt::LeftButton);
    settle();
    ASSERT_EQ(coach->conversations().get().size(), 1u);
    EXPECT_EQ(coach->conversations().get()[0].title(), "Conversation 1");
}

}  // namespace
}  // namespace sagely::testing
