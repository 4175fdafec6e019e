// The on-device client with tools: a response whose model calls tools waits while its calls go
// out as LLMToolCalls, and goes on (no second prompt) once the next request brings their
// results; the text handed on is only what follows the calls; Stop and failures.
#include <sagely/AppleFoundationModelClient.h>
#include <sagely/CoachLLMError.h>

#include "support/FakeOnDeviceModel.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace sagely {
namespace {

using namespace std::chrono_literals;
using testing::FakeOnDeviceModel;

CoachConfig appleConfig() {
    CoachConfig config;
    config.provider = CoachConfig::Provider::apple;
    config.maxTokens = 1024;
    return config;
}

const std::vector<LLMMessage> kChat = {{"system", "You are the coach."},
                                       {"user", "Which palette?"}};
const std::vector<LLMTool> kTools = {
    {"read_settings", "Reads the settings.", R"({"type":"object","properties":{}})"}};

// The chat as the next request carries it: the calls, then their results.
std::vector<LLMMessage> withResults(const std::vector<LLMToolCall>& calls,
                                    const std::string& output) {
    std::vector<LLMMessage> messages = kChat;
    LLMMessage asked{"assistant", ""};
    asked.toolCalls = calls;
    LLMMessage answered{"tool", ""};
    for (const LLMToolCall& call : calls)
        answered.toolResults.push_back({call.id, call.name, output, false});
    messages.push_back(asked);
    messages.push_back(answered);
    return messages;
}

class AppleFoundationModelToolsTest : public ::testing::Test {
protected:
    AppleFoundationModelClient::ToolStep ask(const std::vector<LLMMessage>& messages,
                                             const CancellationToken& cancellation = {}) {
        return m_client.streamWithTools(
            messages, kTools, appleConfig(), cancellation,
            [this](std::string_view piece) { m_pieces.emplace_back(piece); });
    }

    std::string shown() const {
        std::string text;
        for (const std::string& piece : m_pieces) text += piece;
        return text;
    }

    std::shared_ptr<FakeOnDeviceModel> m_model = std::make_shared<FakeOnDeviceModel>();
    AppleFoundationModelClient m_client{m_model};
    std::vector<std::string> m_pieces;
};

TEST_F(AppleFoundationModelToolsTest, CumulativeSnapshotsHandOnOnlyWhatFollowsTheCalls) {
    FakeOnDeviceModel::Answer answer =
        FakeOnDeviceModel::reply("Let me check. The palette is light.");
    answer.leadIn = {"Let me check."};
    answer.toolRounds = {{{"read_settings", "{}"}}};
    answer.snapshots = {"Let me check. The pal", "Let me check. The palette is light."};
    m_model->enqueue(answer);

    const auto first = ask(kChat);
    ASSERT_EQ(first.calls.size(), 1u);
    EXPECT_EQ(first.calls[0].name, "read_settings");
    EXPECT_EQ(first.calls[0].arguments, "{}");
    EXPECT_TRUE(first.calls[0].idMadeUp);
    EXPECT_EQ(first.text, "Let me check.");
    EXPECT_EQ(m_pieces, std::vector<std::string>{"Let me check."});

    m_pieces.clear();
    const auto second = ask(withResults(first.calls, "palette=light"));
    EXPECT_TRUE(second.calls.empty());
    EXPECT_EQ(second.text, " The palette is light.");
    EXPECT_EQ(shown(), " The palette is light.");  // snapshots may coalesce into fewer pieces
    EXPECT_EQ(m_model->toolCalls().at(0).output, "palette=light");
    EXPECT_EQ(m_model->respondCalls().size(), 1u);  // the same response went on
    EXPECT_EQ(m_model->sessionsMade(), 1u);
}

TEST_F(AppleFoundationModelToolsTest, SnapshotsThatStartAfreshAfterTheCallsAreTakenWhole) {
    FakeOnDeviceModel::Answer answer = FakeOnDeviceModel::reply("The palette is light.");
    answer.leadIn = {"Checking."};
    answer.toolRounds = {{{"read_settings", "{}"}}};
    answer.snapshots = {"The palette", "The palette is light."};
    m_model->enqueue(answer);
    const auto first = ask(kChat);
    m_pieces.clear();
    const auto second = ask(withResults(first.calls, "palette=light"));
    EXPECT_EQ(second.text, "The palette is light.");
    EXPECT_EQ(shown(), "The palette is light.");
}

TEST_F(AppleFoundationModelToolsTest, TheToolsAreOfferedWithTheirOnDeviceSchema) {
    m_model->enqueue(FakeOnDeviceModel::reply("Hi."));
    EXPECT_EQ(ask(kChat).text, "Hi.");
    const auto responses = m_model->respondCalls();
    ASSERT_EQ(responses.at(0).tools.size(), 1u);
    EXPECT_EQ(responses[0].tools[0].name, "read_settings");
    EXPECT_EQ(responses[0].tools[0].description, "Reads the settings.");
    EXPECT_EQ(nlohmann::json::parse(responses[0].tools[0].parameters),
              (nlohmann::json{{"kind", "object"},
                              {"name", "read_settings"},
                              {"properties", nlohmann::json::array()}}));
    EXPECT_EQ(responses[0].prompt, "System instructions:\nYou are the coach.\n\nWhich palette?");
}

TEST_F(AppleFoundationModelToolsTest, ResultsNoResponseWaitsForStartAFreshOneWithThemAsText) {
    m_model->enqueue(FakeOnDeviceModel::reply("Light."));
    const auto step = ask(withResults({{"call_1", "read_settings", "{}", true}}, "palette=light"));
    EXPECT_EQ(step.text, "Light.");
    EXPECT_EQ(m_model->respondCalls().at(0).prompt,
              "System instructions:\nYou are the coach.\n\nWhich palette?\n\nAssistant:\n\n"
              "[Called read_settings with {}]\n\nAction results:\nread_settings: palette=light");
}

TEST_F(AppleFoundationModelToolsTest, StoppingTheTokenWhileACallWaitsCancelsIt) {
    FakeOnDeviceModel::Answer answer = FakeOnDeviceModel::reply("Never.");
    answer.toolRounds = {{{"read_settings", "{}"}}};
    m_model->enqueue(answer);
    CancellationToken token;
    const auto first = ask(kChat, token);
    ASSERT_EQ(first.calls.size(), 1u);
    token.requestStop();
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!(m_model->toolCalls().at(0).answered) && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(5ms);
    ASSERT_TRUE(m_model->toolCalls().at(0).answered);
    EXPECT_FALSE(m_model->toolCalls()[0].output);
    // Its results, should they come anyway, find no response waiting: a fresh one starts.
    m_model->enqueue(FakeOnDeviceModel::reply("Fresh."));
    EXPECT_EQ(ask(withResults(first.calls, "palette=light")).text, "Fresh.");
    EXPECT_EQ(m_model->respondCalls().size(), 2u);
}

TEST_F(AppleFoundationModelToolsTest, AStoppedTokenEndsAWaitWithCancelledError) {
    FakeOnDeviceModel::Answer answer = FakeOnDeviceModel::reply("Never.");
    answer.stalls = true;
    m_model->enqueue(answer);
    CancellationToken token;
    auto asked = std::async(std::launch::async, [&] { return ask(kChat, token); });
    while (m_model->respondCalls().empty()) std::this_thread::sleep_for(5ms);
    token.requestStop();
    ASSERT_EQ(asked.wait_for(10s), std::future_status::ready);
    EXPECT_THROW(asked.get(), CancelledError);
}

TEST_F(AppleFoundationModelToolsTest, AGenerationErrorIsAServerErrorWithItsDescription) {
    m_model->enqueue(FakeOnDeviceModel::generationError("The model refused."));
    try {
        ask(kChat);
        FAIL() << "answered";
    } catch (const CoachLLMError& error) {
        EXPECT_EQ(error.errorDescription(), "The model refused.");
    }
}

TEST_F(AppleFoundationModelToolsTest, AnOverflowBeforeAnyTextIsRetriedShorterOnce) {
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    m_model->enqueue(FakeOnDeviceModel::reply("Short answer."));
    EXPECT_EQ(ask(kChat).text, "Short answer.");
    const auto responses = m_model->respondCalls();
    ASSERT_EQ(responses.size(), 2u);
    EXPECT_EQ(responses[1].tools.size(), 1u);
}

TEST_F(AppleFoundationModelToolsTest, AnOverflowAfterTheCallsEndsTheReplyWithoutStartingOver) {
    FakeOnDeviceModel::Answer answer = FakeOnDeviceModel::exceededContextWindow();
    answer.toolRounds = {{{"read_settings", "{}"}}};
    m_model->enqueue(answer);
    const auto first = ask(kChat);
    ASSERT_EQ(first.calls.size(), 1u);
    try {
        ask(withResults(first.calls, "palette=light"));
        FAIL() << "answered";
    } catch (const CoachLLMError& error) {
        EXPECT_EQ(error.errorDescription(),
                  "Exceeded the on-device model context window. Ask a shorter question, or switch "
                  "Coach to OpenAI, Anthropic, or Gemini.");
    }
    EXPECT_EQ(m_model->respondCalls().size(), 1u);  // the calls have run: no second prompt
}

}  // namespace
}  // namespace sagely
