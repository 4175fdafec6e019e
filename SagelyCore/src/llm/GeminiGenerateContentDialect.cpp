#include "llm/GeminiGenerateContentDialect.h"

#include "settings/ProviderEndpoints.h"

#include <sagely/Text.h>

#include <algorithm>

namespace sagely::detail {
namespace {

nlohmann::json textParts(const std::string& text) {
    return nlohmann::json::array({{{"text", text}}});
}

// A part's text unless it is one of the model's thoughts.
std::optional<std::string> visibleText(const nlohmann::json& part) {
    const nlohmann::json* thought = member(&part, "thought");
    if (thought != nullptr && thought->is_boolean() && thought->get<bool>()) return std::nullopt;
    return stringValue(member(&part, "text"));
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
        if (auto text = visibleText(part)) return text;
    }
    return std::nullopt;
}

std::string GeminiGenerateContentDialect::streamingURL(std::string url) const {
    static constexpr std::string_view kWhole = ":generateContent";
    const std::size_t pathEnd = std::min(url.find_first_of("?#"), url.size());
    if (!std::string_view(url).substr(0, pathEnd).ends_with(kWhole)) return url;
    std::string streamed =
        url.substr(0, pathEnd - kWhole.size()) + ":streamGenerateContent?alt=sse";
    const std::string_view rest = std::string_view(url).substr(pathEnd);
    if (rest.starts_with('?'))
        streamed += '&' + std::string(rest.substr(1));
    else
        streamed += rest;
    return streamed;
}

// Each chunk carries the next pieces of the first candidate; the one with a finishReason is the
// last.
std::string GeminiGenerateContentDialect::streamedText(const SseEvent& /*event*/,
                                                       const nlohmann::json& data,
                                                       StreamState& state) const {
    const nlohmann::json& chunk = data;
    const nlohmann::json* candidate = firstElement(member(&chunk, "candidates"));
    if (stringValue(member(candidate, "finishReason"))) state.finished = true;
    const nlohmann::json* parts = member(member(candidate, "content"), "parts");
    std::string text;
    if (parts == nullptr || !parts->is_array()) return text;
    for (const nlohmann::json& part : *parts) text += visibleText(part).value_or("");
    return text;
}

// "usageMetadata" on the answer or a chunk; the last chunk's counts are the reply's (never a
// sum). The model's thoughts count as output.
void GeminiGenerateContentDialect::readUsage(const nlohmann::json& object,
                                             std::optional<TokenUsage>& usage) const {
    const nlohmann::json* counts = member(&object, "usageMetadata");
    auto input = countValue(member(counts, "promptTokenCount"));
    auto output = countValue(member(counts, "candidatesTokenCount"));
    auto thoughts = countValue(member(counts, "thoughtsTokenCount"));
    if (input || output || thoughts)
        usage = TokenUsage{input.value_or(0), output.value_or(0) + thoughts.value_or(0)};
}

}  // namespace sagely::detail
