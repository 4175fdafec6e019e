#include "ConversationPane.h"

#include "Primitives.h"
#include "SpokenText.h"
#include "StreamingReplyText.h"

#include <sagely/ui/CoachSymbols.h>

#include <QHBoxLayout>
#include <QLabel>
#include <QPointer>
#include <QProgressBar>
#include <QPropertyAnimation>
#include <QScrollArea>
#include <QScrollBar>
#include <QTimer>
#include <QVBoxLayout>

#include <algorithm>

namespace sagely::ui::detail {

namespace {

bool sameCallOutcomes(const CoachMessage& shown, const CoachMessage& latest) {
    return std::equal(shown.actionCalls().begin(), shown.actionCalls().end(),
                      latest.actionCalls().begin(), latest.actionCalls().end(),
                      [](const CoachActionCall& a, const CoachActionCall& b) {
                          return a.id == b.id && a.status == b.status;
                      });
}

}  // namespace

MessageSlot::MessageSlot(CoachMessage message, int width) : m_message(std::move(message)) {
    setObjectName(QStringLiteral("messageSlot"));
    setFixedHeight(estimatedHeight(m_message, width));
}

bool MessageSlot::showsAnything() const {
    const auto& calls = m_message.actionCalls();
    return !m_message.content().empty() || m_message.card() || m_message.lesson() ||
           calls.empty() ||
           std::any_of(calls.begin(), calls.end(), [](const CoachActionCall& call) {
               return call.status != CoachActionCall::Status::pending;
           });
}

int MessageSlot::estimatedHeight(const CoachMessage& message, int width) {
    // Roughly: a line of body text per 7 pixels of width per character, plus the bubble's
    // padding and time, plus what a card or a lesson usually takes.
    const int charactersPerLine = std::max(20, std::min(width, 560) / 7);
    const int lines = 1 + int(message.content().size()) / charactersPerLine +
                      int(std::count(message.content().begin(), message.content().end(), '\n'));
    int height = 44 + lines * 18;
    if (message.card())
        height +=
            90 + 22 * int(message.card()->sections.size() * 2 + message.card()->suggestions.size());
    if (message.lesson()) height += 120 + 40 * int(message.lesson()->blocks.size() * 3);
    for (const CoachActionCall& call : message.actionCalls()) height += call.card ? 130 : 24;
    return height;
}

void MessageSlot::realize(const MessageBubble::SuggestionHandler& onSuggestionSelected,
                          const MessageBubble::CanvasHandler& onOpenInCanvas) {
    if (m_bubble) return;
    m_bubble = new MessageBubble(m_message, onSuggestionSelected, onOpenInCanvas);
    vstack(this, 0)->addWidget(m_bubble);
    setMinimumHeight(0);
    setMaximumHeight(QWIDGETSIZE_MAX);
    m_bubble->show();
}

ConversationPane::ConversationPane(const CoachBranding& branding,
                                   MessageBubble::SuggestionHandler onSuggestionSelected,
                                   MessageBubble::CanvasHandler onOpenInCanvas, QWidget* parent)
    : QWidget(parent),
      m_onSuggestionSelected(std::move(onSuggestionSelected)),
      m_onOpenInCanvas(std::move(onOpenInCanvas)) {
    setObjectName(QStringLiteral("messageArea"));
    auto* layout = vstack(this, 0);
    m_scroll = new QScrollArea;
    m_scroll->setObjectName(QStringLiteral("messageScrollArea"));
    m_scroll->setFocusPolicy(Qt::StrongFocus);  // the arrow and page keys scroll the messages
    m_scroll->setAccessibleName(localized("Messages"));
    m_scroll->setAccessibleDescription(localized("The messages of the current conversation."));
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setWidgetResizable(true);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    m_scroll->viewport()->setAutoFillBackground(false);
    layout->addWidget(m_scroll);
    m_content = new QWidget;
    m_content->setObjectName(QStringLiteral("messageList"));
    m_list = vstack(m_content, 16, 16);
    m_suggestions = suggestionPanel(branding);
    m_list->addWidget(m_suggestions);
    m_streaming = new StreamingReplyText;
    m_list->addWidget(m_streaming);
    m_thinking = thinkingRow();
    m_list->addWidget(m_thinking);
    m_list->addStretch(1);
    m_scroll->setWidget(m_content);
    m_content->setAutoFillBackground(false);  // setWidget() turns it on; the pane shows through
    m_animation = new QPropertyAnimation(m_scroll->verticalScrollBar(), "value", this);
    m_animation->setDuration(250);
    m_animation->setEasingCurve(QEasingCurve::InOutQuad);
    connect(m_scroll->verticalScrollBar(), &QScrollBar::rangeChanged, this, [this] {
        applyScroll();
        keepPinned();
    });
    connect(m_scroll->verticalScrollBar(), &QScrollBar::valueChanged, this,
            &ConversationPane::onScrolled);
    connect(m_animation, &QAbstractAnimation::finished, this, [this] {
        m_scrollTarget = nullptr;
        keepPinned();  // the list may have grown while the animation ran
    });
}

QWidget* ConversationPane::suggestionPanel(const CoachBranding& branding) {
    auto* panel = new RoundedPanel(Tint::blue, 0.05, 12);
    panel->setObjectName(QStringLiteral("suggestionPanel"));
    panel->setAccessibleName(QString::fromStdString(branding.title));
    panel->setAccessibleDescription(QString::fromStdString(branding.subtitle));
    auto* column = vstack(panel, 12, 16);
    auto* header = nestedHStack(column, 8);
    header->addWidget(
        new SymbolView(QStringLiteral("sparkles"), Tint::blue, symbolSize(TextStyle::headline)));
    auto* title = new StyledLabel(QString::fromStdString(branding.title), TextStyle::headline);
    title->setObjectName(QStringLiteral("suggestionTitle"));
    header->addWidget(title, 1);
    auto* subtitle = textLabel(QString::fromStdString(branding.subtitle), Qt::PlainText,
                               TextStyle::body, Tint::secondary);
    subtitle->setObjectName(QStringLiteral("suggestionSubtitle"));
    column->addWidget(subtitle);
    auto* chips = nestedVStack(column, 6);
    for (const std::string& suggestion : branding.suggestions) {
        auto* chip = new TintedButton(QString::fromStdString(suggestion), ButtonStyle::plain,
                                      Tint::primary, TextStyle::callout);
        chip->setSymbol(QStringLiteral("arrow.right.circle"), Tint::blue);
        chip->setIconSize(QSize(symbolSize(TextStyle::caption), symbolSize(TextStyle::caption)));
        chip->setObjectName(QStringLiteral("suggestionChip"));
        connect(chip, &QPushButton::clicked, this, [this, suggestion] {
            if (m_onSuggestionSelected) m_onSuggestionSelected(suggestion);
        });
        chips->addWidget(chip, 0, Qt::AlignLeft);
    }
    return panel;
}

QWidget* ConversationPane::thinkingRow() {
    auto* row = new QWidget;
    row->setObjectName(QStringLiteral("thinkingRow"));
    row->setAccessibleName(localized("Thinking..."));
    auto* layout = hstack(row, 8);
    layout->setContentsMargins(12, 8, 12, 8);
    layout->addWidget(
        new SymbolView(QStringLiteral("sparkles"), Tint::blue, symbolSize(TextStyle::body)));
    auto* text = new StyledLabel(localized("Thinking..."), TextStyle::body, Tint::secondary,
                                 {.italic = true});
    text->setObjectName(QStringLiteral("thinkingText"));
    layout->addWidget(text);
    auto* progress = new QProgressBar;
    progress->setRange(0, 0);
    progress->setTextVisible(false);
    progress->setFixedSize(48, 6);
    layout->addWidget(progress);
    layout->addStretch(1);
    row->hide();
    return row;
}

void ConversationPane::setRetryStatus(const QString& status) {
    auto* text = m_thinking->findChild<QLabel*>(QStringLiteral("thinkingText"));
    const QString shown = status.isEmpty() ? localized("Thinking...") : status;
    text->setText(shown);
    m_thinking->setAccessibleName(shown);
}

void ConversationPane::showConversation(const CoachConversation& conversation) {
    if (m_conversationId != conversation.id() || !applyDifference(conversation)) {
        rebuild(conversation);
    }
    m_conversationId = conversation.id();
    const std::size_t count = conversation.messages().size();
    m_suggestions->setVisible(count == 0);
    if (m_lastCount != count) {
        const auto shown = std::find_if(m_slots.rbegin(), m_slots.rend(),
                                        [](MessageSlot* slot) { return slot->showsAnything(); });
        if (shown != m_slots.rend()) scrollToBottomOf(*shown);
    }
    m_lastCount = count;
    scheduleRealize();
    Q_EMIT contentChanged();
}

void ConversationPane::rebuild(const CoachConversation& conversation) {
    // A conversation opened afresh jumps to its end: sweeping through it would build every
    // bubble on the way.
    m_jumpToTarget = true;
    // Filled while hidden: hundreds of slots shown one by one in a visible list cost far more.
    const bool visible = m_content->isVisible();
    if (visible) m_content->hide();
    while (!m_slots.empty()) removeSlot(m_slots.size() - 1);
    for (const CoachMessage& message : conversation.messages()) appendSlot(message);
    if (visible) m_content->show();
}

bool ConversationPane::applyDifference(const CoachConversation& conversation) {
    // Conversations only grow at the end and lose messages at the start; anything else is
    // rebuilt from scratch.
    const auto& messages = conversation.messages();
    std::size_t dropped = 0;
    while (dropped < m_slots.size() &&
           (messages.empty() || m_slots[dropped]->message().id() != messages[0].id()))
        ++dropped;
    const std::size_t kept = m_slots.size() - dropped;
    if (kept > messages.size()) return false;
    for (std::size_t i = 0; i < kept; ++i)
        if (m_slots[dropped + i]->message().id() != messages[i].id()) return false;
    for (std::size_t i = 0; i < dropped; ++i) removeSlot(0);
    // The one message that changes in place: a round of action calls, as each call is answered.
    for (std::size_t i = 0; i < kept; ++i)
        if (!sameCallOutcomes(m_slots[i]->message(), messages[i])) replaceSlot(i, messages[i]);
    for (std::size_t i = kept; i < messages.size(); ++i) appendSlot(messages[i]);
    return true;
}

void ConversationPane::appendSlot(const CoachMessage& message) {
    const int width = m_scroll->viewport()->width() - 32;
    auto* slot = new MessageSlot(message, width);
    // After the suggestion panel and the slots already shown.
    m_list->insertWidget(int(1 + m_slots.size()), slot);
    slot->setVisible(slot->showsAnything());
    m_slots.push_back(slot);
}

void ConversationPane::replaceSlot(std::size_t index, const CoachMessage& message) {
    auto* slot = new MessageSlot(message, m_scroll->viewport()->width() - 32);
    m_list->insertWidget(m_list->indexOf(m_slots[index]), slot);
    slot->setVisible(slot->showsAnything());
    removeSlot(index);
    m_slots.insert(m_slots.begin() + std::ptrdiff_t(index), slot);
}

void ConversationPane::removeSlot(std::size_t index) {
    MessageSlot* slot = m_slots[index];
    m_slots.erase(m_slots.begin() + std::ptrdiff_t(index));
    m_list->removeWidget(slot);
    if (m_scrollTarget == slot) m_scrollTarget = nullptr;
    // A bubble may be removed from inside one of its own button handlers.
    slot->hide();
    slot->deleteLater();
}

std::vector<QWidget*> ConversationPane::focusableContent() const {
    std::vector<QWidget*> focusable;
    for (QWidget* child : m_content->findChildren<QWidget*>())
        if (child->focusPolicy() & Qt::TabFocus && child->isVisibleTo(m_content))
            focusable.push_back(child);
    auto top = [this](QWidget* widget) { return widget->mapTo(m_content, QPoint(0, 0)); };
    std::stable_sort(focusable.begin(), focusable.end(), [&](QWidget* a, QWidget* b) {
        const QPoint pa = top(a);
        const QPoint pb = top(b);
        return pa.y() != pb.y() ? pa.y() < pb.y() : pa.x() < pb.x();
    });
    return focusable;
}

std::vector<MessageBubble*> ConversationPane::bubbles() const {
    std::vector<MessageBubble*> built;
    for (MessageSlot* slot : m_slots)
        if (slot->bubble()) built.push_back(slot->bubble());
    return built;
}

void ConversationPane::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    scheduleRealize();
}

void ConversationPane::scheduleRealize() {
    if (m_realizeQueued) return;
    m_realizeQueued = true;
    QTimer::singleShot(0, this, [this] {
        m_realizeQueued = false;
        realizeVisible();
    });
}

void ConversationPane::fitContent() {
    // The scroll area sizes the list only when its layout request comes round; until then a
    // list that just grew would be squeezed into its old height, and every slot would seem in
    // view.
    const int width = m_scroll->viewport()->width();
    const int height = m_content->hasHeightForWidth() ? m_content->heightForWidth(width)
                                                      : m_content->sizeHint().height();
    m_content->resize(width, std::max(height, m_scroll->viewport()->height()));
    m_content->layout()->activate();
}

void ConversationPane::realizeVisible() {
    fitContent();
    QScrollBar* bar = m_scroll->verticalScrollBar();
    const int viewport = m_scroll->viewport()->height();
    // Build what is (or is about to be) on screen and a screenful either side, so scrolling
    // finds bubbles ready; an animated scroll is judged by where it ends.
    const bool animating = m_animation->state() == QAbstractAnimation::Running;
    const int position = animating ? m_animation->endValue().toInt() : bar->value();
    const int top = position - viewport;
    const int bottom = position + 2 * viewport;
    QWidget* anchor = nullptr;
    int anchorOffset = 0;
    bool built = false;
    for (MessageSlot* slot : m_slots) {
        if (slot->isHidden()) continue;  // its geometry is not kept up to date
        const QRect box = slot->geometry();
        if (!anchor && box.bottom() >= bar->value()) {
            anchor = slot;
            anchorOffset = box.top() - bar->value();
        }
        if (slot->bubble() || box.bottom() < top || box.top() > bottom) continue;
        slot->realize(m_onSuggestionSelected, m_onOpenInCanvas);
        built = true;
    }
    if (!built) return;
    Q_EMIT contentChanged();
    fitContent();
    // Keep the first visible message where it was while slots above it took their real size;
    // a view pinned to the bottom stays there instead.
    if (m_pinned)
        keepPinned();
    else if (anchor && !m_scrollTarget)
        setScrollValue(anchor->geometry().top() - anchorOffset);
    scheduleRealize();  // heights changed: the visible band may now hold other slots
}

void ConversationPane::setThinking(bool thinking) {
    const bool started = thinking && m_thinking->isHidden();
    m_thinking->setVisible(thinking);
    if (started) scrollToBottomOf(m_thinking);
}

void ConversationPane::setPartialReply(const std::string& text) {
    const bool started = !text.empty() && m_streaming->isHidden();
    m_streaming->showText(text);
    if (started) scrollToBottomOf(m_streaming);
}

QWidget* ConversationPane::partialReplyView() const {
    return m_streaming;
}

void ConversationPane::showApproval(const std::optional<PendingApproval>& pending,
                                    const ActionApprovalCard::AnswerHandler& onAnswer) {
    // Rebuilt only when the call changed: a rebuilt card would lose the focus and the check box.
    if (pending == m_pending) return;
    m_pending = pending;
    if (m_approval) {
        if (m_scrollTarget == m_approval) m_scrollTarget = nullptr;
        m_approval->hide();
        m_approval->deleteLater();  // it may be delivering the click that led here
        m_approval = nullptr;
    }
    if (pending) {
        m_approval = new ActionApprovalCard(pending->title, pending->argumentSummary, onAnswer);
        m_list->insertWidget(m_list->indexOf(m_streaming), m_approval);
        m_approval->show();
        announce(m_approval);
        scrollToBottomOf(m_approval);
    }
    Q_EMIT contentChanged();
}

void ConversationPane::scrollToBottomOf(QWidget* target) {
    m_scrollTarget = target;
    m_pinned = true;
    QTimer::singleShot(0, this, &ConversationPane::applyScroll);
}

void ConversationPane::onScrolled(int value) {
    scheduleRealize();
    // Only the user's own scrolling unpins the view (or pins it again, at the bottom).
    if (m_movingScroll || m_scrollTarget || m_animation->state() == QAbstractAnimation::Running)
        return;
    m_pinned = value >= m_scroll->verticalScrollBar()->maximum();
}

void ConversationPane::setScrollValue(int value) {
    m_movingScroll = true;
    m_scroll->verticalScrollBar()->setValue(value);
    m_movingScroll = false;
}

void ConversationPane::keepPinned() {
    if (!m_pinned || m_scrollTarget || m_animation->state() == QAbstractAnimation::Running) return;
    setScrollValue(m_scroll->verticalScrollBar()->maximum());
}

void ConversationPane::applyScroll() {
    if (!m_scrollTarget) return;
    fitContent();
    QScrollBar* bar = m_scroll->verticalScrollBar();
    const QRect box = m_scrollTarget->geometry();
    const int bottom = box.y() + box.height() + m_list->contentsMargins().bottom();
    const int value = std::clamp(bottom - m_scroll->viewport()->height(), 0, bar->maximum());
    if (value == bar->value() && m_animation->state() != QAbstractAnimation::Running) {
        m_scrollTarget = nullptr;
        m_jumpToTarget = false;
        return;
    }
    if (m_jumpToTarget) {
        m_animation->stop();
        setScrollValue(value);
        QTimer::singleShot(0, this, &ConversationPane::applyScroll);  // done once it holds
        return;
    }
    if (m_animation->state() == QAbstractAnimation::Running && m_animation->endValue() == value)
        return;
    m_animation->stop();
    m_animation->setStartValue(bar->value());
    m_animation->setEndValue(value);
    m_animation->start();
}

}  // namespace sagely::ui::detail
