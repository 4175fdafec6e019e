#include "InlineMarkdown.h"

#include <sagely/CoachMessageFormatting.h>
#include <sagely/Text.h>

#include <md4c.h>

#include <QRegularExpression>
#include <QStringList>

#include <string>
#include <vector>

namespace sagely::ui::detail {
namespace {

constexpr char16_t kNoBreakSpace = u'\u00A0';

// Block syntax at the start of a line that must stay literal text: headings, quotes, list
// markers, thematic breaks, setext underlines ("=" or "-" runs of any length, which would turn
// the line above into a heading), code fences, link definitions.
bool startsBlockSyntax(const QString& line) {
    static const QRegularExpression pattern(QStringLiteral(
        R"(^(#{1,6}(\s|$)|>|[-+*](\s|$)|\d{1,9}[.)](\s|$)|(\*\s*){3,}$|(-\s*){3,}$|(_\s*){3,}$|-+\s*$|=+\s*$|```|~~~|\[[^\]]*\]:))"));
    return pattern.match(line).hasMatch();
}

// Keeps a line from opening a block: leading blanks become no-break spaces (kept, never an
// indent), and a block marker gets a backslash escape (which the parser removes again).
QString neutraliseBlockSyntax(const QString& line) {
    qsizetype indent = 0;
    while (indent < line.size() && (line[indent] == u' ' || line[indent] == u'\t')) ++indent;
    if (indent == line.size()) return QString();
    QString prefix;
    for (qsizetype i = 0; i < indent; ++i)
        prefix += QString(line[i] == u'\t' ? 4 : 1, QChar(kNoBreakSpace));
    QString rest = line.mid(indent);
    if (startsBlockSyntax(rest)) {
        // Escape the marker character itself: "1." becomes "1\.", "- x" becomes "\- x".
        static const QRegularExpression digits(QStringLiteral(R"(^\d+)"));
        const qsizetype at = rest[0].isDigit() ? digits.match(rest).capturedLength() : 0;
        rest.insert(at, u'\\');
    }
    return prefix + rest;
}

QString prepared(std::string_view markdown) {
    QStringList lines = QString::fromUtf8(markdown.data(), qsizetype(markdown.size())).split(u'\n');
    for (QString& line : lines) line = neutraliseBlockSyntax(line);
    return lines.join(u'\n');
}

// Renders into lines: a line ends at each break outside every span, so that a text can be shown
// line by line; a break inside a span (emphasis going on across a line end) stays in its line.
struct Renderer {
    QStringList lines{QString()};
    int openSpans = 0;
    int paragraphs = 0;

    QString& html() { return lines.back(); }
    void lineBreak() {
        if (openSpans > 0)
            html() += QStringLiteral("<br>");
        else
            lines.append(QString());
    }
    void open(MD_BLOCKTYPE type) {
        if (type == MD_BLOCK_P && paragraphs++ > 0) {
            lineBreak();
            lineBreak();
        }
    }
    void openSpan(MD_SPANTYPE type, void* detail) {
        ++openSpans;
        switch (type) {
            case MD_SPAN_EM:
                html() += QStringLiteral("<i>");
                break;
            case MD_SPAN_STRONG:
                html() += QStringLiteral("<b>");
                break;
            case MD_SPAN_CODE:
                html() += QStringLiteral("<code>");
                break;
            case MD_SPAN_DEL:
                html() += QStringLiteral("<s>");
                break;
            case MD_SPAN_U:
                html() += QStringLiteral("<u>");
                break;
            case MD_SPAN_A:
                openLink(*static_cast<MD_SPAN_A_DETAIL*>(detail));
                break;
            default:
                break;
        }
    }
    void closeSpan(MD_SPANTYPE type) {
        --openSpans;
        switch (type) {
            case MD_SPAN_EM:
                html() += QStringLiteral("</i>");
                break;
            case MD_SPAN_STRONG:
                html() += QStringLiteral("</b>");
                break;
            case MD_SPAN_CODE:
                html() += QStringLiteral("</code>");
                break;
            case MD_SPAN_DEL:
                html() += QStringLiteral("</s>");
                break;
            case MD_SPAN_U:
                html() += QStringLiteral("</u>");
                break;
            case MD_SPAN_A:
                html() += QStringLiteral("</a>");
                break;
            default:
                break;
        }
    }
    void openLink(const MD_SPAN_A_DETAIL& link) {
        const QString href = QString::fromUtf8(link.href.text, qsizetype(link.href.size));
        html() += QStringLiteral("<a href=\"") + href.toHtmlEscaped() + QStringLiteral("\">");
    }
    void text(MD_TEXTTYPE type, const MD_CHAR* data, MD_SIZE size) {
        const QString part = QString::fromUtf8(data, qsizetype(size));
        switch (type) {
            case MD_TEXT_BR:
            case MD_TEXT_SOFTBR:
                lineBreak();
                break;
            case MD_TEXT_NULLCHAR:
                html() += QChar(0xFFFD);
                break;
            case MD_TEXT_ENTITY:
                html() += part;
                break;
            default:
                html() += part.toHtmlEscaped();
                break;
        }
    }
};

// The parser calls these through C frames: nothing may unwind through it.
template <typename Body>
int guarded(Body&& body) noexcept {
    try {
        body();
        return 0;
    } catch (...) {
        return 1;
    }
}

int enterBlock(MD_BLOCKTYPE type, void*, void* user) {
    return guarded([&] { static_cast<Renderer*>(user)->open(type); });
}
int leaveBlock(MD_BLOCKTYPE, void*, void*) {
    return 0;
}
int enterSpan(MD_SPANTYPE type, void* detail, void* user) {
    return guarded([&] { static_cast<Renderer*>(user)->openSpan(type, detail); });
}
int leaveSpan(MD_SPANTYPE type, void*, void* user) {
    return guarded([&] { static_cast<Renderer*>(user)->closeSpan(type); });
}
int onText(MD_TEXTTYPE type, const MD_CHAR* data, MD_SIZE size, void* user) {
    return guarded([&] { static_cast<Renderer*>(user)->text(type, data, size); });
}

QString whitespaceKept(const QString& html) {
    return QStringLiteral("<span style=\"white-space:pre-wrap\">") + html +
           QStringLiteral("</span>");
}

// The rendered lines of the inline Markdown, none when it cannot be parsed.
std::optional<QStringList> renderedLines(std::string_view markdown) {
    if (!text::isValidUtf8(markdown)) return std::nullopt;
    const QByteArray source = prepared(markdown).toUtf8();
    MD_PARSER parser{};
    parser.flags = MD_FLAG_NOHTML | MD_FLAG_NOINDENTEDCODEBLOCKS | MD_FLAG_STRIKETHROUGH;
    parser.enter_block = enterBlock;
    parser.leave_block = leaveBlock;
    parser.enter_span = enterSpan;
    parser.leave_span = leaveSpan;
    parser.text = onText;
    Renderer renderer;
    if (md_parse(source.constData(), MD_SIZE(source.size()), &parser, &renderer) != 0)
        return std::nullopt;
    return std::move(renderer.lines);
}

QString fromUtf8(std::string_view text) {
    return QString::fromUtf8(text.data(), qsizetype(text.size()));
}

StyledText styled(std::string_view text, MarkdownParser parse) {
    if (auto rich = parse(text)) return {*rich, Qt::RichText};
    return {fromUtf8(text), Qt::PlainText};
}

std::string cleanedReplyText(std::string_view content) {
    return CoachMessageFormatting::cleanDisplayMarkdown(CoachMessageFormatting::normalize(content));
}

}  // namespace

std::optional<QString> inlineMarkdownToRichText(std::string_view markdown) {
    auto lines = renderedLines(markdown);
    if (!lines) return std::nullopt;
    return whitespaceKept(lines->join(QStringLiteral("<br>")));
}

StyledText styledReplyText(std::string_view content, MarkdownParser parse) {
    return styled(cleanedReplyText(content), parse);
}

StyledLines styledReplyLines(std::string_view content) {
    const std::string cleaned = cleanedReplyText(content);
    auto lines = renderedLines(cleaned);
    if (!lines) return {fromUtf8(cleaned).split(u'\n'), Qt::PlainText};
    for (QString& line : *lines) line = whitespaceKept(line);
    return {std::move(*lines), Qt::RichText};
}

StyledText styledInlineText(std::string_view content) {
    return styled(content, inlineMarkdownToRichText);
}

}  // namespace sagely::ui::detail
