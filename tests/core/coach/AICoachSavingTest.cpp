// How the coach saves: on its writer thread, the saves of a burst written once with the latest
// list, everything pending written before the coach is gone, failures published on the main
// thread, nothing lost between two coaches on one file, and a question that costs the main thread
// its conversation rather than the whole history.
#include "support/CoachHarness.h"

#include "support/AtomicFile.h"

#include <sagely/AICoach.h>
#include <sagely/CoachConversation.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace sagely {
namespace {

using namespace std::chrono_literals;
using testing::CoachHarness;

std::optional<CoachLocalActionResult> echo(const std::string& question) {
    return CoachLocalActionResult{"Answer to " + question, std::nullopt, std::nullopt};
}

std::set<std::string> questionsIn(const std::vector<CoachConversation>& conversations) {
    std::set<std::string> questions;
    for (const auto& conversation : conversations)
        for (const auto& message : conversation.messages())
            if (message.role() == CoachMessage::Role::user) questions.insert(message.content());
    return questions;
}

/// Counts the whole-file reads and the replaced files of the conversation file.
struct FileAccessCounter {
    explicit FileAccessCounter(std::filesystem::path file, detail::AtomicWriteFaults faults = {})
        : m_file(std::move(file)) {
        faults.afterRead = [this](const std::filesystem::path& read) {
            if (read == m_file) ++reads;
        };
        faults.afterReplace = [this](const std::filesystem::path& written) {
            if (written == m_file) ++writes;
        };
        m_faults.emplace(std::move(faults));
    }

    std::atomic<int> reads{0};
    std::atomic<int> writes{0};

private:
    std::filesystem::path m_file;
    std::optional<detail::ScopedAtomicWriteFaults> m_faults;
};

class AICoachSavingTest : public ::testing::Test {
protected:
    std::unique_ptr<AICoach> localCoach() {
        CoachHarness::CoachOptions options;
        options.allowsLLMCompletion = false;
        options.resolver = echo;
        return harness.makeCoach(std::move(options));
    }

    CoachHarness harness;
};

TEST_F(AICoachSavingTest, ABurstOfSavesIsWrittenOnceWithTheLatestList) {
    std::promise<void> firstWriteReached;
    std::promise<void> releaseFirstWrite;
    std::shared_future<void> released = releaseFirstWrite.get_future().share();
    std::atomic<bool> first{true};
    detail::AtomicWriteFaults faults;
    faults.beforeRename = [&](const std::filesystem::path&) {
        if (first.exchange(false)) {
            firstWriteReached.set_value();
            released.wait();
        }
        return 0;
    };
    FileAccessCounter counter(harness.conversationFile(), std::move(faults));
    auto coach = localCoach();

    coach->newConversation();
    ASSERT_EQ(firstWriteReached.get_future().wait_for(10s), std::future_status::ready);
    // The writer is busy: everything from here on waits and is written once.
    for (int i = 0; i < 10; ++i) coach->send("Question " + std::to_string(i));
    for (int i = 0; i < 3; ++i) coach->newConversation();
    coach->deleteConversation(coach->conversations().get().back());
    releaseFirstWrite.set_value();
    coach->waitForPendingSaves();

    EXPECT_EQ(counter.writes.load(), 2);
    EXPECT_EQ(harness.savedBytes(), encodeConversations(coach->conversations().get()));
    EXPECT_FALSE(coach->lastSaveFailure().get().has_value());
}

TEST_F(AICoachSavingTest, DestroyingTheCoachWritesWhatIsPending) {
    auto coach = localCoach();
    coach->send("First");
    coach->newConversation();
    coach->send("Second");
    const std::string expected = encodeConversations(coach->conversations().get());
    coach.reset();

    EXPECT_EQ(harness.savedBytes(), expected);
    for (const auto& entry :
         std::filesystem::directory_iterator(harness.conversationFile().parent_path()))
        EXPECT_FALSE(detail::isTemporaryFileName(entry.path().filename().string())) << entry.path();
}

TEST_F(AICoachSavingTest, AFailedSaveIsPublishedOnTheMainThreadAndClearedByTheNextSuccess) {
    auto coach = localCoach();
    const auto mainThread = std::this_thread::get_id();
    std::vector<std::thread::id> notifiedOn;
    auto subscription =
        coach->lastSaveFailure().onDidChange([&](const std::optional<std::string>&) {
            notifiedOn.push_back(std::this_thread::get_id());
        });
    {
        detail::AtomicWriteFaults faults;
        faults.failAfterBytes = 0;  // a full disk
        detail::ScopedAtomicWriteFaults full(std::move(faults));
        coach->send("Will this be kept?");
        // Without waiting: the outcome arrives through the main loop.
        ASSERT_TRUE(harness.runPolling([&] { return coach->lastSaveFailure().get().has_value(); }));
        EXPECT_EQ(*coach->lastSaveFailure().get(),
                  "The file \u201Cmain-conversations.json\u201D couldn\u2019t be saved because "
                  "there isn\u2019t enough space.");
        coach->send("And this?");
        coach->waitForPendingSaves();
        EXPECT_TRUE(coach->lastSaveFailure().get().has_value());
    }
    EXPECT_FALSE(std::filesystem::exists(harness.conversationFile()));

    coach->send("Room again");
    coach->waitForPendingSaves();
    EXPECT_FALSE(coach->lastSaveFailure().get().has_value());
    EXPECT_EQ(questionsIn(harness.savedConversations()),
              (std::set<std::string>{"Will this be kept?", "And this?", "Room again"}));
    ASSERT_FALSE(notifiedOn.empty());
    for (const auto& id : notifiedOn) EXPECT_EQ(id, mainThread);
}

TEST_F(AICoachSavingTest, TwoCoachesOnOneFileLoseNoQuestion) {
    auto first = localCoach();
    auto second = localCoach();
    std::set<std::string> asked;
    for (int round = 0; round < 15; ++round) {
        for (auto* coach : {first.get(), second.get()}) {
            const std::string question =
                (coach == first.get() ? "First " : "Second ") + std::to_string(round);
            coach->send(question);
            asked.insert(question);
        }
        if (round % 4 == 0) first->newConversation();
    }
    first->waitForPendingSaves();
    second->waitForPendingSaves();
    EXPECT_EQ(questionsIn(harness.savedConversations()), asked);

    // The second takes in the first's questions before its next one.
    first->send("Last from the first");
    asked.insert("Last from the first");
    first->waitForPendingSaves();
    second->send("Last from the second");
    asked.insert("Last from the second");
    second->waitForPendingSaves();
    EXPECT_EQ(questionsIn(harness.savedConversations()), asked);
    EXPECT_EQ(questionsIn(second->conversations().get()), asked);
}

TEST_F(AICoachSavingTest, WaitingForSavesTakesInWhatAnotherHostSavedMeanwhile) {
    // Whichever saves first, the other host's question is on disk once both have waited; the
    // first coach has it in memory too, though its main thread ran nothing since.
    auto first = localCoach();
    auto second = localCoach();
    first->send("Mine");
    second->send("Theirs");
    second->waitForPendingSaves();
    first->waitForPendingSaves();
    const std::set<std::string> both = {"Mine", "Theirs"};
    EXPECT_EQ(questionsIn(harness.savedConversations()), both);
    EXPECT_EQ(questionsIn(first->conversations().get()), both);
}

TEST_F(AICoachSavingTest, AQuestionLeavesTheOtherConversationsUncopied) {
    {
        auto writer = localCoach();
        for (int i = 0; i < 3; ++i) {
            writer->newConversation();
            writer->send("Question " + std::to_string(i));
        }
    }
    auto coach = localCoach();
    ASSERT_EQ(coach->conversations().get().size(), 3u);
    const CoachMessage* untouched = coach->conversations().get()[2].messages().data();

    coach->send("Into the current one");

    EXPECT_EQ(coach->conversations().get()[0].messages().back().content(),
              "Answer to Into the current one");
    EXPECT_EQ(coach->conversations().get()[2].messages().data(), untouched);
}

TEST_F(AICoachSavingTest, AQuestionReadsTheFileOnlyWhenAnotherHostSavedToIt) {
    auto coach = localCoach();
    coach->send("Mine");
    coach->waitForPendingSaves();
    FileAccessCounter counter(harness.conversationFile());
    coach->send("Mine again");
    coach->waitForPendingSaves();
    EXPECT_EQ(counter.reads.load(), 0);
    EXPECT_EQ(counter.writes.load(), 1);

    {
        auto other = localCoach();  // a second host: one load, one save
        other->send("Theirs");
    }
    ASSERT_EQ(counter.reads.load(), 1);
    coach->send("Mine once more");
    EXPECT_EQ(counter.reads.load(), 2);  // it took in the other host's question
    EXPECT_TRUE(questionsIn(coach->conversations().get()).count("Theirs"));
}

}  // namespace
}  // namespace sagely
