// Markdown to styled text for the message views: only inline syntax (emphasis, code, links,
// strike-through) is interpreted; headings, lists, quotes and code fences are kept as the text
// they are, and line breaks and runs of blanks are kept.
#pragma once

#include <QString>
#include <QStringList>

#include <optional>
#include <string_view>

namespace sagely::ui::detail {

/// Text ready for a label: rich text, or plain text when the Markdown could not be parsed.
struct StyledText {
    QString text;
    Qt::TextFormat format = Qt::PlainText;
};

/// The inline Markdown as Qt rich text; none when it cannot be parsed (for example when the
/// bytes are not UTF-8).
std::optional<QString> inlineMarkdownToRichText(std::string_view markdown);

/// Turns inline Markdown into rich text, or none when it cannot.
using MarkdownParser = std::optional<QString> (*)(std::string_view markdown);

/// A reply block or detail line for display: repaired, cleaned of decoration, then parsed as
/// inline Markdown; the cleaned text as plain text when parsing fails.
StyledText styledReplyText(std::string_view content,
                           MarkdownParser parse = inlineMarkdownToRichText);

/// A reply block as styledReplyText shows it, line by line: the lines its label shows one under
/// the other, each of them rich text on its own (a line break inside a span that goes on to the
/// next line stays in its line), or the cleaned text's lines as plain text.
struct StyledLines {
    QStringList lines;
    Qt::TextFormat format = Qt::PlainText;
};
StyledLines styledReplyLines(std::string_view content);

/// Text that is already display-ready (a lesson line): parsed as inline Markdown as it
/// stands; the text as plain text when parsing fails.
StyledText styledInlineText(std::string_view content);

}  // namespace sagely::ui::detail
