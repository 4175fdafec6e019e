// The state behind AICoach, shared by its conversation bookkeeping (AICoach.cpp) and its ask
// flow (AICoachAskFlow.cpp).
//
// Everything here runs on the main thread except the body of a request's worker thread, which
// sees only the values it was given and never touches the Impl. Closures that come back to the
// main thread hold the Impl weakly and find their request by generation number.
#pragma once

#include <sagely/AICoach.h>
#include <sagely/CancellationToken.h>

#include "coach/ConversationWriter.h"

#include "coach/PartialReply.h"

#include <nlohmann/json.hpp>

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace sagely {

namespace detail {

/// Tells the destroying coach when a detached worker thread has finished.
class WorkerDone {
public:
    void markDone();
    /// Waits until the worker is done or the deadline passes; returns whether it is done.
    bool waitUntil(std::chrono::steady_clock::time_point deadline);

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    bool m_done = false;
};

/// What a worker hands back to the main thread: a reply, or the text of its failure.
struct ModelOutcome {
    std::optional<std::string> reply;
    std::string failure;
    bool cancelled = false;
    std::optional<TokenUsage> usage;
    std::vector<LLMToolCall> toolCalls{};
    std::string providerTurn{};

    static ModelOutcome cancelledRequest() { return {std::nullopt, {}, true}; }
    static ModelOutcome failed(std::string failure) { return {std::nullopt, std::move(failure)}; }
};

/// One model request, from the cancelling of its predecessor to its completion.
struct CoachRequest {
    std::uint64_t generation = 0;
    CoachConversation conversation;  // as it stood when the request started
    CoachConfig config;
    CancellationToken cancellation;
    AICoach::ReplyCompletion completion;
    std::optional<CoachCard> observationCard;
    std::shared_ptr<WorkerDone> worker;     // set once the worker thread runs
    std::shared_ptr<PartialReply> partial;  // set with the worker

    // Host actions: asked once per question; the rounds of calls so far; the round in progress
    // (its message in the conversation, and the next of its calls to decide).
    std::vector<CoachHostAction> actions{};
    std::optional<std::string> observation{};
    int rounds = 0;
    std::optional<Uuid> roundMessage{};
    std::size_t nextCall = 0;
    bool awaitingDecision = false;
};

}  // namespace detail

// Not part of the library's interface, though nested in an exported class.
struct SAGELY_NO_EXPORT AICoach::Impl : std::enable_shared_from_this<AICoach::Impl> {
    Impl(AICoach& owner, std::shared_ptr<MainExecutor> mainExecutor,
         std::shared_ptr<CoachContextProvider> contextProvider, CoachSettingsStore* settings,
         std::string conversationNamespace, CoachLocalActionResolver localActionResolver,
         bool allowsLLMCompletion, std::shared_ptr<LLMService> llm);

    // Published state, in the order the views know it.
    Property<std::vector<CoachConversation>> conversations;
    Property<std::optional<CoachConversation>> currentConversation;
    Property<bool> isThinking{false};
    Property<bool> isLoadingManual{false};
    Property<bool> manualReady{false};
    Property<std::optional<std::string>> error;
    Property<std::optional<std::string>> lastSaveFailure;
    Property<std::string> partialReply;
    Property<std::optional<PendingAction>> pendingAction;
    Property<std::vector<CoachActionCall>> actionsInProgress;

    AICoach* owner;  // null once the coach is being destroyed
    std::shared_ptr<MainExecutor> executor;
    std::shared_ptr<CoachContextProvider> contextProvider;
    CoachSettingsStore* settings;
    std::string conversationNamespace;
    CoachLocalActionResolver localActionResolver;
    bool allowsLLMCompletion;
    std::shared_ptr<LLMService> llm;

    // Made at the first load or save. Its copy of the list follows every change made here while
    // it is in step; it falls out of step while persistence is switched off.
    std::unique_ptr<detail::ConversationWriter> writer;
    bool writerInStep = false;

    // "Always allow for this conversation": conversation id and action name.
    std::set<std::pair<std::string, std::string>> alwaysAllowed;

    std::uint64_t latestGeneration = 0;
    std::map<std::uint64_t, std::shared_ptr<detail::CoachRequest>> requests;  // unfinished

    // Conversations and persistence (AICoach.cpp).
    void newConversation();
    void deleteConversation(const CoachConversation& conversation);
    void store(CoachConversation conversation);
    void load();
    void save();
    void waitForPendingSaves();
    void publishSaveOutcome();
    void pickUpOtherHosts();
    void adopt(std::vector<CoachConversation> list);
    detail::ConversationWriter& historyWriter();
    detail::ConversationWriter* writerInStepOrNull();
    void preloadManual();
    void shutDown();

    // The ask flow (AICoachAskFlow.cpp).
    void ask(const std::string& question, ReplyCompletion completion);
    std::optional<CoachLocalActionResult> resolveLocalAction(const std::string& question);
    void answerLocally(CoachConversation conversation, CoachLocalActionResult answer,
                       ReplyCompletion completion);
    void failBeforeRequest(const std::string& failure, ReplyCompletion completion);
    void startRequest(CoachConversation conversation, const CoachConfig& config,
                      ReplyCompletion completion);
    void cancelRunningRequest();
    void askForEnrichment(const std::shared_ptr<detail::CoachRequest>& request);
    void enrichmentArrived(std::uint64_t generation,
                           std::optional<CoachReplyEnrichment> enrichment);
    void startWorker(const std::shared_ptr<detail::CoachRequest>& request,
                     std::vector<LLMMessage> messages);
    void askAgain(const std::shared_ptr<detail::CoachRequest>& request);
    void beginRound(const std::shared_ptr<detail::CoachRequest>& request,
                    detail::ModelOutcome outcome);
    void decideCalls(const std::shared_ptr<detail::CoachRequest>& request);
    void runCall(CoachActionCall& call, const CoachHostAction& action,
                 const nlohmann::json& arguments);
    void dropRound(const std::shared_ptr<detail::CoachRequest>& request);
    std::vector<CoachActionCall> roundCalls(const detail::CoachRequest& request) const;
    void updateRound(const detail::CoachRequest& request, std::vector<CoachActionCall> calls);
    void cancelRound(detail::CoachRequest& request);
    void outcomeArrived(std::uint64_t generation, detail::ModelOutcome outcome);
    void partialArrived(std::uint64_t generation);
    void stop();
    void decidePendingAction(bool approved, bool always);
    void appendReply(const std::shared_ptr<detail::CoachRequest>& request, std::string reply,
                     std::optional<TokenUsage> usage = std::nullopt);
    void endWithFailure(const std::shared_ptr<detail::CoachRequest>& request,
                        const detail::ModelOutcome& outcome);
    void finish(const std::shared_ptr<detail::CoachRequest>& request,
                std::optional<CoachMessage> reply);
    bool isSuperseded(const detail::CoachRequest& request) const;
    const CoachConversation& latest(const detail::CoachRequest& request) const;
    std::vector<LLMMessage> modelMessages(const CoachConversation& conversation,
                                          CoachConfig::Provider provider,
                                          const std::optional<std::string>& observation,
                                          bool withActions = false);

    class EnrichmentHandoff;
    static void postOutcome(MainExecutor& executor, std::weak_ptr<Impl> coach,
                            std::uint64_t generation, detail::ModelOutcome outcome) noexcept;
};

namespace detail {

/// Calls a completion, keeping a throwing host callback from unwinding the coach or the
/// executor.
void deliver(const AICoach::ReplyCompletion& completion, std::optional<CoachMessage> reply);

/// The failure, if any, that stops a question before any model is asked: "NO_API_KEY" or the
/// custom-endpoint sentence.
std::optional<std::string> providerCheckFailure(const CoachConfig& config);

}  // namespace detail

}  // namespace sagely
