// Host actions in the workspace: the model calls one (OpenAI format, from a loopback server), the
// approval card asks, and Allow, Deny, "Always allow" and Stop each lead where they should; the
// answered calls stay as lines in the conversation, also after it is loaded again.
#include "UiTestSupport.h"

#include <sagely/CoachHostAction.h>
#include <sagely/ui/CoachWorkspaceView.h>

#include <QApplication>
#include <QCheckBox>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>

namespace sagely::testing {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using ui::CoachWorkspaceView;

// A reply calling create_canvas with that name.
std::string canvasCallBody(const std::string& callId, const std::string& name) {
    const json call = {
        {"id", callId},
        {"type", "function"},
        {"function", {{"name", "create_canvas"}, {"arguments", json{{"name", name}}.dump()}}}};
    const json body = {
        {"id", "chatcmpl-tools"},
        {"object", "chat.completion"},
        {"choices",
         {{{"index", 0},
           {"message", {{"role", "assistant"}, {"content", nullptr}, {"tool_calls", {call}}}},
           {"finish_reason", "tool_calls"}}}}};
    return body.dump();
}

// The "tool" messages of an OpenAI-format request body.
std::vector<json> toolMessages(const std::string& requestBody) {
    std::vector<json> found;
    const json body = json::parse(requestBody);
    for (const json& message : body.at("messages"))
        if (message.value("role", "") == "tool") found.push_back(message);
    return found;
}

class WorkspaceActionsTest : public ::testing::Test {
protected:
    void SetUp() override {
        world.useOpenAI();
        coach = makeCoach();
        openView();
        coach->newConversation();
        settle();
    }
    void TearDown() override {
        view.reset();
        coach.reset();
    }
    std::unique_ptr<AICoach> makeCoach() {
        CoachHostAction createCanvas(
            "create_canvas", "Creates a canvas.",
            {{"type", "object"},
             {"properties", {{"name", {{"type", "string"}}}}},
             {"required", {"name"}}},
            [this](const json& arguments) {
                created.push_back(arguments.at("name").get<std::string>());
                CoachCard card;
                card.style = CoachCard::Style::success;
                card.title = "Canvas created";
                card.subtitle = created.back();
                return CoachHostActionResult{"Created the canvas " + created.back() + ".", card};
            });
        createCanvas.setTitle("Create canvas");
        return world.makeCoach({.actions = {createCanvas}});
    }
    void openView(int width = 900) {
        view = std::make_unique<CoachWorkspaceView>(*coach, tesselBranding(),
                                                    CoachWorkspaceView::Actions{});
        view->resize(width, 700);
        view->show();
        settle();
    }
    template <typename T = QWidget>
    T* child(const char* name) const {
        return visibleChild<T>(view.get(), QString::fromLatin1(name));
    }
    void ask(const QString& question) {
        auto* field = child<QPlainTextEdit>("messageInput");
        ASSERT_NE(field, nullptr);
        field->setFocus();
        QTest::keyClicks(field, question);
        QTest::keyClick(field, Qt::Key_Return);
    }
    std::size_t messageCount() const {
        return coach->currentConversation().get()->messages().size();
    }
    QStringList outcomeLines() const {
        QStringList lines;
        for (auto* label : visibleChildren<QLabel>(view.get(), "actionOutcomeText"))
            lines << label->text();
        return lines;
    }
    // Asks for the canvas "Launch" and waits for the approval card.
    void askForCanvas() {
        world.server.enqueue(ScriptedResponse::json(200, canvasCallBody("call_1", "Launch")));
        ask(QStringLiteral("Create a canvas called Launch"));
        ASSERT_TRUE(waitUntil([&] { return child("actionApprovalCard") != nullptr; }));
    }

    CoachWorld world;
    std::vector<std::string> created;
    std::unique_ptr<AICoach> coach;
    std::unique_ptr<CoachWorkspaceView> view;
};

}  // namespace

TEST_F(WorkspaceActionsTest, AllowRunsTheActionThenShowsItsDoneLineCardAndTheReply) {
    askForCanvas();
    auto* question = child<QLabel>("actionQuestion");
    ASSERT_NE(question, nullptr);
    EXPECT_EQ(question->text(), QStringLiteral("Run <i>Create canvas</i> with name = Launch?"));
    EXPECT_TRUE(created.empty());                          // nothing runs before the user answers
    ASSERT_NE(child<QPushButton>("stopButton"), nullptr);  // the question is still in flight
    world.server.enqueue(ScriptedResponse::json(200, chatCompletionBody("Launch is open.")));
    child<QPushButton>("actionAllowButton")->click();
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 3; }));
    settle();
    EXPECT_EQ(created, std::vector<std::string>{"Launch"});
    EXPECT_EQ(child("actionApprovalCard"), nullptr);
    EXPECT_EQ(outcomeLines(), QStringList{QStringLiteral("Done: Create canvas")});
    const QStringList texts = visibleTexts(view.get());
    EXPECT_TRUE(texts.contains(QStringLiteral("Canvas created")));
    EXPECT_TRUE(texts.join(u'\n').contains(QStringLiteral("Launch is open.")));
    // The result went back to the model with its call's id.
    const auto requests = world.server.requests();
    ASSERT_EQ(requests.size(), 2u);
    const auto results = toolMessages(requests[1].body);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].at("tool_call_id"), "call_1");
    EXPECT_EQ(results[0].at("content"), "Created the canvas Launch.");
}

// The round whose calls wait has nothing to show but its card: no avatar and time above it.
TEST_F(WorkspaceActionsTest, WhileTheCardWaitsOnlyTheQuestionsBubbleShowsAboveIt) {
    askForCanvas();
    settle();
    ASSERT_EQ(messageCount(), 2u);
    const auto bubbles = visibleChildren(view.get(), QStringLiteral("messageBubble"));
    ASSERT_EQ(bubbles.size(), 1u);
    EXPECT_EQ(visibleChildren(view.get(), QStringLiteral("messageTime")).size(), 1u);
    EXPECT_EQ(visibleChildren(view.get(), QStringLiteral("avatar")).size(), 1u);
    // The card sits right under the question.
    auto* card = child("actionApprovalCard");
    auto* bubble = bubbles.front();
    const int gap = card->mapTo(view.get(), QPoint(0, 0)).y() -
                    bubble->mapTo(view.get(), QPoint(0, bubble->height())).y();
    EXPECT_LE(gap, 16);
    world.server.enqueue(ScriptedResponse::json(200, chatCompletionBody("Launch is open.")));
    child<QPushButton>("actionAllowButton")->click();
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 3; }));
    settle();
    // Answered, the round shows its line, with its avatar and time.
    EXPECT_EQ(visibleChildren(view.get(), QStringLiteral("messageBubble")).size(), 3u);
    EXPECT_EQ(visibleChildren(view.get(), QStringLiteral("avatar")).size(), 3u);
}

TEST_F(WorkspaceActionsTest, DenyLeavesADeclinedLineAndTellsTheModel) {
    askForCanvas();
    world.server.enqueue(ScriptedResponse::json(200, chatCompletionBody("Fine, no canvas.")));
    child<QPushButton>("actionDenyButton")->click();
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 3; }));
    settle();
    EXPECT_TRUE(created.empty());
    EXPECT_EQ(outcomeLines(), QStringList{QStringLiteral("Declined: Create canvas")});
    EXPECT_TRUE(visibleTexts(view.get()).join(u'\n').contains(QStringLiteral("Fine, no canvas.")));
    const auto requests = world.server.requests();
    ASSERT_EQ(requests.size(), 2u);
    const auto results = toolMessages(requests[1].body);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].at("tool_call_id"), "call_1");
    EXPECT_NE(results[0].at("content").get<std::string>().find("declined"), std::string::npos);
}

TEST_F(WorkspaceActionsTest, AlwaysAllowLetsTheNextCallRunWithoutAsking) {
    int cardsShown = 0;
    const Subscription counting = coach->pendingAction().onDidChange([&](const auto& pending) {
        if (pending) ++cardsShown;
    });
    askForCanvas();
    child<QCheckBox>("actionAlwaysAllowCheck")->setChecked(true);
    world.server.enqueue(ScriptedResponse::json(200, chatCompletionBody("Launch is open.")));
    child<QPushButton>("actionAllowButton")->click();
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 3; }));
    world.server.enqueue(ScriptedResponse::json(200, canvasCallBody("call_2", "Retro")));
    world.server.enqueue(ScriptedResponse::json(200, chatCompletionBody("Retro is open too.")));
    ask(QStringLiteral("And one called Retro"));
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 6; }));
    settle();
    EXPECT_EQ(created, (std::vector<std::string>{"Launch", "Retro"}));
    EXPECT_EQ(cardsShown, 1);
    EXPECT_EQ(child("actionApprovalCard"), nullptr);
    EXPECT_EQ(outcomeLines(), (QStringList{QStringLiteral("Done: Create canvas"),
                                           QStringLiteral("Done: Create canvas")}));
}

TEST_F(WorkspaceActionsTest, StopWhileTheCardWaitsRunsNothing) {
    askForCanvas();
    auto* stop = child<QPushButton>("stopButton");
    ASSERT_NE(stop, nullptr);
    stop->click();
    settle();
    EXPECT_TRUE(created.empty());
    EXPECT_EQ(child("actionApprovalCard"), nullptr);
    EXPECT_EQ(child("stopButton"), nullptr);
    EXPECT_FALSE(coach->pendingAction().get().has_value());
    EXPECT_EQ(outcomeLines(), QStringList{QStringLiteral("Cancelled: Create canvas")});
    settle();
    EXPECT_EQ(world.server.requests().size(), 1u);  // nothing went back to the model
}

TEST_F(WorkspaceActionsTest, AReloadedConversationShowsItsCallsLines) {
    askForCanvas();
    world.server.enqueue(ScriptedResponse::json(200, chatCompletionBody("Fine, no canvas.")));
    child<QPushButton>("actionDenyButton")->click();
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 3; }));
    coach->waitForPendingSaves();
    view.reset();
    coach.reset();
    coach = makeCoach();
    openView();
    ASSERT_EQ(coach->conversations().get().size(), 1u);
    coach->selectConversation(coach->conversations().get()[0]);
    ASSERT_TRUE(waitUntil([&] { return !outcomeLines().isEmpty(); }));
    EXPECT_EQ(outcomeLines(), QStringList{QStringLiteral("Declined: Create canvas")});
}

TEST_F(WorkspaceActionsTest, TheCardIsReachedByKeyboardWrapsAt560AndReadsInTheDark) {
    view.reset();
    openView(560);
    coach->newConversation();
    settle();
    world.server.enqueue(ScriptedResponse::json(
        200, canvasCallBody("call_1", "Quarterly planning board for the whole product team")));
    ask(QStringLiteral("Create the planning canvas"));
    ASSERT_TRUE(waitUntil([&] { return child("actionApprovalCard") != nullptr; }));
    settle();
    auto* question = child<QLabel>("actionQuestion");
    ASSERT_NE(question, nullptr);
    EXPECT_GE(question->height(), question->heightForWidth(question->width()));
    EXPECT_GT(question->height(), question->fontMetrics().lineSpacing());  // it did wrap
    auto* card = child("actionApprovalCard");
    EXPECT_LE(card->mapTo(view.get(), QPoint(card->width(), 0)).x(), view->width());
    auto* allow = child<QPushButton>("actionAllowButton");
    auto* deny = child<QPushButton>("actionDenyButton");
    auto* always = child<QCheckBox>("actionAlwaysAllowCheck");
    EXPECT_EQ(allow->accessibleName(), QStringLiteral("Allow Create canvas"));
    EXPECT_EQ(deny->accessibleName(), QStringLiteral("Deny Create canvas"));
    EXPECT_EQ(always->accessibleName(), QStringLiteral("Always allow for this conversation"));
    // Tab from the message list reaches every control of the card.
    QWidget* list = child("messageScrollArea");
    ASSERT_NE(list, nullptr);
    list->setFocus();
    std::set<QWidget*> reached;
    for (int i = 0; i < 40 && reached.size() < 3; ++i) {
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QWidget* focused = QApplication::focusWidget();
        if (focused == allow || focused == deny || focused == always) reached.insert(focused);
    }
    EXPECT_EQ(reached.size(), 3u);
    view->setPalette(darkPalette());
    settle();
    EXPECT_GT(question->palette().color(QPalette::WindowText).lightness(), 150);
    EXPECT_FALSE(
        saveScreenshot(view.get(), QStringLiteral("workspace-action-card-dark")).isEmpty());
    // Space on the focused Deny button answers.
    world.server.enqueue(ScriptedResponse::json(200, chatCompletionBody("Fine.")));
    deny->setFocus();
    QTest::keyClick(deny, Qt::Key_Space);
    ASSERT_TRUE(waitUntil([&] { return messageCount() == 3; }));
    EXPECT_TRUE(created.empty());
    EXPECT_FALSE(saveScreenshot(view.get(), QStringLiteral("workspace-action-declined")).isEmpty());
}

}  // namespace sagely::testing
