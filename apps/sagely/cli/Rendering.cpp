#include "cli/Rendering.h"

#include "cli/InlineMarkdown.h"
#include "cli/TerminalText.h"

#include <sagely/CoachMessageFormatting.h>
#include <sagely/Text.h>

#include <sstream>

namespace sagely::cli {
namespace {

using Formatting = CoachMessageFormatting;

std::string_view tintOf(CoachCard::Style style) {
    switch (style) {
        case CoachCard::Style::success:
            return ansi::green;
        case CoachCard::Style::warning:
            return ansi::yellow;
        case CoachCard::Style::info:
            break;
    }
    return ansi::blue;
}

std::string_view tintOf(CoachLesson::Style style) {
    switch (style) {
        case CoachLesson::Style::success:
            return ansi::green;
        case CoachLesson::Style::warning:
            return ansi::yellow;
        case CoachLesson::Style::info:
            break;
    }
    return ansi::blue;
}

struct ToneLook {
    std::string_view symbol;
    std::string_view tint;
};

ToneLook lookOf(CoachLesson::Callout::Tone tone) {
    switch (tone) {
        case CoachLesson::Callout::Tone::warning:
            return {"!", ansi::yellow};
        case CoachLesson::Callout::Tone::verification:
            return {"✓", ansi::green};
        case CoachLesson::Callout::Tone::tip:
            break;
    }
    return {"»", ansi::blue};
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

}  // namespace

std::string Renderer::styled(std::string_view text, std::string_view style) const {
    if (!m_color) return std::string(text);
    return std::string(style) + std::string(text) + std::string(ansi::reset);
}

std::string Renderer::plain(std::string_view text) {
    return terminalSafe(text);
}

// Every text of a message reaches the terminal through here or through plain(), cleaned first.
std::string Renderer::inlineMarkdown(std::string_view markdown) const {
    return renderInlineMarkdown(terminalSafe(markdown), m_color);
}

// One line of a paragraph: a heading in bold without its marks, a list bullet as a dot, anything
// else as inline Markdown.
std::string Renderer::line(std::string_view markdown) const {
    const std::string trimmed = text::trimmedSpacesAndTabs(markdown);
    const std::size_t afterMarks = trimmed.find_first_not_of('#');
    if (trimmed.starts_with('#') &&
        (afterMarks == std::string::npos || trimmed[afterMarks] == ' ')) {
        const std::string title = afterMarks == std::string::npos ? "" : trimmed.substr(afterMarks);
        return styled(inlineMarkdown(text::trimmed(title)), ansi::bold);
    }
    for (std::string_view bullet : {"- ", "* ", "+ "}) {
        if (!trimmed.starts_with(bullet)) continue;
        const auto indent = markdown.substr(0, markdown.find(bullet));
        return std::string(indent) + "• " + inlineMarkdown(trimmed.substr(2));
    }
    return inlineMarkdown(markdown);
}

// A paragraph of the reply, line by line (headings and lists keep their lines).
std::string Renderer::paragraph(std::string_view markdown) const {
    std::string out;
    for (const auto& text : splitLines(std::string(markdown))) {
        if (!out.empty()) out += "\n";
        out += line(text);
    }
    return out;
}

std::string Renderer::replyText(std::string_view raw) const {
    const std::string content = terminalSafe(raw);
    if (auto steps = Formatting::parseProceduralContent(content)) return procedure(*steps);
    std::string out;
    for (const auto& block : Formatting::blocks(content)) {
        if (!out.empty()) out += "\n";
        out += paragraph(block) + "\n";
    }
    return out;
}

std::string Renderer::procedure(const CoachMessageFormatting::ProceduralContent& steps) const {
    std::string out;
    if (!steps.intro.empty()) out += paragraph(steps.intro) + "\n\n";
    int number = 0;
    for (const auto& step : steps.steps) {
        out += styled(std::to_string(++number) + ".", ansi::blue) + " " +
               styled(inlineMarkdown(step.title), ansi::bold) + "\n";
        for (const auto& detail : step.details) out += "   • " + inlineMarkdown(detail) + "\n";
    }
    return out;
}

std::string Renderer::suggestionLines(const std::vector<std::string>& items,
                                      std::vector<std::string>& suggestions) const {
    if (items.empty()) return {};
    std::string out = "\n" + styled("Try Next", ansi::bold) + "\n";
    for (const auto& item : items) {
        suggestions.push_back(item);
        out += "  " + styled(std::to_string(suggestions.size()) + ")", ansi::dim) + " " +
               plain(item) + "\n";
    }
    return out;
}

// Puts the style's bar before every line of a card or lesson.
std::string Renderer::framed(const std::string& body, std::string_view tint) const {
    std::string out;
    const std::string bar = styled("┃", tint);
    for (const auto& line : splitLines(body))
        out += line.empty() ? bar + "\n" : bar + " " + line + "\n";
    return out;
}

std::string Renderer::card(const CoachCard& card, std::vector<std::string>& suggestions) const {
    std::string body = styled(plain(card.title), ansi::bold) + "\n";
    if (card.subtitle) body += styled(plain(*card.subtitle), ansi::dim) + "\n";
    for (const auto& section : card.sections) {
        body += "\n" + styled(plain(section.title), ansi::bold) + "\n";
        for (const auto& item : section.items) body += "  • " + inlineMarkdown(item) + "\n";
    }
    body += suggestionLines(card.suggestions, suggestions);
    return framed(body, tintOf(card.style));
}

std::string Renderer::lessonBlock(const CoachLesson::Block& block, int& groupNumber) const {
    if (const auto* group = block.asStepGroup()) {
        std::string out = "\n" + styled(std::to_string(++groupNumber) + ".", ansi::blue) + " " +
                          styled(inlineMarkdown(group->title), ansi::bold) + "\n";
        for (const auto& line : group->lines) {
            const bool bullet = line.kind == CoachLesson::Line::Kind::bullet;
            out += std::string(bullet ? "   • " : "   ") + inlineMarkdown(line.text) + "\n";
        }
        return out;
    }
    if (const auto* callout = block.asCallout()) {
        const ToneLook look = lookOf(callout->tone);
        return "\n" + styled(look.symbol, look.tint) + " " +
               styled(plain(callout->title), ansi::bold) + "\n  " + inlineMarkdown(callout->body) +
               "\n";
    }
    return "\n" + inlineMarkdown(*block.asText()) + "\n";
}

std::string Renderer::lesson(const CoachLesson& lesson,
                             std::vector<std::string>& suggestions) const {
    std::string body = styled(plain(lesson.title), ansi::bold) + "\n";
    if (lesson.subtitle && !lesson.subtitle->empty())
        body += styled(plain(*lesson.subtitle), ansi::dim) + "\n";
    if (lesson.summary && !lesson.summary->empty())
        body += "\n" + inlineMarkdown(*lesson.summary) + "\n";
    int groupNumber = 0;
    for (const auto& block : lesson.blocks) body += lessonBlock(block, groupNumber);
    body += suggestionLines(lesson.suggestions, suggestions);
    return framed(body, tintOf(lesson.style));
}

std::string Renderer::assistantMessage(const CoachMessage& message,
                                       std::vector<std::string>& suggestions) const {
    return replyText(message.content()) + attachments(message, suggestions);
}

std::string Renderer::attachments(const CoachMessage& message,
                                  std::vector<std::string>& suggestions) const {
    std::string out;
    if (message.card()) out += "\n" + card(*message.card(), suggestions);
    if (message.lesson()) out += "\n" + lesson(*message.lesson(), suggestions);
    return out;
}

std::string Renderer::historyMessage(const CoachMessage& message) const {
    if (message.role() == CoachMessage::Role::user)
        return styled("You:", ansi::bold) + " " + plain(message.content()) + "\n";
    std::vector<std::string> suggestions;
    const char* who = message.role() == CoachMessage::Role::assistant ? "Coach:" : "System:";
    std::string out = styled(who, ansi::bold) + "\n" + replyText(message.content());
    // A round of action calls: each call's outcome after the text, as the workspace shows it.
    for (const CoachActionCall& call : message.actionCalls())
        out += plain(call.summaryLine()) + "\n";
    return out + attachments(message, suggestions);
}

}  // namespace sagely::cli
