#include <sagely/ui/CoachAssistantMessageText.h>
#include <sagely/ui/CoachProceduralStepsView.h>
#include <sagely/ui/CoachUserMessageText.h>

#include "InlineMarkdown.h"
#include "Primitives.h"
#include "ReplyLayouts.h"

#include <QVBoxLayout>

namespace sagely::ui {

using namespace detail;

CoachUserMessageText::CoachUserMessageText(const std::string& content, QWidget* parent)
    : QWidget(parent), m_content(content) {
    setObjectName(QStringLiteral("userMessageText"));
    setMaximumWidth(kMaximumWidth);
    auto* layout = vstack(this, 0);
    m_label =
        textLabel(QString::fromStdString(content), Qt::PlainText, TextStyle::body, Tint::white);
    m_label->setObjectName(QStringLiteral("userMessageLabel"));
    m_label->setOpenExternalLinks(false);
    // The block sits at the trailing edge; its lines read from a straight left edge.
    m_label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
    layout->addWidget(m_label, 0, Qt::AlignRight);
}

CoachAssistantMessageText::CoachAssistantMessageText(const std::string& content, QWidget* parent)
    : CoachAssistantMessageText(content, CoachMessageFormatting::layout(content), parent) {}

CoachAssistantMessageText::CoachAssistantMessageText(const CoachMessage& message, QWidget* parent)
    : CoachAssistantMessageText(message.content(), *replyLayout(message), parent) {}

CoachAssistantMessageText::CoachAssistantMessageText(
    std::string content, const CoachMessageFormatting::ReplyLayout& layout, QWidget* parent)
    : QWidget(parent), m_content(std::move(content)) {
    setObjectName(QStringLiteral("assistantMessageText"));
    setMaximumWidth(kMaximumWidth);
    vstack(this, 12);
    if (layout.procedure)
        buildProcedure(*layout.procedure);
    else
        buildParagraphs(layout.blocks);
}

void CoachAssistantMessageText::buildProcedure(
    const CoachMessageFormatting::ProceduralContent& procedure) {
    auto* column = static_cast<QVBoxLayout*>(layout());
    if (!procedure.intro.empty()) {
        const StyledText intro = styledReplyText(procedure.intro);
        auto* label = textLabel(intro.text, intro.format, TextStyle::body);
        label->setObjectName(QStringLiteral("procedureIntro"));
        column->addWidget(label);
    }
    m_procedure = new CoachProceduralStepsView(procedure.steps);
    column->addWidget(m_procedure);
}

void CoachAssistantMessageText::buildParagraphs(const std::vector<std::string>& blocks) {
    auto* column = static_cast<QVBoxLayout*>(layout());
    for (const std::string& block : blocks) {
        const StyledText text = styledReplyText(block);
        auto* label = textLabel(text.text, text.format, TextStyle::body);
        label->setObjectName(QStringLiteral("replyBlock"));
        column->addWidget(label);
    }
}

}  // namespace sagely::ui
