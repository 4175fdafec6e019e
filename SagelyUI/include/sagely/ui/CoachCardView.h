// CoachCardView — draws a CoachCard: a panel tinted by the card's style (info blue, success
// green, warning orange) with its symbol, title and subtitle, the titled sections of dotted
// items, and a "Try Next" list of suggestion buttons when the card has suggestions.
//
// Pressing a suggestion calls `onSuggestionSelected` with its text. Thread rules: GUI thread
// only.
#pragma once

#include <sagely/CoachCard.h>
#include <sagely/ui/Export.h>

#include <QWidget>

#include <functional>
#include <string>

namespace sagely::ui {

class SAGELY_UI_EXPORT CoachCardView : public QWidget {
    Q_OBJECT
public:
    using SuggestionHandler = std::function<void(const std::string&)>;

    CoachCardView(CoachCard card, SuggestionHandler onSuggestionSelected,
                  QWidget* parent = nullptr);

    const CoachCard& card() const { return m_card; }
    /// "sparkles.rectangle.stack", "checkmark.circle.fill" or "exclamationmark.triangle.fill".
    static QString symbolName(CoachCard::Style style);

private:
    void buildHeader();
    void buildSections();
    void buildSuggestions();

    CoachCard m_card;
    SuggestionHandler m_onSuggestionSelected;
};

}  // namespace sagely::ui
