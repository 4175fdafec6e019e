// The reply arriving, drawn as the finished reply's paragraphs will be drawn: every paragraph goes
// through the same normalising, cleaning and inline Markdown as a paragraph of the message's
// bubble. Procedure steps and cards come with the finished message, not here.
//
// Each update changes only the end of the document. The text is cut after its last blank line:
// the paragraphs before it are complete, and what they show no longer changes; only the open
// paragraph after it is rendered again. Every rendered line is a block of the document, and
// only the lines from the first one that changed are replaced, so the text is laid out anew only
// from there: a long reply costs linear time, not quadratic. A paragraph that grows very long is
// also cut after its last complete line, which bounds the cost of one update.
#pragma once

#include <QTextEdit>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

class QTextCursor;

namespace sagely::ui::detail {

class StreamingReplyText : public QTextEdit {
public:
    /// A paragraph longer than this is cut after its last complete line.
    static constexpr std::size_t kLongParagraph = 16 * 1024;

    explicit StreamingReplyText(QWidget* parent = nullptr);

    /// Shows the reply so far. `text` begins with the text shown, unless it is empty or shorter
    /// (a new reply starts): then the view starts afresh. Hidden while empty.
    void showText(const std::string& text);

protected:
    void resizeEvent(QResizeEvent* event) override;

private:
    struct Line {
        QString text;
        Qt::TextFormat format = Qt::PlainText;
        bool startsParagraph = false;
        friend bool operator==(const Line&, const Line&) = default;
    };

    void reset();
    /// The rendered lines of whole paragraphs of the reply; the first one continues the
    /// paragraph before when `continues` is set.
    static std::vector<Line> render(std::string_view paragraphs, bool continues);
    /// Where the complete part of the open text ends (0 when nothing is complete), and whether
    /// the cut is inside a paragraph.
    static std::pair<std::size_t, bool> completePart(std::string_view open);
    /// Replaces the lines shown for the open text with `lines`, from the first that differs.
    void showOpenLines(const std::vector<Line>& lines);
    /// Adds the line as a block of its own at the cursor (in the document's first block when
    /// `first`).
    static void appendLine(QTextCursor& cursor, const Line& line, bool first);
    void fitHeight();

    std::size_t m_shownBytes = 0;
    std::size_t m_completeBytes = 0;  // the complete part of the text, drawn for good
    int m_completeBlocks = 0;         // the document's blocks that draw it
    bool m_openContinues = false;     // the open text goes on with a paragraph cut for length
    std::vector<Line> m_openLines;    // what the rest of the document shows
};

}  // namespace sagely::ui::detail
