// InlineMarkdown — inline Markdown (bold, italic, code, links) as terminal text.
//
// With colour, emphasis becomes ANSI styles (bold, italic, cyan code, underlined link text);
// without it the decoration marks are dropped and the words stay, except that code keeps its
// backticks (they mark what to type). Block structure (headings, lists) is not interpreted: the
// text keeps its lines. Pure functions.
#pragma once

#include <string>
#include <string_view>

namespace sagely::cli {

/// ANSI select-graphic-rendition sequences used by the renderers.
namespace ansi {
inline constexpr std::string_view reset = "\x1b[0m";
inline constexpr std::string_view bold = "\x1b[1m";
inline constexpr std::string_view dim = "\x1b[2m";
inline constexpr std::string_view italic = "\x1b[3m";
inline constexpr std::string_view underline = "\x1b[4m";
inline constexpr std::string_view green = "\x1b[32m";
inline constexpr std::string_view yellow = "\x1b[33m";
inline constexpr std::string_view blue = "\x1b[34m";
inline constexpr std::string_view cyan = "\x1b[36m";
}  // namespace ansi

std::string renderInlineMarkdown(std::string_view markdown, bool color);

}  // namespace sagely::cli
