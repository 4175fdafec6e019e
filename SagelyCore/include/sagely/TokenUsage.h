// TokenUsage — what one reply cost in tokens, as the provider counted them, and which model
// made it when the coach recorded that.
#pragma once

#include <cstdint>
#include <string>

namespace sagely {

struct TokenUsage {
    TokenUsage() = default;
    TokenUsage(std::int64_t input, std::int64_t output)
        : inputTokens(input), outputTokens(output) {}

    /// The prompt: system prompt, history and question (with any cached part).
    std::int64_t inputTokens = 0;
    /// The reply (with any reasoning the provider counts).
    std::int64_t outputTokens = 0;
    /// The provider that answered, as storageID names it ("openai", "anthropic", …), and the
    /// model asked for. Both empty when not known: replies saved before the kit recorded them,
    /// usage straight from the model client, and sums.
    std::string provider;
    std::string model;

    std::int64_t totalTokens() const { return inputTokens + outputTokens; }
    /// Adds the counts only: a sum of several replies names no model.
    TokenUsage& operator+=(const TokenUsage& other) {
        inputTokens += other.inputTokens;
        outputTokens += other.outputTokens;
        return *this;
    }
    friend bool operator==(const TokenUsage&, const TokenUsage&) = default;
};

}  // namespace sagely
