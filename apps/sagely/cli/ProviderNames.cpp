#include "cli/ProviderNames.h"

#include <algorithm>
#include <cctype>

namespace sagely::cli {
namespace {

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return std::tolower(static_cast<unsigned char>(x)) ==
               std::tolower(static_cast<unsigned char>(y));
    });
}

}  // namespace

std::optional<Provider> parseProvider(std::string_view word) {
    if (auto provider = providerFromStorageID(word)) return provider;
    if (auto provider = providerFromRawValue(word)) return provider;
    for (Provider provider : CoachConfig::allProviders()) {
        if (equalsIgnoringCase(word, storageID(provider)) ||
            equalsIgnoringCase(word, rawValue(provider)) ||
            equalsIgnoringCase(word, shortName(provider)))
            return provider;
    }
    return std::nullopt;
}

std::string providerChoices() {
    std::string choices;
    for (Provider provider : CoachConfig::allProviders()) {
        if (!choices.empty()) choices += ", ";
        choices += storageID(provider);
    }
    return choices;
}

std::optional<std::string> apiKeyVariable(Provider provider) {
    switch (provider) {
        case Provider::openai:
            return "OPENAI_API_KEY";
        case Provider::anthropic:
            return "ANTHROPIC_API_KEY";
        case Provider::gemini:
            return "GEMINI_API_KEY";
        default:
            return std::nullopt;
    }
}

std::string apiKeyVariableList() {
    return "OPENAI_API_KEY, ANTHROPIC_API_KEY or GEMINI_API_KEY";
}

}  // namespace sagely::cli
