#include <sagely/ui/CoachProceduralStepsView.h>

#include "InlineMarkdown.h"
#include "Primitives.h"
#include "SpokenText.h"

#include <QHBoxLayout>
#include <QRegularExpression>
#include <QVBoxLayout>

namespace sagely::ui {

using namespace detail;

CoachProceduralStepsView::CoachProceduralStepsView(
    const std::vector<CoachMessageFormatting::ProceduralStep>& steps, QWidget* parent)
    : QWidget(parent) {
    for (const auto& step : steps) {
        Step drawn{step.title, {}};
        for (const std::string& detail : step.details) drawn.details.push_back(detailLine(detail));
        m_steps.push_back(std::move(drawn));
    }
    build();
}

CoachProceduralStepsView::CoachProceduralStepsView(std::vector<Step> steps, QWidget* parent)
    : QWidget(parent), m_steps(std::move(steps)) {
    build();
}

CoachProceduralStepsView::DetailLine CoachProceduralStepsView::detailLine(const std::string& text) {
    static const QRegularExpression numbered(QStringLiteral(R"(^\s*\d+[.)](\s|$))"));
    std::size_t blanks = 0;
    while (blanks < text.size() && text[blanks] == ' ') ++blanks;
    const QString line = QString::fromStdString(text);
    return {text, int(blanks / 2), numbered.match(line).hasMatch()};
}

void CoachProceduralStepsView::build() {
    setObjectName(QStringLiteral("proceduralSteps"));
    auto* column = vstack(this, 14);
    int number = 0;
    QStringList spoken;
    for (const Step& step : m_steps) {
        column->addWidget(stepRow(++number, step));
        std::vector<std::string> details;
        for (const DetailLine& line : step.details) details.push_back(line.text);
        spoken << spokenStep(number, step.title, details);
    }
    setAccessibleName(localized("Steps"));
    setAccessibleDescription(spoken.join(u'\n'));
}

QWidget* CoachProceduralStepsView::stepRow(int number, const Step& step) {
    auto* row = new QWidget;
    row->setObjectName(QStringLiteral("procedureStep"));
    auto* layout = hstack(row, 10);
    auto* badge = new NumberBadge(number, Tint::blue);
    badge->setObjectName(QStringLiteral("stepBadge"));
    layout->addWidget(badge, 0, Qt::AlignTop);
    auto* body = nestedVStack(layout, 6, 1);
    const StyledText titleText = styledInlineText(step.title);
    auto* title = textLabel(titleText.text, titleText.format, TextStyle::subheadline, Tint::primary,
                            {.bold = true});
    title->setObjectName(QStringLiteral("stepTitle"));
    body->addWidget(title);
    for (const DetailLine& line : step.details) body->addWidget(detailRow(line));
    return row;
}

QWidget* CoachProceduralStepsView::detailRow(const DetailLine& line) {
    auto* row = new QWidget;
    row->setObjectName(QStringLiteral("stepDetail"));
    auto* layout = hstack(row, 6);
    if (line.nestLevel > 0) layout->setContentsMargins(18, 0, 0, 0);
    if (!line.isNumbered) {
        auto* dot = new BulletDot(4, Tint::secondary, 0.5, 7);
        dot->setObjectName(QStringLiteral("detailDot"));
        layout->addWidget(dot, 0, Qt::AlignTop);
    }
    const StyledText text = styledReplyText(line.text);
    auto* label = textLabel(text.text, text.format, TextStyle::callout);
    label->setObjectName(QStringLiteral("detailText"));
    layout->addWidget(label, 1);
    return row;
}

}  // namespace sagely::ui
