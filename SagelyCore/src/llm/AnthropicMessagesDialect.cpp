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

// As in the whole reply, the first text block is the answer: its start may hold text already,
// then its text deltas follow. Thinking, signature and tool-input deltas are other blocks' or
// other kinds.
std::string AnthropicMessagesDialect::streamedText(const SseEvent& event,
                                                   const nlohmann::json& data,
                                                   StreamState& state) const {
    const std::string type = stringValue(member(&data, "type")).value_or(event.type);
    const nlohmann::json* index = member(&data, "index");
    const std::optional<std::int64_t> block = index != nullptr && index->is_number_integer()
                                                  ? std::optional(index->get<std::int64_t>())
                                                  : std::nullopt;
    if (type == "message_stop") {
        state.finished = true;
    } else if (type == "content_block_start" && !state.textBlock && block) {
        const nlohmann::json* start = member(&data, "content_block");
        if (stringValue(member(start, "type")) == "text") {
            state.textBlock = block;
            return stringValue(member(start, "text")).value_or("");
        }
    } else if (type == "content_block_delta" && block && block == state.textBlock) {
        const nlohmann::json* delta = member(&data, "delta");
        if (stringValue(member(delta, "type")) == "text_delta")
            return stringValue(member(delta, "text")).value_or("");
    }
    return {};
}

// "usage" on the answer; in a stream, message_start's message.usage gives the input and each
// message_delta's usage the output so far (cumulative: it replaces, never adds). Cached input
// counts as input.
void AnthropicMessagesDialect::readUsage(const nlohmann::json& object,
                                         std::optional<TokenUsage>& usage) const {
    const nlohmann::json* counts = member(&object, "usage");
    if (counts == nullptr) counts = member(member(&object, "message"), "usage");
    if (counts == nullptr || !counts->is_object()) return;
    TokenUsage next = usage.value_or(TokenUsage{});
    bool found = false;
    if (auto input = countValue(member(counts, "input_tokens"))) {
        next.inputTokens = *input +
                           countValue(member(counts, "cache_creation_input_tokens")).value_or(0) +
                           countValue(member(counts, "cache_read_input_tokens")).value_or(0);
        found = true;
    }
    if (auto output = countValue(member(counts, "output_tokens"))) {
        next.outputTokens = *output;
        found = true;
    }
    if (found) usage = next;
}

}  // namespace sagely::detail
