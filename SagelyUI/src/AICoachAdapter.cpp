#include <sagely/ui/AICoachAdapter.h>

namespace sagely::ui {

namespace {

QString idText(const Uuid& id) {
    return QString::fromStdString(id.toString());
}

}  // namespace

AICoachAdapter::AICoachAdapter(AICoach& coach, QObject* parent) : QObject(parent), m_coach(coach) {
    m_subscriptions.push_back(
        coach.conversations().onDidChange([this](const auto&) { Q_EMIT conversationsChanged(); }));
    m_subscriptions.push_back(coach.currentConversation().onDidChange(
        [this](const auto&) { Q_EMIT currentConversationChanged(); }));
    m_subscriptions.push_back(
        coach.isThinking().onDidChange([this](bool value) { Q_EMIT thinkingChanged(value); }));
    m_subscriptions.push_back(
        coach.partialReply().onDidChange([this](const auto&) { Q_EMIT partialReplyChanged(); }));
    m_subscriptions.push_back(
        coach.retryStatus().onDidChange([this](const auto&) { Q_EMIT retryStatusChanged(); }));
    m_subscriptions.push_back(coach.isLoadingManual().onDidChange(
        [this](bool value) { Q_EMIT loadingManualChanged(value); }));
    m_subscriptions.push_back(
        coach.manualReady().onDidChange([this](bool value) { Q_EMIT manualReadyChanged(value); }));
    m_subscriptions.push_back(
        coach.error().onDidChange([this](const auto&) { Q_EMIT errorChanged(); }));
    m_subscriptions.push_back(
        coach.pendingAction().onDidChange([this](const auto&) { Q_EMIT pendingActionChanged(); }));
}

AICoachAdapter::~AICoachAdapter() = default;

bool AICoachAdapter::isThinking() const {
    return m_coach.isThinking().get();
}
QString AICoachAdapter::partialReply() const {
    return QString::fromStdString(m_coach.partialReply().get());
}
QString AICoachAdapter::retryStatus() const {
    return QString::fromStdString(m_coach.retryStatus().get());
}
bool AICoachAdapter::isResponding() const {
    return m_coach.isThinking().get() || !m_coach.partialReply().get().empty() ||
           m_coach.pendingAction().get().has_value();
}
bool AICoachAdapter::isLoadingManual() const {
    return m_coach.isLoadingManual().get();
}
bool AICoachAdapter::manualReady() const {
    return m_coach.manualReady().get();
}

QString AICoachAdapter::error() const {
    const auto& error = m_coach.error().get();
    return error ? QString::fromStdString(*error) : QString();
}

bool AICoachAdapter::hasError() const {
    return m_coach.error().get().has_value();
}

void AICoachAdapter::setError(const QString& error) {
    m_coach.setError(error.toStdString());
}

void AICoachAdapter::clearError() {
    m_coach.setError(std::nullopt);
}

int AICoachAdapter::conversationCount() const {
    return int(m_coach.conversations().get().size());
}

QString AICoachAdapter::currentConversationId() const {
    const auto& current = currentConversation();
    return current ? idText(current->id()) : QString();
}

QString AICoachAdapter::currentConversationTitle() const {
    const auto& current = currentConversation();
    return current ? QString::fromStdString(current->title()) : QString();
}

int AICoachAdapter::currentMessageCount() const {
    const auto& current = currentConversation();
    return current ? int(current->messages().size()) : 0;
}

const std::vector<CoachConversation>& AICoachAdapter::conversations() const {
    return m_coach.conversations().get();
}

const std::optional<CoachConversation>& AICoachAdapter::currentConversation() const {
    return m_coach.currentConversation().get();
}

const CoachConversation* AICoachAdapter::conversation(const QString& id) const {
    const auto uuid = Uuid::parse(id.toStdString());
    if (!uuid) return nullptr;
    for (const CoachConversation& conversation : conversations())
        if (conversation.id() == *uuid) return &conversation;
    return nullptr;
}

void AICoachAdapter::preloadManual() {
    m_coach.preloadManual();
}
void AICoachAdapter::newConversation() {
    m_coach.newConversation();
}

void AICoachAdapter::selectConversation(const QString& id) {
    // Copied first: selecting replaces the value the pointer refers into.
    if (const CoachConversation* found = conversation(id)) {
        const CoachConversation chosen = *found;
        m_coach.selectConversation(chosen);
    }
}

void AICoachAdapter::deleteConversation(const QString& id) {
    if (const CoachConversation* found = conversation(id)) {
        const CoachConversation doomed = *found;
        m_coach.deleteConversation(doomed);
    }
}

void AICoachAdapter::stop() {
    m_coach.stop();
}

void AICoachAdapter::approvePendingAction(bool always) {
    m_coach.approvePendingAction(always);
}

void AICoachAdapter::denyPendingAction() {
    m_coach.denyPendingAction();
}

void AICoachAdapter::send(const QString& question) {
    m_coach.send(question.toStdString());
}

}  // namespace sagely::ui
