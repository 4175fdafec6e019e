// ConversationFile — reading and writing one namespace's conversation list.
//
// The file is a compact JSON array of conversations, newest first. Saving writes a temporary
// file in the same folder, flushes it to disk and renames it over the old one, so a crash or a
// full disk leaves either the old or the new file whole. A file that cannot be read or decoded
// is never destroyed: it is moved aside to "<file>.unreadable-<UTC time>" and the list starts
// empty. Failures are logged ("[Sagely] Failed to load conversations: …", "[Sagely] Failed to
// save conversations: …") and never thrown. The caller decides whether persistence is allowed.
//
// Thread rules: no state of its own; any thread may call, but calls for one file must not overlap
// (the coach makes them on the main thread).
#pragma once

#include <sagely/CoachConversation.h>
#include <sagely/Export.h>

#include <filesystem>
#include <vector>

namespace sagely {

struct SAGELY_EXPORT ConversationFile {
    /// The saved list; empty when there is no file (silently) or it is unreadable (logged, moved
    /// aside).
    static std::vector<CoachConversation> load(const std::filesystem::path& file);
    /// Replaces the file with the list; returns whether it was written.
    static bool save(const std::filesystem::path& file,
                     const std::vector<CoachConversation>& conversations);
};

}  // namespace sagely
