#include "cli/RunSettings.h"

#include "cli/ProviderNames.h"

#include <sagely/SagelyKnowledge.h>
#include <sagely/Text.h>

#include <fstream>

namespace sagely::cli {
namespace {

// Read in pieces up to one byte past the limit, so a device that never ends (/dev/zero) or a
// huge file is refused without holding more than the limit.
std::string readGuideFile(const std::string& path) {
    std::error_code ignored;
    std::ifstream file(path, std::ios::binary);
    if (!file || std::filesystem::is_directory(path, ignored))
        throw UsageError("cannot read the guide file '" + path + "'");
    std::string text;
    char piece[65536];
    while (text.size() <= kMaxGuideBytes) {
        file.read(piece, sizeof piece);
        text.append(piece, static_cast<std::size_t>(file.gcount()));
        if (!file) break;
    }
    if (file.bad()) throw UsageError("cannot read the guide file '" + path + "'");
    if (text.size() > kMaxGuideBytes)
        throw UsageError("the guide file '" + path + "' is larger than 64 MB");
    return text;
}

// The model and endpoint the saved settings hold for a provider: the live ones for the current
// provider, the remembered profile for another, the provider's defaults when there is none.
CoachSettingsStore::ProviderProfile savedProfile(const CoachSettingsStore& saved,
                                                 Provider provider) {
    if (provider == saved.provider.get())
        return {saved.model.get(), saved.customEndpoint.get(), saved.streamsReplies.get()};
    const auto& profiles = saved.providerProfiles();
    if (auto it = profiles.find(std::string(storageID(provider))); it != profiles.end())
        return it->second;
    return {CoachConfig::defaultModel(provider), "", true};
}

std::string runKey(const CoachSettingsStore& saved, Provider provider, const Host& host) {
    if (auto variable = apiKeyVariable(provider)) {
        if (auto value = host.env(*variable); value && !text::isBlank(*value)) return *value;
    }
    return saved.savedAPIKey(provider);
}

}  // namespace

RunOptions RunOptions::fromArguments(const ParsedArguments& arguments) {
    RunOptions options;
    if (auto word = arguments.value("provider")) options.provider = providerArgument(*word);
    options.model = arguments.value("model");
    options.endpoint = arguments.value("endpoint");
    options.summary = arguments.value("summary");
    options.conversationNamespace = namespaceArgument(arguments);
    auto guideFile = arguments.value("guide");
    options.guide = guideFile ? readGuideFile(*guideFile) : SagelyKnowledge::bundledGuideText();
    options.offline = arguments.has("offline");
    options.json = arguments.has("json");
    options.startNew = arguments.has("new");
    options.noStream = arguments.has("no-stream");
    options.allowActions = arguments.has("allow-actions");
    return options;
}

Provider providerArgument(const std::string& word) {
    if (auto provider = parseProvider(word)) return *provider;
    throw UsageError("unknown provider '" + word + "' (choose one of " + providerChoices() + ")");
}

std::string namespaceArgument(const ParsedArguments& arguments) {
    std::string space = arguments.value("namespace").value_or(kDefaultNamespace);
    if (space.empty() || space.find('/') != std::string::npos)
        throw UsageError("the namespace must be a non-empty name without '/'");
    return space;
}

std::shared_ptr<StaticCoachContextProvider> makeContextProvider(const RunOptions& options) {
    return std::make_shared<StaticCoachContextProvider>("sagely", options.summary.value_or(""),
                                                        options.guide);
}

std::unique_ptr<CoachSettingsStore> openSavedSettings(const Host& host) {
    CoachSettingsStore::Options options;
    options.secretStore = host.secretStore;
    options.storageRoot = host.storageRoot;
    return std::make_unique<CoachSettingsStore>(kKeychainService, kKeychainAccount, options);
}

RunSettings::RunSettings(const CoachSettingsStore& saved, const RunOptions& options,
                         const Host& host) {
    CoachSettingsStore::Options storeOptions;
    storeOptions.secretStore = std::make_shared<InMemorySecretStore>();
    storeOptions.storageRoot = host.storageRoot;
    storeOptions.settingsInMemory = true;
    m_store =
        std::make_unique<CoachSettingsStore>(kKeychainService, kKeychainAccount, storeOptions);

    const Provider provider = options.provider.value_or(saved.provider.get());
    const auto profile = savedProfile(saved, provider);
    m_store->selectProvider(provider);
    m_store->model.set(options.model.value_or(profile.model));
    m_store->customEndpoint.set(options.endpoint.value_or(profile.customEndpoint));
    m_store->temperature.set(saved.temperature.get());
    m_store->maxTokens.set(saved.maxTokens.get());
    m_store->apiKey.set(runKey(saved, provider, host));
    m_store->streamsReplies.set(profile.streamsReplies && !options.noStream);
}

RunSettings::~RunSettings() = default;

}  // namespace sagely::cli
