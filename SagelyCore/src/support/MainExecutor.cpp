#include <sagely/MainExecutor.h>

namespace sagely {

void ManualExecutor::post(std::function<void()> work) {
    {
        std::lock_guard lock(m_mutex);
        m_queue.push_back(std::move(work));
    }
    m_wake.notify_all();
}

std::size_t ManualExecutor::runPending() {
    std::size_t ran = 0;
    for (;;) {
        std::function<void()> work;
        {
            std::lock_guard lock(m_mutex);
            if (m_queue.empty()) return ran;
            work = std::move(m_queue.front());
            m_queue.pop_front();
        }
        work();
        ++ran;
    }
}

bool ManualExecutor::runUntil(const std::function<bool()>& done,
                              std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        runPending();
        if (done()) return true;
        std::unique_lock lock(m_mutex);
        if (!m_wake.wait_until(lock, deadline, [this] { return !m_queue.empty(); })) {
            lock.unlock();
            runPending();
            return done();
        }
    }
}

void ManualExecutor::runFor(std::chrono::milliseconds duration) {
    runUntil([] { return false; }, duration);
}

}  // namespace sagely
