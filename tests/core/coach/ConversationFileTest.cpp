#include <sagely/ConversationFile.h>

#include <sagely/Error.h>
#include <sagely/Log.h>

#include "support/AtomicFile.h"
#include "support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <regex>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace sagely {
namespace {

namespace fs = std::filesystem;
using testing::readFile;
using testing::TemporaryDirectory;
using testing::writeFile;

// Collects the kit's log lines for the lifetime of the object.
class LogCapture {
public:
    LogCapture() {
        m_previous = setLogSink([this](std::string_view line) { lines.emplace_back(line); });
    }
    ~LogCapture() { setLogSink(m_previous); }
    std::vector<std::string> lines;

private:
    LogSink m_previous;
};

std::vector<CoachConversation> sampleConversations() {
    CoachConversation older("Pairing a speaker");
    older.append(CoachMessage(CoachMessage::Role::user, "How do I pair a speaker?"));
    older.append(CoachMessage(CoachMessage::Role::assistant, "Step 1: Open Settings.\n\"Done\""));
    CoachConversation newer("R\u00e9glages \U0001F50A");
    newer.append(CoachMessage(CoachMessage::Role::user, "Where are the settings?"));
    return {std::move(newer), std::move(older)};  // newest first, as the coach keeps them
}

std::vector<std::string> titles(const std::vector<CoachConversation>& conversations) {
    std::vector<std::string> result;
    for (const CoachConversation& conversation : conversations)
        result.push_back(conversation.title());
    return result;
}

std::string decodeErrorText(const std::string& bytes) {
    try {
        decodeConversations(bytes);
    } catch (const std::exception& error) {
        return error.what();
    }
    return "decoded";
}

class ConversationFileTest : public ::testing::Test {
protected:
    fs::path file() const { return m_folder.path() / "main-conversations.json"; }
    const fs::path& folder() const { return m_folder.path(); }

    std::vector<std::string> entries() const {
        std::vector<std::string> names;
        // The lock file beside the file stays by design: removing it would race other hosts.
        for (const auto& entry : fs::directory_iterator(folder())) {
            std::string name = entry.path().filename().string();
            if (!name.ends_with(".lock")) names.push_back(std::move(name));
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    LogCapture log;

private:
    TemporaryDirectory m_folder;
};

const std::regex kAsideName(R"(main-conversations\.json\.unreadable-\d{8}T\d{6}Z)");

TEST_F(ConversationFileTest, AMissingFileLoadsAsNoConversationsSilently) {
    EXPECT_TRUE(ConversationFile::load(file()).empty());
    EXPECT_TRUE(log.lines.empty());
    EXPECT_TRUE(entries().empty());
}

// A load needs the file and what it decodes to, not a buffer grown past the file's size.
TEST_F(ConversationFileTest, AFileIsReadIntoABufferOfItsSize) {
    const std::string content(3'000'000, 'x');
    writeFile(file(), content);
    std::string bytes;
    detail::FileStamp stamp;
    ASSERT_EQ(detail::readWholeFile(file(), bytes, &stamp), 0);
    EXPECT_EQ(bytes, content);
    EXPECT_LE(bytes.capacity(), content.size() + 4096);
    EXPECT_EQ(stamp.size, content.size());
    EXPECT_EQ(detail::stampOf(file()), stamp);
}

TEST_F(ConversationFileTest, ASaveByAnotherHostIsNoticedAndMergedEvenWhenNothingElseChanged) {
    CoachConversation mine("Mine");
    mine.append(CoachMessage(CoachMessage::Role::user, "Mine"));
    ConversationFile here(file());
    std::vector<CoachConversation> list{mine};
    ASSERT_FALSE(here.merge(list).has_value());
    EXPECT_TRUE(here.isUnchangedSinceSeen());

    ConversationFile there(file());
    auto theirs = there.read();
    theirs[0].append(CoachMessage(CoachMessage::Role::user, "Theirs"));
    ASSERT_FALSE(there.merge(theirs).has_value());
    EXPECT_FALSE(here.isUnchangedSinceSeen());

    // Written without being taken in: the file keeps both, the list stays as it was.
    bool othersChanged = false;
    ASSERT_FALSE(here.write(list, othersChanged).has_value());
    EXPECT_TRUE(othersChanged);
    EXPECT_EQ(list[0].messages().size(), 1u);
    EXPECT_EQ(ConversationFile::load(file())[0].messages().size(), 2u);
    ASSERT_FALSE(here.write(list, othersChanged).has_value());  // still not a deletion here
    EXPECT_EQ(ConversationFile::load(file())[0].messages().size(), 2u);
    EXPECT_TRUE(here.pickUp(list));
    EXPECT_EQ(list[0].messages().size(), 2u);
    EXPECT_TRUE(here.isUnchangedSinceSeen());
}

TEST_F(ConversationFileTest, AFileHoldingAnEmptyArrayLoadsAsAnEmptyList) {
    writeFile(file(), "[]");
    EXPECT_TRUE(ConversationFile::load(file()).empty());
    EXPECT_TRUE(log.lines.empty());
    EXPECT_EQ(readFile(file()), "[]");
}

TEST_F(ConversationFileTest, SavesTheWholeListAsOneCompactArrayNewestFirst) {
    std::vector<CoachConversation> conversations = sampleConversations();
    ASSERT_TRUE(ConversationFile::save(file(), conversations));
    const std::string bytes = readFile(file());
    EXPECT_EQ(bytes, encodeConversations(conversations));
    EXPECT_EQ(bytes.front(), '[');
    EXPECT_EQ(bytes.find('\n'), std::string::npos);  // compact: line breaks only as escapes
    EXPECT_EQ(entries(), std::vector<std::string>{"main-conversations.json"});
    EXPECT_TRUE(log.lines.empty());
}

TEST_F(ConversationFileTest, ASavedListLoadsBackInOrderWithItsMessages) {
    std::vector<CoachConversation> conversations = sampleConversations();
    ASSERT_TRUE(ConversationFile::save(file(), conversations));
    std::vector<CoachConversation> loaded = ConversationFile::load(file());
    ASSERT_EQ(loaded.size(), 2u);
    EXPECT_EQ(titles(loaded), titles(conversations));
    EXPECT_EQ(loaded[1].id(), conversations[1].id());
    ASSERT_EQ(loaded[1].messages().size(), 2u);
    EXPECT_EQ(loaded[1].messages()[1].content(), "Step 1: Open Settings.\n\"Done\"");
    EXPECT_EQ(loaded[1].createdAt(), conversations[1].createdAt());
    EXPECT_EQ(encodeConversations(loaded), encodeConversations(conversations));
}

TEST_F(ConversationFileTest, DeletingTheLastConversationWritesAnEmptyArray) {
    ASSERT_TRUE(ConversationFile::save(file(), sampleConversations()));
    ASSERT_TRUE(ConversationFile::save(file(), {}));
    EXPECT_EQ(readFile(file()), "[]");
}

TEST_F(ConversationFileTest, OneMalformedConversationFailsTheWholeLoadAndTheFileIsKeptAside) {
    std::string good = encodeConversations(sampleConversations());
    std::string bad = good.substr(0, good.size() - 1) + R"(,{"id":"nope","title":"x"}])";
    writeFile(file(), bad);

    EXPECT_TRUE(ConversationFile::load(file()).empty());

    EXPECT_EQ(log.lines, std::vector<std::string>{"[Sagely] Failed to load conversations: " +
                                                  decodeErrorText(bad)});
    std::vector<std::string> names = entries();
    ASSERT_EQ(names.size(), 1u);
    EXPECT_TRUE(std::regex_match(names[0], kAsideName)) << names[0];
    EXPECT_EQ(readFile(folder() / names[0]), bad);
}

TEST_F(ConversationFileTest, AFileCutOffMidwayIsKeptAsideAndTheNextSaveStartsAfresh) {
    std::string whole = encodeConversations(sampleConversations());
    std::string cut = whole.substr(0, whole.size() / 2);
    writeFile(file(), cut);

    EXPECT_TRUE(ConversationFile::load(file()).empty());
    ASSERT_EQ(log.lines.size(), 1u);
    EXPECT_EQ(log.lines[0].rfind("[Sagely] Failed to load conversations: ", 0), 0u);

    std::vector<CoachConversation> fresh;
    fresh.emplace_back("New start");
    ASSERT_TRUE(ConversationFile::save(file(), fresh));
    std::vector<std::string> names = entries();
    ASSERT_EQ(names.size(), 2u);
    EXPECT_EQ(names[0], "main-conversations.json");
    EXPECT_TRUE(std::regex_match(names[1], kAsideName)) << names[1];
    EXPECT_EQ(readFile(folder() / names[1]), cut);
    EXPECT_EQ(titles(ConversationFile::load(file())), std::vector<std::string>{"New start"});
}

TEST_F(ConversationFileTest, TwoUnreadableFilesInOneSecondAreBothKept) {
    writeFile(file(), "{");
    ConversationFile::load(file());
    writeFile(file(), "[1]");
    ConversationFile::load(file());
    std::vector<std::string> names = entries();
    ASSERT_EQ(names.size(), 2u);
    std::vector<std::string> contents{readFile(folder() / names[0]), readFile(folder() / names[1])};
    std::sort(contents.begin(), contents.end());
    EXPECT_EQ(contents, (std::vector<std::string>{"[1]", "{"}));
    EXPECT_EQ(log.lines.size(), 2u);
}

TEST_F(ConversationFileTest, AFolderInThePlaceOfTheFileIsReportedAndMovedAside) {
    fs::create_directory(file());
    EXPECT_TRUE(ConversationFile::load(file()).empty());
    EXPECT_EQ(log.lines, std::vector<std::string>{
                             "[Sagely] Failed to load conversations: The file "
                             "\u201Cmain-conversations.json\u201D couldn\u2019t be opened. (" +
                             std::generic_category().message(EISDIR) + ")"});
    EXPECT_FALSE(fs::exists(file()));
    EXPECT_TRUE(ConversationFile::save(file(), {}));
}

TEST_F(ConversationFileTest, AFailureBetweenWritingAndRenamingLeavesTheOldFileWhole) {
    std::vector<CoachConversation> old = sampleConversations();
    ASSERT_TRUE(ConversationFile::save(file(), old));
    const std::string oldBytes = readFile(file());
    std::vector<CoachConversation> next = sampleConversations();
    next.emplace_back("Another");
    std::string temporaryBytes;
    std::string fileAtThatMoment;
    detail::ScopedAtomicWriteFaults faults({[&](const fs::path& temporary) {
                                                temporaryBytes = readFile(temporary);
                                                fileAtThatMoment = readFile(file());
                                                return EIO;
                                            },
                                            std::nullopt});

    EXPECT_FALSE(ConversationFile::save(file(), next));

    EXPECT_EQ(temporaryBytes, encodeConversations(next));  // the new file was whole on disk
    EXPECT_EQ(fileAtThatMoment, oldBytes);
    EXPECT_EQ(readFile(file()), oldBytes);
    EXPECT_EQ(entries(), std::vector<std::string>{"main-conversations.json"});
    EXPECT_EQ(
        log.lines,
        std::vector<std::string>{
            "[Sagely] Failed to save conversations: The file "
            "\u201Cmain-conversations.json\u201D couldn\u2019t be saved in the folder \u201C" +
            folder().filename().string() + "\u201D. (" + std::generic_category().message(EIO) +
            ")"});
}

TEST_F(ConversationFileTest, AFullDiskAtAnyByteLeavesTheOldFileWhole) {
    ASSERT_TRUE(ConversationFile::save(file(), sampleConversations()));
    const std::string oldBytes = readFile(file());
    std::vector<CoachConversation> next = sampleConversations();
    const std::size_t size = encodeConversations(next).size();
    for (std::size_t limit : {std::size_t{0}, std::size_t{1}, size / 2, size - 1}) {
        SCOPED_TRACE(limit);
        log.lines.clear();
        detail::ScopedAtomicWriteFaults faults({{}, limit});
        EXPECT_FALSE(ConversationFile::save(file(), next));
        EXPECT_EQ(readFile(file()), oldBytes);
        EXPECT_EQ(entries(), std::vector<std::string>{"main-conversations.json"});
        EXPECT_EQ(log.lines, std::vector<std::string>{
                                 "[Sagely] Failed to save conversations: The file "
                                 "\u201Cmain-conversations.json\u201D couldn\u2019t be saved "
                                 "because there isn\u2019t enough space."});
    }
    detail::ScopedAtomicWriteFaults exactlyEnough({{}, size});
    EXPECT_TRUE(ConversationFile::save(file(), next));
    EXPECT_EQ(readFile(file()), encodeConversations(next));
}

TEST_F(ConversationFileTest, SavingIntoAMissingFolderIsReportedEachTime) {
    fs::path missing = folder() / "gone" / "main-conversations.json";
    EXPECT_FALSE(ConversationFile::save(missing, sampleConversations()));
    EXPECT_FALSE(ConversationFile::save(missing, sampleConversations()));
    const std::string line =
        "[Sagely] Failed to save conversations: The folder \u201Cgone\u201D doesn\u2019t exist.";
    EXPECT_EQ(log.lines, (std::vector<std::string>{line, line}));
}

TEST_F(ConversationFileTest, AnUnwritableFolderIsReportedOnEachAttempt) {
    // A plain file where the folder should be: no temporary file can be made there, whoever runs.
    writeFile(folder() / "occupied", "x");
    fs::path file = folder() / "occupied" / "main-conversations.json";
    std::vector<CoachConversation> conversations = sampleConversations();
    EXPECT_FALSE(ConversationFile::save(file, conversations));
    EXPECT_FALSE(ConversationFile::save(file, conversations));
    const std::string line =
        "[Sagely] Failed to save conversations: The file \u201Cmain-conversations.json\u201D "
        "couldn\u2019t be saved in the folder \u201Coccupied\u201D. (" +
        std::generic_category().message(ENOTDIR) + ")";
    EXPECT_EQ(log.lines, (std::vector<std::string>{line, line}));
    EXPECT_EQ(conversations.size(), 2u);
    EXPECT_EQ(readFile(folder() / "occupied"), "x");
}

TEST_F(ConversationFileTest, WriteFailuresAreDescribedInTheUsersWords) {
    const std::string name = "\u201Cmain-conversations.json\u201D";
    const std::string in = " in the folder \u201C" + folder().filename().string() + "\u201D";
    const std::vector<std::pair<int, std::string>> cases{
        {EACCES, "You don\u2019t have permission to save the file " + name + in + "."},
        {EPERM, "You don\u2019t have permission to save the file " + name + in + "."},
        {ENOSPC,
         "The file " + name + " couldn\u2019t be saved because there isn\u2019t enough space."},
        {EDQUOT,
         "The file " + name + " couldn\u2019t be saved because there isn\u2019t enough space."},
        {EROFS, "The file " + name + " couldn\u2019t be saved because the volume is read only."},
    };
    for (const auto& [error, description] : cases) {
        SCOPED_TRACE(error);
        log.lines.clear();
        detail::ScopedAtomicWriteFaults faults(
            {[error = error](const fs::path&) { return error; }, std::nullopt});
        EXPECT_FALSE(ConversationFile::save(file(), {}));
        EXPECT_EQ(log.lines, std::vector<std::string>{"[Sagely] Failed to save conversations: " +
                                                      description});
    }
    EXPECT_TRUE(entries().empty());
}

TEST_F(ConversationFileTest, TheSavedFileIsPrivateToTheUser) {
    ASSERT_TRUE(ConversationFile::save(file(), sampleConversations()));
    EXPECT_EQ(fs::status(file()).permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
}

// --- Several hosts on one file ---

std::vector<std::string> contents(const CoachConversation& conversation) {
    std::vector<std::string> result;
    for (const CoachMessage& message : conversation.messages()) result.push_back(message.content());
    return result;
}

TEST_F(ConversationFileTest, TwoHostsSavingInTurnKeepEachOthersAdditions) {
    ASSERT_TRUE(ConversationFile::save(file(), sampleConversations()));
    ConversationFile first(file()), second(file());
    auto mine = first.read();
    auto theirs = second.read();

    mine.front().append(CoachMessage(CoachMessage::Role::user, "first asks"));
    theirs.front().append(CoachMessage(CoachMessage::Role::user, "second asks"));
    theirs.insert(theirs.begin(), CoachConversation("Started by the second"));
    ASSERT_FALSE(first.merge(mine).has_value());
    ASSERT_FALSE(second.merge(theirs).has_value());

    auto onDisk = ConversationFile::load(file());
    EXPECT_EQ(titles(onDisk),
              (std::vector<std::string>{"Started by the second", "R\u00e9glages \U0001F50A",
                                        "Pairing a speaker"}));
    EXPECT_EQ(contents(onDisk[1]),
              (std::vector<std::string>{"Where are the settings?", "first asks", "second asks"}));
    // The second host now holds the merged list too.
    EXPECT_EQ(titles(theirs), titles(onDisk));
    EXPECT_EQ(contents(theirs[1]), contents(onDisk[1]));
}

TEST_F(ConversationFileTest, ADeletionHereStaysDeletedAndAnAdditionThereIsKept) {
    ASSERT_TRUE(ConversationFile::save(file(), sampleConversations()));
    ConversationFile first(file()), second(file());
    auto mine = first.read();
    auto theirs = second.read();

    mine.erase(mine.begin() + 1);  // "Pairing a speaker", deleted here
    ASSERT_FALSE(first.merge(mine).has_value());
    theirs.insert(theirs.begin(), CoachConversation("Added there"));
    ASSERT_FALSE(second.merge(theirs).has_value());  // still lists the deleted one
    EXPECT_EQ(titles(ConversationFile::load(file())),
              (std::vector<std::string>{"Added there", "R\u00e9glages \U0001F50A"}));

    EXPECT_TRUE(first.pickUp(mine));
    EXPECT_EQ(titles(mine), (std::vector<std::string>{"Added there", "R\u00e9glages \U0001F50A"}));
    EXPECT_FALSE(first.pickUp(mine));  // nothing new since
}

// After a save, the conversations that did not change keep the ids seen with them: what another
// host adds to them or deletes later still merges as such.
TEST_F(ConversationFileTest, ConversationsLeftAsTheyWereReadStaySeenAcrossSaves) {
    CoachConversation third("Third");
    third.append(CoachMessage(CoachMessage::Role::user, "A third"));
    auto saved = sampleConversations();
    saved.push_back(third);
    ASSERT_TRUE(ConversationFile::save(file(), saved));
    ConversationFile first(file()), second(file());
    auto mine = first.read();
    bool othersChanged = false;
    for (const char* question : {"first asks", "first asks again"}) {
        mine.front().append(CoachMessage(CoachMessage::Role::user, question));
        ASSERT_FALSE(first.write(mine, othersChanged).has_value());
        EXPECT_FALSE(othersChanged);
    }

    auto theirs = second.read();
    theirs[1].append(CoachMessage(CoachMessage::Role::user, "second asks"));
    theirs.pop_back();  // "Third", deleted there
    ASSERT_FALSE(second.merge(theirs).has_value());

    mine.front().append(CoachMessage(CoachMessage::Role::user, "first asks once more"));
    ASSERT_FALSE(first.write(mine, othersChanged).has_value());
    EXPECT_TRUE(othersChanged);
    auto onDisk = ConversationFile::load(file());
    EXPECT_EQ(titles(onDisk),
              (std::vector<std::string>{"R\u00e9glages \U0001F50A", "Pairing a speaker"}));
    EXPECT_EQ(contents(onDisk[0]),
              (std::vector<std::string>{"Where are the settings?", "first asks", "first asks again",
                                        "first asks once more"}));
    EXPECT_EQ(contents(onDisk[1]),
              (std::vector<std::string>{"How do I pair a speaker?",
                                        "Step 1: Open Settings.\n\"Done\"", "second asks"}));
    EXPECT_TRUE(first.pickUp(mine));
    EXPECT_EQ(titles(mine), titles(onDisk));
    EXPECT_EQ(contents(mine[1]), contents(onDisk[1]));
}

TEST_F(ConversationFileTest, AnUnreadableFileThatCannotBeMovedAsideIsNeverWrittenOver) {
    // A name at the file system's limit: the aside name would be longer still.
    const fs::path longFile = folder() / (std::string(230, 'n') + "-conversations.json");
    writeFile(longFile, "[{\"cut\":");
    ConversationFile history(longFile);
    EXPECT_TRUE(history.read().empty());
    auto list = sampleConversations();
    auto failure = history.merge(list);
    ASSERT_TRUE(failure.has_value());
    EXPECT_NE(failure->find("could not be moved aside"), std::string::npos) << *failure;
    EXPECT_EQ(readFile(longFile), "[{\"cut\":");
}

}  // namespace
}  // namespace sagely
