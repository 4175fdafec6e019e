#include "MessageInputBar.h"

#include "Primitives.h"

#include <QAbstractTextDocumentLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QTextBlock>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace sagely::ui::detail {
namespace {

bool isReturn(const QKeyEvent* event) {
    return event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
}

bool isCommandReturn(const QKeyEvent* event) {
    return isReturn(event) && (event->modifiers() & Qt::ControlModifier);
}

}  // namespace

MessageInputField::MessageInputField(QWidget* parent) : QPlainTextEdit(parent) {
    setObjectName(QStringLiteral("messageInput"));
    setFrameShape(QFrame::NoFrame);
    setFont(styleFont(TextStyle::body));
    setTabChangesFocus(true);
    setLineWrapMode(QPlainTextEdit::WidgetWidth);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    viewport()->setAutoFillBackground(false);
    setStyleSheet(QStringLiteral("QPlainTextEdit { background: transparent; }"));
    connect(document(), &QTextDocument::contentsChanged, this, &MessageInputField::fitHeight);
    fitHeight();
}

int MessageInputField::visibleLines() const {
    return m_lines;
}

bool MessageInputField::event(QEvent* event) {
    // Claim Ctrl-Return before window shortcuts see it, so one key press sends once.
    if (event->type() == QEvent::ShortcutOverride &&
        isCommandReturn(static_cast<QKeyEvent*>(event))) {
        event->accept();
        return true;
    }
    return QPlainTextEdit::event(event);
}

void MessageInputField::keyPressEvent(QKeyEvent* event) {
    if (isCommandReturn(event)) {
        Q_EMIT commandSubmitted();
        return;
    }
    if (isReturn(event) && !(event->modifiers() & (Qt::ShiftModifier | Qt::AltModifier))) {
        Q_EMIT submitted();
        return;
    }
    QPlainTextEdit::keyPressEvent(event);
}

void MessageInputField::resizeEvent(QResizeEvent* event) {
    QPlainTextEdit::resizeEvent(event);
    fitHeight();
}

void MessageInputField::fitHeight() {
    // The plain-text layout measures the document in visual lines (wrapped lines included).
    const int needed = int(document()->documentLayout()->documentSize().height());
    const int lines = std::clamp(needed, 1, kMaximumLines);
    const int margins = int(std::ceil(document()->documentMargin() * 2)) + 2 * frameWidth() +
                        contentsMargins().top() + contentsMargins().bottom() + 2;
    const int height = lines * fontMetrics().lineSpacing() + margins;
    m_lines = lines;
    setVerticalScrollBarPolicy(needed > kMaximumLines ? Qt::ScrollBarAsNeeded
                                                      : Qt::ScrollBarAlwaysOff);
    if (this->height() != height) setFixedHeight(height);
}

MessageInputBar::MessageInputBar(const QString& placeholder, Footer footer, QWidget* parent)
    : QWidget(parent) {
    setObjectName(QStringLiteral("inputArea"));
    auto* column = vstack(this, 0);
    auto* row = new QHBoxLayout;
    row->setSpacing(8);
    row->setContentsMargins(12, 12, 12, 12);
    column->addLayout(row);
    m_field = new MessageInputField;
    m_field->setPlaceholderText(placeholder);
    m_field->setAccessibleName(localized("Message"));
    m_field->setAccessibleDescription(
        localized("Return sends the message; Shift-Return starts a new line."));
    row->addWidget(m_field, 1, Qt::AlignVCenter);
    m_send = new SymbolButton(QStringLiteral("arrow.up.circle.fill"), Tint::secondary,
                              symbolSize(TextStyle::title2));
    m_send->setObjectName(QStringLiteral("sendButton"));
    m_send->setAccessibleName(localized("Send"));
    m_send->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return));
    row->addWidget(m_send, 0, Qt::AlignVCenter);
    m_stop = new SymbolButton(QStringLiteral("stop.circle.fill"), Tint::blue,
                              symbolSize(TextStyle::title2));
    m_stop->setObjectName(QStringLiteral("stopButton"));
    m_stop->setAccessibleName(localized("Stop"));
    m_stop->setAccessibleDescription(localized("Stops the reply; the text so far is kept."));
    m_stop->hide();
    row->addWidget(m_stop, 0, Qt::AlignVCenter);
    connect(m_stop, &QPushButton::clicked, this, &MessageInputBar::stopRequested);
    if (footer.onOpenGuide || footer.onOpenSettings) column->addWidget(footerRow(footer));
    connect(m_field, &MessageInputField::submitted, this, &MessageInputBar::sendRequested);
    connect(m_field, &MessageInputField::commandSubmitted, m_send, [this] {
        if (m_send->isEnabled()) m_send->click();
    });
    connect(m_send, &QPushButton::clicked, this, &MessageInputBar::sendRequested);
    connect(m_field, &QPlainTextEdit::textChanged, this, &MessageInputBar::refreshSendButton);
    refreshSendButton();
}

QWidget* MessageInputBar::footerRow(const Footer& footer) {
    auto* row = new QWidget;
    row->setObjectName(QStringLiteral("inputFooter"));
    auto* layout = hstack(row, 0);
    layout->setContentsMargins(12, 0, 12, 8);
    auto add = [&](const char* symbol, const char* tip, const char* name,
                   const std::function<void()>& action) {
        auto* button = new SymbolButton(QString::fromLatin1(symbol), Tint::secondary, 13);
        button->setToolTip(localized(tip));
        button->setAccessibleName(localized(tip));
        m_footerButtons.push_back(button);
        button->setObjectName(QString::fromLatin1(name));
        connect(button, &QPushButton::clicked, this, [action] { action(); });
        layout->addWidget(button);
    };
    if (footer.onOpenGuide) add("book", "Open Guide", "openGuideButton", footer.onOpenGuide);
    if (footer.onOpenSettings)
        add("gearshape", "Coach Settings", "openSettingsButton", footer.onOpenSettings);
    layout->addStretch(1);
    return row;
}

std::vector<QWidget*> MessageInputBar::focusChain() const {
    std::vector<QWidget*> chain{m_field, m_send};
    chain.insert(chain.end(), m_footerButtons.begin(), m_footerButtons.end());
    return chain;
}

QPushButton* MessageInputBar::sendButton() const {
    return m_send;
}

QPushButton* MessageInputBar::stopButton() const {
    return m_stop;
}

void MessageInputBar::setResponding(bool responding) {
    m_stop->setVisible(responding);
}

QString MessageInputBar::draft() const {
    return m_field->toPlainText();
}

void MessageInputBar::setDraft(const QString& draft) {
    if (m_field->toPlainText() != draft) m_field->setPlainText(draft);
}

void MessageInputBar::setThinking(bool thinking) {
    m_thinking = thinking;
    refreshSendButton();
}

void MessageInputBar::refreshSendButton() {
    // The raw draft decides, not the trimmed one: blanks enable the button, and the send action
    // then ignores them.
    const bool hasDraft = !m_field->toPlainText().isEmpty();
    m_send->setTint(hasDraft ? Tint::blue : Tint::secondary);
    m_send->setEnabled(hasDraft && !m_thinking);
}

}  // namespace sagely::ui::detail
