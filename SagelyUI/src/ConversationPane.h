// The workspace's message area: a scroll view over the current conversation's bubbles, the
// suggestion panel while the conversation is empty, and the "Thinking..." row.
//
// The list is lazy: every message has a slot of an estimated height, and a slot builds its
// bubble only when it comes near the visible part of the list, so opening a conversation of
// hundreds of messages builds the few bubbles on screen. When slots above the visible part grow
// or shrink to their real height, the scroll position is corrected so that what the user looks
// at stays put. Slots are kept by message id and updated incrementally: appended messages get
// new slots, dropped ones lose theirs. Whenever the number of messages changes the view scrolls
// to the last message; when thinking starts it scrolls to the thinking row. Once there, the view
// stays pinned to the bottom while bubbles (the reply arriving among them) grow or the
// viewport shrinks, until the user scrolls up. Procedure steps and cards appear with the
// complete reply's bubble. A host action call that waits for the user's answer shows its approval
// card under the messages.
#pragma once

#include "ActionViews.h"

#include <sagely/CoachConversation.h>
#include <sagely/ui/CoachBranding.h>
#include <sagely/ui/MessageBubble.h>

#include <QWidget>

#include <functional>
#include <optional>
#include <string>
#include <vector>

class QPropertyAnimation;
class QScrollArea;
class QVBoxLayout;

namespace sagely::ui::detail {

/// One message's place in the list: an empty box of estimated height until its bubble is built.
class MessageSlot : public QWidget {
public:
    MessageSlot(CoachMessage message, int width);
    const CoachMessage& message() const { return m_message; }
    /// Whether the message has anything to show yet: a round of action calls that all wait for
    /// the user's answer has not (the approval card stands for it); its slot stays hidden.
    bool showsAnything() const;
    MessageBubble* bubble() const { return m_bubble; }
    /// Builds the bubble (once).
    void realize(const MessageBubble::SuggestionHandler& onSuggestionSelected,
                 const MessageBubble::CanvasHandler& onOpenInCanvas);
    /// A guess of the bubble's height at the given list width, from its content.
    static int estimatedHeight(const CoachMessage& message, int width);

private:
    CoachMessage m_message;
    MessageBubble* m_bubble = nullptr;
};

class ConversationPane : public QWidget {
    Q_OBJECT
public:
    ConversationPane(const CoachBranding& branding,
                     MessageBubble::SuggestionHandler onSuggestionSelected,
                     MessageBubble::CanvasHandler onOpenInCanvas, QWidget* parent = nullptr);

    /// Shows the conversation, reusing the slots of messages already shown.
    void showConversation(const CoachConversation& conversation);
    void setThinking(bool thinking);
    /// The reply in flight, under the messages, with its paragraphs drawn as in its finished
    /// bubble; it only grows (only its end is laid out again) until it is emptied, which hides
    /// it.
    void setPartialReply(const std::string& text);
    /// Shown in the thinking row instead of "Thinking..." while not empty.
    void setRetryStatus(const QString& status);
    QWidget* partialReplyView() const;

    /// The call waiting for the user: what the approval card asks.
    struct PendingApproval {
        std::string callId;
        std::string title;
        std::string argumentSummary;
        friend bool operator==(const PendingApproval&, const PendingApproval&) = default;
    };
    /// Shows the approval card of the call that waits (answers go to `onAnswer`) under the
    /// messages, or none.
    void showApproval(const std::optional<PendingApproval>& pending,
                      const ActionApprovalCard::AnswerHandler& onAnswer);

    QScrollArea* scrollArea() const { return m_scroll; }
    /// The bubbles built so far, in display order.
    std::vector<MessageBubble*> bubbles() const;
    /// How many messages the list holds (built or not).
    std::size_t messageCount() const { return m_slots.size(); }
    /// The buttons in the list (suggestion chips, "Try Next", canvas), top to bottom.
    std::vector<QWidget*> focusableContent() const;

Q_SIGNALS:
    /// Bubbles were built or removed, or the suggestion panel came or went.
    void contentChanged();

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    QWidget* suggestionPanel(const CoachBranding& branding);
    QWidget* thinkingRow();
    void rebuild(const CoachConversation& conversation);
    bool applyDifference(const CoachConversation& conversation);
    void appendSlot(const CoachMessage& message);
    /// Swaps the slot for one of the message's newer state.
    void replaceSlot(std::size_t index, const CoachMessage& message);
    void removeSlot(std::size_t index);
    void fitContent();
    void scheduleRealize();
    void realizeVisible();
    void scrollToBottomOf(QWidget* target);
    void applyScroll();
    void onScrolled(int value);
    /// Moves the scroll bar (marking the move as the view's own, not the user's).
    void setScrollValue(int value);
    void keepPinned();

    MessageBubble::SuggestionHandler m_onSuggestionSelected;
    MessageBubble::CanvasHandler m_onOpenInCanvas;
    QScrollArea* m_scroll;
    QWidget* m_content;
    QVBoxLayout* m_list;
    QWidget* m_suggestions;
    QWidget* m_thinking;
    class StreamingReplyText* m_streaming;
    std::optional<PendingApproval> m_pending;
    ActionApprovalCard* m_approval = nullptr;
    QPropertyAnimation* m_animation;
    std::optional<Uuid> m_conversationId;
    std::vector<MessageSlot*> m_slots;
    std::optional<std::size_t> m_lastCount;
    QWidget* m_scrollTarget = nullptr;
    bool m_realizeQueued = false;
    bool m_jumpToTarget = false;
    bool m_pinned = false;
    bool m_movingScroll = false;
};

}  // namespace sagely::ui::detail
