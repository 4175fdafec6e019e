// CoachProceduralStepsView — a numbered procedure: one row per step with a number badge (1, 2,
// 3 … by position, whatever the reply numbered them), the step title in bold and its detail
// lines beneath, each behind a small dot and indented when nested.
//
// Thread rules: GUI thread only.
#pragma once

#include <sagely/CoachMessageFormatting.h>
#include <sagely/ui/Export.h>

#include <QWidget>

#include <string>
#include <vector>

namespace sagely::ui {

class SAGELY_UI_EXPORT CoachProceduralStepsView : public QWidget {
    Q_OBJECT
public:
    /// One detail line of a step as it is drawn.
    struct DetailLine {
        std::string text;
        int nestLevel = 0;        // above zero: indented 18 pixels
        bool isNumbered = false;  // a line that carries its own number shows no dot
        friend bool operator==(const DetailLine&, const DetailLine&) = default;
    };

    /// A step with its title and drawn detail lines.
    struct Step {
        std::string title;
        std::vector<DetailLine> details;
    };

    /// The steps as the formatter reports them.
    explicit CoachProceduralStepsView(
        const std::vector<CoachMessageFormatting::ProceduralStep>& steps,
        QWidget* parent = nullptr);
    /// Steps whose detail lines the host has already structured.
    explicit CoachProceduralStepsView(std::vector<Step> steps, QWidget* parent = nullptr);

    const std::vector<Step>& steps() const { return m_steps; }

    /// How a formatter detail becomes a drawn line: a line that opens with "1." or "1)" is
    /// numbered; leading blanks (two per level) nest it.
    static DetailLine detailLine(const std::string& text);

private:
    void build();
    QWidget* stepRow(int number, const Step& step);
    QWidget* detailRow(const DetailLine& line);

    std::vector<Step> m_steps;
};

}  // namespace sagely::ui
