// AICoachAdapter — an AICoach seen from Qt: its published state as Q_PROPERTYs whose NOTIFY
// signals are re-emitted from the engine's did-change notifications, and its operations as
// slots.
//
// Conversations are addressed by their id in canonical form. The adapter holds the coach by
// reference: destroy the adapter (or the widgets that own one) before the coach.
//
// Thread rules: GUI thread only (the coach's main thread).
#pragma once

#include <sagely/AICoach.h>
#include <sagely/ui/Export.h>

#include <QObject>
#include <QString>

#include <optional>
#include <vector>

namespace sagely::ui {

class SAGELY_UI_EXPORT AICoachAdapter : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool thinking READ isThinking NOTIFY thinkingChanged)
    Q_PROPERTY(QString partialReply READ partialReply NOTIFY partialReplyChanged)
    Q_PROPERTY(QString retryStatus READ retryStatus NOTIFY retryStatusChanged)
    Q_PROPERTY(bool loadingManual READ isLoadingManual NOTIFY loadingManualChanged)
    Q_PROPERTY(bool manualReady READ manualReady NOTIFY manualReadyChanged)
    Q_PROPERTY(QString error READ error WRITE setError RESET clearError NOTIFY errorChanged)
    Q_PROPERTY(bool hasError READ hasError NOTIFY errorChanged)
    Q_PROPERTY(int conversationCount READ conversationCount NOTIFY conversationsChanged)
    Q_PROPERTY(
        QString currentConversationId READ currentConversationId NOTIFY currentConversationChanged)
    Q_PROPERTY(QString currentConversationTitle READ currentConversationTitle NOTIFY
                   currentConversationChanged)
    Q_PROPERTY(int currentMessageCount READ currentMessageCount NOTIFY currentConversationChanged)

public:
    explicit AICoachAdapter(AICoach& coach, QObject* parent = nullptr);
    ~AICoachAdapter() override;

    AICoach& coach() const { return m_coach; }

    bool isThinking() const;
    /// The reply in flight as it arrives; empty when none.
    QString partialReply() const;
    /// "Retrying in N s…" while the request waits to be tried again; empty otherwise.
    QString retryStatus() const;
    /// A request runs: thinking, its reply arriving, or an action call waiting for the user.
    bool isResponding() const;
    bool isLoadingManual() const;
    bool manualReady() const;
    /// The error text (or code); empty when there is none.
    QString error() const;
    bool hasError() const;
    void setError(const QString& error);
    int conversationCount() const;
    QString currentConversationId() const;
    QString currentConversationTitle() const;
    int currentMessageCount() const;

    const std::vector<CoachConversation>& conversations() const;
    const std::optional<CoachConversation>& currentConversation() const;
    /// The conversation with that id, or null.
    const CoachConversation* conversation(const QString& id) const;

public Q_SLOTS:
    void clearError();
    void preloadManual();
    void newConversation();
    /// Shows the conversation with that id; an unknown id does nothing.
    void selectConversation(const QString& id);
    /// Deletes the conversation with that id; an unknown id does nothing.
    void deleteConversation(const QString& id);
    /// Asks the question and ignores the reply.
    void send(const QString& question);
    /// Ends the request in flight, keeping the text that arrived.
    void stop();
    /// Answers the host action call that waits for the user (nothing happens when none does);
    /// with `always`, later calls of that action in this conversation run without asking.
    void approvePendingAction(bool always = false);
    void denyPendingAction();

Q_SIGNALS:
    void conversationsChanged();
    void currentConversationChanged();
    void thinkingChanged(bool thinking);
    void partialReplyChanged();
    void retryStatusChanged();
    void loadingManualChanged(bool loading);
    void manualReadyChanged(bool ready);
    void errorChanged();
    /// A host action call started or stopped waiting for the user's answer.
    void pendingActionChanged();

private:
    AICoach& m_coach;
    std::vector<Subscription> m_subscriptions;
};

}  // namespace sagely::ui
