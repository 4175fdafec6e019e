// When a failed model request is worth another try, and after how long.
//
// Retried: 429 (rate limited), 503 (unavailable), 529 (Anthropic: overloaded), and a connection
// that broke before any byte of a reply arrived; at most kMaxRetries times. The wait is what the
// provider asks for ("retry-after-ms", then "Retry-After" in seconds or as an HTTP date, then
// Gemini's RetryInfo "retryDelay" in the body), else 1 s, 2 s, 4 s less up to a quarter of
// jitter; never more than kMaxWait. Never retried: a provider that says "x-should-retry: false",
// and a quota that is used up (OpenAI's "insufficient_quota" and billing codes, Gemini's daily
// or zero quotas, or a Gemini quota failure without a delay to wait for): the user must act.
#pragma once

#include "llm/HttpTransport.h"

#include <chrono>
#include <ctime>
#include <functional>
#include <optional>
#include <string_view>

namespace sagely::detail {

class RetryPolicy {
public:
    static constexpr int kMaxRetries = 3;
    static constexpr std::chrono::milliseconds kMaxWait{30'000};
    static constexpr std::chrono::milliseconds kFirstWait{1'000};

    /// `jitter` returns a number in [0, 1); `now` the wall clock (for HTTP dates).
    explicit RetryPolicy(std::function<double()> jitter = {},
                         std::function<std::time_t()> now = {});

    /// The wait before retry number `retry` (1 for the first) after a reply with this status,
    /// these headers and this body; none when it is not worth retrying.
    std::optional<std::chrono::milliseconds> waitAfterStatus(int retry, long status,
                                                             const HeaderList& headers,
                                                             std::string_view body) const;
    /// The wait before retry number `retry` after a connection that broke before any byte of
    /// a reply; none after the last retry.
    std::optional<std::chrono::milliseconds> waitAfterBrokenConnection(int retry) const;

    /// Whether the status is one that is retried at all.
    static bool isRetriedStatus(long status);

private:
    std::chrono::milliseconds backoff(int retry) const;
    std::optional<std::chrono::milliseconds> askedWait(const HeaderList& headers,
                                                       std::string_view body) const;

    std::function<double()> m_jitter;
    std::function<std::time_t()> m_now;
};

}  // namespace sagely::detail
