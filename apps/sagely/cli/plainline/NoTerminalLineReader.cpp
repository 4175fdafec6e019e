// Systems without a line-editing library: `chat` reads plain lines.
#include "cli/LineReader.h"

namespace sagely::cli {

std::unique_ptr<LineReader> makeTerminalLineReader() {
    return nullptr;
}

}  // namespace sagely::cli
