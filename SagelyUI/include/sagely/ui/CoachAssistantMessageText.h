// CoachAssistantMessageText — the text of an assistant (or system) message.
//
// A reply that reads as a procedure of "Step N:" markers is shown as its intro and a numbered
// CoachProceduralStepsView; any other reply as its paragraphs. Every piece of text is repaired,
// cleaned and rendered as inline Markdown (emphasis, code, links; line breaks kept), or as the
// cleaned plain text when the Markdown cannot be parsed. Selectable, at most 560 pixels wide,
// aligned to the leading edge. Made from a message, it reuses the layout its message was given
// before (see ReplyLayouts), so a reply is normalised once however often it is drawn.
//
// Thread rules: GUI thread only.
#pragma once

#include <sagely/CoachMessage.h>
#include <sagely/CoachMessageFormatting.h>
#include <sagely/ui/Export.h>

#include <QWidget>

#include <string>

namespace sagely::ui {

class CoachProceduralStepsView;

class SAGELY_UI_EXPORT CoachAssistantMessageText : public QWidget {
    Q_OBJECT
public:
    static constexpr int kMaximumWidth = 560;

    explicit CoachAssistantMessageText(const std::string& content, QWidget* parent = nullptr);
    explicit CoachAssistantMessageText(const CoachMessage& message, QWidget* parent = nullptr);

    const std::string& content() const { return m_content; }
    /// The procedure view when the content is a procedure, else null.
    CoachProceduralStepsView* procedure() const { return m_procedure; }

private:
    CoachAssistantMessageText(std::string content,
                              const CoachMessageFormatting::ReplyLayout& layout, QWidget* parent);
    void buildProcedure(const CoachMessageFormatting::ProceduralContent& procedure);
    void buildParagraphs(const std::vector<std::string>& blocks);

    std::string m_content;
    CoachProceduralStepsView* m_procedure = nullptr;
};

}  // namespace sagely::ui
