// CoachConfig — which provider answers, with which model, key, endpoint and limits; and the
// fixed catalogue of providers and suggested models.
//
// Plain value; every function here is pure and may be called from any thread. The two lazily
// built constants (defaultConfig() and knownModels()) are initialised once, thread-safely.
#pragma once

#include <sagely/Export.h>

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sagely {

struct SAGELY_EXPORT CoachConfig {
    /// The six providers, in menu order.
    enum class Provider { apple, openai, anthropic, gemini, local, custom };

    /// A suggested model of a provider: the id sent to the provider and the label a picker shows.
    struct KnownModel {
        std::string id;
        std::string label;
        friend bool operator==(const KnownModel&, const KnownModel&) = default;
    };

    Provider provider = Provider::openai;
    std::string apiKey;
    std::string model;
    std::string customEndpoint;
    double temperature = 0.3;
    std::int64_t maxTokens = 4096;
    /// Replies are shown as they arrive; off, each reply comes in one piece, by a request
    /// without the stream switch.
    bool streamsReplies = true;

    friend bool operator==(const CoachConfig&, const CoachConfig&) = default;

    /// The default configuration, built on first use (its provider depends on the system).
    static const CoachConfig& defaultConfig();
    /// `apple` on macOS 26.0 or later, otherwise `openai`.
    static Provider preferredDefaultProvider();

    /// All six providers in declaration order.
    static const std::vector<Provider>& allProviders();
    /// The providers offered in the provider picker (all six, in order).
    static const std::vector<Provider>& selectableProviders();
    /// The suggested models of every provider, in list order.
    static const std::map<Provider, std::vector<KnownModel>>& knownModels();
    /// The first known model of the provider; "gpt-4o-mini" when it has none.
    static std::string defaultModel(Provider provider);

    static bool isKeylessProvider(Provider provider);
    static bool usesOpenAIFormat(Provider provider);
    static std::string modelExample(Provider provider);
    /// "Model ID (e.g. " + modelExample + ")".
    static std::string modelFieldLabel(Provider provider);

    /// `model` trimmed of white space; the provider's default model when that leaves nothing.
    std::string resolvedModel() const;
};

using Provider = CoachConfig::Provider;

/// "Apple (On-Device)", "OpenAI", "Anthropic", "Google Gemini", "Local (Ollama)", "Custom API":
/// the display string, also the value stored in JSON.
SAGELY_EXPORT std::string_view rawValue(CoachConfig::Provider provider);
/// The stable lower-case key for per-provider data: "apple", "openai", … "custom".
SAGELY_EXPORT std::string_view storageID(CoachConfig::Provider provider);
SAGELY_EXPORT std::string_view shortName(CoachConfig::Provider provider);
SAGELY_EXPORT std::string_view menuLabel(CoachConfig::Provider provider);

/// Exact, case-sensitive match against the six raw values.
SAGELY_EXPORT std::optional<CoachConfig::Provider> providerFromRawValue(std::string_view raw);
/// Exact match against the six storage ids.
SAGELY_EXPORT std::optional<CoachConfig::Provider> providerFromStorageID(std::string_view id);

// JSON: the six keys "provider", "apiKey", "model", "customEndpoint", "temperature",
// "maxTokens", all written and all required; "streamsReplies" only when false, and optional.
// Decoding failures throw DecodingError.
SAGELY_EXPORT void to_json(nlohmann::json& json, const CoachConfig& config);
SAGELY_EXPORT void from_json(const nlohmann::json& json, CoachConfig& config);
SAGELY_EXPORT void to_json(nlohmann::json& json, CoachConfig::Provider provider);
SAGELY_EXPORT void from_json(const nlohmann::json& json, CoachConfig::Provider& provider);

}  // namespace sagely
