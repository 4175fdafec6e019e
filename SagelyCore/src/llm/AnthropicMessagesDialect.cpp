#include "llm/AnthropicMessagesDialect.h"

namespace sagely::detail {

// The first system message becomes "system" (always present); further ones are dropped.
nlohmann::json AnthropicMessagesDialect::body(const std::vector<LLMMessage>& messages,
                                              const CoachConfig& config,
                                              const std::string& model) const {
    std::optional<std::string> system;
    nlohmann::json wireMessages = nlohmann::json::array();
    for (const LLMMessage& message : messages) {
        if (message.role != "system") {
            wireMessages.push_back(apiMessage(message));
        } else if (!system) {
            system = message.content;
        }
    }
    return {{"model", model},
            {"system", system.value_or("")},
            {"messages", std::move(wireMessages)},
            {"temperature", config.temperature},
            {"max_tokens", config.maxTokens}};
}

HeaderList AnthropicMessagesDialect::headers(const std::string& apiKey) const {
    HeaderList list;
    if (!apiKey.empty()) list.emplace_back("x-api-key", apiKey);
    list.emplace_back("anthropic-version", "2023-06-01");
    return list;
}

// The text of the first block of type "text", past any thinking or tool-use blocks.
std::optional<std::string> AnthropicMessagesDialect::replyText(const nlohmann::json& answer) const {
    const nlohmann::json* content = member(&answer, "content");
    if (content == nullptr || !content->is_array()) return std::nullopt;
    for (const nlohmann::json& block : *content) {
        if (stringValue(member(&block, "type")) == "text")
            return stringValue(member(&block, "text"));
    }
    return std::nullopt;
}

}  // namespace sagely::detail
