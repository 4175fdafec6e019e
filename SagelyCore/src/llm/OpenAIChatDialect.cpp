#include "llm/OpenAIChatDialect.h"

#include <sagely/Text.h>

namespace sagely::detail {

nlohmann::json OpenAIChatDialect::body(const std::vector<LLMMessage>& messages,
                                       const CoachConfig& config, const std::string& model) const {
    nlohmann::json wireMessages = nlohmann::json::array();
    for (const LLMMessage& message : messages) wireMessages.push_back(apiMessage(message));
    // Only the gpt-oss family wants the newer key; other reasoning models accept "max_tokens".
    const char* limitKey =
        text::contains(text::lowercased(model), "gpt-oss") ? "max_completion_tokens" : "max_tokens";
    return {{"model", model},
            {"messages", std::move(wireMessages)},
            {"temperature", config.temperature},
            {limitKey, config.maxTokens}};
}

HeaderList OpenAIChatDialect::headers(const std::string& apiKey) const {
    if (apiKey.empty()) return {};
    return {{"Authorization", "Bearer " + apiKey}};
}

// choices[0].message.content; a refusal stands in for content that is null or absent.
std::optional<std::string> OpenAIChatDialect::replyText(const nlohmann::json& answer) const {
    const nlohmann::json* message = member(firstElement(member(&answer, "choices")), "message");
    const nlohmann::json* content = member(message, "content");
    if (content == nullptr || content->is_null()) return stringValue(member(message, "refusal"));
    return stringValue(content);
}

// Usage comes in one more chunk before "[DONE]"; only OpenAI itself is sure to accept the option.
nlohmann::json OpenAIChatDialect::streamingBody(const std::vector<LLMMessage>& messages,
                                                const CoachConfig& config,
                                                const std::string& model) const {
    nlohmann::json streamed = Dialect::streamingBody(messages, config, model);
    if (config.provider == Provider::openai) streamed["stream_options"] = {{"include_usage", true}};
    return streamed;
}

// Content and refusal pieces of the first choice are the reply; reasoning fields are not.
std::string OpenAIChatDialect::streamedText(const SseEvent& event, const nlohmann::json& data,
                                            StreamState& state) const {
    if (event.data.starts_with("[DONE]")) {
        state.finished = true;
        return {};
    }
    const nlohmann::json& chunk = data;
    const nlohmann::json* delta = member(firstElement(member(&chunk, "choices")), "delta");
    std::string text = stringValue(member(delta, "content")).value_or("");
    text += stringValue(member(delta, "refusal")).value_or("");
    return text;
}

// "usage" on the answer, or on a stream's last chunk (OpenAI's own with include_usage, some
// compatible servers on the last content chunk): the last one counts.
void OpenAIChatDialect::readUsage(const nlohmann::json& object,
                                  std::optional<TokenUsage>& usage) const {
    const nlohmann::json* counts = member(&object, "usage");
    auto input = countValue(member(counts, "prompt_tokens"));
    auto output = countValue(member(counts, "completion_tokens"));
    if (input || output) usage = TokenUsage{input.value_or(0), output.value_or(0)};
}

}  // namespace sagely::detail
