// CoachSettingsStore — the user's model-provider settings for the whole process: provider,
// model, custom endpoint, temperature, token limit and the API key.
//
// Settings (not keys) persist in "settings.json" in the storage directory; each provider's key
// lives in its own secret-store item; a model, endpoint and streaming choice are remembered
// per provider, so
// switching back and forth restores them. Each published property announces a change before the
// new value is stored (will-change) and after (did-change); the store's own handlers persist the
// value as it is after the change. No operation throws or shows an error: failed reads fall back
// to defaults, and the outcome of the last save is offered in lastSaveFailure for a host that
// wants to tell the user.
//
// Every host of the kit on the machine may use settings.json at once. A save takes the advisory
// lock beside the file, reads it and writes on top of it only what this store changed since it
// last saved (provider, model and endpoint go together; profiles merge per provider), so it
// never undoes another host's change. A file that cannot be decoded is moved aside to
// "settings.json.unreadable-<UTC time>"; one that cannot be moved aside is never written over
// (the store goes on in memory). A key whose read failed (a locked or stalled secret store) is
// told apart from no key: it is never written back or deleted by a provider switch.
//
// Thread rules: main thread only.
#pragma once

#include <sagely/CoachConfig.h>
#include <sagely/Export.h>
#include <sagely/Observable.h>
#include <sagely/SecretStore.h>

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace sagely {

class SAGELY_EXPORT CoachSettingsStore {
public:
    /// The model, endpoint and streaming choice remembered for one provider.
    struct ProviderProfile {
        std::string model;
        std::string customEndpoint;
        /// Persisted ("streamsReplies": false) only when off, so older files load unchanged.
        bool streamsReplies = true;
        friend bool operator==(const ProviderProfile&, const ProviderProfile&) = default;
    };

    /// The content of settings.json.
    struct PersistedSettings {
        CoachConfig::Provider provider = CoachConfig::Provider::openai;
        std::string model;
        std::string customEndpoint;
        double temperature = 0.3;
        std::int64_t maxTokens = 4096;
        std::optional<std::map<std::string, ProviderProfile>> profiles;  // by storageID
        std::optional<bool> userChoseProvider;
        friend bool operator==(const PersistedSettings&, const PersistedSettings&) = default;
    };

    /// Where the store keeps things. Empty members mean the system's defaults.
    struct Options {
        std::shared_ptr<SecretStore> secretStore;  // default: SecretStore::system()
        /// Replaces the user's application-data folder (Application Support on macOS,
        /// $XDG_DATA_HOME or ~/.local/share elsewhere); "Brindlewood/Sagely" is added below it.
        std::optional<std::filesystem::path> storageRoot;
        /// True: the settings live in memory only; settings.json is neither read nor written
        /// (conversation files still live in the storage folder). Unset: false.
        std::optional<bool> settingsInMemory;
    };

    /// The process-wide store: service "com.brindlewood.sagely", account "coach-api-key".
    static CoachSettingsStore& shared();

    CoachSettingsStore(std::string keychainService, std::string keychainAccount,
                       Options options = {});
    ~CoachSettingsStore();
    CoachSettingsStore(const CoachSettingsStore&) = delete;
    CoachSettingsStore& operator=(const CoachSettingsStore&) = delete;

    Property<CoachConfig::Provider> provider;
    Property<std::string> model;
    Property<std::string> customEndpoint;
    Property<double> temperature;
    Property<std::int64_t> maxTokens;
    Property<std::string> apiKey;
    /// Whether the current provider's replies stream in (remembered per provider; default on).
    Property<bool> streamsReplies;
    /// Why the last save of settings.json did not reach the disk; none when it did.
    Property<std::optional<std::string>> lastSaveFailure;

    const std::string& keychainService() const { return m_keychainService; }
    const std::string& keychainAccount() const { return m_keychainAccount; }
    const std::map<std::string, ProviderProfile>& providerProfiles() const {
        return m_providerProfiles;
    }
    bool isApplyingProvider() const { return m_isApplyingProvider; }

    /// The current configuration, key, model and endpoint trimmed.
    CoachConfig config() const;
    /// Switches provider, saving the old provider's key and profile and restoring the new one's.
    void selectProvider(CoachConfig::Provider provider);
    /// The current key for the current provider, else that provider's stored key; trimmed.
    std::string savedAPIKey(CoachConfig::Provider provider) const;
    /// True for keyless providers; otherwise whether savedAPIKey is non-empty.
    bool hasSavedKey(CoachConfig::Provider provider) const;
    /// Whether the provider's key could not be read (the secret store failed, as opposed to
    /// holding no item); false for keyless providers and once a key is typed in.
    bool keyUnreadable(CoachConfig::Provider provider) const;
    /// The endpoint of the current configuration (the argument is deliberately ignored).
    std::optional<std::string> endpoint(CoachConfig::Provider provider) const;

    /// The storage folder, created (with its parents) on each read; failures are ignored. Empty
    /// when the system names no data folder (no HOME and no password entry): nothing is stored
    /// then, and settingsURL() and conversationURL() are empty too.
    std::filesystem::path storageDirectory() const;
    std::filesystem::path settingsURL() const;
    /// storageDirectory / (namespace + "-conversations.json"); the namespace is used unchanged.
    std::filesystem::path conversationURL(std::string_view conversationNamespace) const;

private:
    struct Impl;

    void applyLoadedSettings(const PersistedSettings& settings);
    void moveToOnDeviceUnlessChosen(std::optional<bool> userChoseProvider);
    void migrateLegacyKey();
    void observeChanges();
    void storeCurrentProfile();
    /// `userChoseProvider` none keeps what the file records.
    void save(std::optional<bool> userChoseProvider);
    PersistedSettings mergedOnto(const std::optional<PersistedSettings>& onDisk,
                                 std::optional<bool> userChoseProvider) const;
    void noteSaveOutcome(std::optional<std::string> failure);
    std::string accountFor(CoachConfig::Provider forProvider) const;
    SecretLookup lookupSecret(const std::string& account) const;
    void loadKey(CoachConfig::Provider forProvider);
    std::string readKey(CoachConfig::Provider forProvider) const;
    void writeKey(CoachConfig::Provider forProvider, const std::string& key);

    std::string m_keychainService;
    std::string m_keychainAccount;
    std::map<std::string, ProviderProfile> m_providerProfiles;
    bool m_isApplyingProvider = false;
    bool m_apiKeyUnreadable = false;
    // What this store changed since its last save: only these go on top of the file.
    struct Changed {
        bool provider = false;  // with it, model and endpoint: they belong together
        bool profile = false;   // model and endpoint of the current provider
        bool temperature = false;
        bool maxTokens = false;
    } m_changed;
    std::set<std::string> m_changedProfiles;
    std::unique_ptr<Impl> m_impl;
    std::vector<Subscription> m_cancellables;
};

// JSON of settings.json: "provider", "model", "customEndpoint", "temperature", "maxTokens",
// "profiles" and "userChoseProvider" (both left out when none). Failures throw DecodingError.
SAGELY_EXPORT void to_json(nlohmann::json& json,
                           const CoachSettingsStore::ProviderProfile& profile);
SAGELY_EXPORT void from_json(const nlohmann::json& json,
                             CoachSettingsStore::ProviderProfile& profile);
SAGELY_EXPORT void to_json(nlohmann::json& json,
                           const CoachSettingsStore::PersistedSettings& settings);
SAGELY_EXPORT void from_json(const nlohmann::json& json,
                             CoachSettingsStore::PersistedSettings& settings);

/// The bytes of settings.json: compact, keys in field order, "profiles" sorted by storageID. A
/// temperature that JSON cannot hold (not finite) throws Error.
SAGELY_EXPORT std::string encodeJson(const CoachSettingsStore::PersistedSettings& settings);
/// Reads settings.json; unknown keys are ignored. Throws DecodingError.
SAGELY_EXPORT CoachSettingsStore::PersistedSettings decodePersistedSettings(std::string_view json);

}  // namespace sagely
