// AppleFoundationModelClient — answers a chat with the on-device model; and
// AppleFoundationModelSupport — whether the engine may use it, and if not, why.
//
// complete() selects a model from the configured model string (see AppleOnDeviceRouting), checks
// that it is available, flattens the chat into one prompt, fits it to a 4096-token window and
// asks a fresh session to respond; a context-window overflow is retried once with the first 1500
// characters. stream() does the same while handing the text on as the model writes it.
// streamWithTools() also offers the host's actions as tools; a response whose model calls them
// waits, kept by the client, until the next request brings the results. All block: call them on
// a worker thread. One client may serve several threads at once; copies share the waiting
// responses.
//
// Errors: CoachLLMError::serverError with a sentence for the user, or the generation error's own
// description; any error that is not a generation error (CancelledError, for one) passes through
// unchanged. Callers check the system version first: below macOS 26 this client is never used.
#pragma once

#include <sagely/CancellationToken.h>
#include <sagely/CoachConfig.h>
#include <sagely/Export.h>
#include <sagely/LLMMessage.h>
#include <sagely/OnDeviceModel.h>

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace sagely {

class SAGELY_EXPORT AppleFoundationModelClient {
public:
    /// The context size the prompt is fitted to, in tokens.
    static constexpr std::int64_t contextTokenLimit = 4096;

    /// None means the system's own model framework.
    explicit AppleFoundationModelClient(std::shared_ptr<OnDeviceModel> model = nullptr);

    /// Whether the default system model reports itself available.
    bool isAvailable() const;

    /// The user-facing sentence for a model's availability.
    static std::string availabilityMessage(OnDeviceAvailability availability);
    static std::string availabilityMessage(const OnDeviceLanguageModel& model);

    std::string complete(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                         const CancellationToken& cancellation = {}) const;

    /// Receives each new piece of the visible text, on the thread that called stream().
    using DeltaHandler = std::function<void(std::string_view delta)>;

    /// As complete(), handing on each piece of text the model adds, and returns the whole reply.
    /// The pieces always extend what was handed on before: a snapshot that rewrites text already
    /// shown is held back (what was shown cannot be taken back) until the text extends what was
    /// shown again, or the reply is complete. Because shown text cannot be taken back either,
    /// an overflow is retried only before any text was shown; after some, an overflow ends the
    /// reply with the text shown (as a length limit would) and any other generation error fails
    /// with its description.
    std::string stream(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                       const CancellationToken& cancellation, const DeltaHandler& onDelta) const;

    /// What a response that offers tools came to: the calls the model made, with the text it
    /// wrote before them; or, with no calls, the whole reply.
    struct ToolStep {
        std::string text;
        std::vector<LLMToolCall> calls;
    };

    /// As stream() (as complete() when `onDelta` is empty), offering `tools` (parameters as JSON
    /// Schema text; a tool whose schema has no on-device form is left out). The framework runs
    /// the tool loop inside one response, so a response whose model calls tools is kept waiting
    /// and its calls come back here; when the last of `messages` is a "tool" message with their
    /// results, those go to the waiting calls and the same response goes on, with no new
    /// prompt. Otherwise a new response starts from the whole chat, earlier rounds included as
    /// text. Stopping the token, now or while the calls wait, cancels the response.
    ToolStep streamWithTools(const std::vector<LLMMessage>& messages,
                             const std::vector<LLMTool>& tools, const CoachConfig& config,
                             const CancellationToken& cancellation,
                             const DeltaHandler& onDelta) const;

private:
    class SnapshotDeltas;

    /// The configured model, or a serverError when it cannot be used.
    std::shared_ptr<OnDeviceLanguageModel> usableModel(const CoachConfig& config) const;
    std::shared_ptr<OnDeviceLanguageModel> selectModel(const CoachConfig& config) const;
    /// Streams when `deltas` is given.
    std::string respondWithRetry(OnDeviceSession& session, const std::string& prompt,
                                 const CoachConfig& config, const CancellationToken& cancellation,
                                 SnapshotDeltas* deltas) const;

    struct WaitingRuns;

    std::shared_ptr<OnDeviceModel> m_model;
    std::shared_ptr<WaitingRuns> m_waiting;
};

struct SAGELY_EXPORT AppleFoundationModelSupport {
    /// False below macOS 26; otherwise whether the default system model is available.
    static bool isRuntimeAvailable();
    static bool isRuntimeAvailable(OnDeviceModel& model);

    /// Below macOS 26 "Apple on-device models require macOS 26 and Apple Intelligence.";
    /// otherwise the default model's availability message.
    static std::string unavailableReason();
    static std::string unavailableReason(OnDeviceModel& model);
};

}  // namespace sagely
