// TokenUsage — what one reply cost in tokens, as the provider counted them.
#pragma once

#include <cstdint>

namespace sagely {

struct TokenUsage {
    /// The prompt: system prompt, history and question (with any cached part).
    std::int64_t inputTokens = 0;
    /// The reply (with any reasoning the provider counts).
    std::int64_t outputTokens = 0;

    std::int64_t totalTokens() const { return inputTokens + outputTokens; }
    TokenUsage& operator+=(const TokenUsage& other) {
        inputTokens += other.inputTokens;
        outputTokens += other.outputTokens;
        return *this;
    }
    friend bool operator==(const TokenUsage&, const TokenUsage&) = default;
};

}  // namespace sagely
