// Anthropic's Messages format.
#pragma once

#include "llm/Dialect.h"

namespace sagely::detail {

class AnthropicMessagesDialect final : public Dialect {
public:
    nlohmann::json body(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                        const std::string& model) const override;
    HeaderList headers(const std::string& apiKey) const override;
    std::optional<std::string> replyText(const nlohmann::json& answer) const override;
    std::string streamedText(const SseEvent& event, const nlohmann::json& data,
                             StreamState& state) const override;
    ToolTurn streamedToolTurn(const StreamState& state) const override;
    void readUsage(const nlohmann::json& object, std::optional<TokenUsage>& usage) const override;
    void addTools(nlohmann::json& body, const std::vector<LLMTool>& tools) const override;
    ToolTurn toolTurn(const nlohmann::json& answer) const override;
    void readStreamedCalls(const SseEvent& event, const nlohmann::json& data,
                           StreamState& state) const override;
};

}  // namespace sagely::detail
