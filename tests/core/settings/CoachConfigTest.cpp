#include <sagely/CoachConfig.h>
#include <sagely/Error.h>
#include <sagely/OperatingSystem.h>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "support/DecodingErrorText.h"

#include <string>
#include <vector>

using sagely::CoachConfig;
using sagely::OperatingSystemVersion;
using sagely::ScopedOperatingSystemOverride;
using Provider = CoachConfig::Provider;

namespace {

using sagely::testing::decodingError;

const std::vector<Provider> kAllInOrder{Provider::apple,  Provider::openai, Provider::anthropic,
                                        Provider::gemini, Provider::local,  Provider::custom};

OperatingSystemVersion macOS(int major, int minor = 0, int patch = 0) {
    return OperatingSystemVersion{true, major, minor, patch};
}

// The default configuration by its documented rule, for the system currently posed as.
CoachConfig expectedDefault() {
    CoachConfig config;
    config.provider = CoachConfig::preferredDefaultProvider();
    config.apiKey = "";
    config.model = CoachConfig::defaultModel(config.provider);
    config.customEndpoint = "";
    config.temperature = 0.3;
    config.maxTokens = 4096;
    return config;
}

CoachConfig configWith(Provider provider, std::string model) {
    CoachConfig config;
    config.provider = provider;
    config.model = std::move(model);
    return config;
}

const char* kFullJson =
    R"({"provider":"Anthropic","apiKey":"sk-1","model":"claude","customEndpoint":"https://x",)"
    R"("temperature":0.7,"maxTokens":1024})";

}  // namespace

TEST(CoachConfig, ProvidersComeInDeclarationOrder) {
    EXPECT_EQ(CoachConfig::allProviders(), kAllInOrder);
    EXPECT_EQ(CoachConfig::selectableProviders(), kAllInOrder);
}

TEST(CoachConfig, ProviderColumnsAreExact) {
    const std::vector<std::vector<std::string>> rows{
        {"Apple (On-Device)", "apple", "Apple", "Apple Intelligence (on-device, no key)"},
        {"OpenAI", "openai", "OpenAI", "OpenAI"},
        {"Anthropic", "anthropic", "Anthropic", "Anthropic"},
        {"Google Gemini", "gemini", "Gemini", "Google Gemini"},
        {"Local (Ollama)", "local", "Local", "Local (Ollama)"},
        {"Custom API", "custom", "Custom", "Custom API"}};
    for (std::size_t i = 0; i < kAllInOrder.size(); ++i) {
        Provider provider = kAllInOrder[i];
        EXPECT_EQ(sagely::rawValue(provider), rows[i][0]);
        EXPECT_EQ(sagely::storageID(provider), rows[i][1]);
        EXPECT_EQ(sagely::shortName(provider), rows[i][2]);
        EXPECT_EQ(sagely::menuLabel(provider), rows[i][3]);
        EXPECT_EQ(sagely::providerFromRawValue(rows[i][0]), provider);
        EXPECT_EQ(sagely::providerFromStorageID(rows[i][1]), provider);
    }
}

TEST(CoachConfig, RawValuesAreTheDisplayStringsNotTheStorageIds) {
    EXPECT_FALSE(sagely::providerFromRawValue("openai"));
    EXPECT_EQ(sagely::storageID(Provider::openai), "openai");
    EXPECT_EQ(sagely::providerFromRawValue("OpenAI"), Provider::openai);
    for (const char* other : {"OPENAI", " OpenAI", "OpenAI ", "Apple", "Google", ""})
        EXPECT_FALSE(sagely::providerFromRawValue(other)) << other;
    EXPECT_FALSE(sagely::providerFromStorageID("OpenAI"));
}

TEST(CoachConfig, ModelExamplesAndFieldLabels) {
    const std::vector<std::string> examples{
        "system-default",   "gpt-4o-mini", "claude-sonnet-4-20250514",
        "gemini-2.0-flash", "llama3",      "your-model-id"};
    for (std::size_t i = 0; i < kAllInOrder.size(); ++i) {
        EXPECT_EQ(CoachConfig::modelExample(kAllInOrder[i]), examples[i]);
        EXPECT_EQ(CoachConfig::modelFieldLabel(kAllInOrder[i]),
                  "Model ID (e.g. " + examples[i] + ")");
    }
    EXPECT_EQ(CoachConfig::modelFieldLabel(Provider::apple), "Model ID (e.g. system-default)");
}

TEST(CoachConfig, OpenAIFormatIsExactlyOpenAIAndCustomKeylessIsExactlyAppleAndLocal) {
    std::vector<Provider> openAIFormat, keyless;
    for (Provider provider : kAllInOrder) {
        if (CoachConfig::usesOpenAIFormat(provider)) openAIFormat.push_back(provider);
        if (CoachConfig::isKeylessProvider(provider)) keyless.push_back(provider);
    }
    EXPECT_EQ(openAIFormat, (std::vector<Provider>{Provider::openai, Provider::custom}));
    EXPECT_EQ(keyless, (std::vector<Provider>{Provider::apple, Provider::local}));
}

TEST(CoachConfig, KnownModelsHoldTheWholeCatalogueInOrder) {
    using Known = CoachConfig::KnownModel;
    const auto& models = CoachConfig::knownModels();
    ASSERT_EQ(models.size(), 6u);
    EXPECT_EQ(models.at(Provider::apple),
              (std::vector<Known>{{"system-default", "Apple Intelligence (on-device)"},
                                  {"content-tagging", "Content Tagging"}}));
    EXPECT_EQ(models.at(Provider::openai),
              (std::vector<Known>{{"gpt-4o-mini", "GPT-4o mini (fast, cheap)"},
                                  {"gpt-4o", "GPT-4o (balanced)"},
                                  {"gpt-4.1", "GPT-4.1 (advanced)"},
                                  {"o3-mini", "o3-mini (reasoning)"}}));
    EXPECT_EQ(
        models.at(Provider::anthropic),
        (std::vector<Known>{{"claude-sonnet-4-20250514", "Claude Sonnet 4 (balanced)"},
                            {"claude-3-5-haiku-20241022", "Claude 3.5 Haiku (fast, cheap)"}}));
    EXPECT_EQ(models.at(Provider::gemini),
              (std::vector<Known>{{"gemini-2.0-flash", "Gemini 2.0 Flash (fast)"},
                                  {"gemini-2.0-flash-lite", "Gemini 2.0 Flash-Lite (cheap)"},
                                  {"gemini-1.5-pro", "Gemini 1.5 Pro (advanced)"}}));
    EXPECT_EQ(models.at(Provider::local),
              (std::vector<Known>{{"gemma3:4b", "Gemma 3 4B (lightweight, vision)"},
                                  {"gemma3:12b", "Gemma 3 12B (balanced)"},
                                  {"llama3", "Llama 3"},
                                  {"mistral", "Mistral"}}));
    EXPECT_EQ(models.at(Provider::custom),
              (std::vector<Known>{{"gpt-4o-mini", "Example: gpt-4o-mini"},
                                  {"gemini-2.0-flash", "Example: gemini-2.0-flash"}}));
    EXPECT_EQ(&CoachConfig::knownModels(), &models);
}

TEST(CoachConfig, KnownModelsCompareBothFields) {
    EXPECT_EQ((CoachConfig::KnownModel{"a", "A"}), (CoachConfig::KnownModel{"a", "A"}));
    EXPECT_NE((CoachConfig::KnownModel{"a", "A"}), (CoachConfig::KnownModel{"a", "B"}));
    EXPECT_NE((CoachConfig::KnownModel{"a", "A"}), (CoachConfig::KnownModel{"b", "A"}));
}

TEST(CoachConfig, DefaultModelIsTheFirstKnownModelOfEachProvider) {
    const std::vector<std::string> expected{
        "system-default",   "gpt-4o-mini", "claude-sonnet-4-20250514",
        "gemini-2.0-flash", "gemma3:4b",   "gpt-4o-mini"};
    for (std::size_t i = 0; i < kAllInOrder.size(); ++i)
        EXPECT_EQ(CoachConfig::defaultModel(kAllInOrder[i]), expected[i]);
}

TEST(CoachConfig, ModelOfOnlyWhiteSpaceResolvesToTheProvidersDefault) {
    EXPECT_EQ(configWith(Provider::anthropic, "  \n").resolvedModel(), "claude-sonnet-4-20250514");
    EXPECT_EQ(configWith(Provider::local, "").resolvedModel(), "gemma3:4b");
    EXPECT_EQ(configWith(Provider::apple, "\t\r\n \u00A0\u3000").resolvedModel(), "system-default");
    EXPECT_EQ(configWith(Provider::openai, " gpt-4o ").resolvedModel(), "gpt-4o");
    EXPECT_EQ(configWith(Provider::custom, "\n My-Model v2\t").resolvedModel(), "My-Model v2");
}

TEST(CoachConfig, PreferredProviderIsAppleFromMacOS26On) {
    {
        ScopedOperatingSystemOverride system(macOS(15, 4));
        EXPECT_EQ(CoachConfig::preferredDefaultProvider(), Provider::openai);
        CoachConfig config = expectedDefault();
        EXPECT_EQ(config.provider, Provider::openai);
        EXPECT_EQ(config.model, "gpt-4o-mini");
    }
    {
        ScopedOperatingSystemOverride system(macOS(25, 9));
        EXPECT_EQ(CoachConfig::preferredDefaultProvider(), Provider::openai);
    }
    for (OperatingSystemVersion version : {macOS(26), macOS(26, 3), macOS(27), macOS(30, 1, 2)}) {
        ScopedOperatingSystemOverride system(version);
        EXPECT_EQ(CoachConfig::preferredDefaultProvider(), Provider::apple) << version.major;
    }
    ScopedOperatingSystemOverride notMac(OperatingSystemVersion{false, 27, 0, 0});
    EXPECT_EQ(CoachConfig::preferredDefaultProvider(), Provider::openai);
}

TEST(CoachConfig, DefaultConfigurationOnMacOS26EncodesTheAppleDefaults) {
    ScopedOperatingSystemOverride system(macOS(26, 3));
    nlohmann::json json = expectedDefault();
    EXPECT_EQ(json["provider"], "Apple (On-Device)");
    EXPECT_EQ(json["model"], "system-default");
    EXPECT_EQ(json["temperature"], 0.3);
    EXPECT_EQ(json["maxTokens"], 4096);
    EXPECT_EQ(json["apiKey"], "");
    EXPECT_EQ(json["customEndpoint"], "");
    EXPECT_EQ(json.dump(),
              R"js({"apiKey":"","customEndpoint":"","maxTokens":4096,"model":"system-default",)js"
              R"js("provider":"Apple (On-Device)","temperature":0.3})js");
}

TEST(CoachConfig, DefaultConfigurationIsBuiltOnceByTheRule) {
    const CoachConfig& first = CoachConfig::defaultConfig();
    EXPECT_EQ(first.model, CoachConfig::defaultModel(first.provider));
    EXPECT_EQ(first.apiKey, "");
    EXPECT_EQ(first.customEndpoint, "");
    EXPECT_EQ(first.temperature, 0.3);
    EXPECT_EQ(first.maxTokens, 4096);
    ScopedOperatingSystemOverride system(first.provider == Provider::apple ? macOS(15) : macOS(26));
    EXPECT_EQ(&CoachConfig::defaultConfig(), &first);
    EXPECT_NE(CoachConfig::defaultConfig().provider, CoachConfig::preferredDefaultProvider());
}

TEST(CoachConfig, JsonRoundTripKeepsEveryField) {
    CoachConfig config = nlohmann::json::parse(kFullJson).get<CoachConfig>();
    EXPECT_EQ(config.provider, Provider::anthropic);
    EXPECT_EQ(config.apiKey, "sk-1");
    EXPECT_EQ(config.model, "claude");
    EXPECT_EQ(config.customEndpoint, "https://x");
    EXPECT_EQ(config.temperature, 0.7);
    EXPECT_EQ(config.maxTokens, 1024);
    nlohmann::json json = config;
    EXPECT_EQ(json, nlohmann::json::parse(kFullJson));
    EXPECT_EQ(json.get<CoachConfig>(), config);
    for (Provider provider : kAllInOrder) {
        config.provider = provider;
        EXPECT_EQ(nlohmann::json(config).get<CoachConfig>(), config);
        EXPECT_EQ(nlohmann::json(config)["provider"], std::string(sagely::rawValue(provider)));
    }
}

TEST(CoachConfig, JsonEncodesTheKeyAndAcceptsUnknownKeysAndIntegerTemperatures) {
    nlohmann::json json = nlohmann::json::parse(kFullJson);
    json["temperature"] = 1;
    json["extra"] = {1, 2};
    CoachConfig config = json.get<CoachConfig>();
    EXPECT_EQ(config.temperature, 1.0);
    EXPECT_EQ(nlohmann::json(config)["apiKey"], "sk-1");
}

TEST(CoachConfig, EveryKeyIsRequired) {
    for (const std::string key :
         {"provider", "apiKey", "model", "customEndpoint", "temperature", "maxTokens"}) {
        nlohmann::json json = nlohmann::json::parse(kFullJson);
        json.erase(key);
        EXPECT_EQ(decodingError([&] { json.get<CoachConfig>(); }), key + ": missing key");
    }
}

TEST(CoachConfig, WrongTypesAndUnknownProvidersFail) {
    auto withValue = [](const std::string& key, nlohmann::json value) {
        nlohmann::json json = nlohmann::json::parse(kFullJson);
        json[key] = std::move(value);
        return decodingError([&] { json.get<CoachConfig>(); });
    };
    EXPECT_EQ(withValue("provider", "openai"), "provider: unknown provider \"openai\"");
    EXPECT_EQ(withValue("provider", 1), "provider: expected a string");
    EXPECT_EQ(withValue("apiKey", nullptr), "apiKey: expected a string");
    EXPECT_EQ(withValue("model", 4), "model: expected a string");
    EXPECT_EQ(withValue("customEndpoint", false), "customEndpoint: expected a string");
    EXPECT_EQ(withValue("temperature", "0.3"), "temperature: expected a number");
    EXPECT_EQ(withValue("maxTokens", 10.5), "maxTokens: expected an integer");
    EXPECT_EQ(decodingError([] { nlohmann::json::array().get<CoachConfig>(); }),
              "expected an object");
}
