// LLMMessage — one chat message as the model clients send it: a role ("system", "user",
// "assistant") and its content.
#pragma once

#include <string>

namespace sagely {

struct LLMMessage {
    std::string role;
    std::string content;
    friend bool operator==(const LLMMessage&, const LLMMessage&) = default;
};

}  // namespace sagely
