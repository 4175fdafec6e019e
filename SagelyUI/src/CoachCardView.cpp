#include <sagely/ui/CoachCardView.h>

#include "Primitives.h"
#include "SpokenText.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

namespace sagely::ui {

using namespace detail;

namespace {

Tint tintFor(CoachCard::Style style) {
    switch (style) {
        case CoachCard::Style::info:
            return Tint::blue;
        case CoachCard::Style::success:
            return Tint::green;
        case CoachCard::Style::warning:
            return Tint::orange;
    }
    return Tint::blue;
}

QVBoxLayout* panelColumn(QWidget* view) {
    return static_cast<QVBoxLayout*>(view->findChild<RoundedPanel*>()->layout());
}

}  // namespace

CoachCardView::CoachCardView(CoachCard card, SuggestionHandler onSuggestionSelected,
                             QWidget* parent)
    : QWidget(parent),
      m_card(std::move(card)),
      m_onSuggestionSelected(std::move(onSuggestionSelected)) {
    setObjectName(QStringLiteral("cardView"));
    auto* outer = vstack(this, 0);
    auto* panel = new RoundedPanel(tintFor(m_card.style), 0.08, 14);
    panel->setStroke(tintFor(m_card.style), 0.18);
    panel->setObjectName(QStringLiteral("cardPanel"));
    vstack(panel, 12, 14);
    outer->addWidget(panel);
    buildHeader();
    if (!m_card.sections.empty()) buildSections();
    if (!m_card.suggestions.empty()) buildSuggestions();
    setAccessibleName(QString::fromStdString(m_card.title));
    setAccessibleDescription(spokenCard(m_card));
}

QString CoachCardView::symbolName(CoachCard::Style style) {
    switch (style) {
        case CoachCard::Style::info:
            return QStringLiteral("sparkles.rectangle.stack");
        case CoachCard::Style::success:
            return QStringLiteral("checkmark.circle.fill");
        case CoachCard::Style::warning:
            return QStringLiteral("exclamationmark.triangle.fill");
    }
    return {};
}

void CoachCardView::buildHeader() {
    auto* header = nestedHStack(panelColumn(this), 10);
    auto* symbol = new SymbolView(symbolName(m_card.style), tintFor(m_card.style),
                                  symbolSize(TextStyle::headline));
    symbol->setObjectName(QStringLiteral("cardSymbol"));
    header->addWidget(symbol, 0, Qt::AlignTop);
    auto* titles = nestedVStack(header, 4, 1);
    auto* title =
        textLabel(QString::fromStdString(m_card.title), Qt::PlainText, TextStyle::headline);
    title->setObjectName(QStringLiteral("cardTitle"));
    titles->addWidget(title);
    if (m_card.subtitle) {
        auto* subtitle = textLabel(QString::fromStdString(*m_card.subtitle), Qt::PlainText,
                                   TextStyle::callout, Tint::secondary);
        subtitle->setObjectName(QStringLiteral("cardSubtitle"));
        titles->addWidget(subtitle);
    }
}

void CoachCardView::buildSections() {
    auto* sections = nestedVStack(panelColumn(this), 8);
    for (const CoachCard::Section& section : m_card.sections) {
        auto* column = nestedVStack(sections, 6);
        auto* title = new StyledLabel(QString::fromStdString(section.title).toUpper(),
                                      TextStyle::caption, Tint::secondary, {.bold = true});
        title->setObjectName(QStringLiteral("cardSectionTitle"));
        column->addWidget(title);
        for (const std::string& item : section.items) {
            auto* row = nestedHStack(column, 6);
            row->addWidget(new BulletDot(5, tintFor(m_card.style), 0.8, 7), 0, Qt::AlignTop);
            auto* text = textLabel(QString::fromStdString(item), Qt::PlainText, TextStyle::callout);
            text->setObjectName(QStringLiteral("cardItem"));
            row->addWidget(text, 1);
        }
    }
}

void CoachCardView::buildSuggestions() {
    panelColumn(this)->addWidget(
        tryNextList(m_card.suggestions, tintFor(m_card.style), m_onSuggestionSelected));
}

}  // namespace sagely::ui
