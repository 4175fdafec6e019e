// ConversationWriter — writes a coach's conversation file on a thread of its own, so that a
// save costs the main thread the change it made, never the whole history.
//
// The writer keeps its own copy of the coach's list, brought up to date by the same changes the
// coach makes to its own (a conversation inserted, replaced or removed; the whole list only after
// a load or a merge with other hosts), each carrying only the conversation it touches. A save
// asks for the list as it stands to reach the disk; saves asked for while one is waiting or
// being written are written once, with the latest list. Each write is ConversationFile::write:
// under the lock beside the file, merged with what other hosts saved, to a temporary file that
// is flushed and renamed over the old one. Its outcome goes to `report` on the writer's thread.
//
// Thread rules: everything but `report` is called on the coach's thread (the main thread).
// pickUp and isUnchangedSinceSeen never wait for a write under way: while one is, they do not
// look at the file (the write itself reports what other hosts added).
#pragma once

#include <sagely/CoachConversation.h>
#include <sagely/ConversationFile.h>
#include <sagely/Uuid.h>

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <variant>
#include <vector>

namespace sagely::detail {

class ConversationWriter {
public:
    /// Called on the writer's thread after each write (see lastFailure), with whether the file
    /// now holds what other hosts added that the coach has not taken in.
    using Report = std::function<void(bool othersChanged)>;

    ConversationWriter(std::filesystem::path file, Report report);
    /// Writes what was asked for and not written yet, then ends the thread.
    ~ConversationWriter();
    ConversationWriter(const ConversationWriter&) = delete;
    ConversationWriter& operator=(const ConversationWriter&) = delete;

    /// Reads the file (once, before any change) and starts the writer's copy from it.
    std::vector<CoachConversation> load();

    // The coach's changes to its list, in the order it makes them.
    void replaceAll(const std::vector<CoachConversation>& list);
    void insertFirst(const CoachConversation& conversation);
    void replace(const CoachConversation& conversation);
    void remove(const Uuid& id);

    /// Asks for the list as it stands now to be written; returns at once.
    void save();
    /// Waits until every save asked for so far is written (or has failed); returns the outcome
    /// of the last write. Writers still alive when the process exits normally are waited for
    /// then too.
    std::optional<std::string> waitForPendingSaves();
    /// Why the last write failed; none when it succeeded or nothing was written yet.
    std::optional<std::string> lastFailure();

    /// When the file changed since it was last read or written, `merged` receives `list` with
    /// what other hosts saved folded in, and the writer's copy follows. False (and nothing
    /// copied) when nothing changed or a write is under way.
    bool pickUp(const std::vector<CoachConversation>& list, std::vector<CoachConversation>& merged);

private:
    struct Insert {
        CoachConversation conversation;
    };
    struct Replace {
        CoachConversation conversation;
    };
    struct Remove {
        Uuid id;
    };
    struct ReplaceAll {
        std::vector<CoachConversation> list;
    };
    using Change = std::variant<Insert, Replace, Remove, ReplaceAll>;

    void add(Change change);
    void run();
    void writePending();
    void apply(std::vector<Change>& changes);

    Report m_report;

    // Used by the writer's thread while it writes, and by pickUp when no write is under way.
    std::mutex m_fileMutex;
    ConversationFile m_file;
    std::vector<CoachConversation> m_list;  // the coach's list as of the changes applied

    std::mutex m_mutex;  // guards what follows
    std::condition_variable m_changed;
    std::vector<Change> m_pending;
    std::uint64_t m_asked = 0;    // saves asked for
    std::uint64_t m_written = 0;  // saves written or failed
    bool m_hurry = false;         // someone waits: no gathering of a burst
    bool m_stopping = false;
    std::optional<std::string> m_lastFailure;
    std::thread m_thread;  // started by the first save
};

}  // namespace sagely::detail
