#include "StreamingReplyText.h"

#include "InlineMarkdown.h"
#include "Primitives.h"
#include "SpokenText.h"

#include <sagely/CoachMessageFormatting.h>

#include <QTextBlock>
#include <QTextCursor>
#include <QTextDocument>

#include <algorithm>

namespace sagely::ui::detail {
namespace {

// The space between two paragraphs of the finished reply.
constexpr int kParagraphSpacing = 12;

}  // namespace

StreamingReplyText::StreamingReplyText(QWidget* parent) : QTextEdit(parent) {
    setObjectName(QStringLiteral("partialReply"));
    setAccessibleName(localized("Reply so far"));
    setReadOnly(true);
    setFrameShape(QFrame::NoFrame);
    setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    setFont(styleFont(TextStyle::body));
    viewport()->setAutoFillBackground(false);
    // Every edit would be kept for undo: the whole reply many times over.
    document()->setUndoRedoEnabled(false);
    hide();
}

void StreamingReplyText::showText(const std::string& text) {
    if (text.empty() || text.size() < m_shownBytes) reset();
    if (text.size() > m_shownBytes) {
        const std::string_view open = std::string_view(text).substr(m_completeBytes);
        const auto [complete, cutInParagraph] = completePart(open);
        std::vector<Line> lines = render(open.substr(0, complete), m_openContinues);
        const auto completeLines = lines.size();
        const bool restContinues = complete > 0 ? cutInParagraph : m_openContinues;
        const std::vector<Line> rest = render(open.substr(complete), restContinues);
        lines.insert(lines.end(), rest.begin(), rest.end());
        showOpenLines(lines);
        if (complete > 0) {
            m_completeBytes += complete;
            m_completeBlocks += int(completeLines);
            m_openContinues = cutInParagraph;
            m_openLines.erase(m_openLines.begin(),
                              m_openLines.begin() + std::ptrdiff_t(completeLines));
        }
        m_shownBytes = text.size();
    }
    setVisible(!text.empty());
    fitHeight();
}

void StreamingReplyText::reset() {
    clear();
    m_shownBytes = m_completeBytes = 0;
    m_completeBlocks = 0;
    m_openContinues = false;
    m_openLines.clear();
}

std::vector<StreamingReplyText::Line> StreamingReplyText::render(std::string_view paragraphs,
                                                                 bool continues) {
    std::vector<Line> lines;
    for (const std::string& block : CoachMessageFormatting::blocks(paragraphs)) {
        StyledLines styled = styledReplyLines(block);
        for (qsizetype i = 0; i < styled.lines.size(); ++i)
            lines.push_back({std::move(styled.lines[i]), styled.format, i == 0});
    }
    if (continues && !lines.empty()) lines.front().startsParagraph = false;
    return lines;
}

std::pair<std::size_t, bool> StreamingReplyText::completePart(std::string_view open) {
    // Paragraphs end at an empty line, as the finished reply's are cut (line ends may be CRLF).
    std::size_t end = 0;
    if (const auto blank = open.rfind("\n\n"); blank != std::string_view::npos) end = blank + 2;
    if (const auto blank = open.rfind("\n\r\n"); blank != std::string_view::npos)
        end = std::max(end, blank + 3);
    if (end > 0 || open.size() <= kLongParagraph) return {end, false};
    const auto lineEnd = open.rfind('\n');
    return lineEnd == std::string_view::npos ? std::pair{std::size_t(0), false}
                                             : std::pair{lineEnd + 1, true};
}

void StreamingReplyText::showOpenLines(const std::vector<Line>& lines) {
    const auto kept = std::size_t(
        std::mismatch(m_openLines.begin(), m_openLines.end(), lines.begin(), lines.end()).first -
        m_openLines.begin());
    if (kept == m_openLines.size() && kept == lines.size()) return;
    QTextCursor cursor(document());
    // One edit: the document is laid out again once, from the first line that changed.
    cursor.beginEditBlock();
    const int firstChanged = m_completeBlocks + int(kept);
    if (firstChanged == 0) {
        cursor.select(QTextCursor::Document);
        cursor.removeSelectedText();
    } else {
        // From the end of the last line kept, so that its block ends there.
        const QTextBlock lastKept = document()->findBlockByNumber(firstChanged - 1);
        cursor.setPosition(lastKept.position() + lastKept.length() - 1);
        cursor.movePosition(QTextCursor::End, QTextCursor::KeepAnchor);
        cursor.removeSelectedText();
    }
    for (std::size_t i = kept; i < lines.size(); ++i)
        appendLine(cursor, lines[i], firstChanged + int(i - kept) == 0);
    cursor.endEditBlock();
    m_openLines = lines;
}

void StreamingReplyText::appendLine(QTextCursor& cursor, const Line& line, bool first) {
    QTextBlockFormat format;
    if (line.startsParagraph && !first) format.setTopMargin(kParagraphSpacing);
    if (first)
        cursor.setBlockFormat(format);
    else
        cursor.insertBlock(format, QTextCharFormat());
    if (line.format == Qt::RichText)
        cursor.insertHtml(line.text);
    else
        cursor.insertText(line.text, QTextCharFormat());
}

void StreamingReplyText::resizeEvent(QResizeEvent* event) {
    QTextEdit::resizeEvent(event);
    fitHeight();
}

void StreamingReplyText::fitHeight() {
    // Setting the width, even an unchanged one, lays the whole document out again.
    if (document()->textWidth() != viewport()->width())
        document()->setTextWidth(viewport()->width());
    const int height = int(document()->size().height()) + 2 * frameWidth();
    if (height != this->height()) setFixedHeight(height);
}

}  // namespace sagely::ui::detail
