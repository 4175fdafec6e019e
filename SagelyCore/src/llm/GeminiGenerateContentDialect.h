// Google Gemini's generateContent format.
#pragma once

#include "llm/Dialect.h"

namespace sagely::detail {

class GeminiGenerateContentDialect final : public Dialect {
public:
    /// The default endpoint for a model: its percent-encoded name in the path.
    static std::string defaultURL(const std::string& model);

    nlohmann::json body(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                        const std::string& model) const override;
    HeaderList headers(const std::string& apiKey) const override;
    std::optional<std::string> replyText(const nlohmann::json& answer) const override;
    nlohmann::json streamingBody(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                                 const std::string& model) const override {
        return body(messages, config, model);  // the URL asks for the stream
    }
    /// ":generateContent" at the end of the path becomes ":streamGenerateContent?alt=sse".
    std::string streamingURL(std::string url) const override;
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
