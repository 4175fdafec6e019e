// The reply formatter on any UTF-8 text (replies arrive as JSON strings, so always UTF-8):
// normalising, cleaning, splitting into blocks and reading a procedure end without a crash and
// give UTF-8 text back.
#include "FuzzInput.h"

#include <sagely/CoachMessageFormatting.h>
#include <sagely/Text.h>

using namespace sagely;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = fuzz::textOf(data, size);
    if (size > 64 * 1024 || !text::isValidUtf8(text)) return 0;
    const std::string normalized = CoachMessageFormatting::normalize(text);
    fuzz::require(text::isValidUtf8(normalized), "normalize keeps UTF-8");
    for (const std::string& block : CoachMessageFormatting::blocks(text))
        fuzz::require(text::isValidUtf8(block), "blocks keep UTF-8");
    fuzz::require(text::isValidUtf8(CoachMessageFormatting::cleanDisplayMarkdown(text)),
                  "clean display Markdown keeps UTF-8");
    if (auto steps = CoachMessageFormatting::parseProceduralContent(text)) {
        fuzz::require(text::isValidUtf8(steps->intro), "intro keeps UTF-8");
        for (const auto& step : steps->steps)
            fuzz::require(text::isValidUtf8(step.title), "step title keeps UTF-8");
    }
    return 0;
}
