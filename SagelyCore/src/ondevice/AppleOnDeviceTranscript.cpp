#include "ondevice/AppleOnDeviceTranscript.h"

namespace sagely::detail {
namespace {

std::string block(const LLMMessage& message) {
    if (message.role == "system") return "System instructions:\n" + message.content;
    if (message.role == "assistant") return "Assistant:\n" + message.content;
    return message.content;  // the user's turns carry no label
}

}  // namespace

std::string flattenTranscript(const std::vector<LLMMessage>& messages) {
    std::string prompt;
    for (std::size_t i = 0; i < messages.size(); ++i) {
        if (i > 0) prompt += "\n\n";
        prompt += block(messages[i]);
    }
    return prompt;
}

}  // namespace sagely::detail
