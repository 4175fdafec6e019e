#include <sagely/ui/MessageBubble.h>

#include <sagely/ui/CoachAssistantMessageText.h>
#include <sagely/ui/CoachCardView.h>
#include <sagely/ui/CoachLessonView.h>
#include <sagely/ui/CoachUserMessageText.h>

#include <sagely/CoachPriceTable.h>

#include "ActionViews.h"
#include "Primitives.h"
#include "SpokenText.h"

#include <QDateTime>
#include <QHBoxLayout>
#include <QLocale>
#include <QRegularExpression>
#include <QVBoxLayout>

namespace sagely::ui {

using namespace detail;

MessageBubble::MessageBubble(CoachMessage message, SuggestionHandler onSuggestionSelected,
                             CanvasHandler onOpenInCanvas, QWidget* parent)
    : QWidget(parent),
      m_message(std::move(message)),
      m_onSuggestionSelected(std::move(onSuggestionSelected)),
      m_onOpenInCanvas(std::move(onOpenInCanvas)) {
    setObjectName(QStringLiteral("messageBubble"));
    const bool isUser = m_message.role() == CoachMessage::Role::user;
    auto* row = hstack(this, 8);
    const Qt::Alignment edge = isUser ? Qt::AlignRight : Qt::AlignLeft;
    if (isUser) row->addStretch(1);
    if (m_message.role() == CoachMessage::Role::assistant)
        row->addWidget(avatar(), 0, Qt::AlignTop);
    auto* column = nestedVStack(row, 6);
    // A round of action calls often comes without text of its own.
    if (!m_message.content().empty() || m_message.actionCalls().empty())
        column->addWidget(textBubble(), 0, edge);
    addActionCalls(column);
    addAttachments(column);
    auto* time =
        new StyledLabel(timeText(m_message.timestamp()), TextStyle::caption2, Tint::tertiary);
    time->setObjectName(QStringLiteral("messageTime"));
    if (const auto& usage = m_message.usage()) time->setToolTip(usageText(*usage));
    column->addWidget(time, 0, edge);
    if (isUser) row->addWidget(avatar(), 0, Qt::AlignTop);
    if (!isUser) row->addStretch(1);
    // Read out as one piece: who said what, then what the message carries and when.
    setAccessibleName(spokenMessage(m_message));
    QStringList carried;
    for (const CoachActionCall& call : m_message.actionCalls())
        if (call.status != CoachActionCall::Status::pending)
            carried << QString::fromStdString(call.summaryLine());
    if (const auto& card = m_message.card()) carried << spokenCard(*card);
    if (const auto& lesson = m_message.lesson()) carried << spokenLesson(*lesson);
    carried << localized("Sent at %1").arg(time->text());
    setAccessibleDescription(carried.join(u'\n'));
}

QString MessageBubble::usageText(const TokenUsage& usage) {
    QString text = localized("%1 tokens in, %2 out")
                       .arg(QLocale().toString(qlonglong(usage.inputTokens)),
                            QLocale().toString(qlonglong(usage.outputTokens)));
    // Replies saved before the model was recorded show their tokens only.
    if (usage.model.empty()) return text;
    const auto cost = CoachPriceTable::current().cost(usage);
    const QString model = QString::fromStdString(usage.model);
    return text + u'\n' +
           (cost ? localized("%1 · %2").arg(
                       model, QString::fromStdString(CoachPriceTable::costText(*cost)))
                 : localized("%1 · no price known").arg(model));
}

QString MessageBubble::timeText(Timestamp timestamp) {
    const auto milliseconds = qint64(timestamp.unixSeconds() * 1000.0);
    // The locale's short time, to the minute (some locales' short format carries seconds).
    QString format = QLocale().timeFormat(QLocale::ShortFormat);
    static const QRegularExpression seconds(QStringLiteral("[:.]ss?"));
    format.remove(seconds);
    return QLocale().toString(QDateTime::fromMSecsSinceEpoch(milliseconds).time(), format);
}

QWidget* MessageBubble::avatar() const {
    // The symbol takes well over half of its 24-point circle, as the platform's avatars do.
    constexpr int size = 16;
    SymbolView* view = nullptr;
    if (m_message.role() == CoachMessage::Role::user) {
        view = new SymbolView(QStringLiteral("person.fill"), Tint::white, size);
        view->setCircle({Tint::blue, 1.0}, 24);
    } else {
        view = new SymbolView(QStringLiteral("sparkles"), Tint::blue, size);
        view->setCircle({Tint::blue, 0.1}, 24);
    }
    view->setObjectName(QStringLiteral("avatar"));
    return view;
}

QWidget* MessageBubble::textBubble() const {
    const bool isUser = m_message.role() == CoachMessage::Role::user;
    auto* bubble =
        isUser ? new RoundedPanel(Tint::blue, 1.0, 12) : new RoundedPanel(Tint::secondary, 0.1, 12);
    bubble->setCarriesWhiteText(isUser);
    bubble->setObjectName(QStringLiteral("textBubble"));
    auto* layout = vstack(bubble, 0, 10);
    if (isUser)
        layout->addWidget(new CoachUserMessageText(m_message.content()));
    else
        layout->addWidget(new CoachAssistantMessageText(m_message));
    return bubble;
}

void MessageBubble::addActionCalls(QBoxLayout* column) {
    for (const CoachActionCall& call : m_message.actionCalls()) {
        using Status = CoachActionCall::Status;
        if (call.status == Status::pending) continue;  // its approval card stands for it
        const ActionOutcome outcome =
            call.status == Status::done ? ActionOutcome::ran
            : call.status == Status::declined || call.status == Status::cancelled
                ? ActionOutcome::declined
                : ActionOutcome::failed;
        column->addWidget(actionOutcomeLine(call.summaryLine(), outcome));
        if (call.card) column->addWidget(new CoachCardView(*call.card, m_onSuggestionSelected));
    }
}

void MessageBubble::addAttachments(QBoxLayout* column) {
    if (const auto& card = m_message.card())
        column->addWidget(new CoachCardView(*card, m_onSuggestionSelected));
    if (const auto& lesson = m_message.lesson()) {
        std::function<void()> openInCanvas;
        if (m_onOpenInCanvas) {
            openInCanvas = [handler = m_onOpenInCanvas, lesson = *lesson] { handler(lesson); };
        }
        column->addWidget(new CoachLessonView(*lesson, m_onSuggestionSelected, openInCanvas));
    }
}

}  // namespace sagely::ui
