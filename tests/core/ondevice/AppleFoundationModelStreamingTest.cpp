// The on-device model's streamed replies: cumulative snapshots turned into pieces, the
// context-window retry while nothing is shown, errors after some text, Stop, and the engine
// showing and keeping the text as it does for the HTTP providers.
#include <sagely/AICoach.h>
#include <sagely/AppleFoundationModelClient.h>
#include <sagely/CoachLLMError.h>
#include <sagely/LLMClient.h>
#include <sagely/OperatingSystem.h>

#include "support/CoachHarness.h"
#include "support/FakeOnDeviceModel.h"

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

using namespace sagely;
using namespace std::chrono_literals;
using sagely::testing::FakeOnDeviceModel;

namespace {

const std::string kContextWindowMessage =
    "Exceeded the on-device model context window. Ask a shorter question, or switch Coach to "
    "OpenAI, Anthropic, or Gemini.";

CoachConfig appleConfig() {
    CoachConfig config;
    config.provider = Provider::apple;
    config.maxTokens = 4096;
    config.temperature = 0.3;
    return config;
}

const std::vector<LLMMessage> kChat = {{"system", "You are the coach."},
                                       {"user", "How do I export?"}};

FakeOnDeviceModel::Answer streamed(std::vector<std::string> snapshots, std::string text) {
    FakeOnDeviceModel::Answer answer = FakeOnDeviceModel::reply(std::move(text));
    answer.snapshots = std::move(snapshots);
    return answer;
}

FakeOnDeviceModel::Answer failingAfter(std::vector<std::string> snapshots,
                                       FakeOnDeviceModel::Answer failure) {
    failure.snapshots = std::move(snapshots);
    return failure;
}

class AppleFoundationModelStreamingTest : public ::testing::Test {
protected:
    std::shared_ptr<FakeOnDeviceModel> m_model = std::make_shared<FakeOnDeviceModel>();
    AppleFoundationModelClient m_client{m_model};
    std::vector<std::string> m_pieces;

    std::string stream(const CancellationToken& cancellation = {}) {
        return m_client.stream(kChat, appleConfig(), cancellation,
                               [this](std::string_view piece) { m_pieces.emplace_back(piece); });
    }

    std::string joinedPieces() const {
        std::string joined;
        for (const auto& piece : m_pieces) joined += piece;
        return joined;
    }

    // Runs stream() and returns the description of the serverError it throws.
    std::string serverErrorOf() {
        try {
            stream();
        } catch (const CoachLLMError& error) {
            EXPECT_EQ(error.kind(), CoachLLMError::Kind::serverError);
            return error.errorDescription();
        }
        ADD_FAILURE() << "stream() did not fail";
        return {};
    }
};

}  // namespace

TEST_F(AppleFoundationModelStreamingTest, EachSnapshotHandsOnWhatItAdds) {
    m_model->enqueue(
        streamed({"Open", "Open File", "Open File, then Export."}, "Open File, then Export."));

    EXPECT_EQ(stream(), "Open File, then Export.");

    EXPECT_EQ(m_pieces, (std::vector<std::string>{"Open", " File", ", then Export."}));
    ASSERT_EQ(m_model->respondCalls().size(), 1u);
    EXPECT_TRUE(m_model->respondCalls()[0].streamed);
    // The same prompt and options as the whole reply would have had.
    EXPECT_EQ(m_model->respondCalls()[0].prompt,
              "System instructions:\nYou are the coach.\n\nHow do I export?");
    EXPECT_EQ(m_model->respondCalls()[0].options, (OnDeviceGenerationOptions{0.3, 1024}));
}

TEST_F(AppleFoundationModelStreamingTest, RepeatedSnapshotsHandOnNoEmptyPiece) {
    m_model->enqueue(
        streamed({"", "Caf\u00e9", "Caf\u00e9", "Caf\u00e9 \u2615"}, "Caf\u00e9 \u2615"));

    EXPECT_EQ(stream(), "Caf\u00e9 \u2615");

    EXPECT_EQ(m_pieces, (std::vector<std::string>{"Caf\u00e9", " \u2615"}));
}

TEST_F(AppleFoundationModelStreamingTest, TheEndHandsOnWhatTheLastSnapshotDidNot) {
    m_model->enqueue(streamed({"Open"}, "Open File."));
    EXPECT_EQ(stream(), "Open File.");
    EXPECT_EQ(m_pieces, (std::vector<std::string>{"Open", " File."}));
}

TEST_F(AppleFoundationModelStreamingTest, ASnapshotThatRewritesShownTextIsHeldBack) {
    // Shown text cannot be taken back: the rewrite waits, and shows again once a snapshot
    // extends what was shown; the reply is the model's last word.
    m_model->enqueue(streamed({"Open the", "Open a", "Open the menu", "Open a menu, then Export."},
                              "Open a menu, then Export."));

    EXPECT_EQ(stream(), "Open a menu, then Export.");

    EXPECT_EQ(m_pieces, (std::vector<std::string>{"Open the", " menu"}));
}

TEST_F(AppleFoundationModelStreamingTest, ASessionThatDoesNotStreamHandsOnTheWholeReplyOnce) {
    struct WholeReplySession final : OnDeviceSession {
        std::string respond(const std::string&, const OnDeviceGenerationOptions&,
                            const CancellationToken&) override {
            return "All at once.";
        }
    } session;
    std::vector<std::string> pieces;
    EXPECT_EQ(session.streamResponse("prompt", {}, {},
                                     [&](const std::string& text) { pieces.push_back(text); }),
              "All at once.");
    EXPECT_TRUE(pieces.empty());  // the default hands nothing on; the client does at the end

    m_model->enqueue(FakeOnDeviceModel::reply("All at once."));
    EXPECT_EQ(stream(), "All at once.");
    EXPECT_EQ(m_pieces, std::vector<std::string>{"All at once."});
}

TEST_F(AppleFoundationModelStreamingTest, AnOverflowBeforeAnyTextIsRetriedAndTheRetryStreams) {
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    m_model->enqueue(streamed({"Shorter", "Shorter answer."}, "Shorter answer."));

    EXPECT_EQ(stream(), "Shorter answer.");

    EXPECT_EQ(m_pieces, (std::vector<std::string>{"Shorter", " answer."}));
    const auto calls = m_model->respondCalls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_TRUE(calls[1].streamed);
    EXPECT_EQ(calls[1].options, (OnDeviceGenerationOptions{0.3, 256}));
    EXPECT_EQ(calls[1].session, calls[0].session);
}

TEST_F(AppleFoundationModelStreamingTest, AnOverflowAfterSomeTextKeepsItAndIsNotRetried) {
    m_model->enqueue(
        failingAfter({"The first", "The first half"}, FakeOnDeviceModel::exceededContextWindow()));

    EXPECT_EQ(stream(), "The first half");

    EXPECT_EQ(joinedPieces(), "The first half");
    EXPECT_EQ(m_model->respondCalls().size(), 1u);
}

TEST_F(AppleFoundationModelStreamingTest, AnotherErrorAfterSomeTextFailsWithItsDescription) {
    m_model->enqueue(failingAfter({"Step one"}, FakeOnDeviceModel::generationError(
                                                    "The response was blocked by guardrails.")));
    EXPECT_EQ(serverErrorOf(), "The response was blocked by guardrails.");
    EXPECT_EQ(m_model->respondCalls().size(), 1u);
}

TEST_F(AppleFoundationModelStreamingTest, ARetryThatOverflowsAfterSomeTextKeepsThatText) {
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    m_model->enqueue(failingAfter({"Short"}, FakeOnDeviceModel::exceededContextWindow()));
    EXPECT_EQ(stream(), "Short");
}

TEST_F(AppleFoundationModelStreamingTest, AFailedRetryWithNothingShownYieldsTheContextSentence) {
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    EXPECT_EQ(serverErrorOf(), kContextWindowMessage);
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    m_model->enqueue(FakeOnDeviceModel::generationError("Guardrail violation."));
    EXPECT_EQ(serverErrorOf(), kContextWindowMessage);
    EXPECT_TRUE(m_pieces.empty());
}

TEST_F(AppleFoundationModelStreamingTest, AStopDuringTheRetryIsACancellationNotAFailure) {
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    m_model->enqueue(FakeOnDeviceModel::failure(CancelledError()));
    EXPECT_THROW(stream(), CancelledError);
    // The whole reply's retry the same way.
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    m_model->enqueue(FakeOnDeviceModel::failure(CancelledError()));
    EXPECT_THROW(m_client.complete(kChat, appleConfig()), CancelledError);
}

TEST_F(AppleFoundationModelStreamingTest, StopEndsAStalledStreamWithCancelledError) {
    FakeOnDeviceModel::Answer stalled = streamed({"Half"}, "never");
    stalled.stalls = true;
    m_model->enqueue(stalled);
    CancellationToken token;
    std::promise<void> shown;
    auto running = std::async(std::launch::async, [&] {
        return m_client.stream(kChat, appleConfig(), token,
                               [&](std::string_view) { shown.set_value(); });
    });
    ASSERT_EQ(shown.get_future().wait_for(10s), std::future_status::ready);
    token.requestStop();
    ASSERT_EQ(running.wait_for(10s), std::future_status::ready);
    EXPECT_THROW(running.get(), CancelledError);
}

TEST(LLMClientOnDeviceStreaming, AStreamingProfileStreamsAndANonStreamingOneAsksForTheWhole) {
    ScopedOperatingSystemOverride os({true, 26, 0, 0});
    auto model = std::make_shared<FakeOnDeviceModel>();
    LLMClient client(model);
    std::vector<std::string> pieces;
    const auto collect = [&](std::string_view piece) { pieces.emplace_back(piece); };

    model->enqueue(streamed({"On-device", "On-device answer."}, "On-device answer."));
    EXPECT_EQ(client.stream(kChat, appleConfig(), std::nullopt, {}, collect).text,
              "On-device answer.");
    EXPECT_EQ(pieces, (std::vector<std::string>{"On-device", " answer."}));

    pieces.clear();
    CoachConfig whole = appleConfig();
    whole.streamsReplies = false;
    model->enqueue(streamed({"ignored"}, "Whole answer."));
    EXPECT_EQ(client.stream(kChat, whole, std::nullopt, {}, collect).text, "Whole answer.");
    EXPECT_EQ(pieces, std::vector<std::string>{"Whole answer."});

    const auto calls = model->respondCalls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_TRUE(calls[0].streamed);
    EXPECT_FALSE(calls[1].streamed);  // exactly the request made today
}

TEST(LLMClientOnDeviceStreaming, BelowMacOS26AStreamFailsWithoutAskingTheModel) {
    ScopedOperatingSystemOverride os({true, 15, 6, 0});
    auto model = std::make_shared<FakeOnDeviceModel>();
    LLMClient client(model);
    try {
        client.stream(kChat, appleConfig(), std::nullopt, {}, {});
        ADD_FAILURE() << "stream() did not fail";
    } catch (const CoachLLMError& error) {
        EXPECT_EQ(error.errorDescription(),
                  "Apple on-device models require macOS 26 and Apple Intelligence.");
    }
    EXPECT_TRUE(model->selectedModels().empty());
}

TEST(AICoachOnDeviceStreaming, TheEngineShowsTheTextAsItComesAndStopKeepsIt) {
    ScopedOperatingSystemOverride os({true, 26, 0, 0});
    auto model = std::make_shared<FakeOnDeviceModel>();
    FakeOnDeviceModel::Answer stalled = streamed({"Open", "Open File,"}, "never");
    stalled.stalls = true;
    model->enqueue(stalled);
    sagely::testing::CoachHarness harness;
    harness.useProvider(CoachConfig::Provider::apple);
    harness.settings->streamsReplies.set(true);
    sagely::testing::CoachHarness::CoachOptions options;
    options.llm = std::make_shared<LLMClient>(model);
    auto coach = harness.makeCoach(std::move(options));

    auto recorder = harness.ask(*coach, "How do I export?");
    ASSERT_TRUE(harness.runUntil([&] { return coach->partialReply().get() == "Open File,"; }));
    EXPECT_FALSE(coach->isThinking().get());
    coach->stop();

    ASSERT_TRUE(recorder->reply);
    EXPECT_EQ(recorder->reply->content(), "Open File,");
    EXPECT_EQ(coach->partialReply().get(), "");
    EXPECT_FALSE(coach->error().get());
    coach.reset();  // waits for the stopped worker
    EXPECT_TRUE(model->respondCalls().at(0).streamed);
}
