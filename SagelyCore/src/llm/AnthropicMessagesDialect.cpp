#include "llm/AnthropicMessagesDialect.h"

#include <sagely/Text.h>

namespace sagely::detail {
namespace {

constexpr std::string_view kFormat = "anthropic";

// A user message right after tool results joins them as a text block: the API wants turns to
// alternate.
void addUserText(nlohmann::json& wireMessages, const LLMMessage& message) {
    if (!wireMessages.empty()) {
        nlohmann::json& last = wireMessages.back();
        if (last["role"] == "user" && last["content"].is_array()) {
            last["content"].push_back({{"type", "text"}, {"text", message.content}});
            return;
        }
    }
    wireMessages.push_back(apiMessage(message));
}

// The turn as received when it came from this format, else rebuilt from the calls.
nlohmann::json assistantBlocks(const LLMMessage& message) {
    if (auto turn = providerTurnContent(kFormat, message.providerTurn); turn && turn->is_array())
        return *turn;
    nlohmann::json blocks = nlohmann::json::array();
    if (!message.content.empty()) blocks.push_back({{"type", "text"}, {"text", message.content}});
    for (const LLMToolCall& call : message.toolCalls) {
        blocks.push_back({{"type", "tool_use"},
                          {"id", call.id},
                          {"name", call.name},
                          {"input", argumentsObject(call.arguments)}});
    }
    return blocks;
}

nlohmann::json resultBlocks(const LLMMessage& message) {
    nlohmann::json blocks = nlohmann::json::array();
    for (const LLMToolResult& result : message.toolResults) {
        nlohmann::json block = {
            {"type", "tool_result"}, {"tool_use_id", result.callId}, {"content", result.content}};
        if (result.isError) block["is_error"] = true;
        blocks.push_back(std::move(block));
    }
    return blocks;
}

std::optional<std::int64_t> blockIndex(const nlohmann::json& data) {
    const nlohmann::json* index = member(&data, "index");
    if (index == nullptr || !index->is_number_integer()) return std::nullopt;
    return index->get<std::int64_t>();
}

}  // namespace

// The first system message becomes "system" (always present); further ones are dropped.
nlohmann::json AnthropicMessagesDialect::body(const std::vector<LLMMessage>& messages,
                                              const CoachConfig& config,
                                              const std::string& model) const {
    std::optional<std::string> system;
    nlohmann::json wireMessages = nlohmann::json::array();
    for (const LLMMessage& message : messages) {
        if (!message.toolResults.empty()) {
            wireMessages.push_back({{"role", "user"}, {"content", resultBlocks(message)}});
        } else if (!message.toolCalls.empty()) {
            wireMessages.push_back({{"role", "assistant"}, {"content", assistantBlocks(message)}});
        } else if (message.role == "user") {
            addUserText(wireMessages, message);
        } else if (message.role != "system") {
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

void AnthropicMessagesDialect::addTools(nlohmann::json& body,
                                        const std::vector<LLMTool>& tools) const {
    nlohmann::json declared = nlohmann::json::array();
    for (const LLMTool& tool : tools) {
        declared.push_back({{"name", tool.name},
                            {"description", tool.description},
                            {"input_schema", nlohmann::json::parse(tool.parameters)}});
    }
    body["tools"] = std::move(declared);
}

// Every tool_use block is a call; the whole content goes back unchanged.
ToolTurn AnthropicMessagesDialect::toolTurn(const nlohmann::json& answer) const {
    ToolTurn turn;
    const nlohmann::json* content = member(&answer, "content");
    if (content == nullptr || !content->is_array()) return turn;
    for (const nlohmann::json& block : *content) {
        if (stringValue(member(&block, "type")) != "tool_use") continue;
        const nlohmann::json* input = member(&block, "input");
        turn.calls.push_back({stringValue(member(&block, "id")).value_or(""),
                              stringValue(member(&block, "name")).value_or(""),
                              input != nullptr ? compactJson(*input) : "{}"});
    }
    for (std::size_t i = 0; i < turn.calls.size(); ++i) giveMadeUpId(turn.calls[i], i);
    if (!turn.calls.empty()) turn.providerTurn = providerTurnText(kFormat, *content);
    return turn;
}

// The blocks are rebuilt as they stream (text, thinking with its signature, tool_use with its
// input pieced together from input_json_delta), so the turn goes back as it was.
void AnthropicMessagesDialect::readStreamedCalls(const SseEvent& event, const nlohmann::json& data,
                                                 StreamState& state) const {
    const std::string type = stringValue(member(&data, "type")).value_or(event.type);
    const auto index = blockIndex(data);
    if (!index || *index < 0 || *index > 1024) return;
    const std::string key = std::to_string(*index);
    if (!state.turn.is_object()) state.turn = nlohmann::json::object();
    if (type == "content_block_start") {
        const nlohmann::json* block = member(&data, "content_block");
        if (block == nullptr || !block->is_object()) return;
        state.turn[key] = *block;
        if (stringValue(member(block, "type")) == "tool_use") {
            state.calls[*index] = {stringValue(member(block, "id")).value_or(""),
                                   stringValue(member(block, "name")).value_or(""), ""};
        }
        return;
    }
    if (type != "content_block_delta" || !state.turn.contains(key)) return;
    nlohmann::json& block = state.turn[key];
    const nlohmann::json* delta = member(&data, "delta");
    const std::string kind = stringValue(member(delta, "type")).value_or("");
    auto append = [&](const char* field, const char* piece) {
        const std::string text = stringValue(member(delta, piece)).value_or("");
        block[field] = stringValue(member(&block, field)).value_or("") + text;
    };
    if (kind == "text_delta") {
        append("text", "text");
    } else if (kind == "thinking_delta") {
        append("thinking", "thinking");
    } else if (kind == "signature_delta") {
        append("signature", "signature");
    } else if (kind == "input_json_delta") {
        if (auto call = state.calls.find(*index); call != state.calls.end())
            call->second.arguments += stringValue(member(delta, "partial_json")).value_or("");
    }
}

ToolTurn AnthropicMessagesDialect::streamedToolTurn(const StreamState& state) const {
    ToolTurn turn;
    if (state.calls.empty()) return turn;
    std::map<std::int64_t, nlohmann::json> blocks;
    for (const auto& [key, block] : state.turn.items()) blocks[std::stoll(key)] = block;
    nlohmann::json content = nlohmann::json::array();
    for (auto& [index, block] : blocks) {
        if (auto call = state.calls.find(index); call != state.calls.end()) {
            LLMToolCall made = call->second;
            // No fragments means no arguments: the start block's {} stands.
            if (text::isBlank(made.arguments)) made.arguments = "{}";
            giveMadeUpId(made, turn.calls.size());
            block["input"] = argumentsObject(made.arguments);
            block["id"] = made.id;
            turn.calls.push_back(std::move(made));
        }
        content.push_back(std::move(block));
    }
    turn.providerTurn = providerTurnText(kFormat, content);
    return turn;
}

}  // namespace sagely::detail
