#include "support/CoachHarness.h"

#include <sagely/CoachConversation.h>

namespace sagely::testing {

AICoach::ReplyCompletion ReplyRecorder::completion() {
    return [this](std::optional<CoachMessage> message) {
        ++calls;
        reply = std::move(message);
    };
}

CoachHarness::CoachHarness() {
    CoachSettingsStore::Options options;
    options.secretStore = secrets;
    options.storageRoot = storage.path();
    settings = std::make_unique<CoachSettingsStore>("com.brindlewood.sagely.tests", "coach-api-key",
                                                    options);
}

void CoachHarness::useProvider(CoachConfig::Provider provider, const std::string& apiKey,
                               const std::string& endpoint) {
    settings->selectProvider(provider);
    settings->apiKey.set(apiKey);
    settings->customEndpoint.set(endpoint);
    // The engine's tests read whole replies; the streamed path has tests of its own.
    settings->streamsReplies.set(false);
}

std::unique_ptr<AICoach> CoachHarness::makeCoach(CoachOptions options) {
    auto service = options.llm ? options.llm : std::shared_ptr<LLMService>(llm);
    return std::make_unique<AICoach>(executor, std::move(options.contextProvider), settings.get(),
                                     options.conversationNamespace, std::move(options.resolver),
                                     options.allowsLLMCompletion, std::move(service));
}

std::shared_ptr<ReplyRecorder> CoachHarness::ask(AICoach& coach, const std::string& question) {
    auto recorder = std::make_shared<ReplyRecorder>();
    coach.sendAndReturnReply(question, [recorder](std::optional<CoachMessage> message) {
        ++recorder->calls;
        recorder->reply = std::move(message);
    });
    return recorder;
}

bool CoachHarness::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    return executor->runUntil(done, timeout);
}

bool CoachHarness::runPolling(const std::function<bool()>& done,
                              std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!executor->runUntil(done, std::chrono::milliseconds(5))) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
    }
    return true;
}

bool CoachHarness::runUntilAnswered(const ReplyRecorder& recorder,
                                    std::chrono::milliseconds timeout) {
    return runUntil([&] { return recorder.calls > 0; }, timeout);
}

std::filesystem::path CoachHarness::conversationFile(const std::string& conversationNamespace) {
    return settings->conversationURL(conversationNamespace);
}

std::string CoachHarness::savedBytes(const std::string& conversationNamespace) {
    return readFile(conversationFile(conversationNamespace));
}

std::vector<CoachConversation> CoachHarness::savedConversations(
    const std::string& conversationNamespace) {
    return decodeConversations(savedBytes(conversationNamespace));
}

std::string RecordingContextProvider::configurationSummary() {
    ++summaryCalls;
    calls.push_back("configurationSummary");
    return summary;
}

std::string RecordingContextProvider::manualText() {
    ++manualCalls;
    calls.push_back("manualText");
    return manual;
}

std::optional<std::string> RecordingContextProvider::shortcutInfo(const std::string&) {
    return std::nullopt;
}

std::string RecordingContextProvider::recentActivity(int limit) {
    ++activityCalls;
    calls.push_back("recentActivity(" + std::to_string(limit) + ")");
    return activity;
}

std::optional<CoachLocalActionResult> RecordingContextProvider::localAction(
    const std::string& question) {
    localActionQuestions.push_back(question);
    calls.push_back("localAction");
    return localAnswer ? localAnswer(question) : std::nullopt;
}

std::vector<LLMMessage> asModelMessages(const std::vector<CoachMessage>& messages) {
    std::vector<LLMMessage> result;
    for (const auto& message : messages) {
        result.push_back({std::string(rawValue(message.role())), message.content()});
    }
    return result;
}

}  // namespace sagely::testing
