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

constexpr std::string_view kFormat = "gemini";

// The model's content as received when it came from this format (every part, thought
// signatures included), else rebuilt from the calls.
nlohmann::json modelContent(const LLMMessage& message) {
    if (auto turn = providerTurnContent(kFormat, message.providerTurn); turn && turn->is_object())
        return *turn;
    nlohmann::json parts = nlohmann::json::array();
    if (!message.content.empty()) parts.push_back({{"text", message.content}});
    for (const LLMToolCall& call : message.toolCalls) {
        nlohmann::json made = {{"name", call.name}, {"args", argumentsObject(call.arguments)}};
        if (!call.idMadeUp) made["id"] = call.id;
        parts.push_back({{"functionCall", std::move(made)}});
    }
    return {{"role", "model"}, {"parts", std::move(parts)}};
}

// One functionResponse part per call, in call order; failures go under "error". `calls` are
// the calls they answer.
nlohmann::json responseParts(const LLMMessage& message, const std::vector<LLMToolCall>& calls) {
    nlohmann::json parts = nlohmann::json::array();
    for (const LLMToolResult& result : message.toolResults) {
        nlohmann::json response = {
            {"name", result.name},
            {"response", {{result.isError ? "error" : "output", result.content}}}};
        // Ids the kit made up were never the model's; only the model's own go back.
        const bool madeUp = std::any_of(calls.begin(), calls.end(), [&](const LLMToolCall& call) {
            return call.id == result.callId && call.idMadeUp;
        });
        if (!madeUp) response["id"] = result.callId;
        parts.push_back({{"functionResponse", std::move(response)}});
    }
    return parts;
}

void takeCalls(const nlohmann::json& parts, std::map<std::int64_t, LLMToolCall>& into) {
    for (const nlohmann::json& part : parts) {
        const nlohmann::json* call = member(&part, "functionCall");
        if (call == nullptr) continue;
        const nlohmann::json* args = member(call, "args");
        const auto index = static_cast<std::int64_t>(into.size());
        into[index] = {stringValue(member(call, "id")).value_or(""),
                       stringValue(member(call, "name")).value_or(""),
                       args != nullptr ? compactJson(*args) : "{}"};
        giveMadeUpId(into[index], static_cast<std::size_t>(index));
    }
}

const nlohmann::json* candidateParts(const nlohmann::json& object) {
    const nlohmann::json* candidate = firstElement(member(&object, "candidates"));
    const nlohmann::json* parts = member(member(candidate, "content"), "parts");
    return parts != nullptr && parts->is_array() ? parts : nullptr;
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
    const std::vector<LLMToolCall>* calls = nullptr;  // of the last model content
    for (const LLMMessage& message : messages) {
        if (message.role == "system") {
            if (hasSystem) system += "\n\n";
            system += message.content;
            hasSystem = true;
            continue;
        }
        if (!message.toolCalls.empty()) {
            contents.push_back(modelContent(message));
            calls = &message.toolCalls;
            continue;
        }
        if (!message.toolResults.empty()) {
            contents.push_back(
                {{"role", "user"},
                 {"parts", responseParts(message, calls ? *calls : std::vector<LLMToolCall>{})}});
            continue;
        }
        // A question right after function responses joins their content: turns alternate.
        if (message.role == "user" && !contents.empty() && contents.back()["role"] == "user" &&
            contents.back()["parts"].front().contains("functionResponse")) {
            contents.back()["parts"].push_back({{"text", message.content}});
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

void GeminiGenerateContentDialect::addTools(nlohmann::json& body,
                                            const std::vector<LLMTool>& tools) const {
    nlohmann::json declarations = nlohmann::json::array();
    for (const LLMTool& tool : tools) {
        declarations.push_back({{"name", tool.name},
                                {"description", tool.description},
                                {"parametersJsonSchema", nlohmann::json::parse(tool.parameters)}});
    }
    body["tools"] = nlohmann::json::array({{{"functionDeclarations", std::move(declarations)}}});
}

// Every functionCall part is a call; the content goes back verbatim.
ToolTurn GeminiGenerateContentDialect::toolTurn(const nlohmann::json& answer) const {
    StreamState state;
    const nlohmann::json* parts = candidateParts(answer);
    if (parts == nullptr) return {};
    takeCalls(*parts, state.calls);
    ToolTurn turn = Dialect::streamedToolTurn(state);
    if (!turn.calls.empty()) {
        turn.providerTurn = providerTurnText(
            kFormat, *member(firstElement(member(&answer, "candidates")), "content"));
    }
    return turn;
}

// Calls come whole; every part of every chunk is kept for the turn.
void GeminiGenerateContentDialect::readStreamedCalls(const SseEvent& /*event*/,
                                                     const nlohmann::json& data,
                                                     StreamState& state) const {
    const nlohmann::json* parts = candidateParts(data);
    if (parts == nullptr) return;
    takeCalls(*parts, state.calls);
    if (!state.turn.is_array()) state.turn = nlohmann::json::array();
    for (const nlohmann::json& part : *parts) state.turn.push_back(part);
}

ToolTurn GeminiGenerateContentDialect::streamedToolTurn(const StreamState& state) const {
    ToolTurn turn = Dialect::streamedToolTurn(state);
    if (!turn.calls.empty())
        turn.providerTurn = providerTurnText(kFormat, {{"role", "model"}, {"parts", state.turn}});
    return turn;
}

}  // namespace sagely::detail
