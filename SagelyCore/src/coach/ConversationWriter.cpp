#include "coach/ConversationWriter.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <exception>
#include <set>
#include <utility>

namespace sagely::detail {
namespace {

// How long the writer waits after a save is asked for, so that the saves of one burst (a
// question and its local answer, several deletions) are written once.
constexpr std::chrono::milliseconds kBurst{30};

// The writers alive, so that a process that ends without destroying its coaches still writes
// what they were asked to save.
struct LiveWriters {
    std::mutex mutex;
    std::set<ConversationWriter*> writers;
};

LiveWriters& liveWriters() {
    static LiveWriters* live = [] {
        auto* created = new LiveWriters;  // never destroyed: the exit handler may still use it
        std::atexit([] {
            auto& state = liveWriters();
            std::lock_guard lock(state.mutex);
            for (auto* writer : state.writers) writer->waitForPendingSaves();
        });
        return created;
    }();
    return *live;
}

template <typename Conversations>
auto findById(Conversations& list, const Uuid& id) {
    return std::find_if(list.begin(), list.end(),
                        [&](const CoachConversation& c) { return c.id() == id; });
}

}  // namespace

ConversationWriter::ConversationWriter(std::filesystem::path file, Report report)
    : m_report(std::move(report)), m_file(std::move(file)) {
    auto& live = liveWriters();
    std::lock_guard lock(live.mutex);
    live.writers.insert(this);
}

ConversationWriter::~ConversationWriter() {
    {
        auto& live = liveWriters();
        std::lock_guard lock(live.mutex);
        live.writers.erase(this);
    }
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    if (m_thread.joinable()) m_thread.join();
}

std::vector<CoachConversation> ConversationWriter::load() {
    std::lock_guard lock(m_fileMutex);
    m_list = m_file.read();
    return m_list;
}

void ConversationWriter::replaceAll(const std::vector<CoachConversation>& list) {
    add(ReplaceAll{list});
}

void ConversationWriter::insertFirst(const CoachConversation& conversation) {
    add(Insert{conversation});
}

// A conversation replaced twice in a row is copied to the writer once.
void ConversationWriter::replace(const CoachConversation& conversation) {
    std::lock_guard lock(m_mutex);
    if (!m_pending.empty()) {
        if (auto* last = std::get_if<Replace>(&m_pending.back());
            last && last->conversation.id() == conversation.id()) {
            last->conversation = conversation;
            return;
        }
    }
    m_pending.push_back(Replace{conversation});
}

void ConversationWriter::remove(const Uuid& id) {
    add(Remove{id});
}

void ConversationWriter::add(Change change) {
    std::lock_guard lock(m_mutex);
    m_pending.push_back(std::move(change));
}

void ConversationWriter::save() {
    bool started = true;
    {
        std::lock_guard lock(m_mutex);
        ++m_asked;
        if (!m_thread.joinable()) {
            try {
                m_thread = std::thread([this] { run(); });
            } catch (...) {
                started = false;
            }
        }
    }
    m_changed.notify_all();
    // A process that can start no thread still gets its conversations saved, here and now.
    if (!started) writePending();
}

std::optional<std::string> ConversationWriter::waitForPendingSaves() {
    std::unique_lock lock(m_mutex);
    const std::uint64_t target = m_asked;
    if (m_written >= target) return m_lastFailure;
    m_hurry = true;
    m_changed.notify_all();
    m_changed.wait(lock, [&] { return m_written >= target; });
    return m_lastFailure;
}

std::optional<std::string> ConversationWriter::lastFailure() {
    std::lock_guard lock(m_mutex);
    return m_lastFailure;
}

bool ConversationWriter::pickUp(const std::vector<CoachConversation>& list,
                                std::vector<CoachConversation>& merged) {
    std::unique_lock lock(m_fileMutex, std::try_to_lock);
    if (!lock.owns_lock() || m_file.isUnchangedSinceSeen()) return false;
    std::error_code noFile;
    if (!std::filesystem::exists(m_file.path(), noFile)) return false;
    std::vector<CoachConversation> candidate = list;
    if (!m_file.pickUp(candidate)) return false;
    // The coach takes the merged list in; the writer's copy follows before any later change.
    add(ReplaceAll{candidate});
    merged = std::move(candidate);
    return true;
}

void ConversationWriter::run() {
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [&] { return m_written < m_asked || m_stopping; });
        if (m_written == m_asked) return;  // stopping with nothing left to write
        if (!m_hurry && !m_stopping) {
            m_changed.wait_for(lock, kBurst, [&] { return m_hurry || m_stopping; });
        }
        lock.unlock();
        writePending();
        lock.lock();
    }
}

// Applies the changes made so far and writes the list; the saves asked for until then are done.
void ConversationWriter::writePending() {
    std::optional<std::string> failure;
    bool othersChanged = false;
    std::uint64_t target = 0;
    {
        std::lock_guard fileLock(m_fileMutex);
        std::vector<Change> changes;
        {
            std::lock_guard lock(m_mutex);
            changes.swap(m_pending);
            target = m_asked;
        }
        try {
            apply(changes);
            failure = m_file.write(m_list, othersChanged);
        } catch (const std::exception& error) {
            failure = error.what();
        } catch (...) {
            failure = "The conversations could not be saved.";
        }
    }
    {
        std::lock_guard lock(m_mutex);
        m_written = target;
        m_lastFailure = failure;
        if (m_written >= m_asked) m_hurry = false;
    }
    m_changed.notify_all();
    if (m_report) m_report(othersChanged);
}

void ConversationWriter::apply(std::vector<Change>& changes) {
    for (auto& change : changes) {
        if (auto* insert = std::get_if<Insert>(&change)) {
            m_list.insert(m_list.begin(), std::move(insert->conversation));
        } else if (auto* replace = std::get_if<Replace>(&change)) {
            auto found = findById(m_list, replace->conversation.id());
            if (found != m_list.end()) *found = std::move(replace->conversation);
        } else if (auto* remove = std::get_if<Remove>(&change)) {
            std::erase_if(m_list, [&](const CoachConversation& c) { return c.id() == remove->id; });
        } else if (auto* all = std::get_if<ReplaceAll>(&change)) {
            m_list = std::move(all->list);
        }
    }
}

}  // namespace sagely::detail
