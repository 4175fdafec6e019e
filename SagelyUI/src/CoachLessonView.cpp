#include <sagely/ui/CoachLessonView.h>

#include "InlineMarkdown.h"
#include "Primitives.h"
#include "SpokenText.h"

#include <QHBoxLayout>
#include <QVBoxLayout>

namespace sagely::ui {

using namespace detail;

namespace {

Tint tintFor(CoachLesson::Style style) {
    switch (style) {
        case CoachLesson::Style::info:
            return Tint::blue;
        case CoachLesson::Style::success:
            return Tint::green;
        case CoachLesson::Style::warning:
            return Tint::orange;
    }
    return Tint::blue;
}

struct ToneLook {
    Tint tint;
    const char* symbol;
};

ToneLook lookFor(CoachLesson::Callout::Tone tone) {
    switch (tone) {
        case CoachLesson::Callout::Tone::tip:
            return {Tint::blue, "lightbulb.fill"};
        case CoachLesson::Callout::Tone::warning:
            return {Tint::orange, "lightbulb.fill"};
        case CoachLesson::Callout::Tone::verification:
            return {Tint::green, "checkmark.seal.fill"};
    }
    return {Tint::blue, "lightbulb.fill"};
}

QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

}  // namespace

CoachLessonView::CoachLessonView(CoachLesson lesson, SuggestionHandler onSuggestionSelected,
                                 std::function<void()> onOpenInCanvas, QWidget* parent)
    : QWidget(parent),
      m_lesson(std::move(lesson)),
      m_onSuggestionSelected(std::move(onSuggestionSelected)),
      m_onOpenInCanvas(std::move(onOpenInCanvas)) {
    setObjectName(QStringLiteral("lessonView"));
    auto* outer = vstack(this, 0);
    auto* panel = new RoundedPanel(tintFor(m_lesson.style), 0.08, 14);
    panel->setStroke(tintFor(m_lesson.style), 0.18);
    panel->setObjectName(QStringLiteral("lessonPanel"));
    auto* column = vstack(panel, 14, 14);
    outer->addWidget(panel);
    buildHeader(column);
    buildBlocks(column);
    if (!m_lesson.suggestions.empty()) buildSuggestions(column);
    setAccessibleName(qs(m_lesson.title));
    setAccessibleDescription(spokenLesson(m_lesson));
}

std::vector<CoachLessonView::NestedLine> CoachLessonView::nestedLines(
    const CoachLesson::StepGroup& group) {
    std::vector<NestedLine> lines;
    bool afterNumbered = false;
    for (const CoachLesson::Line& line : group.lines) {
        const bool numbered = line.kind == CoachLesson::Line::Kind::numbered;
        lines.push_back({line.text, (!numbered && afterNumbered) ? 1 : 0, numbered});
        afterNumbered = afterNumbered || numbered;
    }
    return lines;
}

void CoachLessonView::buildHeader(QBoxLayout* panel) {
    const Tint tint = tintFor(m_lesson.style);
    auto* header = nestedHStack(panel, 10);
    auto* symbol = new SymbolView(QStringLiteral("sparkles.rectangle.stack"), tint,
                                  symbolSize(TextStyle::headline));
    header->addWidget(symbol, 0, Qt::AlignTop);
    auto* titles = nestedVStack(header, 4, 1);
    auto* title = textLabel(qs(m_lesson.title), Qt::PlainText, TextStyle::headline);
    title->setObjectName(QStringLiteral("lessonTitle"));
    titles->addWidget(title);
    if (m_lesson.subtitle && !m_lesson.subtitle->empty()) {
        auto* subtitle =
            textLabel(qs(*m_lesson.subtitle), Qt::PlainText, TextStyle::callout, Tint::secondary);
        subtitle->setObjectName(QStringLiteral("lessonSubtitle"));
        titles->addWidget(subtitle);
    }
    if (m_onOpenInCanvas) {
        auto* canvas = new TintedButton(localized("AI Canvas"), ButtonStyle::bordered, tint,
                                        TextStyle::caption);
        canvas->setSymbol(QStringLiteral("paintbrush.pointed"));
        canvas->setObjectName(QStringLiteral("openInCanvasButton"));
        connect(canvas, &QPushButton::clicked, this, [this] { m_onOpenInCanvas(); });
        header->addWidget(canvas, 0, Qt::AlignTop);
    }
    if (m_lesson.summary && !m_lesson.summary->empty()) {
        const StyledText summary = styledInlineText(*m_lesson.summary);
        auto* label = textLabel(summary.text, summary.format, TextStyle::callout, Tint::secondary);
        label->setObjectName(QStringLiteral("lessonSummary"));
        panel->addWidget(label);
    }
}

void CoachLessonView::buildBlocks(QBoxLayout* panel) {
    auto* blocks = nestedVStack(panel, 8);
    int group = 0;
    for (const CoachLesson::Block& block : m_lesson.blocks) {
        if (const auto* steps = block.asStepGroup()) {
            blocks->addWidget(stepGroupRow(++group, *steps));
        } else if (const auto* callout = block.asCallout()) {
            blocks->addWidget(calloutPanel(*callout));
        } else if (const auto* text = block.asText()) {
            const StyledText styled = styledReplyText(*text);
            auto* label = textLabel(styled.text, styled.format, TextStyle::callout);
            label->setObjectName(QStringLiteral("lessonText"));
            blocks->addWidget(label);
        }
    }
}

QWidget* CoachLessonView::stepGroupRow(int number, const CoachLesson::StepGroup& group) {
    auto* row = new QWidget;
    row->setObjectName(QStringLiteral("lessonStepGroup"));
    auto* layout = hstack(row, 10);
    auto* badge = new NumberBadge(number, tintFor(m_lesson.style));
    badge->setObjectName(QStringLiteral("stepBadge"));
    layout->addWidget(badge, 0, Qt::AlignTop);
    auto* body = nestedVStack(layout, 6, 1);
    auto* title = textLabel(qs(group.title), Qt::PlainText, TextStyle::subheadline, Tint::primary,
                            {.bold = true});
    title->setObjectName(QStringLiteral("stepGroupTitle"));
    body->addWidget(title);
    int numbered = 0;
    for (const NestedLine& line : nestedLines(group))
        body->addWidget(lineRow(line, line.isNumbered ? ++numbered : 0));
    return row;
}

QWidget* CoachLessonView::lineRow(const NestedLine& line, int numberInGroup) {
    auto* row = new QWidget;
    row->setObjectName(QStringLiteral("lessonLine"));
    auto* layout = hstack(row, 6);
    if (line.nestLevel > 0) layout->setContentsMargins(18, 0, 0, 0);
    StyledText text = styledInlineText(line.text);
    if (line.isNumbered) {
        // A numbered line carries its position in the group instead of a dot.
        auto* number = new StyledLabel(QString::number(numberInGroup) + u'.', TextStyle::callout,
                                       Tint::secondary);
        number->setObjectName(QStringLiteral("lineNumber"));
        layout->addWidget(number, 0, Qt::AlignTop);
    } else {
        auto* dot = new BulletDot(4, Tint::secondary, 0.5, 7);
        dot->setObjectName(QStringLiteral("lineDot"));
        layout->addWidget(dot, 0, Qt::AlignTop);
    }
    auto* label = textLabel(text.text, text.format, TextStyle::callout);
    label->setObjectName(QStringLiteral("lineText"));
    layout->addWidget(label, 1);
    return row;
}

QWidget* CoachLessonView::calloutPanel(const CoachLesson::Callout& callout) {
    const ToneLook look = lookFor(callout.tone);
    auto* panel = new RoundedPanel(look.tint, 0.08, 10);
    panel->setObjectName(QStringLiteral("lessonCallout"));
    auto* row = hstack(panel, 8, 10);
    auto* symbol =
        new SymbolView(QString::fromLatin1(look.symbol), look.tint, symbolSize(TextStyle::callout));
    symbol->setObjectName(QStringLiteral("calloutSymbol"));
    row->addWidget(symbol, 0, Qt::AlignTop);
    auto* texts = nestedVStack(row, 4, 1);
    auto* title =
        new StyledLabel(qs(callout.title), TextStyle::caption, Tint::secondary, {.bold = true});
    title->setObjectName(QStringLiteral("calloutTitle"));
    texts->addWidget(title);
    const StyledText body = styledReplyText(callout.body);
    auto* label = textLabel(body.text, body.format, TextStyle::callout);
    label->setObjectName(QStringLiteral("calloutBody"));
    texts->addWidget(label);
    return panel;
}

void CoachLessonView::buildSuggestions(QBoxLayout* panel) {
    panel->addWidget(
        tryNextList(m_lesson.suggestions, tintFor(m_lesson.style), m_onSuggestionSelected));
}

}  // namespace sagely::ui
