#include "settings/ProviderEndpoints.h"

#include <sagely/Text.h>

#include "support/Url.h"

namespace sagely::detail {

std::string geminiGenerateContentURL(const std::string& model) {
    return "https://generativelanguage.googleapis.com/v1beta/models/" +
           text::percentEncodePath(model) + ":generateContent";
}

std::optional<std::string> providerEndpoint(const CoachConfig& config, const std::string& model) {
    const std::string custom = text::trimmed(config.customEndpoint);
    if (!custom.empty()) {
        if (!isParsableURL(custom)) return std::nullopt;
        return custom;
    }
    switch (config.provider) {
        case Provider::openai:
            return "https://api.openai.com/v1/chat/completions";
        case Provider::anthropic:
            return "https://api.anthropic.com/v1/messages";
        case Provider::gemini:
            return geminiGenerateContentURL(model);
        case Provider::local:
            return "http://127.0.0.1:11434/api/chat";
        case Provider::apple:
        case Provider::custom:
            break;
    }
    return std::nullopt;
}

}  // namespace sagely::detail
