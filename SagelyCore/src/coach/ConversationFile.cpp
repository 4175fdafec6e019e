#include <sagely/ConversationFile.h>

#include <sagely/Log.h>

#include "model/json/ConversationsInPlace.h"
#include "model/json/DataModelAccess.h"
#include "model/json/StoredConversations.h"
#include "support/AtomicFile.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <memory>
#include <string>
#include <system_error>
#include <utility>

namespace sagely {
namespace {

using Seen = std::map<Uuid, std::set<Uuid>>;

bool isMissing(int error) {
    return error == ENOENT || error == ENOTDIR;
}

// Conversations read in the writer's form keep their text in `bytes`, which they share.
std::string decodeFailure(detail::FileBytes bytes, std::vector<CoachConversation>& decoded) {
    try {
        auto shared = std::make_shared<const detail::FileBytes>(std::move(bytes));
        decoded = detail::decodeConversationsInPlace(shared->view(), shared);
        return {};
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "The data couldn\u2019t be read because it isn\u2019t in the correct format.";
    }
}

// What a read found: the list, or why the file must not be replaced (it is unreadable and
// still in its place).
struct FileContent {
    std::vector<CoachConversation> conversations;
    bool found = false;
    std::optional<std::string> keptInPlace;
    detail::FileStamp stamp;  // of the file read, when found
};

// Reads the file; one that cannot be read or decoded is logged and moved aside, since the next
// save would replace it and the history it holds is the user's to recover.
FileContent readKeepingAside(const std::filesystem::path& file) {
    FileContent content;
    detail::FileBytes bytes;
    int error = detail::readWholeFile(file, bytes, &content.stamp);
    if (isMissing(error)) return content;
    std::string failure = error ? detail::describeReadFailure(file, error)
                                : decodeFailure(std::move(bytes), content.conversations);
    if (failure.empty()) {
        content.found = true;
        return content;
    }
    content.conversations.clear();
    log("Failed to load conversations: " + failure);
    if (int moveError = detail::moveAside(file)) {
        content.keptInPlace = "The file \u201C" + file.filename().string() +
                              "\u201D cannot be read and could not be moved aside (" +
                              std::generic_category().message(moveError) +
                              "); it is left as it is and nothing is written over it.";
        log("Failed to save conversations: " + *content.keptInPlace);
    }
    return content;
}

using SeenIds = std::map<Uuid, std::shared_ptr<const std::vector<Uuid>>>;

// A conversation still as it was read tells its message ids without decoding its messages, and
// lends them rather than copying them: a long history has a great many.
SeenIds idsIn(const std::vector<CoachConversation>& conversations) {
    SeenIds seen;
    for (const auto& conversation : conversations) {
        if (const auto& stored = detail::DataModelAccess::sharedStored(conversation)) {
            seen[conversation.id()] =
                std::shared_ptr<const std::vector<Uuid>>(stored, &stored->messageIds);
            continue;
        }
        auto ids = std::make_shared<std::vector<Uuid>>();
        ids->reserve(conversation.messages().size());
        for (const auto& message : conversation.messages()) ids->push_back(message.id());
        seen[conversation.id()] = std::move(ids);
    }
    return seen;
}

Seen asSets(const SeenIds& ids) {
    Seen seen;
    for (const auto& [conversation, messages] : ids)
        seen.emplace(conversation, std::set<Uuid>(messages->begin(), messages->end()));
    return seen;
}

Seen seenIn(const std::vector<CoachConversation>& conversations) {
    return asSets(idsIn(conversations));
}

template <typename Items>
auto findById(const Items& items, const Uuid& id) {
    return std::find_if(items.begin(), items.end(),
                        [&](const auto& item) { return item.id() == id; });
}

// Whether taking in `result` changes what `list` shows: other messages or conversations, another
// order or another title.
bool differs(const std::vector<CoachConversation>& result,
             const std::vector<CoachConversation>& list) {
    if (result.size() != list.size()) return true;
    for (std::size_t i = 0; i < result.size(); ++i) {
        if (result[i].id() != list[i].id() || result[i].title() != list[i].title()) return true;
    }
    return seenIn(result) != seenIn(list);
}

bool addedSince(const CoachConversation& conversation, const std::set<Uuid>& seenMessages) {
    return std::any_of(conversation.messages().begin(), conversation.messages().end(),
                       [&](const CoachMessage& m) { return !seenMessages.count(m.id()); });
}

// Both sides hold the conversation: messages merge by id the way conversations do, and the
// side that changed it last gives the title.
CoachConversation mergedConversation(const CoachConversation& local, const CoachConversation& file,
                                     const std::set<Uuid>& seenMessages) {
    CoachConversation result = local;
    auto& messages = result.messages();
    std::erase_if(messages, [&](const CoachMessage& m) {
        return seenMessages.count(m.id()) &&
               findById(file.messages(), m.id()) == file.messages().end();
    });
    for (const auto& message : file.messages()) {
        if (!seenMessages.count(message.id()) &&
            findById(local.messages(), message.id()) == local.messages().end())
            messages.push_back(message);
    }
    std::stable_sort(
        messages.begin(), messages.end(),
        [](const CoachMessage& a, const CoachMessage& b) { return a.timestamp() < b.timestamp(); });
    if (file.updatedAt() > local.updatedAt()) {
        result.setTitle(file.title());
        result.setUpdatedAt(file.updatedAt());
    }
    return result;
}

// Newest first: one added elsewhere goes before the first conversation created earlier.
void insertByCreation(std::vector<CoachConversation>& list, const CoachConversation& added) {
    auto place = std::find_if(list.begin(), list.end(), [&](const CoachConversation& c) {
        return c.createdAt() < added.createdAt();
    });
    list.insert(place, added);
}

}  // namespace

ConversationFile::Stamp ConversationFile::fromDetail(const detail::FileStamp& stamp) {
    return {stamp.device, stamp.inode, stamp.size, stamp.modifiedNanoseconds};
}

std::vector<CoachConversation> ConversationFile::load(const std::filesystem::path& file) {
    return readKeepingAside(file).conversations;
}

bool ConversationFile::save(const std::filesystem::path& file,
                            const std::vector<CoachConversation>& conversations) {
    detail::EncodedConversations encoded;
    try {
        encoded = detail::encodeConversationsInPieces(conversations);
    } catch (const std::exception& error) {
        log(std::string("Failed to save conversations: ") + error.what());
        return false;
    }
    detail::FileLock lock(file);
    if (int error = detail::replaceFileAtomically(file, encoded.pieces)) {
        log("Failed to save conversations: " + detail::describeWriteFailure(file, error));
        return false;
    }
    return true;
}

ConversationFile::ConversationFile(std::filesystem::path file) : m_file(std::move(file)) {}

// What a save found: the merge with the file, when the file had changed since it was seen.
struct ConversationFile::Merge {
    bool happened = false;
    std::vector<CoachConversation> result;
};

std::vector<CoachConversation> ConversationFile::read() {
    FileContent content = readKeepingAside(m_file);
    m_stamp.reset();
    if (content.found) m_stamp = fromDetail(content.stamp);
    remember(content.conversations);
    return std::move(content.conversations);
}

std::optional<std::string> ConversationFile::mergeAndWrite(
    const std::vector<CoachConversation>& conversations, Merge& merge) {
    detail::FileLock lock(m_file);
    if (!isUnchangedSinceSeen()) {
        FileContent onDisk = readKeepingAside(m_file);
        if (onDisk.keptInPlace) return onDisk.keptInPlace;
        merge.result = merged(conversations, onDisk.conversations, asSets(m_seen));
        merge.happened = true;
    }
    detail::EncodedConversations encoded;
    try {
        encoded =
            detail::encodeConversationsInPieces(merge.happened ? merge.result : conversations);
    } catch (const std::exception& error) {
        log(std::string("Failed to save conversations: ") + error.what());
        return std::string(error.what());
    }
    detail::FileStamp written;
    if (int error = detail::replaceFileAtomically(m_file, encoded.pieces, &written)) {
        std::string failure = detail::describeWriteFailure(m_file, error);
        log("Failed to save conversations: " + failure);
        return failure;
    }
    m_stamp = fromDetail(written);
    return std::nullopt;
}

std::optional<std::string> ConversationFile::merge(std::vector<CoachConversation>& conversations) {
    Merge merge;
    if (auto failure = mergeAndWrite(conversations, merge)) return failure;
    if (merge.happened) conversations = std::move(merge.result);
    remember(conversations);
    return std::nullopt;
}

std::optional<std::string> ConversationFile::write(
    const std::vector<CoachConversation>& conversations, bool& othersChanged) {
    othersChanged = false;
    Merge merge;
    if (auto failure = mergeAndWrite(conversations, merge)) return failure;
    // What others added is in the file but not here: it is not seen yet, so no later save takes
    // it for a deletion, and the next look at the file brings it in.
    othersChanged = merge.happened && differs(merge.result, conversations);
    remember(conversations);
    if (othersChanged) m_stamp.reset();
    return std::nullopt;
}

bool ConversationFile::isUnchangedSinceSeen() const {
    if (!m_stamp) return false;
    auto now = detail::stampOf(m_file);
    return now && fromDetail(*now) == *m_stamp;
}

// Read without the lock: the file is only ever replaced whole, so a read sees one save or the
// next. An unreadable file is left to the next save, which keeps it aside.
bool ConversationFile::pickUp(std::vector<CoachConversation>& conversations) {
    detail::FileBytes bytes;
    detail::FileStamp stamp;
    if (detail::readWholeFile(m_file, bytes, &stamp) != 0) return false;
    std::vector<CoachConversation> onDisk;
    if (!decodeFailure(std::move(bytes), onDisk).empty()) return false;
    std::vector<CoachConversation> result = merged(conversations, onDisk, asSets(m_seen));
    remember(onDisk);
    m_stamp = fromDetail(stamp);
    const bool changed = differs(result, conversations);
    if (changed) conversations = std::move(result);
    return changed;
}

void ConversationFile::remember(const std::vector<CoachConversation>& conversations) {
    m_seen = idsIn(conversations);
}

std::vector<CoachConversation> ConversationFile::merged(const std::vector<CoachConversation>& local,
                                                        const std::vector<CoachConversation>& file,
                                                        const Seen& seen) {
    static const std::set<Uuid> none;
    std::vector<CoachConversation> result;
    result.reserve(local.size() + file.size());
    for (const auto& conversation : local) {
        auto seenHere = seen.find(conversation.id());
        const auto& seenMessages = seenHere == seen.end() ? none : seenHere->second;
        auto there = findById(file, conversation.id());
        if (there != file.end()) {
            result.push_back(mergedConversation(conversation, *there, seenMessages));
        } else if (seenHere == seen.end() || addedSince(conversation, seenMessages)) {
            // New here, or deleted elsewhere while this host added to it: kept.
            result.push_back(conversation);
        }
    }
    for (const auto& conversation : file) {
        if (seen.count(conversation.id()) || findById(local, conversation.id()) != local.end())
            continue;  // deleted here, or merged above
        insertByCreation(result, conversation);
    }
    return result;
}

}  // namespace sagely
