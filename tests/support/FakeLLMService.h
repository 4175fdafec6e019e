// FakeLLMService — an LLMService for engine tests: it answers from a script, records every call,
// can hold its answers until the test releases them, and honours the cancellation token.
//
// Thread rules: complete() runs on the coach's worker threads; every other member may be called
// from the test's thread at any time.
#pragma once

#include <sagely/LLMClient.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <exception>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace sagely::testing {

class FakeLLMService final : public LLMService {
public:
    /// What one call of complete() was given.
    struct Call {
        std::vector<LLMMessage> messages;
        CoachConfig config;
        std::optional<std::string> modelOverride;
    };

    /// The next unanswered call returns this text.
    void enqueueReply(std::string reply);
    /// The next unanswered call throws this error.
    void enqueueError(std::exception_ptr error);
    template <typename E>
    void enqueueError(E error) {
        enqueueError(std::make_exception_ptr(std::move(error)));
    }

    /// The next call of stream() hands these pieces on, `interval` apart, before it records its
    /// call and answers as complete() does (waiting while held).
    void enqueuePieces(std::vector<std::string> pieces,
                       std::chrono::milliseconds interval = std::chrono::milliseconds(0));

    /// While held, complete() records its call and then waits for release() or a stop.
    void hold();
    /// Lets held calls (and later ones) answer.
    void release();
    /// Lets the first `count` calls (in the order they started) answer while the rest stay held.
    void allowCalls(std::size_t count);
    /// When false, a held call ignores its token's stop and waits for release() alone, like a
    /// service that only notices a cancel once its answer is in.
    void setHonoursCancellation(bool honours);

    std::vector<Call> calls() const;
    std::size_t callCount() const;
    /// Calls that ended because their token was stopped.
    std::size_t cancelledCount() const;
    /// Calls that have started and not yet returned or thrown.
    std::size_t runningCount() const;
    /// Waits until at least `count` calls have started.
    bool waitForCalls(std::size_t count, std::chrono::milliseconds timeout) const;
    /// Waits until no call is running.
    bool waitUntilIdle(std::chrono::milliseconds timeout) const;

    /// Answers from the script; with an empty script it throws a server error saying so.
    std::string complete(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                         const std::optional<std::string>& modelOverride,
                         const CancellationToken& cancellation) override;
    LLMReply stream(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                    const std::optional<std::string>& modelOverride,
                    const CancellationToken& cancellation, const LLMDeltaHandler& onDelta,
                    const LLMRetryHandler& onRetry = {}) override;

private:
    using Answer = std::variant<std::string, std::exception_ptr>;

    std::string answer(Answer answer);
    bool waitWhileHeld(std::size_t index, const CancellationToken& cancellation);

    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::deque<Answer> m_script;
    std::deque<std::pair<std::vector<std::string>, std::chrono::milliseconds>> m_pieces;
    std::vector<Call> m_calls;
    bool m_held = false;
    bool m_honoursCancellation = true;
    std::size_t m_allowed = 0;
    std::size_t m_running = 0;
    std::size_t m_cancelled = 0;
};

}  // namespace sagely::testing
