// What one run of `sagely` does to the files of the storage folder, watched with inotify as it
// happens: `ask` reads the conversation file once and replaces it once, and touches settings.json
// only to read it; `set` replaces settings.json once and leaves the conversations alone.
#include "support/SagelyProcess.h"
#include "support/TemporaryDirectory.h"

#include <sagely/CoachConversation.h>
#include <sagely/ConversationFile.h>

#include <gtest/gtest.h>

#include <sys/inotify.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace sagely::testing {
namespace {

/// Counts, per file name, the opens and the renames onto the name in one folder.
class FolderWatch {
public:
    explicit FolderWatch(const std::filesystem::path& folder)
        : m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
        if (m_fd >= 0) inotify_add_watch(m_fd, folder.c_str(), IN_OPEN | IN_MOVED_TO);
    }
    ~FolderWatch() {
        if (m_fd >= 0) ::close(m_fd);
    }
    bool ok() const { return m_fd >= 0; }

    /// Reads what happened so far.
    void collect() {
        alignas(inotify_event) char buffer[64 * 1024];
        for (;;) {
            ssize_t n = ::read(m_fd, buffer, sizeof buffer);
            if (n <= 0) return;
            for (char* at = buffer; at < buffer + n;) {
                auto* event = reinterpret_cast<inotify_event*>(at);
                const std::string name = event->len ? event->name : "";
                if (event->mask & IN_OPEN) ++opens[name];
                if (event->mask & IN_MOVED_TO) ++replaced[name];
                at += sizeof(inotify_event) + event->len;
            }
        }
    }

    std::map<std::string, int> opens;
    std::map<std::string, int> replaced;

private:
    int m_fd;
};

class SagelyFileAccess : public ::testing::Test {
protected:
    SagelyFileAccess() {
        std::filesystem::create_directories(storage());
        std::filesystem::create_directories(home.path() / "run");
        environment = {{"HOME", home.path().string()},
                       {"XDG_DATA_HOME", (home.path() / "data").string()},
                       {"XDG_RUNTIME_DIR", (home.path() / "run").string()},
                       {"PATH", "/usr/bin:/bin"},
                       {"LANG", "C.UTF-8"}};
        for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
            if (const char* value = std::getenv(name)) environment[name] = value;
    }

    std::filesystem::path storage() const {
        return home.path() / "data" / "Brindlewood" / "Sagely";
    }

    void run(const std::vector<std::string>& arguments) {
        const auto outcome = runSagely(arguments, environment);
        ASSERT_TRUE(outcome.exited) << outcome.err;
        ASSERT_EQ(outcome.exitCode, 0) << outcome.err;
    }

    TemporaryDirectory home;
    std::map<std::string, std::string> environment;
};

TEST_F(SagelyFileAccess, AskLoadsTheHistoryOnceSavesItOnceAndWritesNoSettings) {
    run({"set", "max-tokens", "768"});  // a settings file to read
    std::vector<CoachConversation> history;
    for (int i = 0; i < 20; ++i) {
        CoachConversation conversation("Conversation " + std::to_string(i + 1));
        for (int m = 0; m < 50; ++m)
            conversation.append(CoachMessage(
                m % 2 ? CoachMessage::Role::assistant : CoachMessage::Role::user,
                "Message " + std::to_string(m) + " of an earlier talk about notebooks."));
        history.push_back(std::move(conversation));
    }
    ASSERT_TRUE(ConversationFile::save(storage() / "cli-conversations.json", history));

    FolderWatch watch(storage());
    ASSERT_TRUE(watch.ok());
    run({"ask", "--offline", "How do I export a notebook?"});
    watch.collect();

    EXPECT_EQ(watch.opens["cli-conversations.json"], 1);
    EXPECT_EQ(watch.replaced["cli-conversations.json"], 1);
    EXPECT_LE(watch.opens["settings.json"], 1);
    EXPECT_EQ(watch.replaced["settings.json"], 0);
    const auto saved = ConversationFile::load(storage() / "cli-conversations.json");
    ASSERT_EQ(saved.size(), 20u);
    std::size_t messages = 0;
    for (const auto& conversation : saved) messages += conversation.messages().size();
    EXPECT_EQ(messages, 20u * 50u + 2u);  // the question and its answer
}

TEST_F(SagelyFileAccess, SetWritesTheSettingsOnceAndLeavesTheConversationsAlone) {
    FolderWatch watch(storage());
    ASSERT_TRUE(watch.ok());
    run({"set", "max-tokens", "1024"});
    watch.collect();

    EXPECT_EQ(watch.replaced["settings.json"], 1);
    EXPECT_EQ(watch.opens["cli-conversations.json"], 0);
    EXPECT_EQ(watch.replaced["cli-conversations.json"], 0);
}

}  // namespace
}  // namespace sagely::testing
