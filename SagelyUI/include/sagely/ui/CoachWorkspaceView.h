// CoachWorkspaceView — the coach's chat screen: a split view of the conversation sidebar and
// the detail pane (knowledge banner, the current conversation's messages or the empty state, the
// message input, and the error banner).
//
// The view keeps no conversation data of its own: it shows what the AICoach publishes and
// changes it only through the coach's operations. The host words the screen through its
// CoachBranding and hooks its own windows in through the optional actions; an absent action
// removes its buttons. On appearing the view asks the coach to preload the manual; when
// loading ends with the manual ready it shows "Knowledge is ready." for three seconds.
//
// Sending (Return, the send button or Ctrl/Command-Return, a suggestion chip, a card or lesson
// suggestion): the draft is trimmed; a blank draft sends nothing and stays; otherwise the draft
// is cleared and the text goes, on the next turn of the event loop, to `onSendMessage` when the
// host supplied it, else to the coach. The send button is enabled by the raw draft and disabled
// while the coach is thinking; Return has no such guard.
//
// Thread rules: GUI thread only. Destroy the view before the coach.
#pragma once

#include <sagely/AICoach.h>
#include <sagely/CoachLesson.h>
#include <sagely/ui/CoachBranding.h>
#include <sagely/ui/Export.h>

#include <QWidget>

#include <functional>
#include <string>

class QSplitter;
class QStackedWidget;
class QVBoxLayout;

namespace sagely::ui {

class AICoachAdapter;

namespace detail {
class ConversationPane;
class KnowledgeBanner;
class MessageInputBar;
class WorkspaceSidebar;
}  // namespace detail

/// The host's hooks; each may be left empty.
struct CoachWorkspaceActions {
    std::function<void()> onOpenSettings = {};
    std::function<void()> onOpenGuide = {};
    /// Replaces the built-in send path (the coach's sendAndReturnReply) when present.
    std::function<void(const std::string&)> onSendMessage = {};
    /// Handed to every message bubble; lessons show an "AI Canvas" button when present.
    std::function<void(const CoachLesson&)> onOpenInCanvas = {};
};

class SAGELY_UI_EXPORT CoachWorkspaceView : public QWidget {
    Q_OBJECT
public:
    using Actions = CoachWorkspaceActions;

    /// How long the ready banner stays.
    static constexpr int kReadyBannerMilliseconds = 3000;

    CoachWorkspaceView(AICoach& coach, CoachBranding branding, Actions actions = {},
                       QWidget* parent = nullptr);
    ~CoachWorkspaceView() override;

    AICoach& coach() const;
    AICoachAdapter& adapter() const { return *m_adapter; }
    const CoachBranding& branding() const { return m_branding; }

    /// The draft in the message field.
    QString messageInput() const;
    void setMessageInput(const QString& text);
    /// Runs the send action on the current draft.
    void send();
    /// Whether "Knowledge is ready." is showing.
    bool isReadyBannerShown() const { return m_showReadyBanner; }

protected:
    void showEvent(QShowEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;

private:
    QWidget* detailPane();
    QWidget* emptyState();
    QWidget* conversationPage();
    void connectCoach();
    void onCurrentConversationChanged();
    void onThinkingChanged();
    void onLoadingManualChanged();
    void setReadyBannerShown(bool shown);
    void refreshKnowledgeBanner();
    void refreshErrorBanner();
    void refreshApproval();
    void chooseSuggestion(const std::string& suggestion);
    /// Tab goes sidebar, messages, their suggestions, banner, input, footer; asked for whenever
    /// buttons come or go.
    void scheduleTabOrder();
    void applyTabOrder();

    AICoachAdapter* m_adapter;
    CoachBranding m_branding;
    Actions m_actions;
    QSplitter* m_splitter = nullptr;
    detail::WorkspaceSidebar* m_sidebar = nullptr;
    detail::KnowledgeBanner* m_knowledgeBanner = nullptr;
    QStackedWidget* m_content = nullptr;
    detail::ConversationPane* m_pane = nullptr;
    detail::MessageInputBar* m_input = nullptr;
    QWidget* m_errorArea = nullptr;
    QVBoxLayout* m_errorLayout = nullptr;
    bool m_showReadyBanner = false;
    bool m_wasLoadingManual = false;
    bool m_tabOrderQueued = false;
};

}  // namespace sagely::ui
