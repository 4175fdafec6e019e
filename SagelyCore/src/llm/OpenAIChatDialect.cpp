#include "llm/OpenAIChatDialect.h"

#include <sagely/Text.h>

namespace sagely::detail {

namespace {

// An assistant message keeps its calls; a "tool" message becomes one message per result.
void addWireMessages(nlohmann::json& wireMessages, const LLMMessage& message) {
    if (!message.toolResults.empty()) {
        for (const LLMToolResult& result : message.toolResults) {
            wireMessages.push_back(
                {{"role", "tool"}, {"tool_call_id", result.callId}, {"content", result.content}});
        }
        return;
    }
    nlohmann::json wire = apiMessage(message);
    if (!message.toolCalls.empty()) {
        if (message.content.empty()) wire["content"] = nullptr;
        nlohmann::json calls = nlohmann::json::array();
        for (const LLMToolCall& call : message.toolCalls) {
            calls.push_back({{"id", call.id},
                             {"type", "function"},
                             {"function", {{"name", call.name}, {"arguments", call.arguments}}}});
        }
        wire["tool_calls"] = std::move(calls);
    }
    wireMessages.push_back(std::move(wire));
}

}  // namespace

nlohmann::json OpenAIChatDialect::body(const std::vector<LLMMessage>& messages,
                                       const CoachConfig& config, const std::string& model) const {
    nlohmann::json wireMessages = nlohmann::json::array();
    for (const LLMMessage& message : messages) addWireMessages(wireMessages, message);
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

void OpenAIChatDialect::addTools(nlohmann::json& body, const std::vector<LLMTool>& tools) const {
    body["tools"] = functionTools(tools);
}

// Calls are decided by the presence of tool_calls, not by finish_reason; "arguments" is JSON
// text, kept as the model wrote it (checked later).
ToolTurn OpenAIChatDialect::toolTurn(const nlohmann::json& answer) const {
    ToolTurn turn;
    const nlohmann::json* message = member(firstElement(member(&answer, "choices")), "message");
    const nlohmann::json* calls = member(message, "tool_calls");
    if (calls == nullptr || !calls->is_array()) return turn;
    for (const nlohmann::json& call : *calls) {
        const nlohmann::json* function = member(&call, "function");
        turn.calls.push_back({stringValue(member(&call, "id")).value_or(""),
                              stringValue(member(function, "name")).value_or(""),
                              stringValue(member(function, "arguments")).value_or("")});
    }
    for (std::size_t i = 0; i < turn.calls.size(); ++i) giveMadeUpId(turn.calls[i], i);
    return turn;
}

// The first fragment of a call carries its id and name, later ones pieces of its arguments;
// all are keyed by "index".
void OpenAIChatDialect::readStreamedCalls(const SseEvent& /*event*/, const nlohmann::json& data,
                                          StreamState& state) const {
    const nlohmann::json* delta = member(firstElement(member(&data, "choices")), "delta");
    const nlohmann::json* calls = member(delta, "tool_calls");
    if (calls == nullptr || !calls->is_array()) return;
    for (const nlohmann::json& fragment : *calls) {
        const auto index = countValue(member(&fragment, "index"));
        if (!index) continue;
        LLMToolCall& call = state.calls[*index];
        if (auto id = stringValue(member(&fragment, "id")); id && !id->empty()) {
            call.id = *id;
            call.idMadeUp = false;
        }
        const nlohmann::json* function = member(&fragment, "function");
        if (auto name = stringValue(member(function, "name"))) call.name += *name;
        call.arguments += stringValue(member(function, "arguments")).value_or("");
        giveMadeUpId(call, static_cast<std::size_t>(*index));
    }
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
