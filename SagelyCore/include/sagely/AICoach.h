// AICoach — the coach engine a host creates and keeps, one per conversation namespace.
//
// It owns the conversations of its namespace (loaded at construction, saved after every
// change, merged with what other hosts saved to the same file, and brought up to date with it
// before each question), the conversation being shown, and the thinking and error state the views
// observe. A question is appended to the current conversation, offered first to the host's
// local-action resolver, and otherwise sent with a freshly built system prompt to the configured
// provider on a worker thread; the reply comes back on the main thread through the MainExecutor and
// is appended as an assistant message.
//
// Guarantees of a model request:
// - At most one runs per coach: a new question cancels the one in flight. A cancelled request
//   never appends its reply and never overwrites `error`; a stopped one keeps what arrived.
// - Its text streams into partialReply as it arrives (when the provider profile streams).
// - Its completion runs exactly once, on the main thread, with the appended assistant message
//   or none. A question answered at once (empty, answered locally, refused by a check) calls
//   its completion before sendAndReturnReply returns; a model request calls it later, from a
//   closure posted to the MainExecutor.
// - It holds the coach weakly: destroying the coach cancels it, nothing is delivered afterwards
//   (the pending completion is released uncalled), and the destructor does not wait for the
//   network. A question still waiting for its reply is saved with the conversation.
//
// Host actions: the actions the context provider offers (hostActions(), asked once per question)
// go with the request. When the model calls some, each call is checked against its schema (a
// misfit goes back to the model as an error), then runs at once if it is read-only, pre-approved
// or "always allowed" in this conversation, else waits in `pendingAction` until the host calls
// approvePendingAction() or denyPendingAction() (a denial goes back as "the user declined").
// Handlers run on the main thread, one call at a time, in the order the model made them. Once
// every call of the round has its outcome, the round is appended as one assistant message
// (CoachMessage::actionCalls) and the results go back to the model, which answers or calls
// again — at most kMaxActionRounds rounds per question, then the coach stops with
// kActionRoundLimitMessage. A new question, stop() or destroying the coach ends the loop at once:
// calls not run yet are kept as cancelled, and the result of a handler already running is kept
// but not sent.
//
// Saving: each change hands only what it changed to the coach's writer thread, which writes the
// file soon after (the saves of a burst once, with the latest list), merged with what other
// hosts saved, crash-safe (temporary file, flushed, renamed). The outcome reaches
// `lastSaveFailure` on the main thread through the MainExecutor, or at once from
// waitForPendingSaves(). Destroying the coach, and a normal end of the process, first write what
// is pending.
//
// Thread rules: main thread only (construct, call and destroy it there); the published
// properties notify on the main thread. Do not destroy the coach from inside one of its own
// property notifications; destroying it from a completion is fine.
#pragma once

#include <sagely/CoachActionCall.h>
#include <sagely/CoachContextProvider.h>
#include <sagely/CoachConversation.h>
#include <sagely/CoachLLMError.h>
#include <sagely/CoachLesson.h>
#include <sagely/CoachLocalAction.h>
#include <sagely/CoachReplyEnrichment.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/Error.h>
#include <sagely/Export.h>
#include <sagely/LLMClient.h>
#include <sagely/MainExecutor.h>
#include <sagely/Observable.h>
#include <sagely/Uuid.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sagely {

class SAGELY_EXPORT AICoach {
public:
    /// The engine's errors; the same four cases and texts as CoachLLMError.
    class SAGELY_EXPORT CoachError : public Error {
    public:
        using Kind = CoachLLMError::Kind;
        static CoachError serverError(const std::string& message) {
            return {Kind::serverError, message};
        }
        static CoachError invalidURL() { return {Kind::invalidURL, "Invalid AI endpoint URL."}; }
        static CoachError invalidResponse() {
            return {Kind::invalidResponse, "The AI response could not be parsed."};
        }
        static CoachError rateLimited() {
            return {Kind::rateLimited,
                    "The AI provider rate-limited the request. Please wait and try again."};
        }
        Kind kind() const { return m_kind; }

    private:
        CoachError(Kind kind, const std::string& description) : Error(description), m_kind(kind) {}
        Kind m_kind;
    };

    /// Asked before every model request; hands its result (or none) to `done`, normally on the
    /// main thread (any thread is safe). Only the first call of `done` counts; dropping `done`
    /// without calling it counts as "no enrichment". The request waits for it before it builds
    /// the prompt.
    using ReplyEnrichmentProvider =
        std::function<void(std::function<void(std::optional<CoachReplyEnrichment>)> done)>;
    /// Receives the appended assistant message, or none when nothing was appended.
    using ReplyCompletion = std::function<void(std::optional<CoachMessage>)>;

    /// The codes stored in `error` instead of a sentence.
    static constexpr const char* kLocalOnlyCode = "LOCAL_ONLY";
    static constexpr const char* kNoAPIKeyCode = "NO_API_KEY";
    /// Stored in `error` when the custom provider has a key but no endpoint.
    static constexpr const char* kCustomEndpointMissingMessage =
        "Custom API requires an endpoint URL (OpenAI-compatible /v1/chat/completions).";
    /// The most rounds of action calls a question may take before the coach stops.
    static constexpr int kMaxActionRounds = 6;
    /// The assistant message appended when the model still calls actions after the last round.
    static constexpr const char* kActionRoundLimitMessage =
        "I stopped here: this question needed more than 6 rounds of actions. Ask again with a "
        "narrower request if something is left to do.";

    /// A call that waits for the user's decision.
    struct PendingAction {
        Uuid conversationId;
        std::string callId;
        /// The action's name and what the user reads for it ("Create canvas").
        std::string actionName;
        std::string title;
        /// The arguments as compact JSON text, and as a line the user reads ("name = Launch").
        std::string arguments;
        std::string argumentSummary;
    };

    /// The most messages a conversation keeps after a model reply; the oldest go first.
    static constexpr std::size_t kMaxMessagesPerConversation = 500;

    /// `settings` null means CoachSettingsStore::shared(); `llm` null means an LLMClient.
    /// Without a resolver, a context provider that is also a CoachLocalActionHandler answers
    /// local actions. Loads the namespace's saved conversations; creates none.
    AICoach(std::shared_ptr<MainExecutor> mainExecutor,
            std::shared_ptr<CoachContextProvider> contextProvider, CoachSettingsStore* settings,
            std::string conversationNamespace, CoachLocalActionResolver localActionResolver = {},
            bool allowsLLMCompletion = true, std::shared_ptr<LLMService> llm = nullptr);
    ~AICoach();
    AICoach(const AICoach&) = delete;
    AICoach& operator=(const AICoach&) = delete;

    // Published state.
    const Property<std::vector<CoachConversation>>& conversations() const;
    const Property<std::optional<CoachConversation>>& currentConversation() const;
    /// True from a question's request until its first text arrives (or it ends).
    const Property<bool>& isThinking() const;
    /// The text of the reply in flight as it arrives, updated on the main thread at most about
    /// every 30 ms; empty when no request runs or none of its text has arrived.
    const Property<std::string>& partialReply() const;
    /// "Retrying in N s\u2026" while the request in flight waits to be tried again (the provider
    /// is rate-limiting or overloaded, or the connection was lost before any reply); empty
    /// otherwise.
    const Property<std::string>& retryStatus() const;
    /// The text of retryStatus for a wait.
    static std::string retryStatusText(std::chrono::milliseconds wait);
    const Property<bool>& isLoadingManual() const;
    const Property<bool>& manualReady() const;
    /// The last failure's text, or "LOCAL_ONLY" / "NO_API_KEY". Views may clear it.
    const Property<std::optional<std::string>>& error() const;
    void setError(std::optional<std::string> error);
    /// The call waiting for the user's approval, or none.
    const Property<std::optional<PendingAction>>& pendingAction() const;
    /// The calls of the round in progress with their outcomes so far; empty otherwise. The
    /// round's message is in the conversation from the start and is updated with the same
    /// outcomes, so a view may draw either.
    const Property<std::vector<CoachActionCall>>& actionsInProgress() const;
    /// Why the last save of the conversations did not reach the disk; none when it did (or
    /// nothing was saved yet). Never shown as `error`: a host may tell the user in its own way.
    const Property<std::optional<std::string>>& lastSaveFailure() const;

    CoachSettingsStore& settings() const;
    bool allowsLLMCompletion() const;
    const std::string& conversationNamespace() const;

    /// Called with the lesson of a local answer that carries one.
    std::function<void(const CoachLesson&)> onLocalLessonDelivered;
    ReplyEnrichmentProvider replyEnrichmentProvider;

    /// Asks the context provider for its manual once (on the main thread, after this call
    /// returns) and reports it through isLoadingManual and manualReady.
    void preloadManual();
    /// A new, empty "Conversation N" at the top of the list, made current, saved.
    void newConversation();
    /// Shows the conversation; nothing is saved.
    void selectConversation(const CoachConversation& conversation);
    /// Removes it; the first remaining conversation (or none) becomes current; saved.
    void deleteConversation(const CoachConversation& conversation);

    /// Asks the question; the reply (or none) reaches `completion` on the main thread.
    void sendAndReturnReply(const std::string& question, ReplyCompletion completion);
    /// Asks the question and ignores the reply.
    void send(const std::string& question);
    /// Ends the request in flight at once: the text received so far is appended as the
    /// assistant message (and reaches the completion) and the conversation is saved; with no
    /// text yet, nothing is appended. Nothing happens when no request runs.
    void stop();

    /// Runs the pending call; with `alwaysForThisConversation`, later calls of the same action in
    /// this conversation run without asking (until the coach is destroyed). Nothing happens
    /// when no call is pending.
    void approvePendingAction(bool alwaysForThisConversation = false);
    /// Declines the pending call: the model is told the user declined. Nothing happens when no
    /// call is pending.
    void denyPendingAction();

    /// Blocks until every save asked for so far is on disk (or has failed), then publishes its
    /// outcome in lastSaveFailure and takes in what other hosts had saved meanwhile. For a host
    /// that reads the file itself, shuts down in steps, or must know that a change was saved;
    /// the destructor does the same.
    void waitForPendingSaves();

    /// Process-wide switch for loading and saving conversation files (default: always true).
    static void setConversationPersistenceAllowed(std::function<bool()> allowed);
    static bool conversationPersistenceAllowed();

private:
    struct Impl;
    std::shared_ptr<Impl> m_impl;
};

}  // namespace sagely
