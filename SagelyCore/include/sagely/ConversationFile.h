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
// When the file is still the one this instance last read or wrote (same inode, size and
// modification time: every save replaces the file by a new one), nobody else saved since and
// the merge is the list itself, so nothing is read.
//
// Thread rules: an instance is used by one thread at a time; the static functions have no state
// of their own.
#pragma once

#include <sagely/CoachConversation.h>
#include <sagely/Export.h>
#include <sagely/Uuid.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace sagely {

namespace detail {
struct FileStamp;
}

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
    /// Writes what this host holds, merged under the lock with what others saved meanwhile.
    /// Unlike merge, `conversations` stays as it is and what others added is written without
    /// counting as seen here: `othersChanged` tells whether a pickUp would bring anything in.
    /// Returns the reason when nothing was written.
    std::optional<std::string> write(const std::vector<CoachConversation>& conversations,
                                     bool& othersChanged);
    /// Folds what other hosts saved since this instance last looked into `conversations`
    /// without writing; returns whether the list changed.
    bool pickUp(std::vector<CoachConversation>& conversations);
    /// Whether the file is still the one this instance last read or wrote, with nothing of
    /// other hosts left to pick up.
    bool isUnchangedSinceSeen() const;

    /// The merge itself: `seen` holds, per conversation id, the message ids last seen in the
    /// file. `local` keeps its order; conversations only in `file` go before the first local one
    /// created earlier.
    static std::vector<CoachConversation> merged(const std::vector<CoachConversation>& local,
                                                 const std::vector<CoachConversation>& file,
                                                 const std::map<Uuid, std::set<Uuid>>& seen);

private:
    struct Stamp {
        std::uint64_t device = 0;
        std::uint64_t inode = 0;
        std::uint64_t size = 0;
        std::int64_t modifiedNanoseconds = 0;
        bool operator==(const Stamp&) const = default;
    };
    struct Merge;
    // Kept out of the library's exports: its parameter is an internal type.
    SAGELY_NO_EXPORT static Stamp fromDetail(const detail::FileStamp& stamp);
    std::optional<std::string> mergeAndWrite(const std::vector<CoachConversation>& conversations,
                                             Merge& merge);
    void remember(const std::vector<CoachConversation>& conversations);

    std::filesystem::path m_file;
    // Per conversation id, the message ids last seen in the file, as they were read (shared with
    // the conversations still as they were read): made into sets only for a merge, which is
    // rare, rather than on every read and save.
    std::map<Uuid, std::shared_ptr<const std::vector<Uuid>>> m_seen;
    std::optional<Stamp> m_stamp;  // the file as last read or written; none: look again
};

}  // namespace sagely
