// ConversationFile — reading and writing one namespace's conversation list, shared by every host
// of the kit on the machine.
//
// The file is a compact JSON array of conversations, newest first. Saving writes a temporary
// file in the same folder, flushes it to disk and renames it over the old one, so a crash or a
// full disk leaves either the old or the new file whole. A file that cannot be read or decoded
// is never destroyed: it is moved aside to "<file>.unreadable-<UTC time>" and the list starts
// empty; when it cannot be moved aside, nothing overwrites it (the caller goes on in memory).
// Failures are logged ("[Sagely] Failed to load conversations: …", "[Sagely] Failed to save
// conversations: …") and never thrown. The caller decides whether persistence is allowed.
//
// Several hosts may use one file at once. An instance remembers which conversations and
// messages it last saw in the file; a save takes the advisory lock beside the file, reads what
// is there and merges by id: what was seen and is gone here was deleted here and stays deleted,
// what is in the file and was never seen was added elsewhere and is kept (and the other way
// round for the file's side). Messages are kept in time order. A merge drops none: the cap of a
// conversation is the coach's, applied when a model's reply is appended, never to a local answer.
//
// Thread rules: an instance is used by one thread at a time; the static functions have no state
// of their own.
#pragma once

#include <sagely/CoachConversation.h>
#include <sagely/Export.h>
#include <sagely/Uuid.h>

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace sagely {

class SAGELY_EXPORT ConversationFile {
public:
    /// The saved list; empty when there is no file (silently) or it is unreadable (logged, moved
    /// aside).
    static std::vector<CoachConversation> load(const std::filesystem::path& file);
    /// Replaces the file with the list, under the lock, without merging; returns whether it was
    /// written.
    static bool save(const std::filesystem::path& file,
                     const std::vector<CoachConversation>& conversations);

    explicit ConversationFile(std::filesystem::path file);

    const std::filesystem::path& path() const { return m_file; }
    /// As the static load, and remembers what it read.
    std::vector<CoachConversation> read();
    /// Merges `conversations` with the file under its lock and writes the result; on success
    /// `conversations` becomes the list written. Returns the reason when nothing was written.
    std::optional<std::string> merge(std::vector<CoachConversation>& conversations);
    /// Folds what other hosts saved since this instance last looked into `conversations`
    /// without writing; returns whether the list changed.
    bool pickUp(std::vector<CoachConversation>& conversations);

    /// The merge itself: `seen` holds, per conversation id, the message ids last seen in the
    /// file. `local` keeps its order; conversations only in `file` go before the first local one
    /// created earlier.
    static std::vector<CoachConversation> merged(const std::vector<CoachConversation>& local,
                                                 const std::vector<CoachConversation>& file,
                                                 const std::map<Uuid, std::set<Uuid>>& seen);

private:
    void remember(const std::vector<CoachConversation>& conversations);

    std::filesystem::path m_file;
    std::map<Uuid, std::set<Uuid>> m_seen;
};

}  // namespace sagely
