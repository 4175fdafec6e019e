#include "llm/OllamaChatDialect.h"

namespace sagely::detail {

nlohmann::json OllamaChatDialect::body(const std::vector<LLMMessage>& messages,
                                       const CoachConfig& config, const std::string& model) const {
    nlohmann::json wireMessages = nlohmann::json::array();
    for (const LLMMessage& message : messages) wireMessages.push_back(apiMessage(message));
    return {{"model", model},
            {"messages", std::move(wireMessages)},
            {"stream", false},
            {"options", {{"temperature", config.temperature}, {"num_predict", config.maxTokens}}}};
}

HeaderList OllamaChatDialect::headers(const std::string& /*apiKey*/) const {
    return {};
}

std::optional<std::string> OllamaChatDialect::replyText(const nlohmann::json& answer) const {
    return stringValue(member(member(&answer, "message"), "content"));
}

}  // namespace sagely::detail
