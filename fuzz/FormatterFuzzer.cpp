// The reply formatter on any UTF-8 text (replies arrive as JSON strings, so always UTF-8):
// normalising, cleaning, splitting into blocks and reading a procedure end without a crash and
// give UTF-8 text back. Differential too: cleaning a line gives what its four patterns give
// (the cleaning reads marks by hand), and a view's layout gives what the separate calls give.
#include "FuzzInput.h"

#include <sagely/CoachMessageFormatting.h>
#include <sagely/Text.h>

#include "format/IcuRegex.h"

using namespace sagely;

namespace {

std::string replaced(const std::string& text, std::u16string_view pattern,
                     std::u16string_view replacement) {
    icu::UnicodeString out = detail::IcuRegex(pattern).replaceAll(
        icu::UnicodeString::fromUTF8(text),
        icu::UnicodeString(replacement.data(), static_cast<int32_t>(replacement.size())));
    std::string result;
    out.toUTF8String(result);
    return result;
}

std::string withoutAll(std::string text, std::string_view mark) {
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at))
        text.erase(at, mark.size());
    return text;
}

// cleanDisplayMarkdown as its patterns state it.
std::string cleanedByPatterns(std::string_view input) {
    std::string text = text::trimmed(input);
    text = replaced(text, u"^\\**\\s*#+\\s*", u"");
    text = replaced(text, u"\\s*\\**$", u"");
    text = replaced(text, u"^\\*\\*(.+?)\\*\\*$", u"$1");
    text = replaced(text, u"^[-*]\\s+", u"");
    return text::trimmed(withoutAll(withoutAll(text, "**"), "__"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::textOf(data, size);
    if (size > 64 * 1024 || !text::isValidUtf8(text)) return 0;
    const std::string normalized = CoachMessageFormatting::normalize(text);
    fuzz::require(text::isValidUtf8(normalized), "normalize keeps UTF-8");
    const std::vector<std::string> blocks = CoachMessageFormatting::blocks(text);
    for (const std::string& block : blocks)
        fuzz::require(text::isValidUtf8(block), "blocks keep UTF-8");
    const std::string cleaned = CoachMessageFormatting::cleanDisplayMarkdown(text);
    fuzz::require(text::isValidUtf8(cleaned), "clean display Markdown keeps UTF-8");
    // The trailing-stars pattern reads a run of blanks once per position of it: keep it short.
    if (size <= 4096)
        fuzz::require(cleaned == cleanedByPatterns(text), "cleaning matches its patterns");
    const auto steps = CoachMessageFormatting::parseProceduralContent(text);
    if (steps) {
        fuzz::require(text::isValidUtf8(steps->intro), "intro keeps UTF-8");
        for (const auto& step : steps->steps)
            fuzz::require(text::isValidUtf8(step.title), "step title keeps UTF-8");
    }
    const auto layout = CoachMessageFormatting::layout(text);
    fuzz::require(layout.procedure.has_value() == steps.has_value(), "layout finds the procedure");
    if (steps) {
        fuzz::require(layout.procedure->intro == steps->intro &&
                          layout.procedure->steps.size() == steps->steps.size(),
                      "layout reads the same procedure");
    } else {
        fuzz::require(layout.blocks == blocks, "layout cuts the same blocks");
    }
    return 0;
}
