#include <sagely/ConversationFile.h>

#include <sagely/Log.h>

#include "AtomicFile.h"
#include "json/ConversationsInPlace.h"

#include <cerrno>
#include <ctime>
#include <exception>
#include <string>
#include <system_error>

namespace sagely {
namespace {

std::string utcStamp() {
    std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    char stamp[32] = {};
    std::strftime(stamp, sizeof stamp, "%Y%m%dT%H%M%SZ", &utc);
    return stamp;
}

// "<file>.unreadable-<UTC time>", with "-2", "-3", … when an earlier copy of the same second
// is already there: a kept file is never replaced.
std::filesystem::path asideName(const std::filesystem::path& file) {
    std::string base = file.string() + ".unreadable-" + utcStamp();
    std::filesystem::path candidate = base;
    std::error_code ignored;
    for (int n = 2; std::filesystem::exists(std::filesystem::symlink_status(candidate, ignored));
         ++n)
        candidate = base + "-" + std::to_string(n);
    return candidate;
}

// The next save would replace the file; moving it aside first keeps the history it holds for
// the user (or a later version of the kit) to recover.
void moveAside(const std::filesystem::path& file) {
    std::error_code ignored;
    std::filesystem::rename(file, asideName(file), ignored);
}

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

}  // namespace

std::vector<CoachConversation> ConversationFile::load(const std::filesystem::path& file) {
    std::string bytes;
    int error = detail::readWholeFile(file, bytes);
    if (isMissing(error)) return {};
    std::vector<CoachConversation> conversations;
    std::string failure =
        error ? detail::describeReadFailure(file, error) : decodeFailure(bytes, conversations);
    if (failure.empty()) return conversations;
    log("Failed to load conversations: " + failure);
    moveAside(file);
    return {};
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
    if (int error = detail::replaceFileAtomically(file, bytes)) {
        log("Failed to save conversations: " + detail::describeWriteFailure(file, error));
        return false;
    }
    return true;
}

}  // namespace sagely
