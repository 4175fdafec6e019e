#include "coach/PartialReply.h"

#include "llm/HttpTransport.h"
#include "support/GrowingText.h"

#include <utility>

namespace sagely::detail {

PartialReply::PartialReply(std::shared_ptr<MainExecutor> executor, std::function<void()> announce,
                           std::chrono::milliseconds interval)
    : m_executor(std::move(executor)), m_announce(std::move(announce)), m_interval(interval) {}

PartialReply::~PartialReply() {
    close();
}

void PartialReply::add(std::string_view piece) {
    if (piece.empty()) return;
    {
        std::lock_guard lock(m_mutex);
        // While the main thread lags, this holds what it has not taken: never copied to grow.
        appendGrowingTo(m_added, piece, kMaxReplyBytes);
        if (m_closed) return;
        m_unannounced = true;
        if (!m_announcer.joinable()) m_announcer = std::thread([this] { announceLoop(); });
    }
    m_changed.notify_all();
}

void PartialReply::close() {
    std::thread announcer;
    {
        std::lock_guard lock(m_mutex);
        m_closed = true;
        announcer = std::move(m_announcer);
    }
    m_changed.notify_all();
    if (announcer.joinable()) announcer.join();
}

std::string PartialReply::takeAdded() {
    std::lock_guard lock(m_mutex);
    return std::exchange(m_added, {});
}

void PartialReply::announceLoop() {
    std::unique_lock lock(m_mutex);
    while (true) {
        m_changed.wait(lock, [this] { return m_unannounced || m_closed; });
        if (m_closed) return;
        m_unannounced = false;
        lock.unlock();
        try {
            m_executor->post(m_announce);
        } catch (...) {
            // An executor that takes no more work has no main thread to tell.
        }
        lock.lock();
        // Pieces arriving meanwhile wait for the next announcement.
        m_changed.wait_for(lock, m_interval, [this] { return m_closed; });
    }
}

}  // namespace sagely::detail
