#include <sagely/CoachSettingsStore.h>

#include <sagely/Error.h>
#include <sagely/LLMClient.h>
#include <sagely/Log.h>
#include <sagely/OperatingSystem.h>

#include "platform/StorageLocation.h"
#include "support/AtomicFile.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sagely {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::TemporaryDirectory;
using testing::writeFile;

constexpr const char* kService = "com.brindlewood.sagely";
constexpr const char* kAccount = "coach-api-key";

// An in-memory store that also records every write and delete, in order.
class RecordingSecretStore final : public SecretStore {
public:
    std::optional<std::string> read(const std::string& service,
                                    const std::string& account) override {
        return m_items.read(service, account);
    }
    void write(const std::string& service, const std::string& account,
               const std::string& secret) override {
        calls.push_back("write " + account + " " + secret);
        m_items.write(service, account, secret);
    }
    void remove(const std::string& service, const std::string& account) override {
        calls.push_back("remove " + account);
        m_items.remove(service, account);
    }
    bool isAvailable() override { return true; }

    std::vector<std::string> calls;

private:
    InMemorySecretStore m_items;
};

// A host's secret store that fails every call by throwing.
class ThrowingSecretStore final : public SecretStore {
public:
    std::optional<std::string> read(const std::string&, const std::string&) override {
        throw std::runtime_error("locked");
    }
    void write(const std::string&, const std::string&, const std::string&) override {
        throw std::runtime_error("locked");
    }
    void remove(const std::string&, const std::string&) override {
        throw std::runtime_error("locked");
    }
    bool isAvailable() override { return false; }
};

// A secret store that stalls: while `failing`, every lookup fails (as a timed-out Secret
// Service read does) and every write or delete is refused and counted.
class StallingSecretStore final : public SecretStore {
public:
    SecretLookup lookup(const std::string& service, const std::string& account) override {
        if (failing) return {SecretLookup::Outcome::failed, {}};
        return m_items.lookup(service, account);
    }
    std::optional<std::string> read(const std::string& service,
                                    const std::string& account) override {
        SecretLookup found = lookup(service, account);
        return found.found() ? std::optional(found.secret) : std::nullopt;
    }
    void write(const std::string& service, const std::string& account,
               const std::string& secret) override {
        changes.push_back("write " + account);
        m_items.write(service, account, secret);
    }
    void remove(const std::string& service, const std::string& account) override {
        changes.push_back("remove " + account);
        m_items.remove(service, account);
    }
    bool isAvailable() override { return true; }

    bool failing = false;
    std::vector<std::string> changes;

private:
    InMemorySecretStore m_items;
};

class CoachSettingsStoreTest : public ::testing::Test {
protected:
    std::unique_ptr<CoachSettingsStore> makeStore() {
        return std::make_unique<CoachSettingsStore>(
            kService, kAccount, CoachSettingsStore::Options{secrets, m_root.path()});
    }

    const fs::path& root() const { return m_root.path(); }
    fs::path folder() const { return root() / "Brindlewood" / "Sagely"; }
    fs::path settingsFile() const { return folder() / "settings.json"; }
    void writeSettings(const std::string& json) {
        fs::create_directories(folder());
        writeFile(settingsFile(), json);
    }
    std::string settings() const { return readFile(settingsFile()); }
    std::optional<std::string> key(std::string_view storageID) {
        return secrets->read(kService, std::string(kAccount) + "." + std::string(storageID));
    }
    void setKey(std::string_view storageID, const std::string& value) {
        secrets->write(kService, std::string(kAccount) + "." + std::string(storageID), value);
    }

    std::shared_ptr<RecordingSecretStore> secrets = std::make_shared<RecordingSecretStore>();
    // Not macOS unless a test says otherwise, so the start-up move to `apple` is opt-in.
    ScopedOperatingSystemOverride m_system{OperatingSystemVersion{}};

private:
    TemporaryDirectory m_root;
};

const std::string kOpenAISettings =
    R"js({"provider":"OpenAI","model":"gpt-4o","customEndpoint":"","temperature":0.5,)js"
    R"js("maxTokens":2048})js";

// --- Start-up ---

TEST_F(CoachSettingsStoreTest, StartsFromTheDefaultConfigurationAndWritesNothingWithoutAFile) {
    auto store = makeStore();
    const CoachConfig& defaults = CoachConfig::defaultConfig();
    EXPECT_EQ(store->provider.get(), defaults.provider);
    EXPECT_EQ(store->model.get(), defaults.model);
    EXPECT_EQ(store->customEndpoint.get(), "");
    EXPECT_EQ(store->temperature.get(), defaults.temperature);
    EXPECT_EQ(store->maxTokens.get(), defaults.maxTokens);
    EXPECT_EQ(store->apiKey.get(), "");
    EXPECT_TRUE(store->providerProfiles().empty());
    EXPECT_FALSE(store->isApplyingProvider());
    EXPECT_TRUE(fs::is_empty(folder()));
    EXPECT_TRUE(secrets->calls.empty());
}

TEST_F(CoachSettingsStoreTest, LoadsTheSettingsFileAndTheCurrentProvidersKey) {
    writeSettings(
        R"js({"provider":"Anthropic","model":"claude-3-5-haiku-20241022","customEndpoint":"https://proxy.example/v1",)js"
        R"js("temperature":0.7,"maxTokens":1024,"profiles":{"openai":{"model":"gpt-4.1","customEndpoint":""}},)js"
        R"js("userChoseProvider":true})js");
    setKey("anthropic", "sk-ant-1");
    setKey("openai", "sk-open-1");
    const std::string before = settings();

    auto store = makeStore();

    EXPECT_EQ(store->provider.get(), Provider::anthropic);
    EXPECT_EQ(store->model.get(), "claude-3-5-haiku-20241022");
    EXPECT_EQ(store->customEndpoint.get(), "https://proxy.example/v1");
    EXPECT_EQ(store->temperature.get(), 0.7);
    EXPECT_EQ(store->maxTokens.get(), 1024);
    EXPECT_EQ(store->apiKey.get(), "sk-ant-1");
    using Profile = CoachSettingsStore::ProviderProfile;
    std::map<std::string, Profile> expected{
        {"anthropic", Profile{"claude-3-5-haiku-20241022", "https://proxy.example/v1"}},
        {"openai", Profile{"gpt-4.1", ""}}};
    EXPECT_EQ(store->providerProfiles(), expected);
    EXPECT_EQ(settings(), before);
}

TEST_F(CoachSettingsStoreTest, OnMacOS26AnUnchosenProviderMovesToAppleAndIsRewritten) {
    ScopedOperatingSystemOverride macOS26({true, 26, 0, 0});
    writeSettings(kOpenAISettings);

    auto store = makeStore();

    EXPECT_EQ(store->provider.get(), Provider::apple);
    EXPECT_EQ(store->model.get(), "system-default");
    EXPECT_EQ(
        settings(),
        R"js({"provider":"Apple (On-Device)","model":"system-default","customEndpoint":"",)js"
        R"js("temperature":0.5,"maxTokens":2048,"profiles":{"apple":{"model":"system-default",)js"
        R"js("customEndpoint":""},"openai":{"model":"gpt-4o","customEndpoint":""}},)js"
        R"js("userChoseProvider":false})js");
}

TEST_F(CoachSettingsStoreTest, OnMacOS26AFileThatSaysTheUserDidNotChooseIsMovedToo) {
    ScopedOperatingSystemOverride macOS26({true, 26, 1, 0});
    writeSettings(R"js({"provider":"Google Gemini","model":"gemini-1.5-pro","customEndpoint":"",)js"
                  R"js("temperature":0.3,"maxTokens":4096,"userChoseProvider":false})js");
    auto store = makeStore();
    EXPECT_EQ(store->provider.get(), Provider::apple);
    EXPECT_EQ(store->providerProfiles().at("gemini").model, "gemini-1.5-pro");
}

TEST_F(CoachSettingsStoreTest, OnMacOS26AProviderPickedWithSelectProviderSurvivesARestart) {
    ScopedOperatingSystemOverride macOS26({true, 26, 0, 0});
    writeSettings(kOpenAISettings);
    makeStore()->selectProvider(Provider::anthropic);
    EXPECT_NE(settings().find(R"js("userChoseProvider":true)js"), std::string::npos);

    auto restarted = makeStore();
    EXPECT_EQ(restarted->provider.get(), Provider::anthropic);
}

TEST_F(CoachSettingsStoreTest, BeforeMacOS26AnUnchosenProviderStaysAndNothingIsWritten) {
    ScopedOperatingSystemOverride macOS15({true, 15, 6, 0});
    writeSettings(kOpenAISettings);
    auto store = makeStore();
    EXPECT_EQ(store->provider.get(), Provider::openai);
    EXPECT_EQ(settings(), kOpenAISettings);
}

TEST_F(CoachSettingsStoreTest, ALegacyKeyIsCopiedToTheCurrentProviderWithoutAnItemOfItsOwn) {
    secrets->write(kService, kAccount, "sk-legacy");
    auto store = makeStore();
    EXPECT_EQ(key(storageID(store->provider.get())), "sk-legacy");
    EXPECT_EQ(store->apiKey.get(), "sk-legacy");
    EXPECT_EQ(secrets->read(kService, kAccount), "sk-legacy");  // never written or deleted
}

TEST_F(CoachSettingsStoreTest, ALegacyKeyNeverReplacesTheCurrentProvidersOwnItem) {
    writeSettings(kOpenAISettings);
    secrets->write(kService, kAccount, "sk-legacy");
    setKey("openai", "sk-own");
    secrets->calls.clear();
    auto store = makeStore();
    EXPECT_EQ(key("openai"), "sk-own");
    EXPECT_EQ(store->apiKey.get(), "sk-own");
    EXPECT_TRUE(secrets->calls.empty());
}

TEST_F(CoachSettingsStoreTest, AnEmptyLegacyItemIsIgnored) {
    secrets->write(kService, kAccount, "");
    secrets->calls.clear();
    auto store = makeStore();
    EXPECT_TRUE(secrets->calls.empty());
    EXPECT_EQ(store->apiKey.get(), "");
}

// --- Files the store cannot use ---

TEST_F(CoachSettingsStoreTest, UnknownKeysAreIgnored) {
    writeSettings(
        R"js({"theme":"dark","provider":"Local (Ollama)","model":"llama3","customEndpoint":"",)js"
        R"js("temperature":1,"maxTokens":512,"profiles":null,"future":{"a":[1,2]}})js");
    auto store = makeStore();
    EXPECT_EQ(store->provider.get(), Provider::local);
    EXPECT_EQ(store->temperature.get(), 1.0);
    EXPECT_EQ(store->maxTokens.get(), 512);
}

TEST_F(CoachSettingsStoreTest, UndecodableFilesGiveTheDefaultsAndAreKeptAside) {
    const std::vector<std::string> files{
        "",
        "not json",
        "[]",
        R"js({"provider":"OpenAI","model":"gpt-4o","customEndpoint":"","temperature":0.5})js",
        R"js({"provider":"Mistral","model":"m","customEndpoint":"","temperature":0.5,"maxTokens":1})js",
        R"js({"provider":"openai","model":"m","customEndpoint":"","temperature":0.5,"maxTokens":1})js",
        R"js({"provider":"OpenAI","model":7,"customEndpoint":"","temperature":0.5,"maxTokens":1})js",
        R"js({"provider":"OpenAI","model":"m","customEndpoint":"","temperature":"hot","maxTokens":1})js",
        R"js({"provider":"OpenAI","model":"m","customEndpoint":"","temperature":0.5,"maxTokens":1.5})js",
        R"js({"provider":"OpenAI","model":"m","customEndpoint":"","temperature":0.5,"maxTokens":1,)js"
        R"js("userChoseProvider":"yes"})js",
        R"js({"provider":"OpenAI","model":"m","customEndpoint":"","temperature":0.5,"maxTokens":1,)js"
        R"js("profiles":{"openai":{"model":"m"}}})js",
    };
    ScopedOperatingSystemOverride macOS26({true, 26, 0, 0});  // even where a move could happen
    for (const std::string& file : files) {
        SCOPED_TRACE(file);
        writeSettings(file);
        auto store = makeStore();
        EXPECT_EQ(store->provider.get(), CoachConfig::defaultConfig().provider);
        EXPECT_EQ(store->model.get(), CoachConfig::defaultConfig().model);
        EXPECT_TRUE(store->providerProfiles().empty());
        EXPECT_FALSE(fs::exists(settingsFile()));
        std::vector<fs::path> kept;
        for (const auto& entry : fs::directory_iterator(folder())) kept.push_back(entry.path());
        ASSERT_EQ(kept.size(), 1u);
        EXPECT_EQ(kept[0].filename().string().rfind("settings.json.unreadable-", 0), 0u);
        EXPECT_EQ(readFile(kept[0]), file);
        fs::remove(kept[0]);
    }
}

TEST_F(CoachSettingsStoreTest, AnUnwritableFolderIsIgnored) {
    TemporaryDirectory root;
    writeFile(root.path() / "occupied", "a file where the folder should be");
    auto store = std::make_unique<CoachSettingsStore>(
        kService, kAccount, CoachSettingsStore::Options{secrets, root.path() / "occupied"});

    store->model.set("gpt-4.1");
    store->temperature.set(0.9);
    store->apiKey.set("sk-still-kept");
    store->selectProvider(Provider::gemini);

    EXPECT_EQ(store->provider.get(), Provider::gemini);
    EXPECT_EQ(store->providerProfiles().at("openai").model, "gpt-4.1");
    EXPECT_EQ(key("openai"), "sk-still-kept");
    EXPECT_EQ(readFile(root.path() / "occupied"), "a file where the folder should be");
    ASSERT_TRUE(store->lastSaveFailure.get().has_value());
    EXPECT_NE(store->lastSaveFailure.get()->find("settings.json"), std::string::npos);
}

TEST_F(CoachSettingsStoreTest, AHostSecretStoreThatThrowsReadsAsNoKey) {
    writeSettings(kOpenAISettings);
    auto store = std::make_unique<CoachSettingsStore>(
        kService, kAccount,
        CoachSettingsStore::Options{std::make_shared<ThrowingSecretStore>(), root()});
    EXPECT_EQ(store->apiKey.get(), "");
    store->apiKey.set("sk-1");
    store->selectProvider(Provider::anthropic);
    EXPECT_EQ(store->savedAPIKey(Provider::openai), "");
    EXPECT_FALSE(store->hasSavedKey(Provider::openai));
}

TEST_F(CoachSettingsStoreTest, AnUndecodableFileThatCannotBeMovedAsideIsNeverWrittenOver) {
    const std::string wrongType =
        R"js({"provider":"Anthropic","model":"claude-x","customEndpoint":"","temperature":"0.5",)js"
        R"js("maxTokens":1024})js";
    writeSettings(wrongType);
    detail::ScopedAtomicWriteFaults faults({{}, std::nullopt, ENAMETOOLONG});
    std::vector<std::string> lines;
    LogSink previous = setLogSink([&](std::string_view line) { lines.emplace_back(line); });
    auto store = makeStore();
    store->temperature.set(0.9);
    store->selectProvider(Provider::gemini);
    setLogSink(previous);

    EXPECT_EQ(settings(), wrongType);
    ASSERT_TRUE(store->lastSaveFailure.get().has_value());
    EXPECT_NE(store->lastSaveFailure.get()->find("could not be moved aside"), std::string::npos);
    EXPECT_EQ(store->provider.get(), Provider::gemini);  // the store goes on in memory
    ASSERT_FALSE(lines.empty());
    EXPECT_NE(lines.front().find("Settings are kept in memory."), std::string::npos);
}

// --- Keys ---

TEST_F(CoachSettingsStoreTest, AKeyThatFailedToLoadSurvivesAProviderSwitchAndARelaunch) {
    auto stalling = std::make_shared<StallingSecretStore>();
    stalling->write(kService, std::string(kAccount) + ".openai", "sk-kept");
    stalling->changes.clear();
    writeSettings(kOpenAISettings);
    stalling->failing = true;
    auto store = std::make_unique<CoachSettingsStore>(
        kService, kAccount, CoachSettingsStore::Options{stalling, root()});
    EXPECT_EQ(store->apiKey.get(), "");
    EXPECT_TRUE(store->keyUnreadable(Provider::openai));
    EXPECT_FALSE(store->keyUnreadable(Provider::local));

    store->selectProvider(Provider::anthropic);  // the stalled store is still failing
    EXPECT_TRUE(store->keyUnreadable(Provider::openai));
    stalling->failing = false;
    store->selectProvider(Provider::openai);
    EXPECT_TRUE(stalling->changes.empty()) << stalling->changes.front();
    EXPECT_EQ(store->apiKey.get(), "sk-kept");
    EXPECT_FALSE(store->keyUnreadable(Provider::openai));

    auto relaunched = std::make_unique<CoachSettingsStore>(
        kService, kAccount, CoachSettingsStore::Options{stalling, root()});
    EXPECT_EQ(relaunched->apiKey.get(), "sk-kept");
}

TEST_F(CoachSettingsStoreTest, ALegacyKeyNeverReplacesAKeyThatCouldNotBeRead) {
    auto stalling = std::make_shared<StallingSecretStore>();
    stalling->write(kService, kAccount, "sk-legacy");
    stalling->write(kService, std::string(kAccount) + ".openai", "sk-own");
    stalling->changes.clear();
    stalling->failing = true;
    auto store = std::make_unique<CoachSettingsStore>(
        kService, kAccount, CoachSettingsStore::Options{stalling, root()});
    EXPECT_TRUE(stalling->changes.empty());
    stalling->failing = false;
    EXPECT_EQ(stalling->read(kService, std::string(kAccount) + ".openai"), "sk-own");
}

TEST_F(CoachSettingsStoreTest, ATypedKeyReplacesOneThatCouldNotBeRead) {
    auto stalling = std::make_shared<StallingSecretStore>();
    stalling->failing = true;
    auto store = std::make_unique<CoachSettingsStore>(
        kService, kAccount, CoachSettingsStore::Options{stalling, root()});
    store->apiKey.set("sk-typed");
    EXPECT_FALSE(store->keyUnreadable(store->provider.get()));
    stalling->failing = false;
    EXPECT_EQ(stalling->read(kService, std::string(kAccount) + ".openai"), "sk-typed");
}

TEST_F(CoachSettingsStoreTest, ASavedKeyIsInTheSecretStoreAtOnceAndSurvivesARestart) {
    auto store = makeStore();
    store->apiKey.set("  sk-new-key\n");
    EXPECT_EQ(key("openai"), "sk-new-key");
    EXPECT_EQ(secrets->calls, std::vector<std::string>{"write coach-api-key.openai sk-new-key"});
    store.reset();

    auto restarted = makeStore();
    EXPECT_EQ(restarted->apiKey.get(), "sk-new-key");
}

TEST_F(CoachSettingsStoreTest, AKeyOfBlanksDeletesTheProvidersItem) {
    setKey("openai", "sk-old");
    auto store = makeStore();
    store->apiKey.set(" \t\n ");
    EXPECT_EQ(key("openai"), std::nullopt);
    EXPECT_EQ(secrets->calls.back(), "remove coach-api-key.openai");
}

TEST_F(CoachSettingsStoreTest, LocalHasASavedKeyWithNoItemsAtAll) {
    auto store = makeStore();
    EXPECT_TRUE(store->hasSavedKey(Provider::local));
    EXPECT_TRUE(store->hasSavedKey(Provider::apple));
    EXPECT_FALSE(store->hasSavedKey(Provider::openai));
    EXPECT_FALSE(store->hasSavedKey(Provider::custom));
}

TEST_F(CoachSettingsStoreTest, GeminiHasNoSavedKeyWhenItsItemHoldsOnlyBlanks) {
    setKey("gemini", "   \n\t");
    auto store = makeStore();
    EXPECT_EQ(store->savedAPIKey(Provider::gemini), "");
    EXPECT_FALSE(store->hasSavedKey(Provider::gemini));
}

TEST_F(CoachSettingsStoreTest, SavedAPIKeyIsTheFieldForTheCurrentProviderAndTheItemForOthers) {
    setKey("openai", "sk-stored");
    setKey("anthropic", "  sk-ant\n");
    auto store = makeStore();
    store->apiKey.set(" sk-typed ");
    EXPECT_EQ(store->savedAPIKey(Provider::openai), "sk-typed");
    EXPECT_EQ(store->savedAPIKey(Provider::anthropic), "sk-ant");
    EXPECT_TRUE(store->hasSavedKey(Provider::anthropic));
}

// --- Switching provider ---

TEST_F(CoachSettingsStoreTest, SwitchingToAnthropicAndBackRestoresModelEndpointAndKey) {
    auto store = makeStore();
    store->model.set("gpt-4.1");
    store->customEndpoint.set("https://proxy.example/v1/chat/completions");
    store->apiKey.set("sk-openai");

    store->selectProvider(Provider::anthropic);
    EXPECT_EQ(store->model.get(), "claude-sonnet-4-20250514");
    EXPECT_EQ(store->customEndpoint.get(), "");
    EXPECT_EQ(store->apiKey.get(), "");
    store->apiKey.set("sk-anthropic");

    store->selectProvider(Provider::openai);
    EXPECT_EQ(store->model.get(), "gpt-4.1");
    EXPECT_EQ(store->customEndpoint.get(), "https://proxy.example/v1/chat/completions");
    EXPECT_EQ(store->apiKey.get(), "sk-openai");
    EXPECT_EQ(key("anthropic"), "sk-anthropic");
}

TEST_F(CoachSettingsStoreTest, SelectProviderSavesOnceWithTheUserChoiceRecorded) {
    auto store = makeStore();
    store->apiKey.set("sk-openai");
    secrets->calls.clear();

    store->selectProvider(Provider::gemini);

    EXPECT_EQ(settings(),
              R"js({"provider":"Google Gemini","model":"gemini-2.0-flash","customEndpoint":"",)js"
              R"js("temperature":0.3,"maxTokens":4096,"profiles":{"gemini":{"model":)js"
              R"js("gemini-2.0-flash","customEndpoint":""},"openai":{"model":"gpt-4o-mini",)js"
              R"js("customEndpoint":""}},"userChoseProvider":true})js");
    // Only the old provider's key is written; loading the new one's writes nothing.
    EXPECT_EQ(secrets->calls, std::vector<std::string>{"write coach-api-key.openai sk-openai"});
}

TEST_F(CoachSettingsStoreTest, WhileApplyingAProviderTheHandlersStayQuiet) {
    writeSettings(kOpenAISettings);
    setKey("anthropic", "sk-ant");
    auto store = makeStore();
    std::vector<std::string> seen;
    auto record = [&](const char* what) {
        seen.push_back(std::string(what) + (store->isApplyingProvider() ? " applying" : " idle") +
                       (settings() == kOpenAISettings ? " unsaved" : " saved"));
    };
    auto s1 = store->provider.onDidChange([&](const Provider&) { record("provider"); });
    auto s2 = store->model.onDidChange([&](const std::string&) { record("model"); });
    auto s3 = store->customEndpoint.onDidChange([&](const std::string&) { record("endpoint"); });
    auto s4 = store->apiKey.onDidChange([&](const std::string&) { record("apiKey"); });
    secrets->calls.clear();

    store->selectProvider(Provider::anthropic);

    EXPECT_EQ(seen,
              (std::vector<std::string>{"provider applying unsaved", "model applying unsaved",
                                        "endpoint applying unsaved", "apiKey applying unsaved"}));
    EXPECT_FALSE(store->isApplyingProvider());
    EXPECT_EQ(secrets->calls, std::vector<std::string>{"remove coach-api-key.openai"});
    EXPECT_NE(settings(), kOpenAISettings);
}

TEST_F(CoachSettingsStoreTest, SelectingTheCurrentProviderDoesNothing) {
    setKey("openai", "sk-1");
    auto store = makeStore();
    store->model.set("gpt-4o");
    const std::string before = settings();
    secrets->calls.clear();
    int changes = 0;
    auto s = store->provider.onWillChange([&](const Provider&, const Provider&) { ++changes; });

    store->selectProvider(Provider::openai);

    EXPECT_EQ(changes, 0);
    EXPECT_TRUE(secrets->calls.empty());
    EXPECT_EQ(settings(), before);
}

// --- Change handlers (each persists the value after the change) ---

TEST_F(CoachSettingsStoreTest, AModelEditIsInTheSettingsFileAtOnceAndSurvivesARestart) {
    writeSettings(kOpenAISettings);
    auto store = makeStore();
    store->model.set("o3-mini");
    EXPECT_EQ(
        settings(),
        R"js({"provider":"OpenAI","model":"o3-mini","customEndpoint":"","temperature":0.5,)js"
        R"js("maxTokens":2048,"profiles":{"openai":{"model":"o3-mini","customEndpoint":""}}})js");
    store.reset();
    EXPECT_EQ(makeStore()->model.get(), "o3-mini");
}

TEST_F(CoachSettingsStoreTest, AnEndpointEditIsStoredInTheProfileAndTheFile) {
    auto store = makeStore();
    store->customEndpoint.set("http://10.0.0.2:8080/v1/chat/completions");
    EXPECT_EQ(store->providerProfiles().at("openai").customEndpoint,
              "http://10.0.0.2:8080/v1/chat/completions");
    auto saved = decodePersistedSettings(settings());
    EXPECT_EQ(saved.customEndpoint, "http://10.0.0.2:8080/v1/chat/completions");
    EXPECT_EQ(saved.userChoseProvider, std::nullopt);
}

TEST_F(CoachSettingsStoreTest, TemperatureAndTokenEditsKeepTheRecordedChoice) {
    writeSettings(
        R"js({"provider":"OpenAI","model":"gpt-4o","customEndpoint":"","temperature":0.5,)js"
        R"js("maxTokens":2048,"userChoseProvider":true})js");
    auto store = makeStore();
    store->temperature.set(1.0);
    EXPECT_EQ(
        settings(),
        R"js({"provider":"OpenAI","model":"gpt-4o","customEndpoint":"","temperature":1,)js"
        R"js("maxTokens":2048,"profiles":{"openai":{"model":"gpt-4o","customEndpoint":""}},)js"
        R"js("userChoseProvider":true})js");
    store->maxTokens.set(8192);
    auto saved = decodePersistedSettings(settings());
    EXPECT_EQ(saved.maxTokens, 8192);
    EXPECT_EQ(saved.userChoseProvider, true);
}

TEST_F(CoachSettingsStoreTest, SettingTheProviderDirectlySavesButMovesNoKey) {
    setKey("openai", "sk-open");
    auto store = makeStore();
    secrets->calls.clear();
    store->provider.set(Provider::custom);
    EXPECT_TRUE(secrets->calls.empty());
    auto saved = decodePersistedSettings(settings());
    EXPECT_EQ(saved.provider, Provider::custom);
    EXPECT_EQ(saved.userChoseProvider, std::nullopt);
    EXPECT_EQ(store->apiKey.get(), "sk-open");  // the field is not reloaded
}

TEST_F(CoachSettingsStoreTest, ATemperatureJsonCannotHoldLeavesTheFileAsItIs) {
    writeSettings(kOpenAISettings);
    auto store = makeStore();
    store->temperature.set(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(settings(), kOpenAISettings);
    store->temperature.set(std::numeric_limits<double>::infinity());
    EXPECT_EQ(settings(), kOpenAISettings);
}

TEST_F(CoachSettingsStoreTest, TwoStoresOnOneFolderKeepEachOthersChanges) {
    auto first = makeStore();
    auto second = makeStore();
    first->model.set("gpt-4.1");
    second->temperature.set(0.8);
    auto saved = decodePersistedSettings(settings());
    EXPECT_EQ(saved.model, "gpt-4.1");  // the second store wrote only its own change
    EXPECT_EQ(saved.temperature, 0.8);
    EXPECT_EQ(saved.profiles->at("openai").model, "gpt-4.1");

    first->apiKey.set("sk-shared");
    EXPECT_EQ(makeStore()->apiKey.get(), "sk-shared");
    EXPECT_EQ(second->savedAPIKey(Provider::openai), "");  // its field was loaded earlier
}

TEST_F(CoachSettingsStoreTest, ARunningHostsEditDoesNotUndoAnotherHostsProviderSwitch) {
    writeSettings(kOpenAISettings);
    auto gui = makeStore();  // already running, still on OpenAI
    auto cli = makeStore();
    cli->selectProvider(Provider::anthropic);
    cli->model.set("claude-x");
    cli->maxTokens.set(1024);

    gui->temperature.set(0.9);

    auto saved = decodePersistedSettings(settings());
    EXPECT_EQ(saved.provider, Provider::anthropic);
    EXPECT_EQ(saved.model, "claude-x");
    EXPECT_EQ(saved.maxTokens, 1024);
    EXPECT_EQ(saved.temperature, 0.9);
    EXPECT_EQ(saved.profiles->at("anthropic").model, "claude-x");
    EXPECT_EQ(saved.userChoseProvider, std::optional<bool>(true));

    // A model the running host picks for its own provider lands in that provider's profile.
    gui->model.set("gpt-4.1");
    saved = decodePersistedSettings(settings());
    EXPECT_EQ(saved.provider, Provider::anthropic);
    EXPECT_EQ(saved.model, "claude-x");
    EXPECT_EQ(saved.profiles->at("openai").model, "gpt-4.1");
    EXPECT_FALSE(gui->lastSaveFailure.get().has_value());
}

TEST_F(CoachSettingsStoreTest, AKeyNeverAppearsInTheSettingsFileOrALogLine) {
    std::vector<std::string> lines;
    LogSink previous = setLogSink([&](std::string_view line) { lines.emplace_back(line); });
    const std::string secret = "sk-proj-SECRET-4f9a";
    {
        auto store = makeStore();
        store->apiKey.set(secret);
        store->selectProvider(Provider::anthropic);
        store->apiKey.set(secret + "-ant");
        store->selectProvider(Provider::openai);
        store->model.set("gpt-4o");
        store->temperature.set(0.2);
        (void)store->config();
    }
    auto restarted = makeStore();
    setLogSink(previous);
    EXPECT_EQ(restarted->apiKey.get(), secret);
    EXPECT_EQ(settings().find("sk-proj"), std::string::npos);
    for (const std::string& line : lines)
        EXPECT_EQ(line.find("sk-proj"), std::string::npos) << line;
}

// --- Configuration, endpoint and folders ---

TEST_F(CoachSettingsStoreTest, ConfigTrimsKeyModelAndEndpoint) {
    auto store = makeStore();
    store->apiKey.set(" sk-1\n");
    store->model.set("\tgpt-4o ");
    store->customEndpoint.set(" https://proxy.example/v1 \n");
    store->temperature.set(0.25);
    store->maxTokens.set(300);
    CoachConfig config = store->config();
    EXPECT_EQ(config.provider, Provider::openai);
    EXPECT_EQ(config.apiKey, "sk-1");
    EXPECT_EQ(config.model, "gpt-4o");
    EXPECT_EQ(config.customEndpoint, "https://proxy.example/v1");
    EXPECT_EQ(config.temperature, 0.25);
    EXPECT_EQ(config.maxTokens, 300);
}

TEST_F(CoachSettingsStoreTest, TheEndpointIsAlwaysTheCurrentConfigurations) {
    auto store = makeStore();
    EXPECT_EQ(store->endpoint(Provider::gemini), "https://api.openai.com/v1/chat/completions");
    EXPECT_EQ(store->endpoint(Provider::openai), LLMClient::endpointURL(store->config()));
    store->customEndpoint.set("http://127.0.0.1:9/v1");
    EXPECT_EQ(store->endpoint(Provider::anthropic), "http://127.0.0.1:9/v1");
}

TEST_F(CoachSettingsStoreTest, TheStorageFolderIsMadeAgainOnEachRead) {
    auto store = makeStore();
    fs::remove_all(folder());
    EXPECT_EQ(store->storageDirectory(), folder());
    EXPECT_TRUE(fs::is_directory(folder()));
    fs::remove_all(folder());
    EXPECT_EQ(store->settingsURL(), folder() / "settings.json");
    EXPECT_TRUE(fs::is_directory(folder()));
}

TEST_F(CoachSettingsStoreTest, ConversationFilesAreNamedAfterTheNamespaceUnchanged) {
    auto store = makeStore();
    EXPECT_EQ(store->conversationURL("main"), folder() / "main-conversations.json");
    EXPECT_EQ(store->conversationURL("Help Desk"), folder() / "Help Desk-conversations.json");
    EXPECT_EQ(store->conversationURL("").string(), (folder() / "-conversations.json").string());
    // A namespace that looks like an absolute path still names a file inside the folder.
    std::string odd = store->conversationURL("/etc/x").string();
    EXPECT_EQ(odd.rfind(folder().string() + "/", 0), 0u) << odd;
    EXPECT_EQ(fs::path(odd).filename(), "x-conversations.json");
}

TEST(CoachSettingsStoreSharedTest, TheSharedStoreUsesTheFixedNamesAndTheUsersDataFolder) {
    testing::TemporaryDirectory dataHome;
    ::setenv("XDG_DATA_HOME", dataHome.path().c_str(), 1);
    CoachSettingsStore& shared = CoachSettingsStore::shared();
    EXPECT_EQ(&shared, &CoachSettingsStore::shared());
    EXPECT_EQ(shared.keychainService(), "com.brindlewood.sagely");
    EXPECT_EQ(shared.keychainAccount(), "coach-api-key");
    EXPECT_EQ(shared.storageDirectory(), dataHome.path() / "Brindlewood" / "Sagely");
}

TEST(StorageLocationTest, FollowsTheXdgDataHomeRules) {
    const char* savedHome = std::getenv("HOME");
    std::string home = savedHome ? savedHome : "";
    ::setenv("HOME", "/home/someone", 1);
    ::setenv("XDG_DATA_HOME", "/data/someone", 1);
    EXPECT_EQ(detail::applicationDataDirectory(), fs::path("/data/someone"));
    ::setenv("XDG_DATA_HOME", "relative/path", 1);  // not absolute: invalid, ignored
    EXPECT_EQ(detail::applicationDataDirectory(), fs::path("/home/someone/.local/share"));
    ::unsetenv("XDG_DATA_HOME");
    EXPECT_EQ(detail::applicationDataDirectory(), fs::path("/home/someone/.local/share"));
    ::setenv("HOME", home.c_str(), 1);
}

// --- The settings file's JSON ---

TEST(PersistedSettingsJsonTest, WritesKeysInFieldOrderAndLeavesOutWhatIsNone) {
    CoachSettingsStore::PersistedSettings settings;
    settings.provider = Provider::local;
    settings.model = "gemma3:4b";
    settings.customEndpoint = "http://localhost:11434/api/chat";
    settings.temperature = 0.7;
    settings.maxTokens = 512;
    EXPECT_EQ(encodeJson(settings),
              R"js({"provider":"Local (Ollama)","model":"gemma3:4b","customEndpoint":)js"
              R"js("http://localhost:11434/api/chat","temperature":0.7,"maxTokens":512})js");
    settings.profiles = std::map<std::string, CoachSettingsStore::ProviderProfile>{
        {"openai", {"gpt-4o", ""}}, {"custom", {"my-model", "https://x.example/v1"}}};
    settings.userChoseProvider = false;
    EXPECT_EQ(
        encodeJson(settings),
        R"js({"provider":"Local (Ollama)","model":"gemma3:4b","customEndpoint":)js"
        R"js("http://localhost:11434/api/chat","temperature":0.7,"maxTokens":512,"profiles":)js"
        R"js({"custom":{"model":"my-model","customEndpoint":"https://x.example/v1"},"openai":)js"
        R"js({"model":"gpt-4o","customEndpoint":""}},"userChoseProvider":false})js");
}

TEST(PersistedSettingsJsonTest, RoundTripsThroughTheFileFormAndNlohmann) {
    CoachSettingsStore::PersistedSettings settings{
        Provider::custom,
        "m\u00e9",
        "https://x.example/\"v1\"",
        0.1,
        9000,
        std::map<std::string, CoachSettingsStore::ProviderProfile>{{"custom", {"m\u00e9", ""}}},
        true};
    EXPECT_EQ(decodePersistedSettings(encodeJson(settings)), settings);
    nlohmann::json json = settings;
    EXPECT_EQ(json.get<CoachSettingsStore::PersistedSettings>(), settings);
}

TEST(PersistedSettingsJsonTest, ANullOptionalReadsAsAbsent) {
    auto decoded = decodePersistedSettings(
        R"js({"provider":"OpenAI","model":"","customEndpoint":"","temperature":0,"maxTokens":0,)js"
        R"js("profiles":null,"userChoseProvider":null})js");
    EXPECT_EQ(decoded.profiles, std::nullopt);
    EXPECT_EQ(decoded.userChoseProvider, std::nullopt);
}

TEST(PersistedSettingsJsonTest, DecodingErrorsNameTheKey) {
    auto message = [](const std::string& json) {
        try {
            decodePersistedSettings(json);
        } catch (const DecodingError& error) {
            return std::string(error.what());
        }
        return std::string("decoded");
    };
    EXPECT_EQ(message(R"js({"provider":"OpenAI"})js"), "model: missing key");
    EXPECT_EQ(
        message(R"js({"provider":"OpenAI","model":"m","customEndpoint":"","temperature":0,)js"
                R"js("maxTokens":1,"profiles":{"gemini":{"model":"g","customEndpoint":3}}})js"),
        "profiles.gemini.customEndpoint: expected a string");
    EXPECT_EQ(message(R"js({"provider":"OpenAI","model":"m","customEndpoint":"","temperature":0,)js"
                      R"js("maxTokens":18446744073709551615})js"),
              "maxTokens: expected an integer");
    EXPECT_EQ(message("{"),
              "The data couldn\u2019t be read because it isn\u2019t in the correct format.");
}

}  // namespace
}  // namespace sagely
