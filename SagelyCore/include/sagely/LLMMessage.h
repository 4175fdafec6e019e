// LLMMessage — one chat message as the model clients send it: a role ("system", "user",
// "assistant", or "tool" for the results of the calls the assistant message before it made) and
// its content; also the actions offered to the model (LLMTool) and the calls it makes.
#pragma once

#include <string>
#include <vector>

namespace sagely {

/// A call the model made: its id, the action's name, the arguments as JSON text.
struct LLMToolCall {
    std::string id;
    std::string name;
    std::string arguments;
    /// The format gave no id and the kit made this one up: it is never sent as the model's.
    bool idMadeUp = false;
    friend bool operator==(const LLMToolCall&, const LLMToolCall&) = default;
};

/// What goes back to the model for one call.
struct LLMToolResult {
    std::string callId;
    std::string name;
    std::string content;
    bool isError = false;
    friend bool operator==(const LLMToolResult&, const LLMToolResult&) = default;
};

/// An action offered to the model: name, one-line description, parameters as JSON Schema text.
struct LLMTool {
    std::string name;
    std::string description;
    std::string parameters;
    friend bool operator==(const LLMTool&, const LLMTool&) = default;
};

struct LLMMessage {
    std::string role;
    std::string content;
    /// An assistant message: the calls it made.
    std::vector<LLMToolCall> toolCalls{};
    /// A "tool" message: the results of the previous assistant message's calls, in call order.
    std::vector<LLMToolResult> toolResults{};
    /// An assistant message with calls: the turn as its wire format sent it (opaque JSON text,
    /// see CoachMessage::providerTurn()), sent back unchanged to the same format.
    std::string providerTurn{};
    friend bool operator==(const LLMMessage&, const LLMMessage&) = default;
};

}  // namespace sagely
