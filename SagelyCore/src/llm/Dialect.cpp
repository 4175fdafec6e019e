#include "llm/Dialect.h"

namespace sagely::detail {

ToolTurn Dialect::streamedToolTurn(const StreamState& state) const {
    ToolTurn turn;
    for (const auto& [index, call] : state.calls) turn.calls.push_back(call);
    return turn;
}

std::string providerTurnText(std::string_view format, const nlohmann::json& content) {
    return compactJson({{"format", format}, {"content", content}});
}

std::optional<nlohmann::json> providerTurnContent(std::string_view format,
                                                  const std::string& turn) {
    if (turn.empty()) return std::nullopt;
    const nlohmann::json parsed = nlohmann::json::parse(turn, nullptr, false);
    if (stringValue(member(&parsed, "format")) != format) return std::nullopt;
    const nlohmann::json* content = member(&parsed, "content");
    if (content == nullptr) return std::nullopt;
    return *content;
}

nlohmann::json argumentsObject(const std::string& arguments) {
    nlohmann::json parsed = nlohmann::json::parse(arguments, nullptr, false);
    return parsed.is_object() ? parsed : nlohmann::json::object();
}

std::string compactJson(const nlohmann::json& value) {
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

nlohmann::json functionTools(const std::vector<LLMTool>& tools) {
    nlohmann::json declared = nlohmann::json::array();
    for (const LLMTool& tool : tools) {
        declared.push_back({{"type", "function"},
                            {"function",
                             {{"name", tool.name},
                              {"description", tool.description},
                              {"parameters", nlohmann::json::parse(tool.parameters)}}}});
    }
    return declared;
}

void giveMadeUpId(LLMToolCall& call, std::size_t index) {
    if (!call.id.empty()) return;
    call.id = "call_" + std::to_string(index + 1);
    call.idMadeUp = true;
}

}  // namespace sagely::detail
