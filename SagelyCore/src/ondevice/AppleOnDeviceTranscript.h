// Turns a chat into the single prompt the on-device model reads.
#pragma once

#include <sagely/LLMMessage.h>

#include <string>
#include <vector>

namespace sagely::detail {

/// One block per message, joined by a blank line: "System instructions:\n" + content for
/// "system", "Assistant:\n" + content for "assistant" (then "[Called NAME with ARGUMENTS]" on a
/// line for each call it made), "Action results:" and a "NAME: RESULT" line per result for a
/// message with results, the bare content for any other.
std::string flattenTranscript(const std::vector<LLMMessage>& messages);

}  // namespace sagely::detail
