// Several hosts of the kit at once on one machine: real `sagely` processes (and a long-lived
// coach in this process) writing the same conversation namespace and the same settings.json
// concurrently, round after round; every question and every change must be on disk at the end.
#include "support/SagelyProcess.h"
#include "support/TemporaryDirectory.h"

#include <sagely/AICoach.h>
#include <sagely/CoachConversation.h>
#include <sagely/CoachSettingsStore.h>
#include <sagely/MainExecutor.h>
#include <sagely/SecretStore.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <future>
#include <set>
#include <string>
#include <vector>

namespace sagely::testing {
namespace {

class SharedStorage : public ::testing::Test {
protected:
    SharedStorage() {
        std::filesystem::create_directories(home.path() / "run");
        std::filesystem::permissions(home.path() / "run", std::filesystem::perms::owner_all);
        // No session bus: keys stay out of it, the files are what is shared.
        environment = {{"HOME", home.path().string()},
                       {"XDG_DATA_HOME", dataFolder().string()},
                       {"XDG_RUNTIME_DIR", (home.path() / "run").string()},
                       {"PATH", "/usr/bin:/bin"},
                       {"LANG", "C.UTF-8"}};
        for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"})
            if (const char* value = std::getenv(name)) environment[name] = value;
    }

    std::filesystem::path dataFolder() const { return home.path() / "data"; }
    std::filesystem::path storage() const { return dataFolder() / "Brindlewood" / "Sagely"; }

    std::set<std::string> questionsOnDisk(const std::string& conversationNamespace) const {
        std::set<std::string> questions;
        const std::string bytes =
            readFile(storage() / (conversationNamespace + "-conversations.json"));
        for (const auto& conversation : decodeConversations(bytes))
            for (const auto& message : conversation.messages())
                if (message.role() == CoachMessage::Role::user) questions.insert(message.content());
        return questions;
    }

    // Runs the commands one after another; returns the outcomes.
    std::future<std::vector<ProcessOutcome>> inTurn(std::vector<std::vector<std::string>> commands,
                                                    std::string input = "") {
        return std::async(std::launch::async, [this, commands = std::move(commands), input] {
            std::vector<ProcessOutcome> outcomes;
            for (const auto& command : commands)
                outcomes.push_back(runSagely(command, environment, input));
            return outcomes;
        });
    }

    TemporaryDirectory home;
    std::map<std::string, std::string> environment;
};

TEST_F(SharedStorage, TwoAskLoopsOnOneNamespaceKeepEveryQuestion) {
    constexpr int kRounds = 20;
    std::vector<std::vector<std::string>> first, second;
    std::set<std::string> asked;
    for (int round = 0; round < kRounds; ++round) {
        for (auto [host, commands] : {std::pair{"A", &first}, std::pair{"B", &second}}) {
            std::string question = std::string("Question ") + host + std::to_string(round);
            commands->push_back({"ask", "--offline", "--namespace", "same", question});
            asked.insert(question);
        }
    }
    auto a = inTurn(first);
    auto b = inTurn(second);
    for (auto* run : {&a, &b})
        for (const auto& outcome : run->get()) EXPECT_TRUE(outcome.exited) << outcome.err;

    EXPECT_EQ(questionsOnDisk("same"), asked);
}

TEST_F(SharedStorage, TwoChatSessionsOnOneNamespaceKeepEveryQuestion) {
    constexpr int kLines = 12;
    std::string linesA, linesB;
    std::set<std::string> asked;
    for (int line = 0; line < kLines; ++line) {
        linesA += "Chat A " + std::to_string(line) + "\n";
        linesB += "Chat B " + std::to_string(line) + "\n";
        asked.insert("Chat A " + std::to_string(line));
        asked.insert("Chat B " + std::to_string(line));
    }
    auto a = inTurn({{"chat", "--offline", "--namespace", "same"}}, linesA + "/quit\n");
    auto b = inTurn({{"chat", "--offline", "--namespace", "same"}}, linesB + "/quit\n");
    for (auto* run : {&a, &b})
        for (const auto& outcome : run->get()) EXPECT_TRUE(outcome.exited) << outcome.err;

    EXPECT_EQ(questionsOnDisk("same"), asked);
}

TEST_F(SharedStorage, ConcurrentSetAndUseKeepEveryChange) {
    constexpr int kRounds = 12;
    const char* providers[] = {"anthropic", "gemini"};
    for (int round = 1; round <= kRounds; ++round) {
        const std::string tokens = std::to_string(256 * round);
        const std::string model = "model-" + std::to_string(round);
        const std::string provider = providers[round % 2];
        auto set = inTurn({{"set", "max-tokens", tokens}});
        auto use = inTurn({{"use", provider, "--model", model}});
        const auto setOutcome = set.get().front();
        const auto useOutcome = use.get().front();
        ASSERT_EQ(setOutcome.exitCode, 0) << setOutcome.err;
        ASSERT_EQ(useOutcome.exitCode, 0) << useOutcome.err;

        SCOPED_TRACE("round " + std::to_string(round));
        const auto saved = decodePersistedSettings(readFile(storage() / "settings.json"));
        EXPECT_EQ(saved.maxTokens, 256 * round);
        EXPECT_EQ(std::string(storageID(saved.provider)), provider);
        EXPECT_EQ(saved.model, model);
        ASSERT_TRUE(saved.profiles.has_value());
        EXPECT_EQ(saved.profiles->at(provider).model, model);
        if (round > 1)
            EXPECT_EQ(saved.profiles->at(providers[(round + 1) % 2]).model,
                      "model-" + std::to_string(round - 1));
    }
}

TEST_F(SharedStorage, ALongLivedCoachAndOneShotAsksKeepEveryQuestion) {
    constexpr int kRounds = 8;
    CoachSettingsStore::Options options;
    options.secretStore = std::make_shared<InMemorySecretStore>();
    options.storageRoot = dataFolder();
    CoachSettingsStore store("com.brindlewood.sagely", "coach-api-key", options);
    auto executor = std::make_shared<ManualExecutor>();
    AICoach coach(executor, nullptr, &store, "cli", [](const std::string& question) {
        return std::optional(
            CoachLocalActionResult{"Answered: " + question, std::nullopt, std::nullopt});
    });
    std::set<std::string> asked;
    for (int round = 0; round < kRounds; ++round) {
        const std::string mine = "Long-lived " + std::to_string(round);
        coach.send(mine);
        asked.insert(mine);
        const std::string oneShot = "One-shot " + std::to_string(round);
        const auto outcome = runSagely({"ask", "--offline", oneShot}, environment);
        EXPECT_TRUE(outcome.exited) << outcome.err;
        asked.insert(oneShot);
    }
    coach.send("Last word");
    asked.insert("Last word");
    coach.waitForPendingSaves();

    EXPECT_EQ(questionsOnDisk("cli"), asked);
    // The coach took in what the one-shot processes added before each of its questions.
    std::set<std::string> inMemory;
    for (const auto& conversation : coach.conversations().get())
        for (const auto& message : conversation.messages())
            if (message.role() == CoachMessage::Role::user) inMemory.insert(message.content());
    EXPECT_EQ(inMemory, asked);
    EXPECT_FALSE(coach.lastSaveFailure().get().has_value());
}

}  // namespace
}  // namespace sagely::testing
