#include "SpokenText.h"

#include "InlineMarkdown.h"
#include "ReplyLayouts.h"
#include "Style.h"

#include <sagely/CoachMessageFormatting.h>

#include <QAccessible>
#include <QStringList>
#include <QTextDocument>
#include <QWidget>

namespace sagely::ui::detail {
namespace {

QString plain(const StyledText& text) {
    if (text.format != Qt::RichText) return text.text;
    QTextDocument document;
    document.setHtml(text.text);
    // The document writes a line break as U+2028; a reader wants a plain line feed.
    return document.toPlainText().replace(QChar(0x2028), u'\n').trimmed();
}

QString plainReply(std::string_view text) {
    return plain(styledReplyText(text));
}

QString plainInline(std::string_view text) {
    return plain(styledInlineText(text));
}

QString qs(const std::string& text) {
    return QString::fromStdString(text);
}

QString sentence(QString text) {
    text = text.trimmed();
    if (!text.isEmpty() && !text.back().isPunct()) text += u'.';
    return text;
}

QString spokenSuggestions(const std::vector<std::string>& suggestions) {
    QStringList texts;
    for (const std::string& suggestion : suggestions) texts << qs(suggestion);
    return localized("Try Next: %1").arg(texts.join(QStringLiteral("; ")));
}

}  // namespace

QString spokenStep(long long number, std::string_view title,
                   const std::vector<std::string>& details) {
    QStringList parts{sentence(plainInline(title))};
    for (const std::string& detail : details) parts << sentence(plainReply(detail));
    return localized("Step %1: %2").arg(number).arg(parts.join(u' '));
}

QString spokenReply(const CoachMessageFormatting::ReplyLayout& layout) {
    if (const auto& procedure = layout.procedure) {
        QStringList parts;
        if (!procedure->intro.empty()) parts << plainReply(procedure->intro);
        long long number = 0;
        for (const auto& step : procedure->steps)
            parts << spokenStep(++number, step.title, step.details);
        return parts.join(u'\n');
    }
    QStringList blocks;
    for (const std::string& block : layout.blocks) blocks << plainReply(block);
    return blocks.join(u'\n');
}

QString spokenCard(const CoachCard& card) {
    QStringList parts{sentence(qs(card.title))};
    if (card.subtitle) parts << sentence(qs(*card.subtitle));
    for (const CoachCard::Section& section : card.sections) {
        QStringList items;
        for (const std::string& item : section.items) items << qs(item);
        parts << sentence(qs(section.title) + QStringLiteral(": ") +
                          items.join(QStringLiteral("; ")));
    }
    if (!card.suggestions.empty()) parts << spokenSuggestions(card.suggestions);
    return parts.join(u' ');
}

QString spokenLesson(const CoachLesson& lesson) {
    QStringList parts{sentence(qs(lesson.title))};
    if (lesson.subtitle && !lesson.subtitle->empty()) parts << sentence(qs(*lesson.subtitle));
    if (lesson.summary && !lesson.summary->empty()) parts << sentence(plainInline(*lesson.summary));
    long long group = 0;
    for (const CoachLesson::Block& block : lesson.blocks) {
        if (const auto* steps = block.asStepGroup()) {
            QStringList lines{sentence(qs(steps->title))};
            for (const CoachLesson::Line& line : steps->lines)
                lines << sentence(plainInline(line.text));
            parts << localized("Step %1: %2").arg(++group).arg(lines.join(u' '));
        } else if (const auto* callout = block.asCallout()) {
            parts << sentence(qs(callout->title) + QStringLiteral(": ") +
                              plainReply(callout->body));
        } else if (const auto* text = block.asText()) {
            parts << sentence(plainReply(*text));
        }
    }
    if (!lesson.suggestions.empty()) parts << spokenSuggestions(lesson.suggestions);
    return parts.join(u' ');
}

QString spokenMessage(const CoachMessage& message) {
    if (message.role() == CoachMessage::Role::user)
        return localized("You: %1").arg(qs(message.content()));
    return localized("Coach: %1").arg(spokenReply(*replyLayout(message)));
}

namespace {

std::function<void(QWidget*)>& announcementListener() {
    static std::function<void(QWidget*)> listener;
    return listener;
}

}  // namespace

void announce(QWidget* banner) {
    QAccessibleEvent event(banner, QAccessible::Alert);
    QAccessible::updateAccessibility(&event);
    if (announcementListener()) announcementListener()(banner);
}

void setAnnouncementListener(std::function<void(QWidget*)> listener) {
    announcementListener() = std::move(listener);
}

}  // namespace sagely::ui::detail
