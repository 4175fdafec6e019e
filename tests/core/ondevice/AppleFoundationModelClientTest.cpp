#include <sagely/AppleFoundationModelClient.h>
#include <sagely/CoachLLMError.h>
#include <sagely/LLMClient.h>
#include <sagely/OperatingSystem.h>
#include <sagely/Text.h>

#include "support/FakeOnDeviceModel.h"

#include <gtest/gtest.h>

#include <string>

using namespace sagely;
using sagely::testing::FakeOnDeviceModel;

namespace {

const std::string kContextWindowMessage =
    "Exceeded the on-device model context window. Ask a shorter question, or switch Coach to "
    "OpenAI, Anthropic, or Gemini.";
const std::string kNotice = "\n\n[Prompt shortened to fit the on-device model.]";

CoachConfig appleConfig(std::string model = "") {
    CoachConfig config;
    config.provider = Provider::apple;
    config.model = std::move(model);
    config.maxTokens = 4096;
    config.temperature = 0.3;
    return config;
}

const std::vector<LLMMessage> kChat = {{"system", "You are the coach."},
                                       {"user", "How do I export?"}};

class AppleFoundationModelClientTest : public ::testing::Test {
protected:
    std::shared_ptr<FakeOnDeviceModel> m_model = std::make_shared<FakeOnDeviceModel>();
    AppleFoundationModelClient m_client{m_model};

    // Runs complete() and returns the description of the CoachLLMError it throws.
    std::string serverErrorOf(const CoachConfig& config) {
        try {
            m_client.complete(kChat, config);
        } catch (const CoachLLMError& error) {
            EXPECT_EQ(error.kind(), CoachLLMError::Kind::serverError);
            return error.errorDescription();
        }
        ADD_FAILURE() << "complete() did not fail";
        return {};
    }
};

}  // namespace

TEST_F(AppleFoundationModelClientTest, AnswersOnTheDefaultModelWithTheFlattenedFittedPrompt) {
    m_model->enqueue(FakeOnDeviceModel::reply("  Open File, then Export.\n"));

    EXPECT_EQ(m_client.complete(kChat, appleConfig()), "  Open File, then Export.\n");

    ASSERT_EQ(m_model->respondCalls().size(), 1u);
    const auto call = m_model->respondCalls()[0];
    EXPECT_EQ(call.model, "default");
    EXPECT_EQ(call.prompt, "System instructions:\nYou are the coach.\n\nHow do I export?");
    // A 4096-token window: the cap is min(4096, 1024, 1024) = 1024, and the short prompt leaves
    // room for all of it.
    EXPECT_EQ(call.options, (OnDeviceGenerationOptions{0.3, 1024}));
    EXPECT_EQ(m_model->sessionsMade(), 1u);
}

TEST_F(AppleFoundationModelClientTest, ContentTaggingInLowerCaseWithASpaceUsesThatModel) {
    m_client.complete(kChat, appleConfig("content tagging"));
    EXPECT_EQ(m_model->selectedModels(), std::vector<std::string>{"content-tagging"});
    ASSERT_EQ(m_model->respondCalls().size(), 1u);
    EXPECT_EQ(m_model->respondCalls()[0].model, "content-tagging");
}

TEST_F(AppleFoundationModelClientTest, AnAdapterThatLoadsAnswersOnThatAdapter) {
    m_model->addAdapter("CoachTone");
    m_model->addAdapterFile("/opt/adapters/coach.fmadapter");
    m_client.complete(kChat, appleConfig("CoachTone"));
    m_client.complete(kChat, appleConfig("/opt/adapters/coach.fmadapter"));
    EXPECT_EQ(m_model->selectedModels(),
              (std::vector<std::string>{"adapter:CoachTone",
                                        "adapter-file:/opt/adapters/coach.fmadapter"}));
}

TEST_F(AppleFoundationModelClientTest, AnAdapterNameThatCannotLoadFailsWithTheModelSentence) {
    EXPECT_EQ(serverErrorOf(appleConfig("MissingAdapter")),
              "Apple could not load the model MissingAdapter. Choose Apple Intelligence, Content "
              "Tagging, or a path to an adapter file.");
    EXPECT_EQ(m_model->failedLoads(), std::vector<std::string>{"adapter:MissingAdapter"});
    EXPECT_TRUE(m_model->respondCalls().empty());
}

TEST_F(AppleFoundationModelClientTest, AnAdapterFileThatCannotLoadFailsWithTheFileSentence) {
    EXPECT_EQ(serverErrorOf(appleConfig("file:///tmp/none.fmadapter")),
              "Apple could not load the adapter file /tmp/none.fmadapter.");
}

TEST_F(AppleFoundationModelClientTest, AnUnavailableModelFailsWithItsAvailabilitySentence) {
    struct Case {
        OnDeviceAvailability availability;
        const char* message;
    };
    for (const Case& c :
         {Case{OnDeviceAvailability::deviceNotEligible,
               "This Mac cannot run Apple Intelligence. Use OpenAI, Anthropic, or Gemini in Coach "
               "settings."},
          Case{OnDeviceAvailability::appleIntelligenceNotEnabled,
               "Turn on Apple Intelligence in System Settings \u2192 Apple Intelligence & Siri, "
               "then ask again."},
          Case{OnDeviceAvailability::modelNotReady,
               "The on-device model is still downloading. Stay on Wi-Fi, wait until Apple "
               "Intelligence finishes setup, then ask again."},
          Case{OnDeviceAvailability::unavailableForOtherReason,
               "Apple Intelligence is not ready. Enable it in System Settings, or choose another "
               "Coach provider."}}) {
        m_model->setDefaultAvailability(c.availability);
        EXPECT_EQ(serverErrorOf(appleConfig()), c.message);
        EXPECT_EQ(AppleFoundationModelClient::availabilityMessage(c.availability), c.message);
    }
    EXPECT_EQ(m_model->sessionsMade(), 0u);
    EXPECT_EQ(AppleFoundationModelClient::availabilityMessage(OnDeviceAvailability::available),
              "Apple Intelligence is ready.");
}

TEST_F(AppleFoundationModelClientTest, IsAvailableFollowsTheDefaultModel) {
    EXPECT_TRUE(m_client.isAvailable());
    m_model->setDefaultAvailability(OnDeviceAvailability::modelNotReady);
    EXPECT_FALSE(m_client.isAvailable());
}

TEST_F(AppleFoundationModelClientTest, TheTemperatureIsClampedIntoZeroToTwo) {
    CoachConfig hot = appleConfig();
    hot.temperature = 3.5;
    CoachConfig cold = appleConfig();
    cold.temperature = -1;
    CoachConfig edge = appleConfig();
    edge.temperature = 2;
    m_client.complete(kChat, hot);
    m_client.complete(kChat, cold);
    m_client.complete(kChat, edge);
    const auto calls = m_model->respondCalls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[0].options.temperature, 2.0);
    EXPECT_EQ(calls[1].options.temperature, 0.0);
    EXPECT_EQ(calls[2].options.temperature, 2.0);
}

TEST_F(AppleFoundationModelClientTest, TheResponseLimitComesFromTheFit) {
    CoachConfig config = appleConfig();
    config.maxTokens = 10;
    m_client.complete(kChat, config);
    ASSERT_EQ(m_model->respondCalls().size(), 1u);
    EXPECT_EQ(m_model->respondCalls()[0].options.maximumResponseTokens, 64);
}

TEST_F(AppleFoundationModelClientTest, AnOverflowIsRetriedOnceWithTheFirst1500Characters) {
    std::vector<LLMMessage> chat = {{"system", std::string(3000, 's')},
                                    {"user", std::string(12000, 'u')}};
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    m_model->enqueue(FakeOnDeviceModel::reply("Shorter answer."));

    EXPECT_EQ(m_client.complete(chat, appleConfig()), "Shorter answer.");

    const auto calls = m_model->respondCalls();
    ASSERT_EQ(calls.size(), 2u);
    const std::string flattened =
        "System instructions:\n" + std::string(3000, 's') + "\n\n" + std::string(12000, 'u');
    EXPECT_EQ(calls[0].prompt, flattened.substr(0, 8832) + kNotice);
    EXPECT_EQ(calls[0].options.maximumResponseTokens, 1008);
    // The retry keeps the beginning, where the system instructions stand.
    EXPECT_EQ(calls[1].prompt, flattened.substr(0, 1500));
    EXPECT_TRUE(calls[1].prompt.starts_with("System instructions:\nsss"));
    // 256 requested: cap min(256, 1024, 1024) = 256; the prompt leaves more room than that.
    EXPECT_EQ(calls[1].options, (OnDeviceGenerationOptions{0.3, 256}));
    EXPECT_EQ(calls[1].session, calls[0].session);  // the same session
    EXPECT_EQ(m_model->sessionsMade(), 1u);
}

TEST_F(AppleFoundationModelClientTest, AFailedRetryYieldsTheContextWindowSentence) {
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    EXPECT_EQ(serverErrorOf(appleConfig()), kContextWindowMessage);
    EXPECT_EQ(m_model->respondCalls().size(), 2u);
}

TEST_F(AppleFoundationModelClientTest, ARetryFailingForAnyOtherReasonYieldsTheSameSentence) {
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    m_model->enqueue(FakeOnDeviceModel::generationError("Guardrail violation."));
    EXPECT_EQ(serverErrorOf(appleConfig()), kContextWindowMessage);
    m_model->enqueue(FakeOnDeviceModel::exceededContextWindow());
    m_model->enqueue(FakeOnDeviceModel::failure(std::runtime_error("boom")));
    EXPECT_EQ(serverErrorOf(appleConfig()), kContextWindowMessage);
}

TEST_F(AppleFoundationModelClientTest, OtherGenerationErrorsCarryTheirOwnDescription) {
    m_model->enqueue(FakeOnDeviceModel::generationError("The request was blocked by guardrails."));
    EXPECT_EQ(serverErrorOf(appleConfig()), "The request was blocked by guardrails.");
    EXPECT_EQ(m_model->respondCalls().size(), 1u);  // no retry
}

TEST_F(AppleFoundationModelClientTest, ErrorsThatAreNotGenerationErrorsPassThroughUnchanged) {
    m_model->enqueue(FakeOnDeviceModel::failure(CancelledError()));
    EXPECT_THROW(m_client.complete(kChat, appleConfig()), CancelledError);
    m_model->enqueue(FakeOnDeviceModel::failure(std::runtime_error("disk on fire")));
    try {
        m_client.complete(kChat, appleConfig());
        ADD_FAILURE() << "complete() did not fail";
    } catch (const CoachLLMError&) {
        ADD_FAILURE() << "the error was converted";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "disk on fire");
    }
}

TEST_F(AppleFoundationModelClientTest, AStoppedTokenEndsTheRequestWithCancelledError) {
    CancellationToken token;
    token.requestStop();
    EXPECT_THROW(m_client.complete(kChat, appleConfig(), token), CancelledError);
}

TEST(LLMClientOnDevice, AppleWithoutAnEndpointOnMacOS26UsesTheOnDeviceModel) {
    ScopedOperatingSystemOverride os({true, 26, 0, 0});
    auto model = std::make_shared<FakeOnDeviceModel>();
    model->enqueue(FakeOnDeviceModel::reply("On-device answer."));
    LLMClient client(model);
    CoachConfig config = appleConfig("  ");
    config.customEndpoint = " \n";

    // The on-device path ignores the override and uses the resolved model.
    EXPECT_EQ(client.complete(kChat, config, std::string("MyAdapter"), {}), "On-device answer.");
    EXPECT_EQ(model->selectedModels(), std::vector<std::string>{"default"});
}

TEST(LLMClientOnDevice, AppleWithoutAnEndpointBelowMacOS26FailsWithoutAskingTheModel) {
    ScopedOperatingSystemOverride os({true, 15, 6, 0});
    auto model = std::make_shared<FakeOnDeviceModel>();
    LLMClient client(model);
    try {
        client.complete(kChat, appleConfig(), std::nullopt, {});
        ADD_FAILURE() << "complete() did not fail";
    } catch (const CoachLLMError& error) {
        EXPECT_EQ(error.kind(), CoachLLMError::Kind::serverError);
        EXPECT_EQ(error.errorDescription(),
                  "Apple on-device models require macOS 26 and Apple Intelligence.");
    }
    EXPECT_TRUE(model->selectedModels().empty());
}

TEST(LLMClientOnDevice, OnThisSystemTheAppleProviderIsNotOffered) {
    ScopedOperatingSystemOverride os(OperatingSystemVersion{});
    LLMClient client;
    EXPECT_THROW(client.complete(kChat, appleConfig(), std::nullopt, {}), CoachLLMError);
}
