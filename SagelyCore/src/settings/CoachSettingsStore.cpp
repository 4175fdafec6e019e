#include <sagely/CoachSettingsStore.h>

#include <sagely/Log.h>
#include <sagely/OperatingSystem.h>
#include <sagely/Text.h>

#include "platform/StorageLocation.h"
#include "settings/ProviderEndpoints.h"
#include "support/AtomicFile.h"

#include <cerrno>
#include <exception>
#include <system_error>
#include <utility>

namespace sagely {
namespace {

// What a read of settings.json found: its settings, nothing (no file, or an undecodable file now
// kept aside), or why the file must be left alone (it cannot be read, or cannot be moved aside).
struct SettingsFileContent {
    std::optional<CoachSettingsStore::PersistedSettings> settings;
    std::optional<std::string> keptInPlace;
};

std::string quotedName(const std::filesystem::path& file) {
    return "\u201C" + file.filename().string() + "\u201D";
}

SettingsFileContent readSettings(const std::filesystem::path& file) {
    std::string bytes;
    int error = detail::readWholeFile(file, bytes);
    if (error == ENOENT || error == ENOTDIR) return {};
    if (error) return {std::nullopt, detail::describeReadFailure(file, error)};
    std::string failure;
    try {
        return {decodePersistedSettings(bytes), std::nullopt};
    } catch (const std::exception& decoding) {
        failure = decoding.what();
    }
    // Replacing it with defaults would lose the provider, model and every profile it holds.
    std::filesystem::path aside;
    if (int moveError = detail::moveAside(file, &aside))
        return {std::nullopt, "The file " + quotedName(file) + " cannot be decoded (" + failure +
                                  ") and could not be moved aside (" +
                                  std::generic_category().message(moveError) +
                                  "); nothing is written over it."};
    log("Failed to load settings: " + failure + "; the file is kept as " + quotedName(aside) + ".");
    return {};
}

}  // namespace

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
      streamsReplies(true),
      m_keychainService(std::move(keychainService)),
      m_keychainAccount(std::move(keychainAccount)),
      m_impl(std::make_unique<Impl>(Impl{std::move(options.secretStore), options.storageRoot,
                                         !options.settingsInMemory.value_or(false)})) {
    if (!m_impl->secrets) m_impl->secrets = SecretStore::system();
    detail::removeStaleTemporaryFiles(storageDirectory(), detail::kStaleTemporaryFileAge);
    // Without a readable settings file nothing is written here: the defaults stand as they are.
    // Settings kept in memory start from the defaults; the host seeds them.
    SettingsFileContent content =
        m_impl->persistsSettings ? readSettings(settingsURL()) : SettingsFileContent{};
    if (content.settings) {
        applyLoadedSettings(*content.settings);
        moveToOnDeviceUnlessChosen(content.settings->userChoseProvider);
    } else if (content.keptInPlace) {
        log("Failed to load settings: " + *content.keptInPlace + " Settings are kept in memory.");
    }
    migrateLegacyKey();
    loadKey(provider);
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
    auto profile = m_providerProfiles.find(std::string(storageID(settings.provider)));
    if (profile != m_providerProfiles.end()) streamsReplies.set(profile->second.streamsReplies);
    storeCurrentProfile();
}

// On a system with the on-device model, a user who never picked a provider is moved to it.
void CoachSettingsStore::moveToOnDeviceUnlessChosen(std::optional<bool> userChoseProvider) {
    if (userChoseProvider.value_or(false) || !isMacOSAtLeast(26, 0) ||
        provider.get() == Provider::apple)
        return;
    provider.set(Provider::apple);
    model.set(CoachConfig::defaultModel(Provider::apple));
    m_changed.provider = true;
    storeCurrentProfile();
    save(false);
}

// A key saved before keys were kept per provider lies under the bare account; it becomes the
// current provider's key unless that provider already has one. The old item is left alone.
void CoachSettingsStore::migrateLegacyKey() {
    SecretLookup legacy = lookupSecret(m_keychainAccount);
    if (!legacy.found() || legacy.secret.empty()) return;
    // Only a provider known to have no item gets it: one whose read failed may hold a key.
    if (lookupSecret(accountFor(provider)).outcome != SecretLookup::Outcome::noItem) return;
    writeKey(provider, legacy.secret);
}

// The store's own reactions run after a change is stored, so they persist the new value.
void CoachSettingsStore::observeChanges() {
    m_cancellables.push_back(provider.onDidChange([this](const Provider&) {
        if (m_isApplyingProvider) return;
        m_changed.provider = true;
        save(std::nullopt);
    }));
    auto profileChanged = [this](const std::string&) {
        if (m_isApplyingProvider) return;
        m_changed.profile = true;
        storeCurrentProfile();
        save(std::nullopt);
    };
    m_cancellables.push_back(model.onDidChange(profileChanged));
    m_cancellables.push_back(customEndpoint.onDidChange(profileChanged));
    m_cancellables.push_back(
        streamsReplies.onDidChange([profileChanged](const bool&) { profileChanged({}); }));
    m_cancellables.push_back(temperature.onDidChange([this](const double&) {
        m_changed.temperature = true;
        save(std::nullopt);
    }));
    m_cancellables.push_back(maxTokens.onDidChange([this](const std::int64_t&) {
        m_changed.maxTokens = true;
        save(std::nullopt);
    }));
    // A key typed in replaces one that could not be read: from then on it is the user's.
    m_cancellables.push_back(apiKey.onDidChange([this](const std::string&) {
        if (m_isApplyingProvider) return;
        m_apiKeyUnreadable = false;
        writeKey(provider, apiKey);
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
    current.streamsReplies = streamsReplies;
    return current;
}

void CoachSettingsStore::selectProvider(CoachConfig::Provider newProvider) {
    if (newProvider == provider.get()) return;
    storeCurrentProfile();
    // A key that could not be read is not "no key": writing it back would delete the item.
    if (!m_apiKeyUnreadable) writeKey(provider, apiKey);
    m_isApplyingProvider = true;
    provider.set(newProvider);
    auto profile = m_providerProfiles.find(std::string(storageID(newProvider)));
    if (profile != m_providerProfiles.end()) {
        ProviderProfile restored = profile->second;
        model.set(std::move(restored.model));
        customEndpoint.set(std::move(restored.customEndpoint));
        streamsReplies.set(restored.streamsReplies);
    } else {
        model.set(CoachConfig::defaultModel(newProvider));
        customEndpoint.set(std::string());
        streamsReplies.set(true);
    }
    loadKey(newProvider);
    m_isApplyingProvider = false;
    m_changed.provider = true;
    save(true);
}

std::string CoachSettingsStore::savedAPIKey(CoachConfig::Provider forProvider) const {
    if (forProvider == provider.get()) return text::trimmed(apiKey.get());
    return text::trimmed(readKey(forProvider));
}

bool CoachSettingsStore::hasSavedKey(CoachConfig::Provider forProvider) const {
    return CoachConfig::isKeylessProvider(forProvider) || !savedAPIKey(forProvider).empty();
}

bool CoachSettingsStore::keyUnreadable(CoachConfig::Provider forProvider) const {
    if (CoachConfig::isKeylessProvider(forProvider)) return false;
    if (forProvider == provider.get()) return m_apiKeyUnreadable;
    return lookupSecret(accountFor(forProvider)).failed();
}

std::optional<std::string> CoachSettingsStore::endpoint(CoachConfig::Provider) const {
    const CoachConfig current = config();
    return detail::providerEndpoint(current, current.resolvedModel());
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
    std::string id(storageID(provider));
    ProviderProfile current{model, customEndpoint, streamsReplies};
    // A profile merely filled in from the current fields is not a change: the file's may be
    // newer. Edits and switches mark the current profile through m_changed.
    auto [entry, added] = m_providerProfiles.try_emplace(id, current);
    if (added || entry->second == current) return;
    entry->second = std::move(current);
    m_changedProfiles.insert(std::move(id));
}

// Under the lock: what is on disk, with this store's changes on top, replaces the file.
void CoachSettingsStore::save(std::optional<bool> userChoseProvider) {
    storeCurrentProfile();
    if (!m_impl->persistsSettings) return;
    const std::filesystem::path file = settingsURL();
    detail::FileLock lock(file);
    SettingsFileContent onDisk = readSettings(file);
    if (onDisk.keptInPlace) return noteSaveOutcome(onDisk.keptInPlace);
    std::string bytes;
    try {
        bytes = encodeJson(mergedOnto(onDisk.settings, userChoseProvider));
    } catch (const std::exception& error) {
        return noteSaveOutcome(error.what());  // a temperature JSON cannot hold (not finite)
    }
    if (int error = detail::replaceFileAtomically(file, bytes))
        return noteSaveOutcome(detail::describeWriteFailure(file, error));
    m_changed = {};
    m_changedProfiles.clear();
    noteSaveOutcome(std::nullopt);
}

CoachSettingsStore::PersistedSettings CoachSettingsStore::mergedOnto(
    const std::optional<PersistedSettings>& onDisk, std::optional<bool> userChoseProvider) const {
    PersistedSettings mine{provider,         model,     customEndpoint,
                           temperature,      maxTokens, m_providerProfiles,
                           userChoseProvider};
    if (!onDisk) return mine;
    PersistedSettings merged = *onDisk;
    // A model chosen for this store's provider is that provider's; while another host has
    // switched provider, it goes to the profile only.
    bool ownsSelection =
        m_changed.provider || (m_changed.profile && onDisk->provider == provider.get());
    if (ownsSelection) {
        merged.provider = mine.provider;
        merged.model = mine.model;
        merged.customEndpoint = mine.customEndpoint;
    }
    if (m_changed.temperature) merged.temperature = mine.temperature;
    if (m_changed.maxTokens) merged.maxTokens = mine.maxTokens;
    auto profiles = merged.profiles.value_or(std::map<std::string, ProviderProfile>{});
    const std::string currentID(storageID(provider));
    const bool currentChanged = m_changed.provider || m_changed.profile;
    for (const auto& [id, profile] : m_providerProfiles) {
        if (m_changedProfiles.count(id) || !profiles.count(id) ||
            (currentChanged && id == currentID))
            profiles[id] = profile;
    }
    merged.profiles = std::move(profiles);
    if (userChoseProvider) merged.userChoseProvider = userChoseProvider;
    return merged;
}

void CoachSettingsStore::noteSaveOutcome(std::optional<std::string> failure) {
    if (failure) log("Failed to save settings: " + *failure);
    if (lastSaveFailure.get() != failure) lastSaveFailure.set(std::move(failure));
}

std::string CoachSettingsStore::accountFor(CoachConfig::Provider forProvider) const {
    return m_keychainAccount + "." + std::string(storageID(forProvider));
}

SecretLookup CoachSettingsStore::lookupSecret(const std::string& account) const {
    try {
        return m_impl->secrets->lookup(m_keychainService, account);
    } catch (...) {
        return {SecretLookup::Outcome::failed, {}};  // a host's store that throws has failed
    }
}

// The provider's key into apiKey; a failed read leaves it empty and remembered as unreadable.
void CoachSettingsStore::loadKey(CoachConfig::Provider forProvider) {
    SecretLookup key = lookupSecret(accountFor(forProvider));
    m_apiKeyUnreadable = key.failed();
    apiKey.set(key.found() ? std::move(key.secret) : std::string());
}

std::string CoachSettingsStore::readKey(CoachConfig::Provider forProvider) const {
    SecretLookup key = lookupSecret(accountFor(forProvider));
    return key.found() ? std::move(key.secret) : std::string();
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
