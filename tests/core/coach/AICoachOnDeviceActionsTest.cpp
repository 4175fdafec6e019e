// Host actions with the on-device model, end to end through the real model client: the fake
// framework runs the tool loop inside one response, as the system's does, and the coach decides
// each call as it does for the HTTP formats (the same scenarios as AICoachHostActionsTest).
#include "support/CoachHarness.h"
#include "support/FakeOnDeviceModel.h"
#include "support/SampleHostActions.h"

#include <sagely/AICoach.h>
#include <sagely/CoachHostAction.h>
#include <sagely/LLMClient.h>
#include <sagely/OperatingSystem.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <string>
#include <vector>

namespace sagely {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::CoachHarness;
using testing::FakeOnDeviceModel;
using Provider = CoachConfig::Provider;
using Status = CoachActionCall::Status;

FakeOnDeviceModel::Answer callsThenReply(
    std::vector<std::vector<FakeOnDeviceModel::ToolCall>> rounds, std::string text) {
    FakeOnDeviceModel::Answer answer = FakeOnDeviceModel::reply(std::move(text));
    answer.toolRounds = std::move(rounds);
    return answer;
}

const FakeOnDeviceModel::ToolCall kRead{"read_settings", "{}"};

FakeOnDeviceModel::ToolCall create(const std::string& name) {
    return {"create_canvas", json{{"name", name}}.dump()};
}

class AICoachOnDeviceActionsTest : public ::testing::Test {
protected:
    void SetUp() override {
        harness.useProvider(Provider::apple);
        coach = makeCoach();
    }

    std::unique_ptr<AICoach> makeCoach() {
        return harness.makeCoach(
            {.contextProvider = context, .llm = std::make_shared<LLMClient>(model)});
    }

    std::shared_ptr<testing::ReplyRecorder> ask(const std::string& question) {
        return harness.ask(*coach, question);
    }

    const CoachMessage& message(std::size_t index) {
        return coach->currentConversation().get()->messages().at(index);
    }

    // Every call the conversation keeps, in order.
    std::vector<CoachActionCall> keptCalls() {
        std::vector<CoachActionCall> calls;
        for (const CoachMessage& kept : coach->currentConversation().get()->messages())
            calls.insert(calls.end(), kept.actionCalls().begin(), kept.actionCalls().end());
        return calls;
    }

    // Waits for the framework's side of a call to be answered (it runs on its own thread).
    bool answered(std::size_t call) {
        return harness.runPolling([&] {
            const auto calls = model->toolCalls();
            return calls.size() > call && calls[call].answered;
        });
    }

    ScopedOperatingSystemOverride macOS26{OperatingSystemVersion{true, 26, 0, 0}};
    CoachHarness harness;
    std::shared_ptr<FakeOnDeviceModel> model = std::make_shared<FakeOnDeviceModel>();
    std::shared_ptr<testing::SampleActionsProvider> context =
        std::make_shared<testing::SampleActionsProvider>();
    std::vector<std::string>& seen = context->seen;
    std::unique_ptr<AICoach> coach;
};

TEST_F(AICoachOnDeviceActionsTest, AReadOnlyCallRunsAndItsOutputGoesBackIntoTheSameResponse) {
    model->enqueue(callsThenReply({{kRead}}, "The palette is light."));
    auto recorder = ask("Which palette?");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    ASSERT_TRUE(recorder->reply);
    EXPECT_EQ(recorder->reply->content(), "The palette is light.");
    EXPECT_EQ(seen, std::vector<std::string>{"read_settings {}"});
    // One session, one prompt: the framework went on with the output.
    EXPECT_EQ(model->sessionsMade(), 1u);
    const auto responses = model->respondCalls();
    ASSERT_EQ(responses.size(), 1u);
    ASSERT_EQ(responses[0].tools.size(), 2u);
    EXPECT_EQ(responses[0].tools[0].name, "read_settings");
    EXPECT_EQ(responses[0].tools[1].name, "create_canvas");
    EXPECT_EQ(responses[0].tools[1].description, "Creates a canvas with the given name.");
    EXPECT_EQ(json::parse(responses[0].tools[1].parameters)["properties"][0]["optional"], false);
    ASSERT_EQ(model->toolCalls().size(), 1u);
    EXPECT_EQ(model->toolCalls()[0].output, "palette=light");

    ASSERT_EQ(coach->currentConversation().get()->messages().size(), 3u);
    const auto& calls = message(1).actionCalls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].status, Status::done);
    EXPECT_EQ(calls[0].result, "palette=light");
    EXPECT_EQ(calls[0].id.rfind("ondevice-", 0), 0u) << calls[0].id;
    EXPECT_FALSE(coach->pendingAction().get());
    EXPECT_TRUE(coach->actionsInProgress().get().empty());
    EXPECT_FALSE(coach->isThinking().get());
}

TEST_F(AICoachOnDeviceActionsTest, AStreamedReplyWithCallsIsTheTextTheModelEndedWith) {
    harness.settings->streamsReplies.set(true);
    auto answer = callsThenReply({{kRead}}, "The palette is light.");
    answer.snapshots = {"The pal", "The palette is light."};
    model->enqueue(answer);
    auto recorder = ask("Which palette?");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_EQ(recorder->reply->content(), "The palette is light.");
    EXPECT_TRUE(model->respondCalls().at(0).streamed);
    EXPECT_EQ(seen.size(), 1u);
}

TEST_F(AICoachOnDeviceActionsTest, CallsMadeAtOnceAllRunAndAllOutputsGoBack) {
    model->enqueue(callsThenReply({{kRead, kRead}}, "Read twice."));
    auto recorder = ask("Read it twice.");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_EQ(recorder->reply->content(), "Read twice.");
    EXPECT_EQ(seen.size(), 2u);
    const auto framework = model->toolCalls();
    ASSERT_EQ(framework.size(), 2u);
    EXPECT_EQ(framework[0].output, "palette=light");
    EXPECT_EQ(framework[1].output, "palette=light");
    const auto calls = keptCalls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_NE(calls[0].id, calls[1].id);
    EXPECT_EQ(model->respondCalls().size(), 1u);
}

TEST_F(AICoachOnDeviceActionsTest, InvalidArgumentsGoBackAsAnErrorAndNeverReachTheHandler) {
    model->enqueue(callsThenReply({{{"create_canvas", R"({"name":42})"}}}, "Sorry."));
    auto recorder = ask("Make a canvas.");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_TRUE(seen.empty());
    EXPECT_FALSE(coach->pendingAction().get());
    ASSERT_EQ(model->toolCalls().size(), 1u);
    const auto output = model->toolCalls()[0].output.value_or("");
    EXPECT_NE(output.find("name: expected a string"), std::string::npos) << output;
    EXPECT_EQ(message(1).actionCalls()[0].status, Status::invalid);
    EXPECT_EQ(recorder->reply->content(), "Sorry.");
}

TEST_F(AICoachOnDeviceActionsTest, ACallToAnActionNotOfferedIsToldSo) {
    model->enqueue(callsThenReply({{{"delete_everything", "{}"}}}, "I cannot."));
    auto recorder = ask("Delete everything.");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_EQ(model->toolCalls().at(0).output, "No action named \"delete_everything\" is offered.");
    EXPECT_EQ(message(1).actionCalls()[0].status, Status::invalid);
}

TEST_F(AICoachOnDeviceActionsTest, ACallNeedingApprovalWaitsAndADenialGoesBack) {
    model->enqueue(callsThenReply({{create("Launch")}}, "Okay, not created."));
    auto recorder = ask("Create a canvas called Launch.");
    ASSERT_TRUE(harness.runUntil([&] { return coach->pendingAction().get().has_value(); }, 30s));
    const auto pending = *coach->pendingAction().get();
    EXPECT_EQ(pending.title, "Create canvas");
    EXPECT_EQ(pending.argumentSummary, "name = Launch");
    EXPECT_FALSE(coach->isThinking().get());
    EXPECT_FALSE(model->toolCalls().at(0).answered);  // the framework's call waits meanwhile
    coach->denyPendingAction();
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_TRUE(seen.empty());
    EXPECT_NE(model->toolCalls()[0].output.value_or("").find("declined"), std::string::npos);
    EXPECT_EQ(message(1).actionCalls()[0].summaryLine(), "Declined: Create canvas");
    EXPECT_EQ(recorder->reply->content(), "Okay, not created.");
}

TEST_F(AICoachOnDeviceActionsTest, AnApprovalAlwaysForThisConversationRunsLaterCallsWithoutAsking) {
    model->enqueue(callsThenReply({{create("A")}, {create("B")}}, "Both made."));
    auto recorder = ask("Create A and B.");
    ASSERT_TRUE(harness.runUntil([&] { return coach->pendingAction().get().has_value(); }, 30s));
    coach->approvePendingAction(true);
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_EQ(seen, (std::vector<std::string>{"create_canvas {\"name\":\"A\"}",
                                              "create_canvas {\"name\":\"B\"}"}));
    EXPECT_EQ(recorder->reply->content(), "Both made.");
    const auto calls = keptCalls();
    ASSERT_EQ(calls.size(), 2u);
    ASSERT_TRUE(calls[0].card);
    EXPECT_EQ(calls[0].card->title, "Canvas A");
    EXPECT_EQ(model->toolCalls()[1].output, "created");
}

TEST_F(AICoachOnDeviceActionsTest, TheCoachStopsAfterSixRoundsAndTheSeventhCallIsCancelled) {
    model->enqueue(callsThenReply(std::vector<std::vector<FakeOnDeviceModel::ToolCall>>(7, {kRead}),
                                  "Never shown."));
    auto recorder = ask("Loop forever.");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 60s));
    ASSERT_TRUE(recorder->reply);
    EXPECT_EQ(recorder->reply->content(), AICoach::kActionRoundLimitMessage);
    EXPECT_EQ(seen.size(), 6u);
    ASSERT_TRUE(answered(6));
    EXPECT_FALSE(model->toolCalls()[6].output);  // the waiting response was let go
}

TEST_F(AICoachOnDeviceActionsTest, StopWhileACallWaitsCancelsItAndEndsTheResponse) {
    model->enqueue(callsThenReply({{create("Launch")}}, "Never shown."));
    auto recorder = ask("Create a canvas called Launch.");
    ASSERT_TRUE(harness.runUntil([&] { return coach->pendingAction().get().has_value(); }, 30s));
    coach->stop();
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_FALSE(recorder->reply);
    EXPECT_FALSE(coach->pendingAction().get());
    EXPECT_TRUE(seen.empty());
    ASSERT_TRUE(answered(0));
    EXPECT_FALSE(model->toolCalls()[0].output);
    EXPECT_EQ(message(1).actionCalls()[0].status, Status::cancelled);
    EXPECT_EQ(model->respondCalls().size(), 1u);
}

TEST_F(AICoachOnDeviceActionsTest, ANewQuestionWhileACallWaitsCancelsIt) {
    model->enqueue(callsThenReply({{create("Launch")}}, "Never shown."));
    model->enqueue(FakeOnDeviceModel::reply("Hello."));
    auto first = ask("Create a canvas called Launch.");
    ASSERT_TRUE(harness.runUntil([&] { return coach->pendingAction().get().has_value(); }, 30s));
    auto second = ask("Never mind.");
    ASSERT_TRUE(harness.runUntilAnswered(*second, 30s));
    EXPECT_EQ(second->reply->content(), "Hello.");
    ASSERT_TRUE(harness.runUntilAnswered(*first, 30s));
    EXPECT_FALSE(first->reply);
    ASSERT_TRUE(answered(0));
    EXPECT_FALSE(model->toolCalls()[0].output);
    EXPECT_TRUE(seen.empty());
}

TEST_F(AICoachOnDeviceActionsTest, TheCallsAreSavedAndAFollowUpCarriesThemInThePrompt) {
    model->enqueue(callsThenReply({{kRead}}, "Light."));
    model->enqueue(FakeOnDeviceModel::reply("Still light."));
    auto first = ask("Which palette?");
    ASSERT_TRUE(harness.runUntilAnswered(*first, 30s));
    coach->waitForPendingSaves();
    const auto saved = harness.savedConversations();
    ASSERT_EQ(saved.size(), 1u);
    ASSERT_EQ(saved[0].messages().size(), 3u);
    ASSERT_EQ(saved[0].messages()[1].actionCalls().size(), 1u);
    EXPECT_EQ(saved[0].messages()[1].actionCalls()[0].result, "palette=light");
    // A new coach reads the file; the next question's prompt holds the round as text.
    coach.reset();
    coach = makeCoach();
    coach->selectConversation(coach->conversations().get().front());
    auto second = ask("And now?");
    ASSERT_TRUE(harness.runUntilAnswered(*second, 30s));
    EXPECT_EQ(second->reply->content(), "Still light.");
    const std::string prompt = model->respondCalls().at(1).prompt;
    EXPECT_NE(prompt.find("Assistant:\n\n[Called read_settings with {}]\n\nAction results:\n"
                          "read_settings: palette=light\n\nAssistant:\nLight.\n\nAnd now?"),
              std::string::npos)
        << prompt;
    EXPECT_EQ(model->respondCalls().at(1).tools.size(), 2u);
}

TEST_F(AICoachOnDeviceActionsTest, AnActionWithoutAnOnDeviceFormIsLeftOutAndTheOthersOffered) {
    context->actions.push_back(CoachHostAction(
        "set_size", "Sets the size.",
        json{{"type", "object"},
             {"properties", {{"size", {{"type", "integer"}, {"enum", {1, 2, 3}}}}}}},
        [](const json&) { return CoachHostActionResult{}; }));
    model->enqueue(FakeOnDeviceModel::reply("Hi."));
    auto recorder = ask("Hello?");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    const auto responses = model->respondCalls();
    std::vector<std::string> offered;
    for (const auto& tool : responses.at(0).tools) offered.push_back(tool.name);
    EXPECT_EQ(offered, (std::vector<std::string>{"read_settings", "create_canvas"}));
}

TEST_F(AICoachOnDeviceActionsTest, WithoutActionsTheSessionOffersNoTools) {
    context->actions.clear();
    model->enqueue(FakeOnDeviceModel::reply("Hi."));
    auto recorder = ask("Hello?");
    ASSERT_TRUE(harness.runUntilAnswered(*recorder, 30s));
    EXPECT_EQ(recorder->reply->content(), "Hi.");
    EXPECT_TRUE(model->respondCalls().at(0).tools.empty());
}

}  // namespace
}  // namespace sagely
