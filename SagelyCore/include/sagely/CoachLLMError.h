// Errors of the model clients.
//
// CoachLLMError is what a provider's answer amounts to when it is not a reply: a server's
// message, a missing endpoint, an unreadable reply or a rate limit. TransportError carries the
// fixed sentence of a network failure, and CancelledError ends a request whose cancellation token
// was stopped. A reply body that is not JSON throws DecodingError with the parser's sentence
// "The data couldn’t be read because it isn’t in the correct format."
#pragma once

#include <sagely/Error.h>
#include <sagely/Export.h>

#include <string>

namespace sagely {

class SAGELY_EXPORT CoachLLMError : public Error {
public:
    enum class Kind { serverError, invalidURL, invalidResponse, rateLimited };

    /// The message itself is the description.
    static CoachLLMError serverError(const std::string& message) {
        return CoachLLMError(Kind::serverError, message);
    }
    /// "Invalid AI endpoint URL."
    static CoachLLMError invalidURL() {
        return CoachLLMError(Kind::invalidURL, "Invalid AI endpoint URL.");
    }
    /// "The AI response could not be parsed."
    static CoachLLMError invalidResponse() {
        return CoachLLMError(Kind::invalidResponse, "The AI response could not be parsed.");
    }
    /// "The AI provider rate-limited the request. Please wait and try again."
    static CoachLLMError rateLimited() {
        return CoachLLMError(
            Kind::rateLimited,
            "The AI provider rate-limited the request. Please wait and try again.");
    }

    Kind kind() const { return m_kind; }

private:
    CoachLLMError(Kind kind, const std::string& description) : Error(description), m_kind(kind) {}
    Kind m_kind;
};

/// A network failure, described with a fixed sentence such as "The request timed out." or
/// "Could not connect to the server.".
class SAGELY_EXPORT TransportError : public Error {
public:
    using Error::Error;
};

/// The request was cancelled through its token before it finished.
class SAGELY_EXPORT CancelledError : public Error {
public:
    CancelledError() : Error("cancelled") {}
};

}  // namespace sagely
