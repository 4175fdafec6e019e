// LLMClient — turns a list of chat messages and a CoachConfig into one reply text, by one
// request to the configured provider: complete() waits for the whole reply; stream() also hands
// its text on as it arrives (unless the configuration turns streaming off). It also lists the
// models a provider offers and checks that a configuration works.
//
// complete() blocks: call it on a worker thread. It is thread-safe and may run concurrently with
// itself; all requests share one process-wide connection pool (keep-alive, TLS verified), so a
// second question to the same host reuses the connection. Stopping the cancellation token aborts
// the request promptly with CancelledError, also while it waits to be tried again. Redirects are
// followed only within the request's origin, so a key header never travels to another host; an
// API key that still holds a control character after trimming fails with a serverError before
// anything is sent.
//
// A chat request that meets a rate limit (429), an unavailable or overloaded provider (503, 529)
// or a connection lost before any byte of the reply is tried again up to 3 times, after the
// wait the provider asks for or 1, 2 and 4 s (never more than 30 s); a used-up quota is not.
// After the last try the error is the same as without retries.
//
// Errors: CoachLLMError (server message, invalid URL, unreadable reply, rate limit),
// TransportError (network failures), DecodingError (a reply that is not JSON), CancelledError.
#pragma once

#include <sagely/CancellationToken.h>
#include <sagely/CoachConfig.h>
#include <sagely/ConnectionCheck.h>
#include <sagely/Export.h>
#include <sagely/LLMMessage.h>
#include <sagely/ProviderModel.h>
#include <sagely/TokenUsage.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sagely {

class AppleFoundationModelClient;
class OnDeviceModel;

/// A reply as a stream ended. Its text is what complete() returns for the same answer.
struct LLMReply {
    std::string text;
    /// What the reply cost, when the provider said.
    std::optional<TokenUsage> usage;
    /// The actions the model called, in its order (its text, often empty, comes before them).
    std::vector<LLMToolCall> toolCalls{};
    /// With calls: the turn as the format sent it, for LLMMessage::providerTurn.
    std::string providerTurn{};
};

/// Receives each new piece of a reply's visible text, on the thread that asked, as it arrives.
using LLMDeltaHandler = std::function<void(std::string_view delta)>;
/// Told, on the thread that asked, that a request waits before it is tried again (a rate limit,
/// an overloaded provider, a connection lost before any reply), and for how long; told zero
/// when the wait is over and the request goes out again.
using LLMRetryHandler = std::function<void(std::chrono::milliseconds wait)>;

/// Waits `wait` before a request is tried again, or throws CancelledError as soon as the token is
/// stopped. The default sleeps; tests pass one that keeps the waits and returns at once.
using LLMRetrySleeper =
    std::function<void(std::chrono::milliseconds wait, const CancellationToken& cancellation)>;

/// The seam through which the engine asks for a reply; tests substitute a fake.
class SAGELY_EXPORT LLMService {
public:
    virtual ~LLMService() = default;
    virtual std::string complete(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                                 const std::optional<std::string>& modelOverride,
                                 const CancellationToken& cancellation) = 0;
    /// Asks as complete() does and hands the text on as it arrives; stopping the token ends it
    /// with CancelledError. A reply that does not stream (the default: complete()) hands
    /// nothing on.
    virtual LLMReply stream(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                            const std::optional<std::string>& modelOverride,
                            const CancellationToken& cancellation, const LLMDeltaHandler& onDelta,
                            const LLMRetryHandler& onRetry = {});
    /// As stream(), offering `tools` to the model; its calls come back in LLMReply::toolCalls.
    /// With no tools the request is exactly stream()'s. The default ignores the tools.
    virtual LLMReply streamWithTools(const std::vector<LLMMessage>& messages,
                                     const std::vector<LLMTool>& tools, const CoachConfig& config,
                                     const std::optional<std::string>& modelOverride,
                                     const CancellationToken& cancellation,
                                     const LLMDeltaHandler& onDelta,
                                     const LLMRetryHandler& onRetry = {});
};

class SAGELY_EXPORT LLMClient final : public LLMService {
public:
    /// `onDevice` answers `apple` configurations without a custom endpoint on macOS 26+; none
    /// means the system's own on-device model. `sleep` waits before each retry; none sleeps.
    explicit LLMClient(std::shared_ptr<OnDeviceModel> onDevice = nullptr,
                       LLMRetrySleeper sleep = {});
    ~LLMClient() override;

    std::string complete(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                         const std::optional<std::string>& modelOverride,
                         const CancellationToken& cancellation) override;
    /// Streams unless `config.streamsReplies` is off (then it is complete()). A
    /// stream cut short after some text keeps that text; one with no text fails as complete()
    /// fails on a reply without text. An error the provider reports mid-stream is a serverError.
    LLMReply stream(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                    const std::optional<std::string>& modelOverride,
                    const CancellationToken& cancellation, const LLMDeltaHandler& onDelta,
                    const LLMRetryHandler& onRetry = {}) override;
    /// Tools go in each format's shape (OpenAI and custom, Anthropic, Gemini, Ollama). The
    /// on-device model runs its calls inside one response: its calls come back as the others'
    /// do while that response waits, kept by this client, for the next request to bring their
    /// results (see AppleFoundationModelClient::streamWithTools).
    LLMReply streamWithTools(const std::vector<LLMMessage>& messages,
                             const std::vector<LLMTool>& tools, const CoachConfig& config,
                             const std::optional<std::string>& modelOverride,
                             const CancellationToken& cancellation, const LLMDeltaHandler& onDelta,
                             const LLMRetryHandler& onRetry = {}) override;

    /// The request URL for the configuration: the trimmed custom endpoint when there is one,
    /// else the provider's default; none for `apple` and `custom` without an endpoint, and for a
    /// custom endpoint that is not a URL.
    static std::optional<std::string> endpointURL(const CoachConfig& config);

    /// Where the provider's model list starts for the configuration (derived from the chat
    /// endpoint: "/chat/completions" becomes "/models", Anthropic's "/messages" "/models",
    /// Gemini's ".../models/M:generateContent" ".../models", Ollama's "/api/chat"
    /// "/api/tags"); none for the on-device model and an endpoint that does not say.
    static std::optional<std::string> modelListURL(const CoachConfig& config);

    /// The models the provider offers now, every page of the list, each model once (Gemini:
    /// only those that can chat; Ollama: the installed models that can). Blocks; errors as
    /// for complete(), and a serverError when the configuration has no model list.
    std::vector<ProviderModel> listModels(const CoachConfig& config,
                                          const CancellationToken& cancellation);

    /// One tiny request that tells whether the key, the endpoint and the model work: the model
    /// list where there is one (the model must be on it), else a chat of a few tokens. Saves
    /// nothing and never puts the key in the summary. Blocks; only a cancellation throws.
    ConnectionCheck checkConnection(const CoachConfig& config,
                                    const CancellationToken& cancellation);

    /// The failure of listModels() for a configuration without a model list.
    static constexpr std::string_view kNoModelList =
        "This provider does not offer a list of its models.";
    /// The most pages of a model list read before the list counts as complete.
    static constexpr int kMaxModelListPages = 50;
    /// The reply length of a connection check without a model list.
    static constexpr std::int64_t kCheckMaxTokens = 16;

private:
    std::unique_ptr<AppleFoundationModelClient> m_onDevice;
    LLMRetrySleeper m_sleep;
};

}  // namespace sagely
