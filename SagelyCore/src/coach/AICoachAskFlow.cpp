// The ask flow of AICoach: a question's way from the draft to a local answer, a refusal, or a
// model request on a worker thread and its reply back on the main thread.
#include "coach/AICoachImpl.h"

#include <sagely/CoachPromptBudget.h>
#include <sagely/CoachSystemPrompt.h>
#include <sagely/Log.h>
#include <sagely/Text.h>

#include "llm/HttpTransport.h"
#include "model/json/DataModelAccess.h"
#include "support/GrowingText.h"

#include <atomic>
#include <thread>
#include <utility>

namespace sagely {
namespace {

constexpr std::size_t kTitleCharacters = 50;
const char* const kUnknownFailure = "The AI request failed for an unknown reason.";

// The title of a conversation is its first question, cut to 50 characters; it is set once,
// when that first question arrives.
void applyTitleRule(CoachConversation& conversation) {
    const CoachMessage* firstQuestion = nullptr;
    std::size_t questions = 0;
    for (const auto& message : conversation.messages()) {
        if (message.role() != CoachMessage::Role::user) continue;
        if (!firstQuestion) firstQuestion = &message;
        ++questions;
    }
    if (questions != 1) return;
    const std::string& content = firstQuestion->content();
    std::string title = text::prefixCharacters(content, kTitleCharacters);
    if (text::hasMoreCharactersThan(content, kTitleCharacters)) title += "...";
    conversation.setTitle(std::move(title));
}

void capMessages(CoachConversation& conversation) {
    auto& messages = conversation.messages();
    if (messages.size() <= AICoach::kMaxMessagesPerConversation) return;
    const auto excess = messages.size() - AICoach::kMaxMessagesPerConversation;
    messages.erase(messages.begin(), messages.begin() + static_cast<std::ptrdiff_t>(excess));
}

// Runs on the worker thread: only the values given, never the coach.
detail::ModelOutcome askModel(LLMService& llm, const std::vector<LLMMessage>& messages,
                              const std::vector<LLMTool>& tools, const CoachConfig& config,
                              const CancellationToken& cancellation, detail::PartialReply& partial,
                              const LLMRetryHandler& onRetry) {
    detail::ModelOutcome outcome;
    try {
        auto onDelta = [&partial](std::string_view piece) { partial.add(piece); };
        LLMReply reply = tools.empty() ? llm.stream(messages, config, std::nullopt, cancellation,
                                                    onDelta, onRetry)
                                       : llm.streamWithTools(messages, tools, config, std::nullopt,
                                                             cancellation, onDelta, onRetry);
        outcome.reply = std::move(reply.text);
        outcome.usage = reply.usage;
        // The model that answered, so that the reply's cost can be told later.
        if (outcome.usage) {
            outcome.usage->provider = storageID(config.provider);
            outcome.usage->model = config.resolvedModel();
        }
        outcome.toolCalls = std::move(reply.toolCalls);
        outcome.providerTurn = std::move(reply.providerTurn);
    } catch (const CancelledError&) {
        outcome.cancelled = true;
    } catch (const Error& error) {
        outcome.failure = error.what();
    } catch (...) {
        outcome.failure = kUnknownFailure;
    }
    return outcome;
}

std::vector<LLMTool> toolsOf(const std::vector<CoachHostAction>& actions) {
    std::vector<LLMTool> tools;
    tools.reserve(actions.size());
    for (const CoachHostAction& action : actions)
        tools.push_back(
            {action.name(), action.description(),
             action.parameters().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)});
    return tools;
}

// What the model is told for a call that never ran because the question ended first.
const char* const kNotRunResult = "Not run: the user stopped the request before this action ran.";

std::string resultForModel(const CoachActionCall& call) {
    return call.status == CoachActionCall::Status::pending ? kNotRunResult : call.result;
}

bool isErrorResult(const CoachActionCall& call) {
    using enum CoachActionCall::Status;
    return call.status == failed || call.status == invalid;
}

// A round as plain text, for a request that offers no actions (calls and results without
// declared tools may be refused): the model still learns what was done.
std::string roundAsText(const CoachMessage& message) {
    std::string text = message.content();
    for (const CoachActionCall& call : message.actionCalls()) {
        if (!text.empty()) text += "\n";
        text += "[" + call.summaryLine() + " (" + call.name + " " + call.arguments +
                "): " + resultForModel(call) + "]";
    }
    return text;
}

// "name = Launch, size = 3": the arguments as the approval card shows them.
std::string argumentSummary(const nlohmann::json& arguments) {
    std::string summary;
    for (const auto& [key, value] : arguments.items()) {
        if (!summary.empty()) summary += ", ";
        summary += key + " = " +
                   (value.is_string()
                        ? value.get<std::string>()
                        : value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
    }
    return summary;
}

}  // namespace

void detail::deliver(const AICoach::ReplyCompletion& completion,
                     std::optional<CoachMessage> reply) {
    if (!completion) return;
    try {
        completion(std::move(reply));
    } catch (...) {
        // The host's failure stays with the host.
    }
}

std::optional<std::string> detail::providerCheckFailure(const CoachConfig& config) {
    using enum CoachConfig::Provider;
    if (config.provider == apple || config.provider == local) return {};
    const bool isCustom = config.provider == custom;
    const bool hasEndpoint = !text::isBlank(config.customEndpoint);
    if (!config.apiKey.empty()) {
        if (isCustom && !hasEndpoint) return AICoach::kCustomEndpointMissingMessage;
        return {};
    }
    // A custom endpoint without a key is allowed on purpose (local OpenAI-format servers).
    if (isCustom && hasEndpoint) return {};
    return AICoach::kNoAPIKeyCode;
}

/// Carries a request's enrichment back to the main thread, once. Dropped without a call, it
/// reports "no enrichment", so a host that forgets to answer does not stall the request.
class AICoach::Impl::EnrichmentHandoff {
public:
    EnrichmentHandoff(std::weak_ptr<Impl> coach, std::shared_ptr<MainExecutor> executor,
                      std::uint64_t generation)
        : m_coach(std::move(coach)), m_executor(std::move(executor)), m_generation(generation) {}
    EnrichmentHandoff(const EnrichmentHandoff&) = delete;
    EnrichmentHandoff& operator=(const EnrichmentHandoff&) = delete;
    ~EnrichmentHandoff() { deliver(std::nullopt); }

    void deliver(std::optional<CoachReplyEnrichment> enrichment) noexcept {
        if (m_delivered.exchange(true)) return;
        try {
            m_executor->post([coach = m_coach, generation = m_generation,
                              enrichment = std::move(enrichment)]() mutable {
                auto impl = coach.lock();
                if (impl && impl->owner) impl->enrichmentArrived(generation, std::move(enrichment));
            });
        } catch (...) {
            // An executor that cannot take work any more has no main thread to return to.
        }
    }

private:
    std::weak_ptr<Impl> m_coach;
    std::shared_ptr<MainExecutor> m_executor;
    std::uint64_t m_generation;
    std::atomic<bool> m_delivered{false};
};

void AICoach::Impl::postOutcome(MainExecutor& executor, std::weak_ptr<Impl> coach,
                                std::uint64_t generation, detail::ModelOutcome outcome) noexcept {
    try {
        executor.post(
            [coach = std::move(coach), generation, outcome = std::move(outcome)]() mutable {
                auto impl = coach.lock();
                if (impl && impl->owner) impl->outcomeArrived(generation, std::move(outcome));
            });
    } catch (...) {
        // As above: without a main thread to return to, the outcome has nowhere to go.
    }
}

// --- Before the model ---

void AICoach::Impl::ask(const std::string& question, ReplyCompletion completion) {
    std::string asked = text::trimmed(question);
    if (asked.empty()) return detail::deliver(completion, std::nullopt);
    pickUpOtherHosts();
    if (!currentConversation.get()) newConversation();
    CoachConversation conversation = *currentConversation.get();
    conversation.append(CoachMessage(CoachMessage::Role::user, asked));
    applyTitleRule(conversation);
    store(conversation);  // a copy: this one goes on to the local answer or the request

    const CoachConfig config = settings->config();
    if (auto answer = resolveLocalAction(asked)) {
        return answerLocally(std::move(conversation), std::move(*answer), std::move(completion));
    }
    if (!allowsLLMCompletion) return failBeforeRequest(kLocalOnlyCode, std::move(completion));
    if (auto failure = detail::providerCheckFailure(config)) {
        return failBeforeRequest(*failure, std::move(completion));
    }
    startRequest(std::move(conversation), config, std::move(completion));
}

std::optional<CoachLocalActionResult> AICoach::Impl::resolveLocalAction(
    const std::string& question) {
    try {
        if (localActionResolver) return localActionResolver(question);
        if (auto* handler = dynamic_cast<CoachLocalActionHandler*>(contextProvider.get())) {
            return handler->localAction(question);
        }
    } catch (const std::exception& failure) {
        log(std::string("Local action failed: ") + failure.what());
    } catch (...) {
        log("Local action failed");
    }
    return std::nullopt;
}

void AICoach::Impl::answerLocally(CoachConversation conversation, CoachLocalActionResult answer,
                                  ReplyCompletion completion) {
    CoachMessage reply(CoachMessage::Role::assistant, std::move(answer.message),
                       std::move(answer.card), answer.lesson);
    conversation.append(reply);
    store(std::move(conversation));
    save();
    if (answer.lesson && owner && owner->onLocalLessonDelivered) {
        try {
            owner->onLocalLessonDelivered(*answer.lesson);
        } catch (...) {
            // The host's failure stays with the host; the answer is already given.
        }
    }
    detail::deliver(completion, std::move(reply));
}

void AICoach::Impl::failBeforeRequest(const std::string& failure, ReplyCompletion completion) {
    error.set(failure);
    save();
    detail::deliver(completion, std::nullopt);
}

// --- The request ---

void AICoach::Impl::startRequest(CoachConversation conversation, const CoachConfig& config,
                                 ReplyCompletion completion) {
    cancelRunningRequest();
    auto request = std::make_shared<detail::CoachRequest>(detail::CoachRequest{
        ++latestGeneration, std::move(conversation), config, CancellationToken(),
        std::move(completion), std::nullopt, nullptr, nullptr});
    requests.emplace(request->generation, request);
    clearReplyInFlight();
    isThinking.set(true);
    error.set(std::nullopt);
    if (owner && owner->replyEnrichmentProvider) return askForEnrichment(request);
    enrichmentArrived(request->generation, std::nullopt);
}

void AICoach::Impl::cancelRunningRequest() {
    for (auto& [generation, request] : requests) {
        request->cancellation.requestStop();
        if (request->awaitingDecision) {
            // Its calls are settled now, before the next question is sent; it ends from the
            // queue, as a cancelled request does.
            cancelRound(*request);
            executor->post([coach = weak_from_this(), generation = generation] {
                auto impl = coach.lock();
                if (!impl || !impl->owner) return;
                auto found = impl->requests.find(generation);
                if (found != impl->requests.end()) impl->finish(found->second, std::nullopt);
            });
            continue;
        }
        if (request->worker) continue;
        // Still waiting for its enrichment, which may never come: end it from the queue, as if
        // the enrichment had arrived after the cancel.
        executor->post([coach = weak_from_this(), generation = generation] {
            auto impl = coach.lock();
            if (impl && impl->owner) impl->enrichmentArrived(generation, std::nullopt);
        });
    }
}

void AICoach::Impl::askForEnrichment(const std::shared_ptr<detail::CoachRequest>& request) {
    auto handoff =
        std::make_shared<EnrichmentHandoff>(weak_from_this(), executor, request->generation);
    auto provider = owner->replyEnrichmentProvider;  // the host may replace it while called
    try {
        provider([handoff = std::move(handoff)](std::optional<CoachReplyEnrichment> enrichment) {
            handoff->deliver(std::move(enrichment));
        });
    } catch (...) {
        // A throwing provider has given nothing; its dropped callback reports that.
    }
}

void AICoach::Impl::enrichmentArrived(std::uint64_t generation,
                                      std::optional<CoachReplyEnrichment> enrichment) {
    auto found = requests.find(generation);
    if (found == requests.end() || found->second->worker) return;
    auto request = found->second;
    // Cancelled before its worker started: nothing failed, and the newer request owns
    // isThinking.
    if (isSuperseded(*request)) return finish(request, std::nullopt);

    std::optional<std::string> observation;
    if (enrichment) {
        observation = std::move(enrichment->systemPromptSection);
        request->observationCard = std::move(enrichment->observationCard);
    }
    request->observation = observation;
    std::vector<LLMMessage> messages;
    try {
        if (contextProvider) request->actions = contextProvider->hostActions();
        messages = modelMessages(latest(*request), request->config.provider, observation,
                                 !request->actions.empty());
    } catch (const std::exception& failure) {
        return endWithFailure(request, detail::ModelOutcome::failed(failure.what()));
    } catch (...) {
        // A host's provider may throw anything; the request still ends, never the host.
        return endWithFailure(request, detail::ModelOutcome::failed(kUnknownFailure));
    }
    startWorker(request, std::move(messages));
}

std::vector<LLMMessage> AICoach::Impl::modelMessages(const CoachConversation& conversation,
                                                     CoachConfig::Provider provider,
                                                     const std::optional<std::string>& observation,
                                                     bool withActions) {
    const auto& history = conversation.messages();
    std::string_view query;
    for (auto message = history.rbegin(); message != history.rend(); ++message) {
        if (message->role() != CoachMessage::Role::user) continue;
        query = message->content();
        break;
    }
    std::vector<LLMMessage> messages;
    messages.reserve(history.size() + 1);
    messages.push_back(
        {"system", buildCoachSystemPrompt(provider, query, observation, contextProvider.get())});
    for (const auto& message : history) {
        if (message.role() == CoachMessage::Role::system) continue;
        const auto& calls = message.actionCalls();
        if (calls.empty()) {
            messages.push_back({std::string(rawValue(message.role())), message.content()});
            continue;
        }
        if (!withActions) {
            messages.push_back({"assistant", roundAsText(message)});
            continue;
        }
        LLMMessage asked{"assistant", message.content()};
        LLMMessage answered{"tool", ""};
        for (const CoachActionCall& call : calls) {
            asked.toolCalls.push_back({call.id, call.name, call.arguments, call.idMadeUp});
            answered.toolResults.push_back(
                {call.id, call.name, resultForModel(call), isErrorResult(call)});
        }
        asked.providerTurn = message.providerTurn();
        messages.push_back(std::move(asked));
        messages.push_back(std::move(answered));
    }
    return CoachPromptBudget::budgetMessages(std::move(messages), provider);
}

void AICoach::Impl::startWorker(const std::shared_ptr<detail::CoachRequest>& request,
                                std::vector<LLMMessage> messages) {
    auto done = std::make_shared<detail::WorkerDone>();
    request->worker = done;
    request->partial = std::make_shared<detail::PartialReply>(
        executor, [coach = weak_from_this(), generation = request->generation] {
            auto impl = coach.lock();
            if (impl && impl->owner) impl->partialArrived(generation);
        });
    try {
        std::thread([llm = llm, executor = executor, coach = weak_from_this(),
                     generation = request->generation, config = request->config,
                     cancellation = request->cancellation, messages = std::move(messages),
                     tools = toolsOf(request->actions), partial = request->partial,
                     done]() mutable {
            const LLMRetryHandler onRetry = [&executor, &coach,
                                             generation](std::chrono::milliseconds wait) {
                executor->post([coach, generation, wait] {
                    auto impl = coach.lock();
                    if (impl && impl->owner) impl->retryArrived(generation, wait);
                });
            };
            auto outcome = askModel(*llm, messages, tools, config, cancellation, *partial, onRetry);
            partial->close();
            postOutcome(*executor, std::move(coach), generation, std::move(outcome));
            // Let go of shared services here, so a coach that waits for this worker finds
            // nothing of it left running.
            llm.reset();
            executor.reset();
            partial.reset();
            done->markDone();
        }).detach();
    } catch (const std::exception& failure) {
        request->worker.reset();
        endWithFailure(request, detail::ModelOutcome::failed(failure.what()));
    }
}

// --- Back on the main thread ---

void AICoach::Impl::outcomeArrived(std::uint64_t generation, detail::ModelOutcome outcome) {
    auto found = requests.find(generation);
    if (found == requests.end()) return;
    auto request = found->second;
    if (!outcome.reply) return endWithFailure(request, outcome);
    // A superseded request's reply is dropped, and the newer request owns isThinking.
    if (isSuperseded(*request)) return finish(request, std::nullopt);
    if (!outcome.toolCalls.empty() && !request->actions.empty())
        return beginRound(request, std::move(outcome));
    appendReply(request, std::move(*outcome.reply), outcome.usage);
}

// A wait before the request in flight is tried again; zero when the wait is over.
void AICoach::Impl::retryArrived(std::uint64_t generation, std::chrono::milliseconds wait) {
    auto found = requests.find(generation);
    if (found == requests.end() || isSuperseded(*found->second)) return;
    std::string status = wait.count() > 0 ? AICoach::retryStatusText(wait) : std::string();
    if (status != retryStatus.get()) retryStatus.set(std::move(status));
}

void AICoach::Impl::clearReplyInFlight() {
    if (!partialReply.get().empty()) partialReply.set({});
    if (!retryStatus.get().empty()) retryStatus.set({});
}

// The text so far is shown; isThinking ends with the first of it.
void AICoach::Impl::partialArrived(std::uint64_t generation) {
    auto found = requests.find(generation);
    if (found == requests.end() || isSuperseded(*found->second) || !found->second->partial) return;
    const std::string added = found->second->partial->takeAdded();
    if (added.empty()) return;
    if (isThinking.get()) isThinking.set(false);
    // Appended in place: copying the whole text on each announcement would hold it twice.
    partialReply.modify([&added](std::string& shown) {
        detail::appendGrowingTo(shown, added, detail::kMaxReplyBytes);
    });
}

// Ends the request in flight at once: the text received so far becomes the reply, as if the
// model had stopped there; without any, nothing is appended.
void AICoach::Impl::stop() {
    auto found = requests.find(latestGeneration);
    if (found == requests.end()) return;
    auto request = found->second;
    request->cancellation.requestStop();
    if (request->roundMessage) cancelRound(*request);
    // The request's text so far: what is shown, then what arrived since.
    std::string text =
        request->partial ? partialReply.get() + request->partial->takeAdded() : std::string();
    if (text.empty()) return endWithFailure(request, detail::ModelOutcome::cancelledRequest());
    appendReply(request, std::move(text));
}

// --- Host actions ---

// The model called actions: the round is appended at once (its calls pending) and decided call
// by call.
void AICoach::Impl::beginRound(const std::shared_ptr<detail::CoachRequest>& request,
                               detail::ModelOutcome outcome) {
    if (request->rounds >= kMaxActionRounds) {
        return appendReply(request, kActionRoundLimitMessage, outcome.usage);
    }
    ++request->rounds;
    std::vector<CoachActionCall> calls;
    for (LLMToolCall& asked : outcome.toolCalls) {
        CoachActionCall call;
        call.id = std::move(asked.id);
        call.idMadeUp = asked.idMadeUp;
        call.name = std::move(asked.name);
        call.arguments = text::isBlank(asked.arguments) ? "{}" : std::move(asked.arguments);
        call.title = call.name;
        for (const CoachHostAction& action : request->actions)
            if (action.name() == call.name) call.title = action.title();
        calls.push_back(std::move(call));
    }
    CoachMessage round = CoachMessage::actionRound(std::move(*outcome.reply), calls,
                                                   std::move(outcome.providerTurn), outcome.usage);
    request->roundMessage = round.id();
    request->partial.reset();  // its text is the round's now; Stop must not append it again
    request->nextCall = 0;
    CoachConversation conversation = latest(*request);
    conversation.append(std::move(round));
    store(std::move(conversation));
    if (!partialReply.get().empty()) partialReply.set({});
    actionsInProgress.set(calls);
    save();
    decideCalls(request);
}

// Decides the round's calls in order: a call that needs the user's word waits in pendingAction;
// once all are decided, the results go back to the model.
void AICoach::Impl::decideCalls(const std::shared_ptr<detail::CoachRequest>& request) {
    std::vector<CoachActionCall> calls = roundCalls(*request);
    while (request->nextCall < calls.size()) {
        CoachActionCall& call = calls[request->nextCall];
        const CoachHostAction* action = nullptr;
        for (const CoachHostAction& offered : request->actions)
            if (offered.name() == call.name) action = &offered;
        const nlohmann::json arguments = nlohmann::json::parse(call.arguments, nullptr, false);
        std::optional<std::string> problem;
        if (action == nullptr) {
            problem = "No action named \"" + call.name + "\" is offered.";
        } else if (!arguments.is_object()) {
            problem = "The arguments are not a JSON object.";
        } else if (auto misfit = action->argumentProblem(arguments)) {
            problem = "Invalid arguments: " + *misfit +
                      ". Call it again with arguments that fit "
                      "its schema.";
        }
        if (problem) {
            call.status = CoachActionCall::Status::invalid;
            call.result = std::move(*problem);
            ++request->nextCall;
            continue;
        }
        const bool allowed =
            !action->needsApproval() ||
            alwaysAllowed.contains({request->conversation.id().toString(), action->name()});
        if (!allowed) {
            updateRound(*request, calls);
            request->awaitingDecision = true;
            if (isThinking.get()) isThinking.set(false);
            pendingAction.set(PendingAction{request->conversation.id(), call.id, call.name,
                                            call.title, call.arguments,
                                            argumentSummary(arguments)});
            return;
        }
        runCall(call, *action, arguments);
        ++request->nextCall;
        // A handler may have asked a new question or stopped: its result is kept, not sent.
        if (isSuperseded(*request)) {
            updateRound(*request, calls);
            return dropRound(request);
        }
    }
    updateRound(*request, calls);
    actionsInProgress.set({});
    askAgain(request);
}

void AICoach::Impl::runCall(CoachActionCall& call, const CoachHostAction& action,
                            const nlohmann::json& arguments) {
    CoachHostActionResult result = action.run(arguments);
    call.status = result.failed ? CoachActionCall::Status::failed : CoachActionCall::Status::done;
    call.result = std::move(result.text);
    call.card = std::move(result.card);
}

void AICoach::Impl::decidePendingAction(bool approved, bool always) {
    auto pending = pendingAction.get();
    if (!pending) return;
    auto found = requests.find(latestGeneration);
    pendingAction.set(std::nullopt);
    if (found == requests.end() || !found->second->awaitingDecision) return;
    auto request = found->second;
    request->awaitingDecision = false;
    std::vector<CoachActionCall> calls = roundCalls(*request);
    if (request->nextCall >= calls.size()) return;
    CoachActionCall& call = calls[request->nextCall];
    if (approved) {
        if (always) alwaysAllowed.insert({request->conversation.id().toString(), call.name});
        const CoachHostAction* action = nullptr;
        for (const CoachHostAction& offered : request->actions)
            if (offered.name() == call.name) action = &offered;
        runCall(call, *action, nlohmann::json::parse(call.arguments));
    } else {
        call.status = CoachActionCall::Status::declined;
        call.result =
            "The user declined this action; it was not run. Do not try it again "
            "unless the user asks.";
    }
    ++request->nextCall;
    updateRound(*request, calls);
    if (isSuperseded(*request)) return dropRound(request);
    isThinking.set(true);
    decideCalls(request);
}

// The results go back to the model in a new request of the same question.
void AICoach::Impl::askAgain(const std::shared_ptr<detail::CoachRequest>& request) {
    isThinking.set(true);
    std::vector<LLMMessage> messages;
    try {
        messages =
            modelMessages(latest(*request), request->config.provider, request->observation, true);
    } catch (const std::exception& failure) {
        return endWithFailure(request, detail::ModelOutcome::failed(failure.what()));
    } catch (...) {
        return endWithFailure(request, detail::ModelOutcome::failed(kUnknownFailure));
    }
    startWorker(request, std::move(messages));
}

// A round whose question ended while it ran (stopped, or a new question): what is left is
// cancelled, nothing goes back to the model. stop() or the next question already own the
// published state; this request only ends.
void AICoach::Impl::dropRound(const std::shared_ptr<detail::CoachRequest>& request) {
    cancelRound(*request);
    save();
    finish(request, std::nullopt);
}

std::vector<CoachActionCall> AICoach::Impl::roundCalls(const detail::CoachRequest& request) const {
    for (const CoachMessage& message : latest(request).messages())
        if (message.id() == request.roundMessage) return message.actionCalls();
    return {};
}

// The round's message is replaced by one with the same identity and the calls' new outcomes.
void AICoach::Impl::updateRound(const detail::CoachRequest& request,
                                std::vector<CoachActionCall> calls) {
    CoachConversation conversation = latest(request);
    for (CoachMessage& message : conversation.messages()) {
        if (message.id() != request.roundMessage) continue;
        message = detail::DataModelAccess::message(
            message.id(), message.role(), message.content(), std::nullopt, std::nullopt,
            message.usage(), message.timestamp(), calls, message.providerTurn());
        if (request.generation == latestGeneration) actionsInProgress.set(calls);
        store(std::move(conversation));
        save();
        return;
    }
}

// Calls not decided yet will not run: they are kept as cancelled.
void AICoach::Impl::cancelRound(detail::CoachRequest& request) {
    request.awaitingDecision = false;
    std::vector<CoachActionCall> calls = roundCalls(request);
    bool changed = false;
    for (CoachActionCall& call : calls) {
        if (call.status != CoachActionCall::Status::pending) continue;
        call.status = CoachActionCall::Status::cancelled;
        call.result = kNotRunResult;
        changed = true;
    }
    if (changed) updateRound(request, std::move(calls));
    if (pendingAction.get() && pendingAction.get()->conversationId == request.conversation.id())
        pendingAction.set(std::nullopt);
    if (!actionsInProgress.get().empty()) actionsInProgress.set({});
}

void AICoach::Impl::appendReply(const std::shared_ptr<detail::CoachRequest>& request,
                                std::string reply, std::optional<TokenUsage> usage) {
    CoachConversation conversation = latest(*request);
    CoachMessage message(CoachMessage::Role::assistant, std::move(reply), request->observationCard,
                         std::nullopt, usage);
    conversation.append(message);
    capMessages(conversation);
    store(std::move(conversation));
    clearReplyInFlight();
    isThinking.set(false);
    save();
    finish(request, std::move(message));
}

void AICoach::Impl::endWithFailure(const std::shared_ptr<detail::CoachRequest>& request,
                                   const detail::ModelOutcome& outcome) {
    if (!outcome.cancelled && !isSuperseded(*request)) error.set(outcome.failure);
    if (request->generation == latestGeneration) clearReplyInFlight();
    isThinking.set(false);
    save();
    finish(request, std::nullopt);
}

void AICoach::Impl::finish(const std::shared_ptr<detail::CoachRequest>& finished,
                           std::optional<CoachMessage> reply) {
    const auto request = finished;  // `finished` may be the very entry erased below
    // Whatever still holds the question lets go: an on-device response waiting for the results
    // of calls that will not be sent (the round limit, a dropped round) ends.
    request->cancellation.requestStop();
    requests.erase(request->generation);
    auto completion = std::exchange(request->completion, {});
    // Last: the completion may destroy the coach.
    detail::deliver(completion, std::move(reply));
}

bool AICoach::Impl::isSuperseded(const detail::CoachRequest& request) const {
    return request.generation != latestGeneration || request.cancellation.stopRequested();
}

// The request's conversation as it stands now (answers given meanwhile included); the copy taken
// at the start when it is no longer listed.
const CoachConversation& AICoach::Impl::latest(const detail::CoachRequest& request) const {
    const Uuid& id = request.conversation.id();
    const auto& current = currentConversation.get();
    if (current && current->id() == id) return *current;
    for (const auto& conversation : conversations.get()) {
        if (conversation.id() == id) return conversation;
    }
    return request.conversation;
}

}  // namespace sagely
