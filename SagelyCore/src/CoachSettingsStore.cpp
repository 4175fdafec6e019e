#include <sagely/CoachSettingsStore.h>

#include <sagely/LLMClient.h>
#include <sagely/OperatingSystem.h>
#include <sagely/Text.h>

#include "AtomicFile.h"
#include "platform/StorageLocation.h"

#include <system_error>
#include <utility>

namespace sagely {

struct CoachSettingsStore::Impl {
    std::shared_ptr<SecretStore> secrets;
    std::optional<std::filesystem::path> storageRoot;
    bool persistsSettings = true;
};

CoachSettingsStore& CoachSettingsStore::shared() {
    static CoachSettingsStore store("com.brindlewood.sagely", "coach-api-key");
    return store;
}

CoachSettingsStore::CoachSettingsStore(std::string keychainService, std::string keychainAccount,
                                       Options options)
    : provider(CoachConfig::defaultConfig().provider),
      model(CoachConfig::defaultConfig().model),
      customEndpoint(std::string()),
      temperature(CoachConfig::defaultConfig().temperature),
      maxTokens(CoachConfig::defaultConfig().maxTokens),
      apiKey(std::string()),
      m_keychainService(std::move(keychainService)),
      m_keychainAccount(std::move(keychainAccount)),
      m_impl(std::make_unique<Impl>(Impl{std::move(options.secretStore), options.storageRoot,
                                         !options.settingsInMemory.value_or(false)})) {
    if (!m_impl->secrets) m_impl->secrets = SecretStore::system();
    detail::removeStaleTemporaryFiles(storageDirectory(), detail::kStaleTemporaryFileAge);
    // Without a readable settings file nothing is written here: the defaults stand as they are.
    if (std::optional<PersistedSettings> loaded = readSettingsFile()) {
        applyLoadedSettings(*loaded);
        moveToOnDeviceUnlessChosen(loaded->userChoseProvider);
    }
    migrateLegacyKey();
    apiKey.set(readKey(provider));
    observeChanges();
}

CoachSettingsStore::~CoachSettingsStore() = default;

// Start-up: the file's values, in field order.
void CoachSettingsStore::applyLoadedSettings(const PersistedSettings& settings) {
    provider.set(settings.provider);
    model.set(settings.model);
    customEndpoint.set(settings.customEndpoint);
    temperature.set(settings.temperature);
    maxTokens.set(settings.maxTokens);
    m_providerProfiles = settings.profiles.value_or(std::map<std::string, ProviderProfile>{});
    storeCurrentProfile();
}

// On a system with the on-device model, a user who never picked a provider is moved to it.
void CoachSettingsStore::moveToOnDeviceUnlessChosen(std::optional<bool> userChoseProvider) {
    if (userChoseProvider.value_or(false) || !isMacOSAtLeast(26, 0) ||
        provider.get() == Provider::apple)
        return;
    provider.set(Provider::apple);
    model.set(CoachConfig::defaultModel(Provider::apple));
    storeCurrentProfile();
    save(false);
}

// A key saved before keys were kept per provider lies under the bare account; it becomes the
// current provider's key unless that provider already has one. The old item is left alone.
void CoachSettingsStore::migrateLegacyKey() {
    std::optional<std::string> legacy = readSecret(m_keychainAccount);
    if (!legacy || legacy->empty()) return;
    if (readSecret(accountFor(provider))) return;
    writeKey(provider, *legacy);
}

// The store's own reactions run after a change is stored, so they persist the new value.
void CoachSettingsStore::observeChanges() {
    m_cancellables.push_back(provider.onDidChange([this](const Provider&) {
        if (!m_isApplyingProvider) saveKeepingChoice();
    }));
    auto profileChanged = [this](const std::string&) {
        if (m_isApplyingProvider) return;
        storeCurrentProfile();
        saveKeepingChoice();
    };
    m_cancellables.push_back(model.onDidChange(profileChanged));
    m_cancellables.push_back(customEndpoint.onDidChange(profileChanged));
    m_cancellables.push_back(
        temperature.onDidChange([this](const double&) { saveKeepingChoice(); }));
    m_cancellables.push_back(
        maxTokens.onDidChange([this](const std::int64_t&) { saveKeepingChoice(); }));
    m_cancellables.push_back(apiKey.onDidChange([this](const std::string&) {
        if (!m_isApplyingProvider) writeKey(provider, apiKey);
    }));
}

CoachConfig CoachSettingsStore::config() const {
    CoachConfig current;
    current.provider = provider;
    current.apiKey = text::trimmed(apiKey.get());
    current.model = text::trimmed(model.get());
    current.customEndpoint = text::trimmed(customEndpoint.get());
    current.temperature = temperature;
    current.maxTokens = maxTokens;
    return current;
}

void CoachSettingsStore::selectProvider(CoachConfig::Provider newProvider) {
    if (newProvider == provider.get()) return;
    storeCurrentProfile();
    writeKey(provider, apiKey);
    m_isApplyingProvider = true;
    provider.set(newProvider);
    auto profile = m_providerProfiles.find(std::string(storageID(newProvider)));
    if (profile != m_providerProfiles.end()) {
        ProviderProfile restored = profile->second;
        model.set(std::move(restored.model));
        customEndpoint.set(std::move(restored.customEndpoint));
    } else {
        model.set(CoachConfig::defaultModel(newProvider));
        customEndpoint.set(std::string());
    }
    apiKey.set(readKey(newProvider));
    m_isApplyingProvider = false;
    save(true);
}

std::string CoachSettingsStore::savedAPIKey(CoachConfig::Provider forProvider) const {
    if (forProvider == provider.get()) return text::trimmed(apiKey.get());
    return text::trimmed(readKey(forProvider));
}

bool CoachSettingsStore::hasSavedKey(CoachConfig::Provider forProvider) const {
    return CoachConfig::isKeylessProvider(forProvider) || !savedAPIKey(forProvider).empty();
}

std::optional<std::string> CoachSettingsStore::endpoint(CoachConfig::Provider) const {
    return LLMClient::endpointURL(config());
}

std::filesystem::path CoachSettingsStore::storageDirectory() const {
    std::filesystem::path root = m_impl->storageRoot.value_or(detail::applicationDataDirectory());
    if (root.empty()) return {};  // the system names no data folder: nothing is stored
    std::filesystem::path directory = root / "Brindlewood" / "Sagely";
    std::error_code ignored;
    std::filesystem::create_directories(directory, ignored);
    return directory;
}

std::filesystem::path CoachSettingsStore::settingsURL() const {
    const std::filesystem::path directory = storageDirectory();
    if (directory.empty()) return {};
    return directory / "settings.json";
}

// Appended as one name, never interpreted: a namespace starting with "/" stays in the folder.
std::filesystem::path CoachSettingsStore::conversationURL(
    std::string_view conversationNamespace) const {
    std::filesystem::path file = storageDirectory();
    if (file.empty()) return {};
    file /= "";
    file += std::string(conversationNamespace) + "-conversations.json";
    return file;
}

void CoachSettingsStore::storeCurrentProfile() {
    m_providerProfiles[std::string(storageID(provider))] = ProviderProfile{model, customEndpoint};
}

void CoachSettingsStore::save(std::optional<bool> userChoseProvider) {
    storeCurrentProfile();
    if (!m_impl->persistsSettings) return;
    PersistedSettings settings{provider,         model,     customEndpoint,
                               temperature,      maxTokens, m_providerProfiles,
                               userChoseProvider};
    std::string bytes;
    try {
        bytes = encodeJson(settings);
    } catch (...) {
        return;  // a value JSON cannot hold (a non-finite temperature): the file stays as it is
    }
    detail::replaceFileAtomically(settingsURL(), bytes);
}

// Saves with the choice flag the file already records (none when it cannot be read).
void CoachSettingsStore::saveKeepingChoice() {
    std::optional<PersistedSettings> current = readSettingsFile();
    save(current ? current->userChoseProvider : std::nullopt);
}

std::optional<CoachSettingsStore::PersistedSettings> CoachSettingsStore::readSettingsFile() const {
    std::string bytes;
    if (!m_impl->persistsSettings) return std::nullopt;
    if (detail::readWholeFile(settingsURL(), bytes) != 0) return std::nullopt;
    try {
        return decodePersistedSettings(bytes);
    } catch (...) {
        return std::nullopt;
    }
}

std::string CoachSettingsStore::accountFor(CoachConfig::Provider forProvider) const {
    return m_keychainAccount + "." + std::string(storageID(forProvider));
}

std::optional<std::string> CoachSettingsStore::readSecret(const std::string& account) const {
    try {
        return m_impl->secrets->read(m_keychainService, account);
    } catch (...) {
        return std::nullopt;  // a host's store that throws reads as "no key"
    }
}

std::string CoachSettingsStore::readKey(CoachConfig::Provider forProvider) const {
    return readSecret(accountFor(forProvider)).value_or(std::string());
}

// Blank keys delete the item: "no key" is never stored as an empty secret.
void CoachSettingsStore::writeKey(CoachConfig::Provider forProvider, const std::string& key) {
    std::string trimmedKey = text::trimmed(key);
    try {
        if (trimmedKey.empty())
            m_impl->secrets->remove(m_keychainService, accountFor(forProvider));
        else
            m_impl->secrets->write(m_keychainService, accountFor(forProvider), trimmedKey);
    } catch (...) {
        // A failed secret-store write is ignored, like every other persistence failure.
    }
}

}  // namespace sagely
