#include <sagely/CoachConfig.h>

#include <sagely/Error.h>
#include <sagely/OperatingSystem.h>
#include <sagely/Text.h>

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <limits>

namespace sagely {
namespace {

struct ProviderRow {
    CoachConfig::Provider provider;
    std::string_view rawValue;
    std::string_view storageID;
    std::string_view shortName;
    std::string_view menuLabel;
    bool keyless;
    bool openAIFormat;
    std::string_view modelExample;
};

constexpr std::array<ProviderRow, 6> kProviders{{
    {Provider::apple, "Apple (On-Device)", "apple", "Apple",
     "Apple Intelligence (on-device, no key)", true, false, "system-default"},
    {Provider::openai, "OpenAI", "openai", "OpenAI", "OpenAI", false, true, "gpt-4o-mini"},
    {Provider::anthropic, "Anthropic", "anthropic", "Anthropic", "Anthropic", false, false,
     "claude-sonnet-4-20250514"},
    {Provider::gemini, "Google Gemini", "gemini", "Gemini", "Google Gemini", false, false,
     "gemini-2.0-flash"},
    {Provider::local, "Local (Ollama)", "local", "Local", "Local (Ollama)", true, false, "llama3"},
    {Provider::custom, "Custom API", "custom", "Custom", "Custom API", false, true,
     "your-model-id"},
}};

const ProviderRow& row(CoachConfig::Provider provider) {
    return kProviders[static_cast<std::size_t>(provider)];
}

}  // namespace

std::string_view rawValue(CoachConfig::Provider provider) {
    return row(provider).rawValue;
}
std::string_view storageID(CoachConfig::Provider provider) {
    return row(provider).storageID;
}
std::string_view shortName(CoachConfig::Provider provider) {
    return row(provider).shortName;
}
std::string_view menuLabel(CoachConfig::Provider provider) {
    return row(provider).menuLabel;
}

std::optional<CoachConfig::Provider> providerFromRawValue(std::string_view raw) {
    for (const ProviderRow& r : kProviders)
        if (r.rawValue == raw) return r.provider;
    return std::nullopt;
}

std::optional<CoachConfig::Provider> providerFromStorageID(std::string_view id) {
    for (const ProviderRow& r : kProviders)
        if (r.storageID == id) return r.provider;
    return std::nullopt;
}

CoachConfig::Provider CoachConfig::preferredDefaultProvider() {
    return isMacOSAtLeast(26, 0) ? Provider::apple : Provider::openai;
}

const CoachConfig& CoachConfig::defaultConfig() {
    static const CoachConfig config = [] {
        CoachConfig c;
        c.provider = preferredDefaultProvider();
        c.model = defaultModel(c.provider);
        return c;
    }();
    return config;
}

const std::vector<CoachConfig::Provider>& CoachConfig::allProviders() {
    static const std::vector<Provider> all{Provider::apple,  Provider::openai, Provider::anthropic,
                                           Provider::gemini, Provider::local,  Provider::custom};
    return all;
}

const std::vector<CoachConfig::Provider>& CoachConfig::selectableProviders() {
    return allProviders();
}

const std::map<CoachConfig::Provider, std::vector<CoachConfig::KnownModel>>&
CoachConfig::knownModels() {
    static const std::map<Provider, std::vector<KnownModel>> models{
        {Provider::apple,
         {{"system-default", "Apple Intelligence (on-device)"},
          {"content-tagging", "Content Tagging"}}},
        {Provider::openai,
         {{"gpt-4o-mini", "GPT-4o mini (fast, cheap)"},
          {"gpt-4o", "GPT-4o (balanced)"},
          {"gpt-4.1", "GPT-4.1 (advanced)"},
          {"o3-mini", "o3-mini (reasoning)"}}},
        {Provider::anthropic,
         {{"claude-sonnet-4-20250514", "Claude Sonnet 4 (balanced)"},
          {"claude-3-5-haiku-20241022", "Claude 3.5 Haiku (fast, cheap)"}}},
        {Provider::gemini,
         {{"gemini-2.0-flash", "Gemini 2.0 Flash (fast)"},
          {"gemini-2.0-flash-lite", "Gemini 2.0 Flash-Lite (cheap)"},
          {"gemini-1.5-pro", "Gemini 1.5 Pro (advanced)"}}},
        {Provider::local,
         {{"gemma3:4b", "Gemma 3 4B (lightweight, vision)"},
          {"gemma3:12b", "Gemma 3 12B (balanced)"},
          {"llama3", "Llama 3"},
          {"mistral", "Mistral"}}},
        {Provider::custom,
         {{"gpt-4o-mini", "Example: gpt-4o-mini"},
          {"gemini-2.0-flash", "Example: gemini-2.0-flash"}}},
    };
    return models;
}

std::string CoachConfig::defaultModel(Provider provider) {
    const auto& models = knownModels();
    auto it = models.find(provider);
    if (it == models.end() || it->second.empty()) return "gpt-4o-mini";
    return it->second.front().id;
}

bool CoachConfig::isKeylessProvider(Provider provider) {
    return row(provider).keyless;
}
bool CoachConfig::usesOpenAIFormat(Provider provider) {
    return row(provider).openAIFormat;
}
std::string CoachConfig::modelExample(Provider provider) {
    return std::string(row(provider).modelExample);
}
std::string CoachConfig::modelFieldLabel(Provider provider) {
    return "Model ID (e.g. " + modelExample(provider) + ")";
}

std::string CoachConfig::resolvedModel() const {
    std::string trimmedModel = text::trimmed(model);
    return trimmedModel.empty() ? defaultModel(provider) : trimmedModel;
}

void to_json(nlohmann::json& json, CoachConfig::Provider provider) {
    json = std::string(rawValue(provider));
}

void from_json(const nlohmann::json& json, CoachConfig::Provider& provider) {
    if (!json.is_string()) throw DecodingError("provider: expected a string");
    auto parsed = providerFromRawValue(json.get_ref<const std::string&>());
    if (!parsed)
        throw DecodingError("provider: unknown provider \"" + json.get<std::string>() + "\"");
    provider = *parsed;
}

void to_json(nlohmann::json& json, const CoachConfig& config) {
    json = nlohmann::json::object();
    json["provider"] = std::string(rawValue(config.provider));
    json["apiKey"] = config.apiKey;
    json["model"] = config.model;
    json["customEndpoint"] = config.customEndpoint;
    json["temperature"] = config.temperature;
    json["maxTokens"] = config.maxTokens;
    if (!config.streamsReplies) json["streamsReplies"] = false;
}

void from_json(const nlohmann::json& json, CoachConfig& config) {
    if (!json.is_object()) throw DecodingError("expected an object");
    auto field = [&](const char* key) -> const nlohmann::json& {
        auto it = json.find(key);
        if (it == json.end()) throw DecodingError(std::string(key) + ": missing key");
        return *it;
    };
    auto string = [&](const char* key) {
        const nlohmann::json& v = field(key);
        if (!v.is_string()) throw DecodingError(std::string(key) + ": expected a string");
        return v.get<std::string>();
    };
    CoachConfig decoded;
    from_json(field("provider"), decoded.provider);
    decoded.apiKey = string("apiKey");
    decoded.model = string("model");
    decoded.customEndpoint = string("customEndpoint");
    const nlohmann::json& temperature = field("temperature");
    if (!temperature.is_number()) throw DecodingError("temperature: expected a number");
    decoded.temperature = temperature.get<double>();
    const nlohmann::json& maxTokens = field("maxTokens");
    // An unsigned number past the signed range would wrap to a negative limit.
    bool tooLarge = maxTokens.is_number_unsigned() &&
                    maxTokens.get<std::uint64_t>() >
                        static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (!maxTokens.is_number_integer() || tooLarge)
        throw DecodingError("maxTokens: expected an integer");
    decoded.maxTokens = maxTokens.get<std::int64_t>();
    if (auto streams = json.find("streamsReplies"); streams != json.end()) {
        if (!streams->is_boolean()) throw DecodingError("streamsReplies: expected a boolean");
        decoded.streamsReplies = streams->get<bool>();
    }
    config = std::move(decoded);
}

}  // namespace sagely
