#include "ActionViews.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QTextDocumentFragment>
#include <QVBoxLayout>

#include <utility>

namespace sagely::ui::detail {

QString approvalQuestion(const std::string& title, const std::string& argumentSummary) {
    const QString action =
        QStringLiteral("<i>%1</i>").arg(QString::fromStdString(title).toHtmlEscaped());
    if (argumentSummary.empty()) return localized("Run %1?").arg(action);
    return localized("Run %1 with %2?")
        .arg(action, QString::fromStdString(argumentSummary).toHtmlEscaped());
}

ActionApprovalCard::ActionApprovalCard(const std::string& title, const std::string& argumentSummary,
                                       AnswerHandler onAnswer, QWidget* parent)
    : RoundedPanel(Tint::blue, 0.08, 12, parent), m_onAnswer(std::move(onAnswer)) {
    setObjectName(QStringLiteral("actionApprovalCard"));
    setStroke(Tint::blue, 0.3);
    setMaximumWidth(560);
    auto* column = vstack(this, 10, 12);
    auto* heading = nestedHStack(column, 8);
    heading->addWidget(
        new SymbolView(QStringLiteral("sparkles"), Tint::blue, symbolSize(TextStyle::body)), 0,
        Qt::AlignTop);
    const QString question = approvalQuestion(title, argumentSummary);
    auto* text = textLabel(question, Qt::RichText, TextStyle::body);
    text->setObjectName(QStringLiteral("actionQuestion"));
    heading->addWidget(text, 1);
    m_always = new QCheckBox(localized("Always allow for this conversation"));
    m_always->setObjectName(QStringLiteral("actionAlwaysAllowCheck"));
    m_always->setFont(styleFont(TextStyle::callout));
    m_always->setAccessibleName(m_always->text());
    column->addWidget(m_always);
    auto* buttons = nestedHStack(column, 12);
    m_allow = new TintedButton(localized("Allow"), ButtonStyle::borderedProminent, Tint::accent,
                               TextStyle::callout);
    m_allow->setObjectName(QStringLiteral("actionAllowButton"));
    m_allow->setAccessibleName(localized("Allow %1").arg(QString::fromStdString(title)));
    m_deny = new TintedButton(localized("Deny"), ButtonStyle::bordered, Tint::accent,
                              TextStyle::callout);
    m_deny->setObjectName(QStringLiteral("actionDenyButton"));
    m_deny->setAccessibleName(localized("Deny %1").arg(QString::fromStdString(title)));
    buttons->addWidget(m_allow);
    buttons->addWidget(m_deny);
    buttons->addStretch(1);
    connect(m_allow, &QPushButton::clicked, this, [this] { answer(true); });
    connect(m_deny, &QPushButton::clicked, this, [this] { answer(false); });
    setAccessibleName(localized("Allow an action?"));
    setAccessibleDescription(QTextDocumentFragment::fromHtml(question).toPlainText());
}

void ActionApprovalCard::answer(bool allowed) {
    // Answered once: a second click while the coach moves on must not answer the next call.
    m_allow->setEnabled(false);
    m_deny->setEnabled(false);
    m_always->setEnabled(false);
    if (auto handler = std::exchange(m_onAnswer, nullptr))
        handler(allowed, allowed && m_always->isChecked());
}

QWidget* actionOutcomeLine(const std::string& summary, ActionOutcome outcome) {
    auto* line = new QWidget;
    line->setObjectName(QStringLiteral("actionOutcomeLine"));
    auto* row = hstack(line, 6);
    const auto [symbol, tint] = [outcome]() -> std::pair<const char*, Tint> {
        switch (outcome) {
            case ActionOutcome::ran:
                return {"checkmark.circle.fill", Tint::green};
            case ActionOutcome::declined:
                return {"stop.circle.fill", Tint::secondary};
            case ActionOutcome::failed:
                break;
        }
        return {"exclamationmark.triangle.fill", Tint::orange};
    }();
    row->addWidget(
        new SymbolView(QString::fromLatin1(symbol), tint, symbolSize(TextStyle::caption)), 0,
        Qt::AlignTop);
    auto* text = textLabel(QString::fromStdString(summary), Qt::PlainText, TextStyle::caption,
                           Tint::secondary);
    text->setObjectName(QStringLiteral("actionOutcomeText"));
    row->addWidget(text, 1);
    line->setAccessibleName(text->text());
    line->setMaximumWidth(560);
    return line;
}

}  // namespace sagely::ui::detail
