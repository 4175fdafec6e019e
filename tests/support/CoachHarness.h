// CoachHarness — what an engine test needs around an AICoach: a manual main loop, a settings
// store in a temporary storage folder with in-memory keys, a scripted model service, and a
// recorder for completions.
#pragma once

#include "support/FakeLLMService.h"
#include "support/TemporaryDirectory.h"

#include <sagely/AICoach.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/MainExecutor.h>
#include <sagely/SecretStore.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sagely::testing {

/// Records what a reply completion was called with, and how often.
struct ReplyRecorder {
    int calls = 0;
    std::optional<CoachMessage> reply;

    AICoach::ReplyCompletion completion();
};

class CoachHarness {
public:
    CoachHarness();

    /// Makes the provider current with the given key and endpoint (empty: none); its replies
    /// are not streamed.
    void useProvider(CoachConfig::Provider provider, const std::string& apiKey = {},
                     const std::string& endpoint = {});

    struct CoachOptions {
        std::shared_ptr<CoachContextProvider> contextProvider;
        CoachLocalActionResolver resolver;
        bool allowsLLMCompletion = true;
        std::string conversationNamespace = "main";
        std::shared_ptr<LLMService> llm;  // default: the harness's fake
    };
    std::unique_ptr<AICoach> makeCoach(CoachOptions options);
    std::unique_ptr<AICoach> makeCoach() { return makeCoach(CoachOptions{}); }

    /// Asks and returns the recorder its completion writes to.
    std::shared_ptr<ReplyRecorder> ask(AICoach& coach, const std::string& question);

    /// Drives the main loop until the condition holds (at most 10 s).
    bool runUntil(const std::function<bool()>& done,
                  std::chrono::milliseconds timeout = std::chrono::seconds(10));
    /// Drives the main loop in short slices until a condition that no posted work signals
    /// (a server seeing a request, say) holds.
    bool runPolling(const std::function<bool()>& done,
                    std::chrono::milliseconds timeout = std::chrono::seconds(10));
    bool runUntilAnswered(const ReplyRecorder& recorder,
                          std::chrono::milliseconds timeout = std::chrono::seconds(10));

    std::filesystem::path conversationFile(const std::string& conversationNamespace = "main");
    /// The conversation file's bytes; empty when there is none.
    std::string savedBytes(const std::string& conversationNamespace = "main");
    /// The conversation file decoded.
    std::vector<CoachConversation> savedConversations(
        const std::string& conversationNamespace = "main");

    TemporaryDirectory storage;
    std::shared_ptr<ManualExecutor> executor = std::make_shared<ManualExecutor>();
    std::shared_ptr<InMemorySecretStore> secrets = std::make_shared<InMemorySecretStore>();
    std::unique_ptr<CoachSettingsStore> settings;
    std::shared_ptr<FakeLLMService> llm = std::make_shared<FakeLLMService>();
};

/// A context provider whose answers the test sets and whose calls it counts; it can also answer
/// local actions.
class RecordingContextProvider : public CoachContextProvider, public CoachLocalActionHandler {
public:
    std::string summary;
    std::string manual;
    std::string activity;
    std::function<std::optional<CoachLocalActionResult>(const std::string&)> localAnswer;

    int manualCalls = 0;
    int summaryCalls = 0;
    int activityCalls = 0;
    std::vector<std::string> localActionQuestions;
    /// Every call in order: "configurationSummary", "manualText", "recentActivity(<limit>)",
    /// "localAction".
    std::vector<std::string> calls;

    std::string configurationSummary() override;
    std::string manualText() override;
    std::optional<std::string> shortcutInfo(const std::string& name) override;
    std::string recentActivity(int limit) override;
    std::optional<CoachLocalActionResult> localAction(const std::string& question) override;
};

/// Messages as the model would be sent them: role and content of each.
std::vector<LLMMessage> asModelMessages(const std::vector<CoachMessage>& messages);

}  // namespace sagely::testing
