// The reply bubble while text streams in: its paragraphs are drawn as the finished bubble draws
// them, markers split across updates end rendered, and only what is new is laid out, so a long
// reply costs linear time, not quadratic (the figures are in bench/WorkspaceBench).
#include "UiTestSupport.h"

#include <sagely/ui/CoachAssistantMessageText.h>

#include "ConversationPane.h"
#include "StreamingReplyText.h"

#include <QAbstractTextDocumentLayout>
#include <QLabel>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextEdit>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace sagely::testing {
namespace {

using ui::detail::StreamingReplyText;

std::string paragraph(int index) {
    return "Step " + std::to_string(index) +
           ": open the **flow** in the editor, then click `Schedule` once more.\n";
}

// A stretch of text drawn in one way: what the reader sees of the text's formats.
struct Stretch {
    std::string text;
    bool italic = false;
    bool bold = false;
    bool code = false;
    bool struckOut = false;
    std::string link;
    friend bool operator==(const Stretch&, const Stretch&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Stretch& stretch) {
        return out << '"' << stretch.text << '"' << (stretch.italic ? " italic" : "")
                   << (stretch.bold ? " bold" : "") << (stretch.code ? " code" : "")
                   << (stretch.struckOut ? " struck" : "") << (stretch.link.empty() ? "" : " ")
                   << stretch.link;
    }
};

// Appends the stretch, joined to the last one when drawn the same way.
void add(std::vector<Stretch>& stretches, Stretch stretch) {
    if (!stretches.empty()) {
        Stretch lastLook = stretches.back();
        lastLook.text = stretch.text;
        if (lastLook == stretch) {
            stretches.back().text += stretch.text;
            return;
        }
    }
    stretches.push_back(std::move(stretch));
}

Stretch stretchOf(const QTextFragment& fragment) {
    const QTextCharFormat format = fragment.charFormat();
    QString text = fragment.text();
    text.replace(QChar::LineSeparator, u'\n');
    return {text.toStdString(),
            format.fontItalic(),
            format.fontWeight() >= QFont::Bold,
            format.fontFamilies().toStringList().contains(QStringLiteral("monospace")),
            format.fontStrikeOut(),
            format.anchorHref().toStdString()};
}

// The stretches of the blocks [first, end) of a document, a line feed between blocks.
std::vector<Stretch> stretchesOf(QTextBlock first, const QTextBlock& end) {
    std::vector<Stretch> stretches;
    for (QTextBlock block = first; block.isValid() && block != end; block = block.next()) {
        if (block != first) add(stretches, {.text = "\n"});
        for (auto it = block.begin(); !it.atEnd(); ++it) add(stretches, stretchOf(it.fragment()));
    }
    return stretches;
}

// The paragraphs of the streaming view: a paragraph starts with a block set apart from the one
// above.
std::vector<std::vector<Stretch>> streamedParagraphs(const QTextDocument& document) {
    std::vector<std::vector<Stretch>> paragraphs;
    QTextBlock start = document.begin();
    for (QTextBlock block = start.next();; block = block.next()) {
        if (!block.isValid() || block.blockFormat().topMargin() > 0) {
            paragraphs.push_back(stretchesOf(start, block));
            if (!block.isValid()) break;
            start = block;
        }
    }
    return paragraphs;
}

// The paragraphs of the finished reply's bubble, each read from its label's rich text.
std::vector<std::vector<Stretch>> finishedParagraphs(const std::string& reply) {
    ui::CoachAssistantMessageText finished(reply);
    EXPECT_EQ(finished.procedure(), nullptr) << reply;
    std::vector<std::vector<Stretch>> paragraphs;
    for (auto* label : visibleChildren<QLabel>(&finished, QStringLiteral("replyBlock"))) {
        QTextDocument document;
        if (label->textFormat() == Qt::RichText)
            document.setHtml(label->text());
        else
            document.setPlainText(label->text());
        paragraphs.push_back(stretchesOf(document.begin(), QTextBlock()));
    }
    return paragraphs;
}

// Streams `reply` into a fresh view, `piece` bytes per update.
void stream(StreamingReplyText& view, const std::string& reply, std::size_t piece) {
    for (std::size_t shown = piece; shown < reply.size() + piece; shown += piece)
        view.showText(reply.substr(0, std::min(shown, reply.size())));
}

// The first stretch that holds `text`, or an empty one.
Stretch stretchHolding(const std::vector<Stretch>& stretches, const std::string& text) {
    for (const Stretch& stretch : stretches)
        if (stretch.text.find(text) != std::string::npos) return stretch;
    return {};
}

TEST(StreamingReplyText, ShowsEmphasisCodeLinksAndListLinesAsTheFinishedBubbleDoes) {
    StreamingReplyText view;
    stream(view,
           "Open *Speech* and click `Teach`, see [help](https://x.example).\n"
           "- first item\n- ~~old~~ item\n\n"
           "Then *try it* now",
           5);
    EXPECT_FALSE(view.isHidden());
    const auto paragraphs = streamedParagraphs(*view.document());
    ASSERT_EQ(paragraphs.size(), 2u);
    const std::vector<Stretch>& first = paragraphs[0];
    EXPECT_EQ(stretchHolding(first, "Speech"), (Stretch{.text = "Speech", .italic = true}));
    EXPECT_EQ(stretchHolding(first, "Teach"), (Stretch{.text = "Teach", .code = true}));
    EXPECT_EQ(stretchHolding(first, "help"),
              (Stretch{.text = "help", .link = "https://x.example"}));
    EXPECT_EQ(stretchHolding(first, "old"), (Stretch{.text = "old", .struckOut = true}));
    // List lines stay the lines they are, markers and all, each a block of its own.
    EXPECT_EQ(view.document()->blockCount(), 4);
    EXPECT_EQ(view.document()->findBlockByNumber(1).text(), QStringLiteral("- first item"));
    EXPECT_EQ(view.document()->findBlockByNumber(2).text(), QStringLiteral("- old item"));
    // The open paragraph too, and set apart as the finished bubble sets its paragraphs apart.
    EXPECT_EQ(stretchHolding(paragraphs[1], "try"), (Stretch{.text = "try it", .italic = true}));
    EXPECT_EQ(view.document()->findBlockByNumber(3).blockFormat().topMargin(), 12);
    view.resize(560, view.height());
    EXPECT_FALSE(saveScreenshot(&view, QStringLiteral("streaming-reply")).isEmpty());
}

TEST(StreamingReplyText, MarkersSplitAcrossUpdatesEndRendered) {
    StreamingReplyText view;
    view.showText("Use **bo");
    EXPECT_EQ(view.toPlainText(), QStringLiteral("Use bo"));
    view.showText("Use **bold** and *ita");
    EXPECT_EQ(view.toPlainText(), QStringLiteral("Use bold and *ita"));
    view.showText("Use **bold** and *italic* here, `co");
    view.showText("Use **bold** and *italic* here, `code` too.");
    EXPECT_EQ(view.toPlainText(), QStringLiteral("Use bold and italic here, code too."));
    const auto paragraphs = streamedParagraphs(*view.document());
    ASSERT_EQ(paragraphs.size(), 1u);
    EXPECT_EQ(stretchHolding(paragraphs[0], "italic"), (Stretch{.text = "italic", .italic = true}));
    EXPECT_EQ(stretchHolding(paragraphs[0], "code"), (Stretch{.text = "code", .code = true}));
    // The finished bubble drops bold marks as well: both draw "bold" the same.
    EXPECT_EQ(paragraphs, finishedParagraphs("Use **bold** and *italic* here, `code` too."));
}

TEST(StreamingReplyText, TheWholeReplyIsDrawnAsTheFinishedBubbleDrawsIt) {
    const std::vector<std::string> replies = {
        "First paragraph.\n\n\n\nSecond *one*.",
        "## **Save often**\n\nThen press `Cmd-S`.",
        "Here are the options:\n- one\n- two\n  - nested\n\n1. first\n2. second",
        "A fence stays text:\n```\ncode line\n```\nafter it",
        "Emphasis *goes on\nacross* a line end, and **bold\nacross** too.",
        "Windows line ends\r\nkeep lines\r\n\r\nand paragraphs.",
        "Sentences run together.Click Save.Then it works 1. first 2. second",
        "#\n\nA lone heading mark goes.\n\n   indented line\n> quoted\n\n---\nend ***",
        "Broken \xC3\x28 bytes stay plain *text*.\n\nNext paragraph."};
    for (const std::string& reply : replies) {
        for (std::size_t piece : {std::size_t(1), std::size_t(7), std::size_t(64), reply.size()}) {
            StreamingReplyText view;
            stream(view, reply, piece);
            EXPECT_EQ(streamedParagraphs(*view.document()), finishedParagraphs(reply))
                << "piece " << piece << ": " << reply;
        }
    }
}

TEST(StreamingReplyText, AVeryLongParagraphIsCutAtLineEndsAndStillReadsTheSame) {
    std::string reply;
    for (int i = 0; reply.size() < 3 * StreamingReplyText::kLongParagraph; ++i)
        reply += "Line " + std::to_string(i) + " of a *long* paragraph with `code` in it.\n";
    StreamingReplyText view;
    stream(view, reply, 1000);
    EXPECT_EQ(streamedParagraphs(*view.document()), finishedParagraphs(reply));
}

TEST(StreamingReplyText, ANewReplyStartsAfresh) {
    StreamingReplyText view;
    view.showText("First *reply*.\n\nIts second paragraph.");
    view.showText("");
    EXPECT_TRUE(view.isHidden());
    view.showText("Other");
    EXPECT_FALSE(view.isHidden());
    EXPECT_EQ(view.toPlainText(), QStringLiteral("Other"));
    EXPECT_EQ(view.document()->blockCount(), 1);
    EXPECT_EQ(view.document()->begin().blockFormat().topMargin(), 0);
    EXPECT_FALSE(view.document()->isUndoRedoEnabled());  // edits are not kept for undo
}

TEST(StreamingReplyLayout, EachNewPieceLaysOutOnlyTheEndOfTheReply) {
    ui::detail::ConversationPane pane(tesselBranding(), {}, {});
    pane.resize(700, 500);
    pane.show();
    settle();
    std::string text;
    for (int i = 0; i < 40; ++i) text += paragraph(i);
    pane.setPartialReply(text);
    settle();
    auto* shown = qobject_cast<QTextEdit*>(pane.partialReplyView());
    ASSERT_NE(shown, nullptr);
    QTextDocument* document = shown->document();
    const qreal heightBefore = document->size().height();
    ASSERT_GT(heightBefore, 200);

    std::vector<QRectF> laidOut;
    QObject::connect(document->documentLayout(), &QAbstractTextDocumentLayout::update,
                     [&](const QRectF& area) { laidOut.push_back(area); });
    for (int i = 40; i < 60; ++i) {
        text += paragraph(i);
        pane.setPartialReply(text);
        settle();
    }

    // Drawn as the whole text given at once is drawn.
    StreamingReplyText atOnce;
    atOnce.showText(text);
    EXPECT_EQ(shown->toPlainText(), atOnce.toPlainText());
    EXPECT_FALSE(shown->toPlainText().contains(u'*'));
    EXPECT_GT(document->size().height(), heightBefore);
    ASSERT_FALSE(laidOut.empty());
    // Nothing from the top: the paragraphs already shown keep their layout.
    for (const QRectF& area : laidOut) EXPECT_GE(area.top(), heightBefore / 2) << area.top();
}

}  // namespace
}  // namespace sagely::testing
