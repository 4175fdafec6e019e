// The Qt side of the engine: the main executor on the event loop, and the QObject adapters
// that re-emit the engine's and the store's changes as property notifications.
#include "UiTestSupport.h"

#include <sagely/Log.h>
#include <sagely/ui/AICoachAdapter.h>
#include <sagely/ui/CoachSettingsAdapter.h>
#include <sagely/ui/QtMainExecutor.h>

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QThread>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <vector>

namespace sagely::testing {
namespace {

using ui::AICoachAdapter;
using ui::CoachSettingsAdapter;
using ui::QtMainExecutor;

TEST(QtMainExecutorTest, RunsPostedWorkInOrderOnTheGuiThread) {
    QtMainExecutor executor;
    std::vector<int> order;
    std::vector<bool> onGuiThread;
    std::thread worker([&] {
        for (int i = 0; i < 5; ++i)
            executor.post([&, i] {
                order.push_back(i);
                onGuiThread.push_back(QThread::currentThread() == qApp->thread());
            });
    });
    worker.join();
    EXPECT_TRUE(order.empty());  // nothing runs until the loop turns
    ASSERT_TRUE(waitUntil([&] { return order.size() == 5; }));
    EXPECT_EQ(order, (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ(onGuiThread, std::vector<bool>(5, true));
}

TEST(QtMainExecutorTest, WorkThatThrowsIsContainedAndLogged) {
    std::vector<std::string> lines;
    auto previous = setLogSink([&lines](std::string_view line) { lines.emplace_back(line); });
    QtMainExecutor executor;
    bool after = false;
    executor.post([] { throw std::runtime_error("boom"); });
    executor.post([&after] { after = true; });
    EXPECT_TRUE(waitUntil([&] { return after; }));
    setLogSink(previous);
    EXPECT_EQ(lines, std::vector<std::string>{"[Sagely] Posted work failed: boom"});
}

TEST(QtMainExecutorTest, WorkPostedToADestroyedExecutorIsDropped) {
    bool ran = false;
    {
        QtMainExecutor executor;
        executor.post([&ran] { ran = true; });
    }
    settle();
    EXPECT_FALSE(ran);
}

class AICoachAdapterTest : public ::testing::Test {
protected:
    void SetUp() override {
        world.useOpenAI();
        coach = world.makeCoach();
        adapter = std::make_unique<AICoachAdapter>(*coach);
    }
    CoachWorld world;
    std::unique_ptr<AICoach> coach;
    std::unique_ptr<AICoachAdapter> adapter;
};

TEST_F(AICoachAdapterTest, ConversationChangesAreNotified) {
    QSignalSpy conversations(adapter.get(), &AICoachAdapter::conversationsChanged);
    QSignalSpy current(adapter.get(), &AICoachAdapter::currentConversationChanged);
    adapter->newConversation();
    EXPECT_GE(conversations.count(), 1);
    EXPECT_GE(current.count(), 1);
    EXPECT_EQ(adapter->conversationCount(), 1);
    EXPECT_EQ(adapter->property("conversationCount").toInt(), 1);
    EXPECT_EQ(adapter->currentConversationTitle(), QStringLiteral("Conversation 1"));
    EXPECT_EQ(adapter->currentConversationId(),
              QString::fromStdString(coach->currentConversation().get()->id().toString()));
    EXPECT_EQ(adapter->currentMessageCount(), 0);
}

TEST_F(AICoachAdapterTest, SelectAndDeleteByIdAndIgnoreUnknownIds) {
    adapter->newConversation();
    adapter->newConversation();
    const QString older = QString::fromStdString(coach->conversations().get()[1].id().toString());
    adapter->selectConversation(older);
    EXPECT_EQ(adapter->currentConversationId(), older);
    adapter->selectConversation(QStringLiteral("not-an-id"));
    adapter->deleteConversation(QStringLiteral("00000000-0000-4000-8000-000000000000"));
    EXPECT_EQ(adapter->currentConversationId(), older);
    EXPECT_EQ(adapter->conversationCount(), 2);
    adapter->deleteConversation(older);
    EXPECT_EQ(adapter->conversationCount(), 1);
    EXPECT_EQ(adapter->conversation(older), nullptr);
}

TEST_F(AICoachAdapterTest, ErrorIsAPropertyWithAReset) {
    QSignalSpy changed(adapter.get(), &AICoachAdapter::errorChanged);
    EXPECT_FALSE(adapter->hasError());
    EXPECT_TRUE(adapter->setProperty("error", QStringLiteral("Something failed.")));
    EXPECT_EQ(coach->error().get(), std::optional<std::string>("Something failed."));
    EXPECT_TRUE(adapter->property("hasError").toBool());
    adapter->clearError();
    EXPECT_FALSE(coach->error().get().has_value());
    EXPECT_EQ(adapter->error(), QString());
    EXPECT_EQ(changed.count(), 2);
}

TEST_F(AICoachAdapterTest, ThinkingAndManualLoadingAreNotified) {
    QSignalSpy thinking(adapter.get(), &AICoachAdapter::thinkingChanged);
    QSignalSpy loading(adapter.get(), &AICoachAdapter::loadingManualChanged);
    QSignalSpy ready(adapter.get(), &AICoachAdapter::manualReadyChanged);
    adapter->preloadManual();
    EXPECT_TRUE(adapter->isLoadingManual());
    ASSERT_TRUE(waitUntil([&] { return adapter->manualReady(); }));
    ASSERT_EQ(loading.count(), 2);
    EXPECT_EQ(loading[0][0].toBool(), true);
    EXPECT_EQ(loading[1][0].toBool(), false);
    EXPECT_EQ(ready.last()[0].toBool(), true);
    world.server.enqueue(ScriptedResponse::json(200, chatCompletionBody("Hello there.")));
    adapter->send(QStringLiteral("Hello?"));
    ASSERT_TRUE(waitUntil([&] { return adapter->currentMessageCount() == 2; }));
    ASSERT_GE(thinking.count(), 2);
    EXPECT_EQ(thinking.first()[0].toBool(), true);
    EXPECT_EQ(thinking.last()[0].toBool(), false);
    EXPECT_FALSE(adapter->property("thinking").toBool());
}

class CoachSettingsAdapterTest : public ::testing::Test {
protected:
    CoachWorld world;
    CoachSettingsAdapter adapter{*world.settings};
};

TEST_F(CoachSettingsAdapterTest, PropertiesReadAndWriteTheStore) {
    QSignalSpy model(&adapter, &CoachSettingsAdapter::modelChanged);
    QSignalSpy any(&adapter, &CoachSettingsAdapter::settingsChanged);
    EXPECT_TRUE(adapter.setProperty("model", QStringLiteral("gpt-4o")));
    EXPECT_EQ(world.settings->model.get(), "gpt-4o");
    EXPECT_EQ(adapter.property("model").toString(), QStringLiteral("gpt-4o"));
    EXPECT_EQ(model.count(), 1);
    adapter.setTemperature(0.7);
    adapter.setMaxTokens(1024);
    adapter.setCustomEndpoint(QStringLiteral("https://proxy.example/v1/chat/completions"));
    adapter.setApiKey(QStringLiteral("sk-adapter"));
    EXPECT_DOUBLE_EQ(world.settings->temperature.get(), 0.7);
    EXPECT_EQ(world.settings->maxTokens.get(), 1024);
    EXPECT_EQ(world.settings->customEndpoint.get(), "https://proxy.example/v1/chat/completions");
    EXPECT_EQ(world.settings->apiKey.get(), "sk-adapter");
    EXPECT_EQ(any.count(), 5);
}

TEST_F(CoachSettingsAdapterTest, ProviderIsSwitchedByStorageId) {
    QSignalSpy provider(&adapter, &CoachSettingsAdapter::providerChanged);
    adapter.selectProvider(QStringLiteral("anthropic"));
    EXPECT_EQ(world.settings->provider.get(), CoachConfig::Provider::anthropic);
    EXPECT_EQ(adapter.provider(), QStringLiteral("anthropic"));
    EXPECT_EQ(adapter.model(), QStringLiteral("claude-sonnet-4-20250514"));
    EXPECT_EQ(provider.count(), 1);
    adapter.selectProvider(QStringLiteral("Anthropic"));
    adapter.selectProvider(QStringLiteral("nobody"));
    EXPECT_EQ(world.settings->provider.get(), CoachConfig::Provider::anthropic);
    EXPECT_EQ(provider.count(), 1);
}

}  // namespace
}  // namespace sagely::testing
