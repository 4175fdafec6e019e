#include "support/FakeLLMService.h"

#include <sagely/CoachLLMError.h>

#include <thread>

namespace sagely::testing {

void FakeLLMService::enqueueReply(std::string reply) {
    std::lock_guard lock(m_mutex);
    m_script.emplace_back(std::move(reply));
}

void FakeLLMService::enqueueError(std::exception_ptr error) {
    std::lock_guard lock(m_mutex);
    m_script.emplace_back(std::move(error));
}

void FakeLLMService::enqueuePieces(std::vector<std::string> pieces,
                                   std::chrono::milliseconds interval) {
    std::lock_guard lock(m_mutex);
    m_pieces.emplace_back(std::move(pieces), interval);
}

LLMReply FakeLLMService::stream(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                                const std::optional<std::string>& modelOverride,
                                const CancellationToken& cancellation,
                                const LLMDeltaHandler& onDelta,
                                const LLMRetryHandler& /*onRetry*/) {
    std::pair<std::vector<std::string>, std::chrono::milliseconds> pieces;
    {
        std::lock_guard lock(m_mutex);
        if (!m_pieces.empty()) {
            pieces = std::move(m_pieces.front());
            m_pieces.pop_front();
        }
    }
    for (const auto& piece : pieces.first) {
        if (cancellation.stopRequested()) break;
        if (pieces.second.count() > 0) std::this_thread::sleep_for(pieces.second);
        if (onDelta) onDelta(piece);
    }
    return {complete(messages, config, modelOverride, cancellation), std::nullopt};
}

void FakeLLMService::hold() {
    std::lock_guard lock(m_mutex);
    m_held = true;
}

void FakeLLMService::release() {
    {
        std::lock_guard lock(m_mutex);
        m_held = false;
    }
    m_changed.notify_all();
}

void FakeLLMService::allowCalls(std::size_t count) {
    {
        std::lock_guard lock(m_mutex);
        m_allowed = count;
    }
    m_changed.notify_all();
}

void FakeLLMService::setHonoursCancellation(bool honours) {
    std::lock_guard lock(m_mutex);
    m_honoursCancellation = honours;
}

std::vector<FakeLLMService::Call> FakeLLMService::calls() const {
    std::lock_guard lock(m_mutex);
    return m_calls;
}

std::size_t FakeLLMService::callCount() const {
    std::lock_guard lock(m_mutex);
    return m_calls.size();
}

std::size_t FakeLLMService::cancelledCount() const {
    std::lock_guard lock(m_mutex);
    return m_cancelled;
}

std::size_t FakeLLMService::runningCount() const {
    std::lock_guard lock(m_mutex);
    return m_running;
}

bool FakeLLMService::waitForCalls(std::size_t count, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [&] { return m_calls.size() >= count; });
}

bool FakeLLMService::waitUntilIdle(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, timeout, [&] { return m_running == 0; });
}

std::string FakeLLMService::complete(const std::vector<LLMMessage>& messages,
                                     const CoachConfig& config,
                                     const std::optional<std::string>& modelOverride,
                                     const CancellationToken& cancellation) {
    std::size_t index = 0;
    {
        std::lock_guard lock(m_mutex);
        index = m_calls.size();
        m_calls.push_back({messages, config, modelOverride});
        ++m_running;
    }
    m_changed.notify_all();
    const bool stopped = waitWhileHeld(index, cancellation);
    Answer next = std::string();
    {
        std::lock_guard lock(m_mutex);
        if (stopped) {
            ++m_cancelled;
            next = std::make_exception_ptr(CancelledError());
        } else if (m_script.empty()) {
            next = std::make_exception_ptr(
                CoachLLMError::serverError("FakeLLMService has no scripted answer"));
        } else {
            next = std::move(m_script.front());
            m_script.pop_front();
        }
    }
    return answer(std::move(next));
}

std::string FakeLLMService::answer(Answer answer) {
    {
        std::lock_guard lock(m_mutex);
        --m_running;
    }
    m_changed.notify_all();
    if (auto* error = std::get_if<std::exception_ptr>(&answer)) std::rethrow_exception(*error);
    return std::get<std::string>(std::move(answer));
}

// Returns whether the token was stopped before the answer was let through.
bool FakeLLMService::waitWhileHeld(std::size_t index, const CancellationToken& cancellation) {
    // The stop callback takes m_mutex, so the registration must end outside of it.
    auto registration = cancellation.onStop([this] {
        { std::lock_guard lock(m_mutex); }
        m_changed.notify_all();
    });
    std::unique_lock lock(m_mutex);
    auto stopped = [&] { return m_honoursCancellation && cancellation.stopRequested(); };
    m_changed.wait(lock, [&] { return !m_held || index < m_allowed || stopped(); });
    return stopped();
}

}  // namespace sagely::testing
