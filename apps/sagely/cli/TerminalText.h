// TerminalText — text from a model, a server, a guide or a history file made safe to print on a
// terminal: escape sequences (CSI, OSC, DCS and the like, 7-bit or 8-bit) and every other C0 or
// C1 control character except line feed and tab are removed, and bytes that are not UTF-8
// become U+FFFD, so no such text can set the title, clear the screen, move the cursor or write
// the clipboard. The CLI applies it before it styles text, so its own styling is untouched.
#pragma once

#include <string>
#include <string_view>

namespace sagely::cli {

/// The text without control characters (line feeds and tabs kept) and escape sequences.
std::string terminalSafe(std::string_view text);

/// The kit's JSON text with U+007F to U+009F written as \u escapes (JSON already escapes the
/// C0 controls), so the same value decodes and nothing reaches a terminal raw.
std::string terminalSafeJson(std::string_view json);

}  // namespace sagely::cli
