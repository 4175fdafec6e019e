// OnDeviceModel — the seam between the kit and the system's on-device language model.
//
// The on-device client picks a model through this interface (the general system model, its
// content-tagging use case, or an adapter by name or file), checks its availability, opens a
// session without instructions (and without tools, unless the host offers actions), and asks it
// to respond. A session with tools runs the tool loop itself: while it responds, the model may
// call a tool, and the response waits until that call is answered. On macOS 26 and later the
// system implementation talks to the platform's model framework; on every other system it
// offers no usable model. Tests substitute a fake.
//
// Thread rules: implementations are thread-safe; one session serves one request on one thread.
// respond() and streamResponse() block until the reply arrives or the token is stopped (then
// they throw CancelledError).
#pragma once

#include <sagely/CancellationToken.h>
#include <sagely/Error.h>
#include <sagely/Export.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace sagely {

/// Whether a model can be used now, and if not, why.
enum class OnDeviceAvailability {
    available,
    deviceNotEligible,
    appleIntelligenceNotEnabled,
    modelNotReady,
    unavailableForOtherReason,
};

/// What a respond call may generate: the sampling mode is always left to the system.
struct OnDeviceGenerationOptions {
    double temperature = 0;
    std::int64_t maximumResponseTokens = 0;
    friend bool operator==(const OnDeviceGenerationOptions&,
                           const OnDeviceGenerationOptions&) = default;
};

/// A generation error reported by a session. Any other exception from respond() is not a
/// generation error (cancellation, for one).
class SAGELY_EXPORT OnDeviceGenerationError : public Error {
public:
    enum class Kind { exceededContextWindowSize, other };

    OnDeviceGenerationError(Kind kind, const std::string& description)
        : Error(description), m_kind(kind) {}

    Kind kind() const { return m_kind; }

private:
    Kind m_kind;
};

/// Receives the whole text generated so far (the framework's snapshots are cumulative, not
/// deltas), on the thread that called streamResponse().
using OnDeviceSnapshotHandler = std::function<void(const std::string& textSoFar)>;

/// A tool offered to the model: its name, a one-line description, and its parameters as the
/// description the framework's run-time schema is built from (JSON text the on-device client
/// makes from the action's JSON Schema, one node per schema initializer).
struct OnDeviceTool {
    std::string name;
    std::string description;
    std::string parameters;
    friend bool operator==(const OnDeviceTool&, const OnDeviceTool&) = default;
};

/// Answers one tool call, exactly once, from any thread: the text the model reads, or none when
/// the call is cancelled (the call then fails and the response ends with CancelledError).
using OnDeviceToolAnswer = std::function<void(std::optional<std::string> output)>;

/// Told, on a framework thread, that the model called `tool` with `arguments` (JSON text) while
/// a session responds; the response waits until `answer` is called. It must not block.
using OnDeviceToolCallHandler = std::function<void(
    const std::string& tool, const std::string& arguments, OnDeviceToolAnswer answer)>;

/// One conversation with a model; the system text travels inside the prompt.
class SAGELY_EXPORT OnDeviceSession {
public:
    virtual ~OnDeviceSession() = default;
    virtual std::string respond(const std::string& prompt, const OnDeviceGenerationOptions& options,
                                const CancellationToken& cancellation) = 0;
    /// Responds as respond() does, handing on the text so far as it grows, and returns the whole
    /// reply. Errors as respond(). The default responds in one piece and hands nothing on.
    virtual std::string streamResponse(const std::string& prompt,
                                       const OnDeviceGenerationOptions& options,
                                       const CancellationToken& cancellation,
                                       const OnDeviceSnapshotHandler& onSnapshot);
};

/// One selected model.
class SAGELY_EXPORT OnDeviceLanguageModel {
public:
    virtual ~OnDeviceLanguageModel() = default;
    virtual OnDeviceAvailability availability() const = 0;
    /// A session with no tools and no instructions.
    virtual std::unique_ptr<OnDeviceSession> makeSession() = 0;
    /// A session with no instructions that offers `tools`; the model's calls reach
    /// `onToolCall`. The default, for a model that cannot call tools, offers none.
    virtual std::unique_ptr<OnDeviceSession> makeSessionWithTools(
        const std::vector<OnDeviceTool>& tools, OnDeviceToolCallHandler onToolCall);
};

/// The on-device model framework.
class SAGELY_EXPORT OnDeviceModel {
public:
    virtual ~OnDeviceModel() = default;

    /// The default system language model.
    virtual std::shared_ptr<OnDeviceLanguageModel> defaultModel() = 0;
    /// The system model for the content-tagging use case, default guardrails.
    virtual std::shared_ptr<OnDeviceLanguageModel> contentTaggingModel() = 0;
    /// A system model on the adapter of that name; throws when the adapter cannot be loaded.
    virtual std::shared_ptr<OnDeviceLanguageModel> adapterModel(const std::string& name) = 0;
    /// A system model on the adapter stored at that path; throws when it cannot be loaded.
    virtual std::shared_ptr<OnDeviceLanguageModel> adapterFileModel(const std::string& path) = 0;

    /// The running system's framework (process-wide; never null). Where there is none, every
    /// model reports itself unavailable and no adapter loads.
    static std::shared_ptr<OnDeviceModel> system();
};

}  // namespace sagely
