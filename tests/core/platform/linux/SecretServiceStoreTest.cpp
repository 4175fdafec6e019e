// The Secret Service store against whatever the session offers: under the test script a real,
// unlocked gnome-keyring; in a plain run usually nothing, where every read must be "no key"
// and no call may hang. The cases that need no service at all run in a child process with a
// prepared environment, so they hold in both settings.
#include "platform/linux/SecretServiceStore.h"

#include <sagely/CoachSettingsStore.h>

#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>
#include <libsecret/secret.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <string>
#include <thread>

namespace sagely::detail {
namespace {

using namespace std::chrono_literals;

const std::string kService = "com.brindlewood.sagely.test-" + std::to_string(::getpid());

// Every item the test makes is removed again, also from a user's real keyring.
class SecretServiceStoreTest : public ::testing::Test {
protected:
    // Under the test script a missing keyring is a failure, never a quiet "no store" branch.
    void SetUp() override {
        if (std::getenv("SAGELY_REQUIRE_SECRET_SERVICE")) {
            ASSERT_TRUE(available) << "the Secret Service of the test script is not reachable";
        }
    }
    void TearDown() override {
        for (const char* account : {"coach-api-key.openai", "coach-api-key.gemini", "other"}) {
            store.remove(kService, account);
            store.remove(kService + ".other", account);
        }
    }

    SecretServiceStore store;
    const bool available = store.isAvailable();
};

// The attributes and label of the items matching service and account, asked of the Secret
// Service itself over D-Bus (not through the code under test).
struct FoundItem {
    std::string label;
    std::map<std::string, std::string> attributes;
};

GVariant* itemProperty(GDBusConnection* bus, const char* path, const char* name) {
    GVariant* reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.secrets", path, "org.freedesktop.DBus.Properties", "Get",
        g_variant_new("(ss)", "org.freedesktop.Secret.Item", name), G_VARIANT_TYPE("(v)"),
        G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
    if (!reply) return nullptr;
    GVariant* value = nullptr;
    g_variant_get(reply, "(v)", &value);
    g_variant_unref(reply);
    return value;
}

FoundItem describeItem(GDBusConnection* bus, const char* path) {
    FoundItem item;
    if (GVariant* label = itemProperty(bus, path, "Label")) {
        item.label = g_variant_get_string(label, nullptr);
        g_variant_unref(label);
    }
    if (GVariant* attributes = itemProperty(bus, path, "Attributes")) {
        GVariantIter iter;
        const gchar* key = nullptr;
        const gchar* value = nullptr;
        g_variant_iter_init(&iter, attributes);
        while (g_variant_iter_next(&iter, "{&s&s}", &key, &value)) item.attributes[key] = value;
        g_variant_unref(attributes);
    }
    return item;
}

std::vector<FoundItem> findItems(const std::string& service, const std::string& account) {
    std::vector<FoundItem> items;
    GDBusConnection* bus = g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr);
    if (!bus) return items;
    GVariantBuilder query;
    g_variant_builder_init(&query, G_VARIANT_TYPE("a{ss}"));
    g_variant_builder_add(&query, "{ss}", "service", service.c_str());
    g_variant_builder_add(&query, "{ss}", "account", account.c_str());
    GVariant* reply = g_dbus_connection_call_sync(
        bus, "org.freedesktop.secrets", "/org/freedesktop/secrets",
        "org.freedesktop.Secret.Service", "SearchItems", g_variant_new("(a{ss})", &query),
        G_VARIANT_TYPE("(aoao)"), G_DBUS_CALL_FLAGS_NONE, 5000, nullptr, nullptr);
    if (reply) {
        GVariantIter* unlocked = nullptr;
        GVariantIter* locked = nullptr;
        g_variant_get(reply, "(aoao)", &unlocked, &locked);
        const gchar* path = nullptr;
        while (g_variant_iter_next(unlocked, "&o", &path)) items.push_back(describeItem(bus, path));
        g_variant_iter_free(unlocked);
        g_variant_iter_free(locked);
        g_variant_unref(reply);
    }
    g_object_unref(bus);
    return items;
}

TEST(SecretServiceStoreLabelTest, NamesTheProviderOfTheAccount) {
    EXPECT_EQ(SecretServiceStore::labelFor("coach-api-key.openai"), "Sagely API key (openai)");
    EXPECT_EQ(SecretServiceStore::labelFor("coach-api-key"), "Sagely API key (coach-api-key)");
}

TEST_F(SecretServiceStoreTest, WritesReadsReplacesAndDeletesAnItem) {
    EXPECT_EQ(store.read(kService, "coach-api-key.openai"), std::nullopt);
    store.write(kService, "coach-api-key.openai", "sk-first");
    store.write(kService, "coach-api-key.openai", "sk-second");
    if (available) {
        EXPECT_EQ(store.read(kService, "coach-api-key.openai"), "sk-second");
        EXPECT_EQ(findItems(kService, "coach-api-key.openai").size(), 1u);
    } else {
        EXPECT_EQ(store.read(kService, "coach-api-key.openai"), std::nullopt);
    }
    store.remove(kService, "coach-api-key.openai");
    store.remove(kService, "coach-api-key.openai");  // removing what is gone is harmless
    EXPECT_EQ(store.read(kService, "coach-api-key.openai"), std::nullopt);
}

TEST_F(SecretServiceStoreTest, AnItemCarriesServiceAndAccountAndAReadableLabel) {
    store.write(kService, "coach-api-key.gemini", "AIza-key");
    std::vector<FoundItem> items =
        available ? findItems(kService, "coach-api-key.gemini") : std::vector<FoundItem>{};
    if (!available) {
        EXPECT_EQ(store.read(kService, "coach-api-key.gemini"), std::nullopt);
        return;
    }
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].label, "Sagely API key (gemini)");
    EXPECT_EQ(items[0].attributes, (std::map<std::string, std::string>{
                                       {"service", kService},
                                       {"account", "coach-api-key.gemini"},
                                       {"xdg:schema", "org.freedesktop.Secret.Generic"}}));
}

TEST_F(SecretServiceStoreTest, ServicesAndAccountsKeepSeparateItems) {
    store.write(kService, "coach-api-key.openai", "sk-a");
    store.write(kService, "other", "sk-b");
    store.write(kService + ".other", "coach-api-key.openai", "sk-c");
    store.remove(kService, "other");
    if (available) {
        EXPECT_EQ(store.read(kService, "coach-api-key.openai"), "sk-a");
        EXPECT_EQ(store.read(kService + ".other", "coach-api-key.openai"), "sk-c");
    }
    EXPECT_EQ(store.read(kService, "other"), std::nullopt);
}

TEST_F(SecretServiceStoreTest, KeepsAnyUtf8TextExactly) {
    const std::string secret = "cl\u00e9-\u5bc6\u94a5-\U0001F511 with spaces";
    store.write(kService, "coach-api-key.openai", secret);
    EXPECT_EQ(store.read(kService, "coach-api-key.openai"),
              available ? std::optional<std::string>(secret) : std::nullopt);
}

TEST_F(SecretServiceStoreTest, FindsAnItemMadeByAnotherToolWithTheSameAttributes) {
    if (!available) {
        EXPECT_FALSE(store.isAvailable());
        EXPECT_EQ(store.read(kService, "coach-api-key.openai"), std::nullopt);
        return;
    }
    static const SecretSchema otherSchema = {"org.example.OtherTool",
                                             SECRET_SCHEMA_NONE,
                                             {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                              {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                              {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                                             0,
                                             nullptr,
                                             nullptr,
                                             nullptr,
                                             nullptr,
                                             nullptr,
                                             nullptr,
                                             nullptr};
    ASSERT_TRUE(secret_password_store_sync(
        &otherSchema, SECRET_COLLECTION_DEFAULT, "by hand", "sk-by-hand", nullptr, nullptr,
        "service", kService.c_str(), "account", "coach-api-key.openai", nullptr));
    EXPECT_EQ(store.read(kService, "coach-api-key.openai"), "sk-by-hand");
}

TEST_F(SecretServiceStoreTest, ASettingsStoreKeepsItsKeysThereAcrossARestart) {
    testing::TemporaryDirectory root;
    auto shared = std::make_shared<SecretServiceStore>();
    auto makeStore = [&] {
        return std::make_unique<CoachSettingsStore>(
            kService, "coach-api-key", CoachSettingsStore::Options{shared, root.path()});
    };
    {
        auto store = makeStore();
        store->apiKey.set("sk-openai-real");
        store->selectProvider(Provider::gemini);
        store->apiKey.set("AIza-real");
    }
    auto restarted = makeStore();
    EXPECT_EQ(restarted->provider.get(), Provider::gemini);
    EXPECT_EQ(restarted->apiKey.get(), available ? "AIza-real" : "");
    EXPECT_EQ(restarted->savedAPIKey(Provider::openai), available ? "sk-openai-real" : "");
}

// No fallback: this one needs the real Secret Service and fails without it.
TEST_F(SecretServiceStoreTest, ARealKeyIsSavedReadBackKeptOverARelaunchAndDeleted) {
    ASSERT_TRUE(available) << "needs a Secret Service (run under scripts/with-keyring.sh)";
    testing::TemporaryDirectory root;
    auto launch = [&] {  // each launch gets its own connection, as a new process would
        return std::make_unique<CoachSettingsStore>(
            kService, "coach-api-key",
            CoachSettingsStore::Options{std::make_shared<SecretServiceStore>(), root.path()});
    };
    {
        auto store = launch();
        store->apiKey.set("sk-real-round-trip");
    }
    SecretLookup stored = store.lookup(kService, "coach-api-key.openai");
    ASSERT_TRUE(stored.found());
    EXPECT_EQ(stored.secret, "sk-real-round-trip");
    EXPECT_EQ(findItems(kService, "coach-api-key.openai").size(), 1u);

    auto relaunched = launch();
    EXPECT_EQ(relaunched->apiKey.get(), "sk-real-round-trip");
    EXPECT_FALSE(relaunched->keyUnreadable(Provider::openai));
    relaunched->apiKey.set("");
    EXPECT_EQ(store.lookup(kService, "coach-api-key.openai").outcome,
              SecretLookup::Outcome::noItem);
    EXPECT_TRUE(findItems(kService, "coach-api-key.openai").empty());
}

// --- Without a usable session bus (each in a fresh child process) ---

// The body of a child process: exits 0 when `check` returns true, removing the child's own
// folder first. A check that does not come back within a minute counts as a hang.
[[noreturn]] void exitWithResult(const std::filesystem::path& folder,
                                 const std::function<bool()>& check) {
    auto result = std::async(std::launch::async, check);
    bool ok = result.wait_for(60s) == std::future_status::ready && result.get();
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    std::fflush(nullptr);
    std::_Exit(ok ? 0 : 1);
}

std::filesystem::path makeChildFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "sagely-bus-XXXXXX").string();
    return ::mkdtemp(pattern.data()) ? pattern : std::string();
}

// A socket that accepts connections and never says a word: a wedged bus.
class SilentBus {
public:
    explicit SilentBus(const std::filesystem::path& path) {
        m_fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::snprintf(address.sun_path, sizeof address.sun_path, "%s", path.c_str());
        ::bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        ::listen(m_fd, 16);
        m_thread = std::thread([this] {
            for (int client; (client = ::accept(m_fd, nullptr, nullptr)) >= 0;) ++accepted;
        });
        m_thread.detach();  // the child process ends without tearing it down
    }
    std::atomic<int> accepted{0};

private:
    int m_fd = -1;
    std::thread m_thread;
};

TEST(SecretServiceStoreWithoutBusTest, WithNoSessionBusNothingIsAttempted) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::filesystem::path runtime = makeChildFolder();
            ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
            ::unsetenv("DISPLAY");
            ::setenv("XDG_RUNTIME_DIR", runtime.c_str(), 1);
            exitWithResult(runtime, [] {
                SecretServiceStore store;
                store.write("com.brindlewood.sagely", "coach-api-key.openai", "sk-1");
                store.remove("com.brindlewood.sagely", "coach-api-key.openai");
                return !store.isAvailable() &&
                       !store.read("com.brindlewood.sagely", "coach-api-key.openai");
            });
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(SecretServiceStoreWithoutBusTest, ABusThatRefusesConnectionsReadsAsNoKey) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::filesystem::path runtime = makeChildFolder();
            std::string address = "unix:path=" + (runtime / "no-such-bus").string();
            ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
            exitWithResult(runtime, [] {
                SecretServiceStore store;
                return !store.read("com.brindlewood.sagely", "coach-api-key.openai") &&
                       store.lookup("com.brindlewood.sagely", "coach-api-key.openai").failed() &&
                       !store.isAvailable();
            });
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(SecretServiceStoreWithoutBusTest, ABusThatNeverAnswersIsGivenUpAndThenLeftAlone) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            std::filesystem::path runtime = makeChildFolder();
            std::filesystem::path socket = runtime / "bus";
            SilentBus bus(socket);
            ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + socket.string()).c_str(), 1);
            exitWithResult(runtime, [&bus] {
                SecretServiceStore store({200ms, 60s});
                // A stalled read is a failure, never "no item": nothing may be written back.
                bool noKey =
                    store.lookup("com.brindlewood.sagely", "coach-api-key.openai").failed();
                int connections = bus.accepted.load();
                // Within the quiet period the store does not knock again.
                store.write("com.brindlewood.sagely", "coach-api-key.openai", "sk-1");
                bool quiet = !store.isAvailable() &&
                             !store.read("com.brindlewood.sagely", "coach-api-key.openai") &&
                             bus.accepted.load() == connections;
                return noKey && connections >= 1 && quiet;
            });
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace sagely::detail
