// Rendering — coach messages, cards and lessons as terminal text.
//
// An assistant reply is repaired with the kit's reply formatter: a reply made of "Step N:"
// markers becomes a numbered procedure with its details, anything else its paragraphs, each with
// inline Markdown; heading lines are shown in bold and list bullets as dots. A card or lesson is
// drawn beneath the text behind a bar tinted by its style, with its suggestions numbered so that
// `chat` can send one by its number. Without colour the same layout is plain text. Pure functions
// of their input.
#pragma once

#include <sagely/CoachCard.h>
#include <sagely/CoachLesson.h>
#include <sagely/CoachMessage.h>
#include <sagely/CoachMessageFormatting.h>

#include <string>
#include <string_view>
#include <vector>

namespace sagely::cli {

class Renderer {
public:
    explicit Renderer(bool color) : m_color(color) {}

    bool usesColor() const { return m_color; }

    /// An assistant reply: a numbered procedure or paragraphs; ends with a line break.
    std::string replyText(std::string_view content) const;
    /// A card; its suggestions are appended to `suggestions` and numbered after those already
    /// there.
    std::string card(const CoachCard& card, std::vector<std::string>& suggestions) const;
    /// A lesson, numbered like a card's suggestions.
    std::string lesson(const CoachLesson& lesson, std::vector<std::string>& suggestions) const;
    /// The reply text, then its card and its lesson.
    std::string assistantMessage(const CoachMessage& message,
                                 std::vector<std::string>& suggestions) const;
    /// One message of a history listing, headed by who spoke; a round of action calls lists
    /// each call's outcome ("Done: Create canvas") after its text.
    std::string historyMessage(const CoachMessage& message) const;

    /// Text in the given ANSI style (unchanged without colour).
    std::string styled(std::string_view text, std::string_view style) const;
    std::string inlineMarkdown(std::string_view markdown) const;
    /// Text from a message, a file or a server, without terminal controls (see TerminalText).
    static std::string plain(std::string_view text);
    /// One line of a reply: a heading in bold, a bullet as a dot, inline Markdown.
    std::string line(std::string_view markdown) const;

private:
    /// The message's card, then its lesson.
    std::string attachments(const CoachMessage& message,
                            std::vector<std::string>& suggestions) const;
    std::string paragraph(std::string_view markdown) const;
    std::string procedure(const CoachMessageFormatting::ProceduralContent& steps) const;
    std::string suggestionLines(const std::vector<std::string>& items,
                                std::vector<std::string>& suggestions) const;
    std::string lessonBlock(const CoachLesson::Block& block, int& groupNumber) const;
    std::string framed(const std::string& body, std::string_view tint) const;

    bool m_color;
};

}  // namespace sagely::cli
