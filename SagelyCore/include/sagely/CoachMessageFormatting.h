// CoachMessageFormatting — pure text functions that repair model replies for display, clean a
// title-like line of Markdown decoration, and split a reply made of "Step N:" markers into an
// intro and numbered steps.
//
// Thread-safe, and each result depends on its text alone. A thread keeps its two working
// buffers from reply to reply (up to 8 MB each) rather than ask for megabytes afresh for each
// long reply. No function fails. Characters are told apart as ICU's regular expressions tell
// them: a blank is White_Space, a digit any decimal digit, and "Step" is matched under full case
// folding.
#pragma once

#include <sagely/Export.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sagely {

struct SAGELY_EXPORT CoachMessageFormatting {
    struct ProceduralStep {
        std::string title;                 // the step's first line, cleaned
        std::vector<std::string> details;  // its further lines, cleaned, none empty
    };

    struct ProceduralContent {
        std::string intro;                  // the text before the first marker, trimmed
        std::vector<ProceduralStep> steps;  // in order of appearance; at least two
    };

    /// Repairs run-together steps, numbered items and sentences, and drops lone heading marks.
    static std::string normalize(std::string_view text);
    /// Strips heading marks, bold markers and a leading bullet from a single title-like line.
    static std::string cleanDisplayMarkdown(std::string_view text);
    /// The same, made in the text's own buffer: a caller done with the text (such as the
    /// result of normalize) spares a copy of a whole reply.
    static std::string cleanDisplayMarkdown(std::string&& text);
    /// The same for a literal, which would otherwise fit both of the above.
    static std::string cleanDisplayMarkdown(const char* text) {
        return cleanDisplayMarkdown(std::string_view(text));
    }
    /// The procedure in the text, or none when it has fewer than two steps.
    static std::optional<ProceduralContent> parseProceduralContent(std::string_view text);
    /// The normalised text cut into its non-empty paragraphs.
    static std::vector<std::string> blocks(std::string_view text);

    /// How a view shows a reply: its procedure when it reads as one, else its paragraphs.
    struct ReplyLayout {
        std::optional<ProceduralContent> procedure;  // parseProceduralContent(text)
        std::vector<std::string> blocks;             // blocks(text), only when no procedure
    };
    /// parseProceduralContent and, when it finds none, blocks, from one normalisation.
    static ReplyLayout layout(std::string_view text);
};

}  // namespace sagely
