// AppleFoundationModelClient — answers a chat with the on-device model; and
// AppleFoundationModelSupport — whether the engine may use it, and if not, why.
//
// complete() selects a model from the configured model string (see AppleOnDeviceRouting), checks
// that it is available, flattens the chat into one prompt, fits it to a 4096-token window and
// asks a fresh session to respond; a context-window overflow is retried once with the first 1500
// characters. It blocks: call it on a worker thread. Nothing is kept between calls, so one client
// may serve several threads at once.
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

#include <memory>
#include <string>
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

private:
    std::shared_ptr<OnDeviceLanguageModel> selectModel(const CoachConfig& config) const;
    std::string respondWithRetry(OnDeviceSession& session, const std::string& prompt,
                                 const CoachConfig& config,
                                 const CancellationToken& cancellation) const;

    std::shared_ptr<OnDeviceModel> m_model;
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
