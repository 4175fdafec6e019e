// The workspace while a reply streams in from a loopback server: the growing text, the stop
// button and Escape, and the complete reply taking the streamed text's place.
#include "UiTestSupport.h"

#include <sagely/ui/CoachWorkspaceView.h>

#include <QPlainTextEdit>
#include <QPushButton>
#include <QTest>
#include <QTextEdit>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace sagely::testing {
namespace {

using namespace std::chrono_literals;
using ui::CoachWorkspaceView;

class WorkspaceStreamingTest : public ::testing::Test {
protected:
    void SetUp() override {
        world.useOpenAI();
        coach = world.makeCoach();
        view = std::make_unique<CoachWorkspaceView>(*coach, tesselBranding(),
                                                    CoachWorkspaceView::Actions{});
        view->resize(900, 640);
        view->show();
        settle();
        coach->newConversation();
        settle();
    }
    void TearDown() override {
        view.reset();
        coach.reset();
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
    QString streamedText() const {
        auto* text = child<QTextEdit>("partialReply");
        return text ? text->toPlainText() : QString();
    }
    std::vector<std::string> contents() const {
        std::vector<std::string> all;
        for (const auto& message : coach->currentConversation().get()->messages())
            all.push_back(message.content());
        return all;
    }

    CoachWorld world;
    std::unique_ptr<AICoach> coach;
    std::unique_ptr<CoachWorkspaceView> view;
};

}  // namespace

TEST_F(WorkspaceStreamingTest, TheReplyGrowsInItsBubbleThenBecomesAMessage) {
    world.server.enqueue(
        ScriptedResponse::eventStream({openAIStreamEvent("Open **Speech**\n"),
                                       openAIStreamEvent("then Teach."), "data: [DONE]\n\n"},
                                      1500ms));
    ask(QStringLiteral("How?"));
    // Drawn as the finished bubble draws it: without the bold marks.
    ASSERT_TRUE(waitUntil([&] { return streamedText() == QStringLiteral("Open Speech"); }));
    EXPECT_EQ(child("thinkingRow"), nullptr);  // thinking ended with the first text
    ASSERT_NE(child<QPushButton>("stopButton"), nullptr);
    ASSERT_TRUE(waitUntil([&] { return contents().size() == 2; }, 30s));
    settle();
    EXPECT_EQ(contents()[1], "Open **Speech**\nthen Teach.");
    EXPECT_EQ(child("partialReply"), nullptr);
    EXPECT_EQ(child("stopButton"), nullptr);
}

TEST_F(WorkspaceStreamingTest, TheStopButtonKeepsTheTextSoFar) {
    world.server.enqueue(ScriptedResponse::eventStream(
        {openAIStreamEvent("Half an answer"), "data: [DONE]\n\n"}, 60s));
    ask(QStringLiteral("Tell me all"));
    ASSERT_TRUE(waitUntil([&] { return streamedText() == QStringLiteral("Half an answer"); }));
    auto* stop = child<QPushButton>("stopButton");
    ASSERT_NE(stop, nullptr);
    stop->click();
    settle();
    EXPECT_EQ(contents(), (std::vector<std::string>{"Tell me all", "Half an answer"}));
    EXPECT_EQ(child("partialReply"), nullptr);
    EXPECT_EQ(child("stopButton"), nullptr);
}

TEST_F(WorkspaceStreamingTest, EscapeStopsTooAndWithoutTextAppendsNothing) {
    world.server.enqueue(ScriptedResponse::noAnswer());
    ask(QStringLiteral("Anyone?"));
    ASSERT_TRUE(waitUntil([&] { return coach->isThinking().get(); }));
    ASSERT_NE(child("stopButton"), nullptr);
    QTest::keyClick(view.get(), Qt::Key_Escape);
    settle();
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_EQ(contents(), (std::vector<std::string>{"Anyone?"}));
    EXPECT_EQ(child("stopButton"), nullptr);
}

}  // namespace sagely::testing
