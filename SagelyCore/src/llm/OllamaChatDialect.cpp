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

// Each line holds the next piece of content (thinking is not the reply); "done" ends it.
std::string OllamaChatDialect::streamedText(const SseEvent& /*event*/, const nlohmann::json& data,
                                            StreamState& state) const {
    const nlohmann::json& line = data;
    const nlohmann::json* done = member(&line, "done");
    if (done != nullptr && done->is_boolean() && done->get<bool>()) state.finished = true;
    return stringValue(member(member(&line, "message"), "content")).value_or("");
}

// The final object ("done": true) carries prompt_eval_count and eval_count; a count of zero is
// left out by the server.
void OllamaChatDialect::readUsage(const nlohmann::json& object,
                                  std::optional<TokenUsage>& usage) const {
    auto input = countValue(member(&object, "prompt_eval_count"));
    auto output = countValue(member(&object, "eval_count"));
    if (input || output) usage = TokenUsage{input.value_or(0), output.value_or(0)};
}

}  // namespace sagely::detail
