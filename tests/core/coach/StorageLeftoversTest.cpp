// What the storage folder is left with: temporary files of killed saves are swept when a
// settings store starts, a store whose settings live in memory writes no settings file, and a
// system that names no data folder gets nothing written into the current folder instead.
#include <sagely/CoachConversation.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/ConversationFile.h>
#include <sagely/SecretStore.h>

#include "support/AtomicFile.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <filesystem>

namespace sagely {
namespace {

namespace fs = std::filesystem;
using testing::TemporaryDirectory;
using testing::writeFile;

CoachSettingsStore::Options optionsAt(const fs::path& root) {
    CoachSettingsStore::Options options;
    options.secretStore = std::make_shared<InMemorySecretStore>();
    options.storageRoot = root;
    return options;
}

void plant(const fs::path& file, std::chrono::minutes age) {
    writeFile(file, "{\"half\":");
    fs::last_write_time(file, fs::file_time_type::clock::now() - age);
}

TEST(StorageLeftovers, StaleTemporaryFilesOfTheKitsPatternAreSweptAtStartUp) {
    TemporaryDirectory root;
    const fs::path storage = root.path() / "Brindlewood" / "Sagely";
    fs::create_directories(storage);
    plant(storage / ".settings.json.tmp-Ab12Cd", std::chrono::minutes(60));
    plant(storage / ".cli-conversations.json.tmp-x9Y8z7", std::chrono::minutes(11));
    plant(storage / ".cli-conversations.json.tmp-fresh1", std::chrono::minutes(0));
    plant(storage / "notes.tmp-abcdef", std::chrono::minutes(60));   // not hidden
    plant(storage / ".notes.tmp-abc", std::chrono::minutes(60));     // not six characters
    plant(storage / ".notes.tmp-abc-ef", std::chrono::minutes(60));  // not letters or digits
    CoachSettingsStore store("svc", "acct", optionsAt(root.path()));
    EXPECT_FALSE(fs::exists(storage / ".settings.json.tmp-Ab12Cd"));
    EXPECT_FALSE(fs::exists(storage / ".cli-conversations.json.tmp-x9Y8z7"));
    EXPECT_TRUE(fs::exists(storage / ".cli-conversations.json.tmp-fresh1"));  // maybe in use
    EXPECT_TRUE(fs::exists(storage / "notes.tmp-abcdef"));
    EXPECT_TRUE(fs::exists(storage / ".notes.tmp-abc"));
    EXPECT_TRUE(fs::exists(storage / ".notes.tmp-abc-ef"));
}

TEST(StorageLeftovers, TheSweptPatternIsTheOneSavesUse) {
    TemporaryDirectory root;
    std::string seen;
    detail::AtomicWriteFaults faults;
    faults.beforeRename = [&](const fs::path& temporary) {
        seen = temporary.filename().string();
        return 0;
    };
    detail::ScopedAtomicWriteFaults scoped(faults);
    ASSERT_EQ(detail::replaceFileAtomically(root.path() / "settings.json", "{}"), 0);
    EXPECT_TRUE(detail::isTemporaryFileName(seen)) << seen;
}

TEST(StorageLeftovers, ASettingsStoreInMemoryNeitherReadsNorWritesTheSettingsFile) {
    TemporaryDirectory root;
    CoachSettingsStore::Options options = optionsAt(root.path());
    options.settingsInMemory = true;
    {
        CoachSettingsStore saved("svc", "acct", optionsAt(root.path()));
        saved.model.set("saved-model");
    }
    const std::string before = testing::readFile(root.path() / "Brindlewood/Sagely/settings.json");
    CoachSettingsStore store("svc", "acct", options);
    EXPECT_NE(store.model.get(), "saved-model");
    store.model.set("run-only-model");
    store.temperature.set(0.9);
    EXPECT_EQ(testing::readFile(root.path() / "Brindlewood/Sagely/settings.json"), before);
    EXPECT_EQ(store.conversationURL("cli"),
              root.path() / "Brindlewood" / "Sagely" / "cli-conversations.json");
}

TEST(StorageLeftovers, WithoutADataFolderNothingIsWrittenIntoTheCurrentFolder) {
    TemporaryDirectory cwd;
    const fs::path previous = fs::current_path();
    fs::current_path(cwd.path());
    {
        CoachSettingsStore store("svc", "acct", optionsAt(fs::path()));
        store.model.set("some-model");
        EXPECT_TRUE(store.conversationURL("cli").empty());
        EXPECT_FALSE(
            ConversationFile::save(store.conversationURL("cli"), {CoachConversation("Lost")}));
    }
    fs::current_path(previous);
    EXPECT_TRUE(fs::is_empty(cwd.path()));
}

}  // namespace
}  // namespace sagely
