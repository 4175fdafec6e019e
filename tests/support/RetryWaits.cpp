#include "support/RetryWaits.h"

#include <sagely/CoachLLMError.h>

namespace sagely::testing {

LLMRetrySleeper RetryWaits::sleeper() {
    return [self = shared_from_this()](std::chrono::milliseconds wait,
                                       const CancellationToken& cancellation) {
        self->sleep(wait, cancellation);
    };
}

std::shared_ptr<LLMClient> RetryWaits::client() {
    return std::make_shared<LLMClient>(nullptr, sleeper());
}

std::vector<std::chrono::milliseconds> RetryWaits::waits() const {
    std::lock_guard lock(m_mutex);
    return m_waits;
}

void RetryWaits::hold() {
    std::lock_guard lock(m_mutex);
    m_held = true;
}

void RetryWaits::release() {
    {
        std::lock_guard lock(m_mutex);
        m_held = false;
    }
    m_changed.notify_all();
}

void RetryWaits::sleep(std::chrono::milliseconds wait, const CancellationToken& cancellation) {
    bool stopped = false;
    const auto registration = cancellation.onStop([this, &stopped] {
        {
            std::lock_guard lock(m_mutex);
            stopped = true;
        }
        m_changed.notify_all();
    });
    std::unique_lock lock(m_mutex);
    m_waits.push_back(wait);
    m_changed.wait(lock, [&] { return !m_held || stopped; });
    if (stopped) throw CancelledError();
}

}  // namespace sagely::testing
