#include "llm/OllamaChatDialect.h"

namespace sagely::detail {

nlohmann::json OllamaChatDialect::body(const std::vector<LLMMessage>& messages,
                                       const CoachConfig& config, const std::string& model) const {
    nlohmann::json wireMessages = nlohmann::json::array();
    for (const LLMMessage& message : messages) {
        if (!message.toolResults.empty()) {
            for (const LLMToolResult& result : message.toolResults) {
                wireMessages.push_back({{"role", "tool"},
                                        {"content", result.content},
                                        {"tool_name", result.name},
                                        {"tool_call_id", result.callId}});
            }
            continue;
        }
        nlohmann::json wire = apiMessage(message);
        if (!message.toolCalls.empty()) {
            nlohmann::json calls = nlohmann::json::array();
            for (const LLMToolCall& call : message.toolCalls) {
                calls.push_back(
                    {{"id", call.id},
                     {"function",
                      {{"name", call.name}, {"arguments", argumentsObject(call.arguments)}}}});
            }
            wire["tool_calls"] = std::move(calls);
        }
        wireMessages.push_back(std::move(wire));
    }
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

// The same envelope as OpenAI's; the server keeps only the schema keys it knows.
void OllamaChatDialect::addTools(nlohmann::json& body, const std::vector<LLMTool>& tools) const {
    body["tools"] = functionTools(tools);
}

namespace {

// message.tool_calls: whole calls whose arguments are an object; servers before 0.12.10 give no
// id.
void takeCalls(const nlohmann::json& object, std::map<std::int64_t, LLMToolCall>& into) {
    const nlohmann::json* calls = member(member(&object, "message"), "tool_calls");
    if (calls == nullptr || !calls->is_array()) return;
    for (const nlohmann::json& call : *calls) {
        const nlohmann::json* function = member(&call, "function");
        const nlohmann::json* arguments = member(function, "arguments");
        const auto index = static_cast<std::int64_t>(into.size());
        into[index] = {stringValue(member(&call, "id")).value_or(""),
                       stringValue(member(function, "name")).value_or(""),
                       arguments != nullptr ? compactJson(*arguments) : "{}"};
        giveMadeUpId(into[index], static_cast<std::size_t>(index));
    }
}

}  // namespace

ToolTurn OllamaChatDialect::toolTurn(const nlohmann::json& answer) const {
    StreamState state;
    takeCalls(answer, state.calls);
    return streamedToolTurn(state);
}

// Calls come whole, in a line of their own before the last one.
void OllamaChatDialect::readStreamedCalls(const SseEvent& /*event*/, const nlohmann::json& data,
                                          StreamState& state) const {
    takeCalls(data, state.calls);
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
