#include <sagely/ConversationFile.h>

#include <sagely/Log.h>

#include "model/json/ConversationsInPlace.h"
#include "support/AtomicFile.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <string>
#include <system_error>
#include <utility>

namespace sagely {
namespace {

using Seen = std::map<Uuid, std::set<Uuid>>;

bool isMissing(int error) {
    return error == ENOENT || error == ENOTDIR;
}

std::string decodeFailure(const std::string& bytes, std::vector<CoachConversation>& decoded) {
    try {
        decoded = detail::decodeConversationsInPlace(bytes);
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
};

// Reads the file; one that cannot be read or decoded is logged and moved aside, since the next
// save would replace it and the history it holds is the user's to recover.
FileContent readKeepingAside(const std::filesystem::path& file) {
    FileContent content;
    std::string bytes;
    int error = detail::readWholeFile(file, bytes);
    if (isMissing(error)) return content;
    std::string failure = error ? detail::describeReadFailure(file, error)
                                : decodeFailure(bytes, content.conversations);
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

Seen seenIn(const std::vector<CoachConversation>& conversations) {
    Seen seen;
    for (const auto& conversation : conversations) {
        auto& ids = seen[conversation.id()];
        for (const auto& message : conversation.messages()) ids.insert(message.id());
    }
    return seen;
}

template <typename Items>
auto findById(const Items& items, const Uuid& id) {
    return std::find_if(items.begin(), items.end(),
                        [&](const auto& item) { return item.id() == id; });
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

std::vector<CoachConversation> ConversationFile::load(const std::filesystem::path& file) {
    return readKeepingAside(file).conversations;
}

bool ConversationFile::save(const std::filesystem::path& file,
                            const std::vector<CoachConversation>& conversations) {
    std::string bytes;
    try {
        bytes = encodeConversations(conversations);
    } catch (const std::exception& error) {
        log(std::string("Failed to save conversations: ") + error.what());
        return false;
    }
    detail::FileLock lock(file);
    if (int error = detail::replaceFileAtomically(file, bytes)) {
        log("Failed to save conversations: " + detail::describeWriteFailure(file, error));
        return false;
    }
    return true;
}

ConversationFile::ConversationFile(std::filesystem::path file) : m_file(std::move(file)) {}

std::vector<CoachConversation> ConversationFile::read() {
    auto conversations = readKeepingAside(m_file).conversations;
    remember(conversations);
    return conversations;
}

std::optional<std::string> ConversationFile::merge(std::vector<CoachConversation>& conversations) {
    detail::FileLock lock(m_file);
    FileContent onDisk = readKeepingAside(m_file);
    if (onDisk.keptInPlace) return onDisk.keptInPlace;
    std::vector<CoachConversation> result = merged(conversations, onDisk.conversations, m_seen);
    std::string bytes;
    try {
        bytes = encodeConversations(result);
    } catch (const std::exception& error) {
        log(std::string("Failed to save conversations: ") + error.what());
        return std::string(error.what());
    }
    if (int error = detail::replaceFileAtomically(m_file, bytes)) {
        std::string failure = detail::describeWriteFailure(m_file, error);
        log("Failed to save conversations: " + failure);
        return failure;
    }
    remember(result);
    conversations = std::move(result);
    return std::nullopt;
}

// Read without the lock: the file is only ever replaced whole, so a read sees one save or the
// next. An unreadable file is left to the next save, which keeps it aside.
bool ConversationFile::pickUp(std::vector<CoachConversation>& conversations) {
    std::string bytes;
    if (detail::readWholeFile(m_file, bytes) != 0) return false;
    std::vector<CoachConversation> onDisk;
    if (!decodeFailure(bytes, onDisk).empty()) return false;
    std::vector<CoachConversation> result = merged(conversations, onDisk, m_seen);
    remember(onDisk);
    bool changed = seenIn(result) != seenIn(conversations);
    if (!changed) {
        for (std::size_t i = 0; i < result.size() && !changed; ++i)
            changed = result[i].id() != conversations[i].id() ||
                      result[i].title() != conversations[i].title();
    }
    if (changed) conversations = std::move(result);
    return changed;
}

void ConversationFile::remember(const std::vector<CoachConversation>& conversations) {
    m_seen = seenIn(conversations);
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
