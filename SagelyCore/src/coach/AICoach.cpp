#include "coach/AICoachImpl.h"

#include <sagely/Log.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace sagely {
namespace {

// How long a destroyed coach waits for its cancelled workers, so that they are usually gone
// when it is. A worker still busy after that is left to finish on its own: it no longer touches
// the coach, and the destroying thread must not wait for the network.
constexpr std::chrono::milliseconds kWorkerGracePeriod{50};

std::function<bool()> alwaysAllowed() {
    return [] { return true; };
}

struct PersistenceSwitch {
    std::mutex mutex;
    std::function<bool()> allowed = alwaysAllowed();
};

PersistenceSwitch& persistenceSwitch() {
    static PersistenceSwitch instance;
    return instance;
}

bool sameConversation(const CoachConversation& a, const CoachConversation& b) {
    if (a.id() != b.id() || a.title() != b.title() || a.updatedAt() != b.updatedAt() ||
        a.messages().size() != b.messages().size())
        return false;
    for (std::size_t i = 0; i < a.messages().size(); ++i) {
        if (a.messages()[i].id() != b.messages()[i].id()) return false;
    }
    return true;
}

bool sameList(const std::vector<CoachConversation>& a, const std::vector<CoachConversation>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), sameConversation);
}

}  // namespace

// --- detail::WorkerDone ---

void detail::WorkerDone::markDone() {
    {
        std::lock_guard lock(m_mutex);
        m_done = true;
    }
    m_changed.notify_all();
}

bool detail::WorkerDone::waitUntil(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_until(lock, deadline, [this] { return m_done; });
}

// --- AICoach::Impl: conversations and persistence ---

AICoach::Impl::Impl(AICoach& owner, std::shared_ptr<MainExecutor> mainExecutor,
                    std::shared_ptr<CoachContextProvider> contextProvider,
                    CoachSettingsStore* settings, std::string conversationNamespace,
                    CoachLocalActionResolver localActionResolver, bool allowsLLMCompletion,
                    std::shared_ptr<LLMService> llm)
    : owner(&owner),
      executor(std::move(mainExecutor)),
      contextProvider(std::move(contextProvider)),
      settings(settings ? settings : &CoachSettingsStore::shared()),
      conversationNamespace(std::move(conversationNamespace)),
      localActionResolver(std::move(localActionResolver)),
      allowsLLMCompletion(allowsLLMCompletion),
      llm(llm ? std::move(llm) : std::make_shared<LLMClient>()) {
    if (!executor) throw std::invalid_argument("AICoach needs a main executor");
}

void AICoach::Impl::newConversation() {
    CoachConversation conversation("Conversation " +
                                   std::to_string(conversations.get().size() + 1));
    if (auto* inStep = writerInStepOrNull()) inStep->insertFirst(conversation);
    conversations.modify([&](std::vector<CoachConversation>& list) {
        list.insert(list.begin(), std::move(conversation));
    });
    currentConversation.set(conversations.get().front());
    save();
}

void AICoach::Impl::deleteConversation(const CoachConversation& conversation) {
    const Uuid id = conversation.id();
    if (auto* inStep = writerInStepOrNull()) inStep->remove(id);
    conversations.modify([&](std::vector<CoachConversation>& list) {
        std::erase_if(list, [&](const CoachConversation& c) { return c.id() == id; });
    });
    const auto& current = currentConversation.get();
    if (current && current->id() == id) {
        const auto& remaining = conversations.get();
        currentConversation.set(remaining.empty() ? std::nullopt
                                                  : std::optional(remaining.front()));
    }
    save();
}

// Costs the conversation, not the list: the listed one is replaced in place.
void AICoach::Impl::store(CoachConversation conversation) {
    const auto& list = conversations.get();
    auto found = std::find_if(list.begin(), list.end(), [&](const CoachConversation& c) {
        return c.id() == conversation.id();
    });
    if (found != list.end()) {
        const auto index = static_cast<std::size_t>(found - list.begin());
        if (auto* inStep = writerInStepOrNull()) inStep->replace(conversation);
        conversations.modify(
            [&](std::vector<CoachConversation>& all) { all[index] = conversation; });
    }
    currentConversation.set(std::move(conversation));
}

detail::ConversationWriter& AICoach::Impl::historyWriter() {
    if (!writer) {
        // Reports come on the writer's thread; the published state changes on the main thread.
        auto report = [coach = weak_from_this(), executor = executor](bool othersChanged) {
            try {
                executor->post([coach, othersChanged] {
                    auto impl = coach.lock();
                    if (!impl || !impl->owner) return;
                    impl->publishSaveOutcome();
                    if (othersChanged) impl->pickUpOtherHosts();
                });
            } catch (...) {
                // Without a main thread to return to, the outcome waits for the next look.
            }
        };
        writer = std::make_unique<detail::ConversationWriter>(
            settings->conversationURL(conversationNamespace), std::move(report));
    }
    return *writer;
}

detail::ConversationWriter* AICoach::Impl::writerInStepOrNull() {
    return writerInStep ? writer.get() : nullptr;
}

void AICoach::Impl::load() {
    if (!AICoach::conversationPersistenceAllowed()) return;
    auto list = historyWriter().load();
    writerInStep = true;
    if (list.empty()) return;
    conversations.set(std::move(list));
    currentConversation.set(conversations.get().front());
}

// The writer merges with what other hosts saved meanwhile and reports back; the main thread only
// hands over the change it made.
void AICoach::Impl::save() {
    if (!AICoach::conversationPersistenceAllowed()) {
        writerInStep = false;  // the next allowed save hands over the whole list
        return;
    }
    auto& history = historyWriter();
    if (!writerInStep) {
        history.replaceAll(conversations.get());
        writerInStep = true;
    }
    history.save();
}

void AICoach::Impl::waitForPendingSaves() {
    if (!writer) return;
    writer->waitForPendingSaves();
    publishSaveOutcome();
    // The saves may have merged other hosts' changes: they are taken in now, not only when the
    // writer's report reaches the main thread.
    pickUpOtherHosts();
}

void AICoach::Impl::publishSaveOutcome() {
    if (!writer) return;
    auto failure = writer->lastFailure();
    if (lastSaveFailure.get() != failure) lastSaveFailure.set(std::move(failure));
}

// Before a question builds its prompt, what other hosts added is taken in. A look at the file's
// stamp tells whether there is any; only then is the file read.
void AICoach::Impl::pickUpOtherHosts() {
    auto* inStep = writerInStepOrNull();
    if (!inStep || !AICoach::conversationPersistenceAllowed()) return;
    std::vector<CoachConversation> merged;
    if (inStep->pickUp(conversations.get(), merged)) adopt(std::move(merged));
}

// Notifies only on a real change; the current conversation follows its merged version, or the
// first one when another host deleted it.
void AICoach::Impl::adopt(std::vector<CoachConversation> list) {
    if (!sameList(list, conversations.get())) conversations.set(std::move(list));
    const auto& current = currentConversation.get();
    if (!current) return;
    const auto& now = conversations.get();
    auto found = std::find_if(now.begin(), now.end(),
                              [&](const CoachConversation& c) { return c.id() == current->id(); });
    if (found == now.end())
        currentConversation.set(now.empty() ? std::nullopt : std::optional(now.front()));
    else if (!sameConversation(*found, *current))
        currentConversation.set(*found);
}

void AICoach::Impl::preloadManual() {
    if (manualReady.get() || isLoadingManual.get()) return;
    isLoadingManual.set(true);
    executor->post([weak = weak_from_this()] {
        auto self = weak.lock();
        if (!self || !self->owner) return;
        std::string manual;
        try {
            if (self->contextProvider) manual = self->contextProvider->manualText();
        } catch (...) {
            // A host that cannot produce its guide has none.
        }
        self->isLoadingManual.set(false);
        self->manualReady.set(!manual.empty());
    });
}

void AICoach::Impl::shutDown() {
    auto pending = std::exchange(requests, {});
    ++latestGeneration;
    for (auto& [generation, request] : pending) request->cancellation.requestStop();
    // A cancelled request saves on its way out; this one will not get there, so save for it.
    if (!pending.empty()) save();
    // Everything asked for reaches the disk before the coach is gone.
    if (writer) writer->waitForPendingSaves();
    const auto deadline = std::chrono::steady_clock::now() + kWorkerGracePeriod;
    for (auto& [generation, request] : pending) {
        if (request->worker) request->worker->waitUntil(deadline);
    }
}

// --- AICoach ---

AICoach::AICoach(std::shared_ptr<MainExecutor> mainExecutor,
                 std::shared_ptr<CoachContextProvider> contextProvider,
                 CoachSettingsStore* settings, std::string conversationNamespace,
                 CoachLocalActionResolver localActionResolver, bool allowsLLMCompletion,
                 std::shared_ptr<LLMService> llm)
    : m_impl(std::make_shared<Impl>(*this, std::move(mainExecutor), std::move(contextProvider),
                                    settings, std::move(conversationNamespace),
                                    std::move(localActionResolver), allowsLLMCompletion,
                                    std::move(llm))) {
    m_impl->load();
}

AICoach::~AICoach() {
    m_impl->shutDown();
    m_impl->owner = nullptr;
}

const Property<std::vector<CoachConversation>>& AICoach::conversations() const {
    return m_impl->conversations;
}
const Property<std::optional<CoachConversation>>& AICoach::currentConversation() const {
    return m_impl->currentConversation;
}
const Property<bool>& AICoach::isThinking() const {
    return m_impl->isThinking;
}
const Property<std::string>& AICoach::partialReply() const {
    return m_impl->partialReply;
}

const Property<std::string>& AICoach::retryStatus() const {
    return m_impl->retryStatus;
}

std::string AICoach::retryStatusText(std::chrono::milliseconds wait) {
    const auto seconds = (wait.count() + 999) / 1000;
    return "Retrying in " + std::to_string(seconds) + " s\u2026";
}
const Property<bool>& AICoach::isLoadingManual() const {
    return m_impl->isLoadingManual;
}
const Property<bool>& AICoach::manualReady() const {
    return m_impl->manualReady;
}
const Property<std::optional<std::string>>& AICoach::error() const {
    return m_impl->error;
}
void AICoach::setError(std::optional<std::string> error) {
    m_impl->error.set(std::move(error));
}
const Property<std::optional<std::string>>& AICoach::lastSaveFailure() const {
    return m_impl->lastSaveFailure;
}
const Property<std::optional<AICoach::PendingAction>>& AICoach::pendingAction() const {
    return m_impl->pendingAction;
}
const Property<std::vector<CoachActionCall>>& AICoach::actionsInProgress() const {
    return m_impl->actionsInProgress;
}

CoachSettingsStore& AICoach::settings() const {
    return *m_impl->settings;
}
bool AICoach::allowsLLMCompletion() const {
    return m_impl->allowsLLMCompletion;
}
const std::string& AICoach::conversationNamespace() const {
    return m_impl->conversationNamespace;
}

void AICoach::preloadManual() {
    m_impl->preloadManual();
}
void AICoach::newConversation() {
    m_impl->newConversation();
}
void AICoach::selectConversation(const CoachConversation& conversation) {
    m_impl->currentConversation.set(conversation);
}
void AICoach::deleteConversation(const CoachConversation& conversation) {
    m_impl->deleteConversation(conversation);
}

void AICoach::sendAndReturnReply(const std::string& question, ReplyCompletion completion) {
    // Kept alive for the call: the completion may destroy this coach.
    auto impl = m_impl;
    impl->ask(question, std::move(completion));
}

void AICoach::send(const std::string& question) {
    sendAndReturnReply(question, {});
}

void AICoach::waitForPendingSaves() {
    m_impl->waitForPendingSaves();
}

void AICoach::stop() {
    auto impl = m_impl;  // the completion may destroy this coach
    impl->stop();
}

void AICoach::approvePendingAction(bool alwaysForThisConversation) {
    auto impl = m_impl;  // the completion may destroy this coach
    impl->decidePendingAction(true, alwaysForThisConversation);
}

void AICoach::denyPendingAction() {
    auto impl = m_impl;
    impl->decidePendingAction(false, false);
}

void AICoach::setConversationPersistenceAllowed(std::function<bool()> allowed) {
    auto& state = persistenceSwitch();
    std::lock_guard lock(state.mutex);
    state.allowed = allowed ? std::move(allowed) : alwaysAllowed();
}

bool AICoach::conversationPersistenceAllowed() {
    std::function<bool()> allowed;
    {
        auto& state = persistenceSwitch();
        std::lock_guard lock(state.mutex);
        allowed = state.allowed;
    }
    try {
        return allowed();
    } catch (...) {
        return false;  // a switch that cannot answer does not allow touching files
    }
}

}  // namespace sagely
