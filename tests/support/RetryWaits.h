// RetryWaits — stands in for LLMClient's wait before a retry, so no test sleeps through a
// backoff: it keeps every wait asked for and returns at once, or, while held, when the test
// releases it or the request's token is stopped.
//
// Thread rules: the sleeper runs on the client's thread; every other member may be called from
// the test's thread at any time.
#pragma once

#include <sagely/LLMClient.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

namespace sagely::testing {

class RetryWaits : public std::enable_shared_from_this<RetryWaits> {
public:
    /// The sleeper to give LLMClient; it keeps this object alive.
    LLMRetrySleeper sleeper();
    /// A client whose retries wait here.
    std::shared_ptr<LLMClient> client();

    /// Every wait asked for so far, in order.
    std::vector<std::chrono::milliseconds> waits() const;
    /// Waits from now on last until release() (or until their token is stopped).
    void hold();
    /// Ends the waits in progress and lets later ones return at once.
    void release();

private:
    void sleep(std::chrono::milliseconds wait, const CancellationToken& cancellation);

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<std::chrono::milliseconds> m_waits;
    bool m_held = false;
};

}  // namespace sagely::testing
