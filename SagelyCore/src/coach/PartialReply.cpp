#include "coach/PartialReply.h"

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
        m_text.append(piece);
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

std::string PartialReply::text() const {
    std::lock_guard lock(m_mutex);
    return m_text;
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
