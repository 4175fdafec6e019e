// The workspace driven like a user would, against a real coach whose provider is a loopback
// HTTP server: the sidebar and empty states, the suggestion panel, the send action and its
// enabling rule, the thinking guard, the knowledge banners and the error banners.
#include "UiTestSupport.h"

#include <sagely/CoachLesson.h>
#include <sagely/CoachPriceTable.h>
#include <sagely/ui/CoachWorkspaceView.h>

#include "MessageInputBar.h"
#include "support/RetryWaits.h"

#include <gtest/gtest.h>

#include <QAction>
#include <QApplication>
#include <QHelpEvent>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRegularExpression>
#include <QScrollArea>
#include <QScrollBar>
#include <QTest>
#include <QToolTip>

namespace sagely::testing {
namespace {

using namespace std::chrono_literals;
using ui::CoachBranding;
using ui::CoachWorkspaceView;

CoachBranding branding() {
    return CoachBranding("Tessel", "Tessel Coach", "Ask anything about Tessel.",
                         {"How do I set up speech?", "  What is Teach mode?  "},
                         "Ask Tessel Coach…", "Add a key in Coach Settings to start chatting.");
}

class WorkspaceViewTest : public ::testing::Test {
protected:
    void SetUp() override { world.useOpenAI(); }
    void TearDown() override {
        view.reset();
        coach.reset();
    }
    void makeView(CoachWorkspaceView::Actions actions = {}, CoachWorld::CoachOptions options = {}) {
        if (!coach) coach = world.makeCoach(std::move(options));
        view = std::make_unique<CoachWorkspaceView>(*coach, branding(), std::move(actions));
        view->resize(900, 640);
        view->show();
        settle();
    }
    template <typename T = QWidget>
    T* child(const char* name) const {
        return visibleChild<T>(view.get(), QString::fromLatin1(name));
    }
    QPlainTextEdit* field() const { return child<QPlainTextEdit>("messageInput"); }
    QPushButton* sendButton() const { return child<QPushButton>("sendButton"); }
    std::size_t messageCount() const {
        const auto& current = coach->currentConversation().get();
        return current ? current->messages().size() : 0;
    }
    void type(const QString& text) {
        ASSERT_NE(field(), nullptr);
        field()->setFocus();
        QTest::keyClicks(field(), text);
    }
    void replyWith(const std::string& content) {
        world.server.enqueue(ScriptedResponse::json(200, chatCompletionBody(content)));
    }

    CoachWorld world;
    std::unique_ptr<AICoach> coach;
    std::unique_ptr<CoachWorkspaceView> view;
};

CoachWorkspaceView::Actions allActions(int* settings = nullptr, int* guide = nullptr) {
    return {[settings] {
                if (settings) ++*settings;
            },
            [guide] {
                if (guide) ++*guide;
            },
            {},
            {}};
}

TEST_F(WorkspaceViewTest, WithNoConversationsBothPanesShowTheirEmptyStates) {
    makeView();
    auto* sidebarEmpty = child("sidebarEmptyState");
    ASSERT_NE(sidebarEmpty, nullptr);
    const QStringList sidebarTexts = visibleTexts(sidebarEmpty);
    EXPECT_EQ(sidebarTexts, (QStringList{QStringLiteral("No conversations yet"),
                                         QStringLiteral("Click + to start chatting")}));
    auto* empty = child("emptyState");
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(visibleTexts(empty), (QStringList{QStringLiteral("Tessel Coach"),
                                                QStringLiteral("Ask anything about Tessel."),
                                                QStringLiteral("Start a Conversation")}));
    EXPECT_EQ(child("conversationList"), nullptr);
    EXPECT_EQ(child("messageInput"), nullptr);
}

TEST_F(WorkspaceViewTest, PlusButtonCreatesAConversation) {
    makeView();
    auto* plus = child<QPushButton>("newConversationButton");
    ASSERT_NE(plus, nullptr);
    EXPECT_EQ(plus->toolTip(), QStringLiteral("New Conversation"));
    QTest::mouseClick(plus, Qt::LeftButton);
    settle();
    ASSERT_EQ(coach->conversations().get().size(), 1u);
    EXPECT_EQ(coach->conversations().get()[0].title(), "Conversation 1");
    EXPECT_EQ(child("emptyState"), nullptr);
    EXPECT_EQ(child("sidebarEmptyState"), nullptr);
    auto* list = child<QListWidget>("conversationList");
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->count(), 1);
    EXPECT_EQ(list->currentRow(), 0);
}

TEST_F(WorkspaceViewTest, StartAConversationButtonCreatesAConversation) {
    makeView();
    QTest::mouseClick(child<QPushButton>("startConversationButton"), Qt::LeftButton);
    settle();
    ASSERT_EQ(coach->conversations().get().size(), 1u);
    ASSERT_TRUE(coach->currentConversation().get().has_value());
    EXPECT_NE(child("messageInput"), nullptr);
}

TEST_F(WorkspaceViewTest, NewConversationShowsTheSuggestionPanelUntilItsFirstMessage) {
    makeView();
    coach->newConversation();
    settle();
    auto* panel = child("suggestionPanel");
    ASSERT_NE(panel, nullptr);
    EXPECT_TRUE(visibleTexts(panel).contains(QStringLiteral("Tessel Coach")));
    EXPECT_TRUE(visibleTexts(panel).contains(QStringLiteral("Ask anything about Tessel.")));
    EXPECT_TRUE(visibleChildren(view.get(), "messageBubble").empty());
    replyWith("Teach mode records your steps.");
    type(QStringLiteral("What is Teach mode?"));
    QTest::keyClick(field(), Qt::Key_Return);
    ASSERT_TRUE(waitUntil([&] { return messageCount() >= 1; }));
    settle();
    EXPECT_EQ(child("suggestionPanel"), nullptr);
}

TEST_F(WorkspaceViewTest, ChipSendsItsTextTrimmedAndClearsTheDraft) {
    makeView();
    coach->newConversation();
    settle();
    replyWith("Teach mode records your steps.");
    view->setMessageInput(QStringLiteral("half-typed"));
    auto chips = visibleChildren<QPushButton>(view.get(), "suggestionChip");
    ASSERT_EQ(chips.size(), 2u);
    EXPECT_EQ(chips[0]->text(), QStringLiteral("How do I set up speech?"));
    EXPECT_EQ(chips[0]->cursor().shape(), Qt::PointingHandCursor);
    QTest::mouseClick(chips[1], Qt::LeftButton);
    EXPECT_EQ(view->messageInput(), QString());
    ASSERT_TRUE(waitUntil([&] { return world.server.requestCount() >= 1; }));
    EXPECT_EQ(lastUserContent(world.server.requests()[0].body), "What is Teach mode?");
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 2; }));
    settle();
    EXPECT_EQ(child("suggestionPanel"), nullptr);
    EXPECT_EQ(coach->currentConversation().get()->messages()[0].content(), "What is Teach mode?");
}

TEST_F(WorkspaceViewTest, ADraftOfBlanksEnablesTheButtonButSendsNothing) {
    makeView();
    coach->newConversation();
    settle();
    EXPECT_FALSE(sendButton()->isEnabled());
    type(QStringLiteral("   "));
    EXPECT_TRUE(sendButton()->isEnabled());
    QTest::mouseClick(sendButton(), Qt::LeftButton);
    QTest::keyClick(field(), Qt::Key_Return);
    settle();
    EXPECT_EQ(view->messageInput(), QStringLiteral("   "));
    EXPECT_EQ(messageCount(), 0u);
    EXPECT_EQ(world.server.requestCount(), 0u);
}

TEST_F(WorkspaceViewTest, ReturnSendsAndClearsTheDraft) {
    makeView();
    replyWith("Open Speech in the sidebar.");
    coach->newConversation();
    settle();
    type(QStringLiteral("  How do I set up speech?\t"));
    QTest::keyClick(field(), Qt::Key_Return);
    EXPECT_EQ(view->messageInput(), QString());
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 2; }));
    EXPECT_EQ(coach->currentConversation().get()->messages()[0].content(),
              "How do I set up speech?");
    EXPECT_EQ(coach->currentConversation().get()->messages()[1].content(),
              "Open Speech in the sidebar.");
}

TEST_F(WorkspaceViewTest, ShiftReturnBreaksTheLineAndTheFieldGrowsToFiveLines) {
    makeView();
    coach->newConversation();
    settle();
    auto* input = static_cast<ui::detail::MessageInputField*>(field());
    EXPECT_EQ(input->visibleLines(), 1);
    type(QStringLiteral("one"));
    QTest::keyClick(field(), Qt::Key_Return, Qt::ShiftModifier);
    type(QStringLiteral("two"));
    EXPECT_EQ(view->messageInput(), QStringLiteral("one\ntwo"));
    EXPECT_EQ(input->visibleLines(), 2);
    for (int line = 3; line <= 8; ++line) {
        QTest::keyClick(field(), Qt::Key_Return, Qt::ShiftModifier);
        type(QString::number(line));
    }
    EXPECT_EQ(input->visibleLines(), 5);
    EXPECT_EQ(messageCount(), 0u);
}

TEST_F(WorkspaceViewTest, WhileThinkingTheButtonIsDisabledButReturnStillSends) {
    makeView();
    // The first request is never answered: the second send must replace it however slow the
    // machine is.
    world.server.enqueue(ScriptedResponse::noAnswer());
    replyWith("The second answer.");
    coach->newConversation();
    settle();
    type(QStringLiteral("First question"));
    QTest::keyClick(field(), Qt::Key_Return);
    ASSERT_TRUE(waitUntil([&] { return coach->isThinking().get(); }));
    ASSERT_NE(child("thinkingRow"), nullptr);
    EXPECT_TRUE(visibleTexts(child("thinkingRow")).contains(QStringLiteral("Thinking...")));
    // The server answers in the order requests arrive: the first must have taken the silent
    // answer before the second is sent.
    ASSERT_TRUE(world.server.waitForRequests(1, 5s));
    type(QStringLiteral("Second question"));
    EXPECT_FALSE(sendButton()->isEnabled());
    QTest::keyClick(field(), Qt::Key_Return, Qt::ControlModifier);
    settle();
    EXPECT_EQ(view->messageInput(), QStringLiteral("Second question"));
    QTest::keyClick(field(), Qt::Key_Return);
    EXPECT_EQ(view->messageInput(), QString());
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 3 && !coach->isThinking().get(); }));
    const auto& messages = coach->currentConversation().get()->messages();
    EXPECT_EQ(messages[1].content(), "Second question");
    EXPECT_EQ(messages[2].content(), "The second answer.");
    EXPECT_EQ(child("thinkingRow"), nullptr);
}

TEST_F(WorkspaceViewTest, AWaitBeforeARetryShowsInTheThinkingRow) {
    auto retryWaits = std::make_shared<RetryWaits>();
    retryWaits->hold();  // the wait lasts until the test has seen it
    makeView({}, {.llm = retryWaits->client()});
    auto busy = ScriptedResponse::json(429, "{}");
    busy.headers.emplace_back("retry-after-ms", "2500");
    world.server.enqueue(busy);
    replyWith("Worth the wait.");
    coach->newConversation();
    settle();
    type(QStringLiteral("Are you busy?"));
    QTest::keyClick(field(), Qt::Key_Return);
    auto thinkingText = [&] {
        auto* row = child("thinkingRow");
        auto* label = row ? row->findChild<QLabel*>(QStringLiteral("thinkingText")) : nullptr;
        return label ? label->text() : QString();
    };
    ASSERT_TRUE(
        waitUntil([&] { return thinkingText() == QStringLiteral("Retrying in 3 s\u2026"); }));
    retryWaits->release();
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 2; }));
    EXPECT_EQ(coach->currentConversation().get()->messages()[1].content(), "Worth the wait.");
    coach->send("Again");  // the next request starts from the plain text
    ASSERT_TRUE(waitUntil([&] { return coach->isThinking().get(); }));
    EXPECT_EQ(thinkingText(), QStringLiteral("Thinking..."));
}

TEST_F(WorkspaceViewTest, ControlReturnPressesTheSendButton) {
    makeView();
    replyWith("Yes.");
    coach->newConversation();
    settle();
    type(QStringLiteral("Can I?"));
    QTest::keyClick(field(), Qt::Key_Return, Qt::ControlModifier);
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 2; }));
    EXPECT_EQ(view->messageInput(), QString());
}

TEST_F(WorkspaceViewTest, HostSendActionReplacesTheCoach) {
    std::vector<std::string> sent;
    makeView({{}, {}, [&sent](const std::string& text) { sent.push_back(text); }, {}});
    coach->newConversation();
    settle();
    type(QStringLiteral("  Hello host  "));
    QTest::mouseClick(sendButton(), Qt::LeftButton);
    ASSERT_TRUE(waitUntil([&] { return !sent.empty(); }));
    EXPECT_EQ(sent, std::vector<std::string>{"Hello host"});
    EXPECT_EQ(messageCount(), 0u);
    EXPECT_EQ(world.server.requestCount(), 0u);
}

TEST_F(WorkspaceViewTest, FooterButtonsExistOnlyForTheHostsActions) {
    int settings = 0;
    int guide = 0;
    makeView(allActions(&settings, &guide));
    coach->newConversation();
    settle();
    auto* book = child<QPushButton>("openGuideButton");
    auto* gear = child<QPushButton>("openSettingsButton");
    ASSERT_NE(book, nullptr);
    ASSERT_NE(gear, nullptr);
    EXPECT_EQ(book->toolTip(), QStringLiteral("Open Guide"));
    EXPECT_EQ(gear->toolTip(), QStringLiteral("Coach Settings"));
    QTest::mouseClick(book, Qt::LeftButton);
    QTest::mouseClick(gear, Qt::LeftButton);
    EXPECT_EQ(guide, 1);
    EXPECT_EQ(settings, 1);
}

TEST_F(WorkspaceViewTest, WithoutHostActionsThereIsNoFooter) {
    makeView();
    coach->newConversation();
    settle();
    EXPECT_EQ(child("openGuideButton"), nullptr);
    EXPECT_EQ(child("openSettingsButton"), nullptr);
}

TEST_F(WorkspaceViewTest, MissingKeyBannerNeverShowsTheCodeAndOffersTheHostsActions) {
    world.settings->apiKey.set("");
    int settings = 0;
    int guide = 0;
    makeView(allActions(&settings, &guide));
    view->setMessageInput(QStringLiteral("Help me"));
    view->send();
    ASSERT_TRUE(waitUntil([&] { return child("missingKeyBanner") != nullptr; }));
    EXPECT_EQ(coach->error().get(), std::optional<std::string>("NO_API_KEY"));
    const QStringList texts = visibleTexts(view.get());
    EXPECT_FALSE(texts.contains(QStringLiteral("NO_API_KEY")));
    for (const QString& text : texts) EXPECT_FALSE(text.contains(QStringLiteral("NO_API_KEY")));
    const QStringList banner = visibleTexts(child("missingKeyBanner"));
    EXPECT_EQ(banner, (QStringList{QStringLiteral("Sagely needs an API key"),
                                   QStringLiteral("Add a key in Coach Settings to start chatting."),
                                   QStringLiteral("Open Settings"), QStringLiteral("Open Guide"),
                                   QStringLiteral("Dismiss")}));
    QTest::mouseClick(child<QPushButton>("bannerOpenSettingsButton"), Qt::LeftButton);
    QTest::mouseClick(child<QPushButton>("bannerOpenGuideButton"), Qt::LeftButton);
    EXPECT_EQ(settings, 1);
    EXPECT_EQ(guide, 1);
    QTest::mouseClick(child<QPushButton>("dismissErrorButton"), Qt::LeftButton);
    settle();
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_EQ(child("missingKeyBanner"), nullptr);
}

TEST_F(WorkspaceViewTest, WithoutASettingsActionTheBannerAndFooterHaveNoSettingsButton) {
    world.settings->apiKey.set("");
    int guide = 0;
    makeView({{}, [&guide] { ++guide; }, {}, {}});
    view->setMessageInput(QStringLiteral("Help me"));
    view->send();
    ASSERT_TRUE(waitUntil([&] { return child("missingKeyBanner") != nullptr; }));
    EXPECT_EQ(child("bannerOpenSettingsButton"), nullptr);
    EXPECT_EQ(child("openSettingsButton"), nullptr);
    EXPECT_EQ(buttonWithText(view.get(), QStringLiteral("Open Settings")), nullptr);
    EXPECT_NE(child("bannerOpenGuideButton"), nullptr);
    EXPECT_NE(child("openGuideButton"), nullptr);
    EXPECT_NE(child("dismissErrorButton"), nullptr);
}

TEST_F(WorkspaceViewTest, AnyOtherErrorIsShownAsItsTextWithDismiss) {
    world.settings->selectProvider(CoachConfig::Provider::custom);
    world.settings->apiKey.set("sk-custom");
    world.settings->customEndpoint.set("   ");
    makeView();
    view->setMessageInput(QStringLiteral("Hello"));
    view->send();
    ASSERT_TRUE(waitUntil([&] { return child("errorBanner") != nullptr; }));
    EXPECT_EQ(child<QLabel>("errorText")->text(),
              QStringLiteral("Custom API requires an endpoint URL (OpenAI-compatible "
                             "/v1/chat/completions)."));
    EXPECT_EQ(child("missingKeyBanner"), nullptr);
    QTest::mouseClick(child<QPushButton>("dismissErrorButton"), Qt::LeftButton);
    settle();
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_EQ(child("errorBanner"), nullptr);
}

TEST_F(WorkspaceViewTest, ProviderFailureTextReachesTheBanner) {
    world.server.enqueue(ScriptedResponse::json(
        401,
        R"({"error":{"message":"Incorrect API key provided.","type":"invalid_request_error"}})"));
    makeView();
    view->setMessageInput(QStringLiteral("Hello"));
    view->send();
    ASSERT_TRUE(waitUntil([&] { return child("errorBanner") != nullptr; }));
    EXPECT_EQ(child<QLabel>("errorText")->text(),
              QString::fromStdString(coach->error().get().value_or("")));
    EXPECT_FALSE(child<QLabel>("errorText")->text().isEmpty());
}

TEST_F(WorkspaceViewTest, LoadingBannerThenReadyBannerForThreeSeconds) {
    coach = world.makeCoach();
    view = std::make_unique<CoachWorkspaceView>(*coach, branding());
    view->show();
    auto* banner = child("knowledgeBanner");
    ASSERT_NE(banner, nullptr);
    EXPECT_TRUE(visibleTexts(banner).contains(QStringLiteral("Loading product knowledge...")));
    ASSERT_TRUE(waitUntil([&] { return view->isReadyBannerShown(); }));
    banner = child("knowledgeBanner");
    ASSERT_NE(banner, nullptr);
    EXPECT_EQ(visibleTexts(banner), QStringList{QStringLiteral("Knowledge is ready.")});
    QTest::qWait(2500);
    EXPECT_NE(child("knowledgeBanner"), nullptr);
    EXPECT_TRUE(waitUntil([&] { return child("knowledgeBanner") == nullptr; }, 2000ms));
    EXPECT_FALSE(view->isReadyBannerShown());
}

TEST_F(WorkspaceViewTest, LoadingThatEndsWithoutAManualShowsNoReadyBanner) {
    makeView({}, {.guideText = ""});
    ASSERT_TRUE(waitUntil([&] { return !coach->isLoadingManual().get(); }));
    settle();
    EXPECT_FALSE(coach->manualReady().get());
    EXPECT_FALSE(view->isReadyBannerShown());
    EXPECT_EQ(child("knowledgeBanner"), nullptr);
}

TEST_F(WorkspaceViewTest, AManualReadyBeforeTheViewAppearedShowsNoBanner) {
    coach = world.makeCoach();
    coach->preloadManual();
    ASSERT_TRUE(waitUntil([&] { return coach->manualReady().get(); }));
    makeView();
    EXPECT_FALSE(view->isReadyBannerShown());
    EXPECT_EQ(child("knowledgeBanner"), nullptr);
}

TEST_F(WorkspaceViewTest, AConversationRowsTooltipAddsUpWhatItsRepliesCost) {
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
    CoachPriceTable prices;
    prices.setPrice(CoachConfig::Provider::openai, "gpt-4o-mini", {0.15, 0.6});
    CoachPriceTable::setCurrent(prices);
    world.settings->model.set("gpt-4o-mini");
    makeView();
    coach->newConversation();
    settle();
    for (int i = 1; i <= 2; ++i)
        world.server.enqueue(ScriptedResponse::json(
            200, R"({"choices":[{"message":{"content":"Fine."}}],"usage":{"prompt_tokens":)" +
                     std::to_string(1000 * i) + R"(,"completion_tokens":)" +
                     std::to_string(100 * i) + "}}"));
    for (int i = 1; i <= 2; ++i) {
        type(QStringLiteral("Question"));
        QTest::keyClick(field(), Qt::Key_Return);
        ASSERT_TRUE(waitUntil([&] { return messageCount() == std::size_t(2 * i); }));
    }
    settle();
    auto* list = child<QListWidget>("conversationList");
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->count(), 1);
    auto* date =
        list->itemWidget(list->item(0))->findChild<QLabel*>(QStringLiteral("conversationDate"));
    ASSERT_NE(date, nullptr);
    auto hover = [&] {
        QHelpEvent help(QEvent::ToolTip, QPoint(2, 2), date->mapToGlobal(QPoint(2, 2)));
        QApplication::sendEvent(date, &help);
        return QToolTip::text();
    };
    // 3,000 × $0.15 + 300 × $0.60 per million.
    const QString title = QString::fromStdString(coach->currentConversation().get()->title());
    EXPECT_EQ(hover(), title + QStringLiteral("\n3,000 tokens in, 300 out (2 replies)\n"
                                              "\u2248 $0.0006 in all"));

    // A reply whose model has no price leaves the total in tokens.
    CoachPriceTable::setCurrent(CoachPriceTable());
    EXPECT_EQ(hover(), title + QStringLiteral("\n3,000 tokens in, 300 out (2 replies)"));
    QToolTip::hideText();
    CoachPriceTable::setCurrent(CoachPriceTable::bundled());
    QLocale::setDefault(QLocale::system());
}

TEST_F(WorkspaceViewTest, SelectionFollowsTheCoachAndRowsSelectAndDelete) {
    makeView();
    coach->newConversation();
    coach->newConversation();
    settle();
    auto* list = child<QListWidget>("conversationList");
    ASSERT_NE(list, nullptr);
    ASSERT_EQ(list->count(), 2);
    EXPECT_EQ(list->currentRow(), 0);
    auto title = [&](int row) {
        return list->itemWidget(list->item(row))
            ->findChild<QLabel*>(QStringLiteral("conversationTitle"))
            ->text();
    };
    EXPECT_EQ(title(0), QStringLiteral("Conversation 2"));
    EXPECT_EQ(title(1), QStringLiteral("Conversation 1"));
    auto* date =
        list->itemWidget(list->item(0))->findChild<QLabel*>(QStringLiteral("conversationDate"));
    EXPECT_TRUE(QRegularExpression(QStringLiteral(R"(^(in )?\d+ sec\.( ago)?$)"))
                    .match(date->text())
                    .hasMatch())
        << date->text().toStdString();
    const QRect second = list->visualItemRect(list->item(1));
    QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, second.center());
    settle();
    EXPECT_EQ(coach->currentConversation().get()->title(), "Conversation 1");
    coach->selectConversation(coach->conversations().get()[0]);
    settle();
    EXPECT_EQ(list->currentRow(), 0);
    auto* remove = list->itemWidget(list->item(0))
                       ->findChild<QAction*>(QStringLiteral("deleteConversationAction"));
    ASSERT_NE(remove, nullptr);
    EXPECT_EQ(remove->text(), QStringLiteral("Delete"));
    remove->trigger();
    settle();
    ASSERT_EQ(coach->conversations().get().size(), 1u);
    EXPECT_EQ(coach->conversations().get()[0].title(), "Conversation 1");
    EXPECT_EQ(list->count(), 1);
    EXPECT_EQ(list->currentRow(), 0);
}

TEST_F(WorkspaceViewTest, ProcedureRepliesAreNumberedByPosition) {
    makeView();
    replyWith("Do this first.Step 4: Open Settings.Step 7:Click Save\nStep 9: Close the window.");
    view->setMessageInput(QStringLiteral("How do I save?"));
    view->send();
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 2; }));
    settle();
    QStringList badges;
    for (auto* badge : visibleChildren(view.get(), "stepBadge")) badges << badge->accessibleName();
    EXPECT_EQ(badges, (QStringList{QStringLiteral("1"), QStringLiteral("2"), QStringLiteral("3")}));
}

TEST_F(WorkspaceViewTest, NewMessagesScrollTheLastOneIntoView) {
    int answered = 0;
    makeView({}, {.resolver = [&answered](const std::string&) {
                 ++answered;
                 return std::optional<CoachLocalActionResult>(
                     {"A local answer that takes a line or two of room in the list.", {}, {}});
             }});
    for (int i = 0; i < 15; ++i) {
        view->setMessageInput(QStringLiteral("Question %1").arg(i));
        view->send();
        settle();
    }
    ASSERT_EQ(answered, 15);
    QScrollBar* bar = child<QScrollArea>("messageScrollArea")->verticalScrollBar();
    ASSERT_GT(bar->maximum(), 0);
    EXPECT_TRUE(waitUntil([&] { return bar->value() == bar->maximum(); }, 3s))
        << bar->value() << " of " << bar->maximum();
}

// Answers of very different heights: a line, or a long text with a card and a lesson.
CoachLocalActionResolver unevenAnswers() {
    return [](const std::string& question) {
        if (question.find("long") == std::string::npos)
            return std::optional<CoachLocalActionResult>({"Short answer.", {}, {}});
        CoachCard card{CoachCard::Style::info,
                       "Sharing",
                       "Who sees what",
                       {{"Access", {"Everyone in the team", "Guests by link"}}},
                       {"How do I revoke a link?", "How do I invite a guest?"}};
        // Twelve numbered steps on one line: far taller once built than its length suggests.
        std::string text = "Here is how.";
        for (int i = 1; i <= 12; ++i)
            text += "Step " + std::to_string(i) + ": Open the panel and check the setting. ";
        return std::optional<CoachLocalActionResult>(
            {text, card, CoachLessonLibrary::speechSetup()});
    };
}

TEST_F(WorkspaceViewTest, SwitchingConversationsRepliesAndAShrinkingViewKeepTheLastMessageInView) {
    makeView({}, {.resolver = unevenAnswers()});
    view->resize(900, 520);
    auto ask = [&](const char* question) {
        view->setMessageInput(QString::fromLatin1(question));
        view->send();
        settle();
    };
    coach->newConversation();
    ask("first long");
    ask("second");  // four messages
    coach->newConversation();
    ask("one");
    ask("two long");
    ask("three long");  // six messages
    QScrollBar* bar = child<QScrollArea>("messageScrollArea")->verticalScrollBar();
    auto atBottom = [&](const char* when) {
        EXPECT_TRUE(
            waitUntil([&] { return bar->maximum() > 0 && bar->value() == bar->maximum(); }, 3s))
            << when << ": " << bar->value() << " of " << bar->maximum();
        settle();
        EXPECT_EQ(bar->value(), bar->maximum()) << when << ", once settled";
        // The last message's time is on screen.
        auto* pane = child<QScrollArea>("messageScrollArea");
        auto times = visibleChildren<QLabel>(pane, QStringLiteral("messageTime"));
        ASSERT_FALSE(times.empty()) << when;
        QLabel* last = times.back();
        const QPoint bottom = last->mapTo(pane->viewport(), QPoint(0, last->height()));
        EXPECT_LE(bottom.y(), pane->viewport()->height()) << when;
        EXPECT_GE(bottom.y(), 0) << when;
    };
    auto* list = child<QListWidget>("conversationList");
    ASSERT_EQ(list->count(), 2);
    for (int round = 0; round < 2; ++round) {
        for (int row : {1, 0}) {
            QTest::mouseClick(list->viewport(), Qt::LeftButton, {},
                              list->visualItemRect(list->item(row)).center());
            atBottom(row == 1 ? "after switching to four messages" : "after switching to six");
        }
    }
    ask("four long");
    atBottom("after a reply");
    coach->setError(std::string("The network connection was lost."));
    settle();
    ASSERT_NE(child("errorBanner"), nullptr);
    atBottom("after a banner took room");
}

TEST_F(WorkspaceViewTest, RightClickingARowLeavesTheSelectionAndItsMenuActsOnThatRow) {
    makeView();
    coach->newConversation();
    coach->newConversation();
    settle();
    auto* list = child<QListWidget>("conversationList");
    ASSERT_EQ(list->count(), 2);
    ASSERT_EQ(coach->currentConversation().get()->title(), "Conversation 2");
    const QPoint second = list->visualItemRect(list->item(1)).center();
    QTest::mousePress(list->viewport(), Qt::RightButton, {}, second);
    QTest::mouseRelease(list->viewport(), Qt::RightButton, {}, second);
    settle();
    EXPECT_EQ(list->currentRow(), 0);
    EXPECT_EQ(coach->currentConversation().get()->title(), "Conversation 2");
    QWidget* row = list->itemWidget(list->item(1));
    QTest::mousePress(row, Qt::RightButton, {}, row->rect().center());
    QTest::mouseRelease(row, Qt::RightButton, {}, row->rect().center());
    settle();
    EXPECT_EQ(list->currentRow(), 0);
    EXPECT_EQ(coach->currentConversation().get()->title(), "Conversation 2");
    auto* remove = row->findChild<QAction*>(QStringLiteral("deleteConversationAction"));
    ASSERT_NE(remove, nullptr);
    remove->trigger();
    settle();
    ASSERT_EQ(coach->conversations().get().size(), 1u);
    EXPECT_EQ(coach->conversations().get()[0].title(), "Conversation 2");
    EXPECT_EQ(coach->currentConversation().get()->title(), "Conversation 2");
}

TEST_F(WorkspaceViewTest, ALocalOnlyCoachExplainsItselfInsteadOfShowingTheCode) {
    int guide = 0;
    makeView(allActions(nullptr, &guide), {.allowsLLMCompletion = false});
    view->setMessageInput(QStringLiteral("Something the host cannot answer"));
    view->send();
    ASSERT_TRUE(waitUntil([&] { return child("localOnlyBanner") != nullptr; }));
    EXPECT_EQ(coach->error().get(), std::optional<std::string>("LOCAL_ONLY"));
    for (const QString& text : visibleTexts(view.get()))
        EXPECT_FALSE(text.contains(QStringLiteral("LOCAL_ONLY"))) << text.toStdString();
    EXPECT_EQ(child("errorBanner"), nullptr);
    EXPECT_EQ(visibleTexts(child("localOnlyBanner")),
              (QStringList{QStringLiteral("Sagely answers only from this app’s help"),
                           QStringLiteral("No model is asked in this mode, and the help has no "
                                          "answer to this question. Try other words."),
                           QStringLiteral("Open Guide"), QStringLiteral("Dismiss")}));
    QTest::mouseClick(child<QPushButton>("bannerOpenGuideButton"), Qt::LeftButton);
    EXPECT_EQ(guide, 1);
    QTest::mouseClick(child<QPushButton>("dismissErrorButton"), Qt::LeftButton);
    settle();
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_EQ(child("localOnlyBanner"), nullptr);
}

}  // namespace
}  // namespace sagely::testing
