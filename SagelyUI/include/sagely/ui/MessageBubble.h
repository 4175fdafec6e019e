// MessageBubble — one chat message as a row: the avatar (a sparkle for the assistant before the
// bubble, a person for the user after it, none for a system message), the text bubble (white on
// blue for the user, on a light grey for everyone else; a round of host action calls without text
// has none), a line for each answered call ("Done: Create canvas") with the card its action
// returned, the message's card and lesson beneath it, and the time of day.
//
// The row spans the full width and leans to the trailing edge for the user, the leading edge
// otherwise. It keeps no state and calls nothing on the engine: suggestions and the canvas go
// out through the two callbacks. Thread rules: GUI thread only.
#pragma once

#include <sagely/CoachMessage.h>
#include <sagely/ui/Export.h>

#include <QWidget>

#include <functional>
#include <string>

class QBoxLayout;

namespace sagely::ui {

class SAGELY_UI_EXPORT MessageBubble : public QWidget {
    Q_OBJECT
public:
    using SuggestionHandler = std::function<void(const std::string&)>;
    using CanvasHandler = std::function<void(const CoachLesson&)>;

    /// `onOpenInCanvas` empty: lessons show no canvas button.
    MessageBubble(CoachMessage message, SuggestionHandler onSuggestionSelected,
                  CanvasHandler onOpenInCanvas = {}, QWidget* parent = nullptr);

    const CoachMessage& message() const { return m_message; }

    /// The message's time of day in the locale's short time format.
    static QString timeText(Timestamp timestamp);
    /// The tooltip on a reply's time when the provider said what it cost: "1,210 tokens in,
    /// 30 out" (numbers in the user's locale), and when the model is known, a second line with
    /// its name and the estimate from the process's price table ("gpt-4o-mini · ≈ $0.0002"),
    /// or "gpt-x · no price known" for a model the table lacks.
    static QString usageText(const TokenUsage& usage);

private:
    QWidget* avatar() const;
    QWidget* textBubble() const;
    void addActionCalls(QBoxLayout* column);
    void addAttachments(QBoxLayout* column);

    CoachMessage m_message;
    SuggestionHandler m_onSuggestionSelected;
    CanvasHandler m_onOpenInCanvas;
};

}  // namespace sagely::ui
