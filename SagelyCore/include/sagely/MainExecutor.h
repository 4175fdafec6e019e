// MainExecutor — how the kit reaches the host's main thread.
//
// The engine and the settings store live on the host's main thread. Work finished elsewhere
// (a model reply on a worker thread) comes back only through post(), which must be callable from
// any thread and must run the closures in order on the main thread. SagelyUI supplies a Qt
// executor, macOS hosts a main-queue executor; ManualExecutor serves command-line hosts and
// tests, which drain it themselves.
#pragma once

#include <sagely/Export.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>

namespace sagely {

class SAGELY_EXPORT MainExecutor {
public:
    virtual ~MainExecutor() = default;
    /// Queues `work` to run on the main thread. Thread-safe.
    virtual void post(std::function<void()> work) = 0;
};

/// A run loop the owning thread drives by hand: post() queues from any thread; the owner runs
/// the queue with runPending() or runUntil().
class SAGELY_EXPORT ManualExecutor final : public MainExecutor {
public:
    void post(std::function<void()> work) override;

    /// Runs everything queued so far (and what those closures queue); returns how many ran.
    std::size_t runPending();

    /// Runs queued work, waiting for more, until `done()` holds (checked after each closure and
    /// before waiting) or the timeout passes. Returns whether `done()` held.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);

    /// Runs queued work for the given time.
    void runFor(std::chrono::milliseconds duration);

private:
    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::deque<std::function<void()>> m_queue;
};

}  // namespace sagely
