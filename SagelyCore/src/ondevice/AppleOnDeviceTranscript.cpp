#include "ondevice/AppleOnDeviceTranscript.h"

namespace sagely::detail {
namespace {

// An earlier round of actions, in words: the model reads one prompt, with no tool turns.
std::string calls(const LLMMessage& message) {
    std::string text;
    for (const LLMToolCall& call : message.toolCalls)
        text += "\n[Called " + call.name + " with " + call.arguments + "]";
    return text;
}

std::string results(const LLMMessage& message) {
    std::string text = "Action results:";
    for (const LLMToolResult& result : message.toolResults)
        text += "\n" + result.name + ": " + result.content;
    return text;
}

std::string block(const LLMMessage& message) {
    if (message.role == "system") return "System instructions:\n" + message.content;
    if (message.role == "assistant") return "Assistant:\n" + message.content + calls(message);
    if (!message.toolResults.empty()) return results(message);
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
