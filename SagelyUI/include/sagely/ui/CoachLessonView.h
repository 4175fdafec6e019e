// CoachLessonView — draws a CoachLesson in the card's visual language: a panel tinted by the
// lesson's style with the title, subtitle and summary, numbered step groups of lines (bullets
// behind a dot, nested under the numbered line they follow), callouts tinted by tone, and a
// "Try Next" list of suggestion buttons. An "AI Canvas" button appears in the header only when
// the host can open the lesson on its canvas.
//
// Thread rules: GUI thread only.
#pragma once

#include <sagely/CoachLesson.h>
#include <sagely/ui/Export.h>

#include <QWidget>

#include <functional>
#include <string>
#include <vector>

class QBoxLayout;

namespace sagely::ui {

class SAGELY_UI_EXPORT CoachLessonView : public QWidget {
    Q_OBJECT
public:
    using SuggestionHandler = std::function<void(const std::string&)>;

    /// A display line of a step group.
    struct NestedLine {
        std::string text;
        int nestLevel = 0;
        bool isNumbered = false;
        friend bool operator==(const NestedLine&, const NestedLine&) = default;
    };

    /// `onOpenInCanvas` empty: no canvas button.
    CoachLessonView(CoachLesson lesson, SuggestionHandler onSuggestionSelected,
                    std::function<void()> onOpenInCanvas = {}, QWidget* parent = nullptr);

    const CoachLesson& lesson() const { return m_lesson; }

    /// The lines of a step group as drawn: numbered lines at the top level, a bullet line nested
    /// one level when a numbered line precedes it in the group.
    static std::vector<NestedLine> nestedLines(const CoachLesson::StepGroup& group);

private:
    void buildHeader(QBoxLayout* panel);
    void buildBlocks(QBoxLayout* panel);
    QWidget* stepGroupRow(int number, const CoachLesson::StepGroup& group);
    QWidget* lineRow(const NestedLine& line, int numberInGroup);
    QWidget* calloutPanel(const CoachLesson::Callout& callout);
    void buildSuggestions(QBoxLayout* panel);

    CoachLesson m_lesson;
    SuggestionHandler m_onSuggestionSelected;
    std::function<void()> m_onOpenInCanvas;
};

}  // namespace sagely::ui
