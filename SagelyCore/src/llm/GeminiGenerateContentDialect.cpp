#include "llm/GeminiGenerateContentDialect.h"

#include "settings/ProviderEndpoints.h"

#include <sagely/Text.h>

namespace sagely::detail {
namespace {

nlohmann::json textParts(const std::string& text) {
    return nlohmann::json::array({{{"text", text}}});
}

}  // namespace

std::string GeminiGenerateContentDialect::defaultURL(const std::string& model) {
    return geminiGenerateContentURL(model);
}

// Every system message joins the system instruction; the model travels in the URL, not here.
nlohmann::json GeminiGenerateContentDialect::body(const std::vector<LLMMessage>& messages,
                                                  const CoachConfig& config,
                                                  const std::string& /*model*/) const {
    std::string system;
    bool hasSystem = false;
    nlohmann::json contents = nlohmann::json::array();
    for (const LLMMessage& message : messages) {
        if (message.role == "system") {
            if (hasSystem) system += "\n\n";
            system += message.content;
            hasSystem = true;
            continue;
        }
        contents.push_back({{"role", message.role == "assistant" ? "model" : "user"},
                            {"parts", textParts(message.content)}});
    }
    nlohmann::json body = {
        {"contents", std::move(contents)},
        {"generationConfig",
         {{"temperature", config.temperature}, {"maxOutputTokens", config.maxTokens}}}};
    if (!system.empty()) body["systemInstruction"] = {{"parts", textParts(system)}};
    return body;
}

HeaderList GeminiGenerateContentDialect::headers(const std::string& apiKey) const {
    if (apiKey.empty()) return {};
    return {{"x-goog-api-key", apiKey}};  // never in the URL
}

// The first part of the first candidate that carries text and is not the model's thought.
std::optional<std::string> GeminiGenerateContentDialect::replyText(
    const nlohmann::json& answer) const {
    const nlohmann::json* candidate = firstElement(member(&answer, "candidates"));
    const nlohmann::json* parts = member(member(candidate, "content"), "parts");
    if (parts == nullptr || !parts->is_array()) return std::nullopt;
    for (const nlohmann::json& part : *parts) {
        const nlohmann::json* thought = member(&part, "thought");
        const bool isThought = thought != nullptr && thought->is_boolean() && thought->get<bool>();
        auto text = stringValue(member(&part, "text"));
        if (text && !isThought) return text;
    }
    return std::nullopt;
}

}  // namespace sagely::detail
