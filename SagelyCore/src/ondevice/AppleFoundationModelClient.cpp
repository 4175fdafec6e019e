#include <sagely/AppleFoundationModelClient.h>

#include <sagely/AppleOnDevicePromptFit.h>
#include <sagely/AppleOnDeviceRouting.h>
#include <sagely/CoachLLMError.h>
#include <sagely/OperatingSystem.h>
#include <sagely/Text.h>

#include <sagely/Log.h>

#include "ondevice/AppleOnDeviceToolSchema.h"
#include "ondevice/AppleOnDeviceTranscript.h"
#include "ondevice/OnDeviceToolRun.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <mutex>
#include <optional>

namespace sagely {
namespace {

constexpr std::size_t kRetryPromptCharacters = 1500;
constexpr std::int64_t kRetryRequestedTokens = 256;

OnDeviceGenerationOptions optionsFor(const CoachConfig& config, const AppleOnDevicePromptFit& fit) {
    return {std::clamp(config.temperature, 0.0, 2.0), fit.responseTokens};
}

std::string contextWindowMessage() {
    return "Exceeded the on-device model context window. Ask a shorter question, or switch Coach "
           "to OpenAI, Anthropic, or Gemini.";
}

std::shared_ptr<OnDeviceLanguageModel> loadAdapterByName(OnDeviceModel& framework,
                                                         const std::string& name) {
    try {
        return framework.adapterModel(name);
    } catch (const std::exception&) {
        throw CoachLLMError::serverError(
            "Apple could not load the model " + name +
            ". Choose Apple Intelligence, Content Tagging, or a path to an adapter file.");
    }
}

std::shared_ptr<OnDeviceLanguageModel> loadAdapterFile(OnDeviceModel& framework,
                                                       const std::string& path) {
    try {
        return framework.adapterFileModel(path);
    } catch (const std::exception&) {
        throw CoachLLMError::serverError("Apple could not load the adapter file " + path + ".");
    }
}

// The host's actions in the framework's terms; one whose schema has no on-device form is left
// out (the model cannot be told how to call it), and the others are still offered.
std::vector<OnDeviceTool> onDeviceTools(const std::vector<LLMTool>& tools) {
    std::vector<OnDeviceTool> offered;
    for (const LLMTool& tool : tools) {
        try {
            offered.push_back({tool.name, tool.description,
                               detail::onDeviceSchemaDescription(
                                   tool.name, nlohmann::json::parse(tool.parameters))
                                   .dump()});
        } catch (const std::exception& problem) {
            log("The action " + tool.name +
                " is not offered to the on-device model: " + problem.what());
        }
    }
    return offered;
}

bool overflowed(const OnDeviceGenerationError& error) {
    return error.kind() == OnDeviceGenerationError::Kind::exceededContextWindowSize;
}

// Asks with the fitted prompt; a context-window overflow is asked once more with the prompt's
// first 1500 characters (where the system instructions stand), unless some text was shown
// already (`shown`, none when nothing streams): shown text cannot be taken back, so an overflow
// then ends the reply with it, as a length limit would, and any other generation error fails
// with its description.
template <typename Reply, typename Ask>
Reply askWithContextRetry(const AppleOnDevicePromptFit& fitted, const std::string* shown,
                          const Ask& ask) {
    const auto hasShownText = [shown] { return shown != nullptr && !shown->empty(); };
    try {
        return ask(fitted);
    } catch (const OnDeviceGenerationError& error) {
        if (!overflowed(error)) throw CoachLLMError::serverError(error.errorDescription());
        if (hasShownText()) return Reply{*shown};
    }
    const auto shorter = AppleOnDevicePromptFit::fit(
        text::prefixCharacters(fitted.prompt, kRetryPromptCharacters), kRetryRequestedTokens,
        AppleFoundationModelClient::contextTokenLimit);
    try {
        return ask(shorter);
    } catch (const CancelledError&) {
        throw;
    } catch (const OnDeviceGenerationError& error) {
        if (hasShownText()) {
            if (!overflowed(error)) throw CoachLLMError::serverError(error.errorDescription());
            return Reply{*shown};
        }
    } catch (...) {
        // Any failure of the shorter prompt means the question does not fit.
    }
    throw CoachLLMError::serverError(contextWindowMessage());
}

}  // namespace

// Responses whose calls wait for their results, until the next request brings them.
struct AppleFoundationModelClient::WaitingRuns {
    std::mutex mutex;
    std::vector<std::unique_ptr<detail::OnDeviceToolRun>> runs;

    // The run whose calls `results` answer, taken out; none when no run waits for them.
    // Runs that have ended (stopped, say) are dropped on the way.
    std::unique_ptr<detail::OnDeviceToolRun> take(const std::vector<LLMToolResult>& results) {
        std::vector<std::unique_ptr<detail::OnDeviceToolRun>> over;
        std::unique_ptr<detail::OnDeviceToolRun> found;
        {
            std::lock_guard lock(mutex);
            for (auto& run : std::exchange(runs, {})) {
                if (run->ended())
                    over.push_back(std::move(run));
                else if (!found && run->awaits(results))
                    found = std::move(run);
                else
                    runs.push_back(std::move(run));
            }
        }
        return found;  // `over` goes here, out of the lock: its threads are finishing
    }

    void keep(std::unique_ptr<detail::OnDeviceToolRun> run) {
        std::lock_guard lock(mutex);
        runs.push_back(std::move(run));
    }
};

AppleFoundationModelClient::AppleFoundationModelClient(std::shared_ptr<OnDeviceModel> model)
    : m_model(model ? std::move(model) : OnDeviceModel::system()),
      m_waiting(std::make_shared<WaitingRuns>()) {}

bool AppleFoundationModelClient::isAvailable() const {
    return m_model->defaultModel()->availability() == OnDeviceAvailability::available;
}

std::string AppleFoundationModelClient::availabilityMessage(OnDeviceAvailability availability) {
    switch (availability) {
        case OnDeviceAvailability::available:
            return "Apple Intelligence is ready.";
        case OnDeviceAvailability::deviceNotEligible:
            return "This Mac cannot run Apple Intelligence. Use OpenAI, Anthropic, or Gemini in "
                   "Coach settings.";
        case OnDeviceAvailability::appleIntelligenceNotEnabled:
            return "Turn on Apple Intelligence in System Settings \u2192 Apple Intelligence & "
                   "Siri, then ask again.";
        case OnDeviceAvailability::modelNotReady:
            return "The on-device model is still downloading. Stay on Wi-Fi, wait until Apple "
                   "Intelligence finishes setup, then ask again.";
        case OnDeviceAvailability::unavailableForOtherReason:
            break;
    }
    return "Apple Intelligence is not ready. Enable it in System Settings, or choose another "
           "Coach provider.";
}

std::string AppleFoundationModelClient::availabilityMessage(const OnDeviceLanguageModel& model) {
    return availabilityMessage(model.availability());
}

std::shared_ptr<OnDeviceLanguageModel> AppleFoundationModelClient::selectModel(
    const CoachConfig& config) const {
    const AppleOnDeviceRoute route = AppleOnDeviceRouting::route(config.resolvedModel());
    switch (route.kind) {
        case AppleOnDeviceRoute::Kind::general:
            return m_model->defaultModel();
        case AppleOnDeviceRoute::Kind::contentTagging:
            return m_model->contentTaggingModel();
        case AppleOnDeviceRoute::Kind::adapterName:
            return loadAdapterByName(*m_model, route.payload);
        case AppleOnDeviceRoute::Kind::adapterFile:
            break;
    }
    return loadAdapterFile(*m_model, route.payload);
}

// Turns the framework's cumulative snapshots into the pieces each adds. A snapshot that does not
// begin with the text handed on so far is held back: nobody downstream can take text back.
class AppleFoundationModelClient::SnapshotDeltas {
public:
    explicit SnapshotDeltas(const DeltaHandler& onDelta) : m_onDelta(onDelta) {}

    void operator()(const std::string& snapshot) {
        if (snapshot.size() <= m_shown.size() || !snapshot.starts_with(m_shown)) return;
        const std::size_t start = m_shown.size();
        m_shown = snapshot;
        if (m_onDelta) m_onDelta(std::string_view(m_shown).substr(start));
    }

    const std::string& shown() const { return m_shown; }

private:
    const DeltaHandler& m_onDelta;
    std::string m_shown;
};

std::shared_ptr<OnDeviceLanguageModel> AppleFoundationModelClient::usableModel(
    const CoachConfig& config) const {
    std::shared_ptr<OnDeviceLanguageModel> model = selectModel(config);
    if (model->availability() != OnDeviceAvailability::available) {
        throw CoachLLMError::serverError(availabilityMessage(*model));
    }
    return model;
}

std::string AppleFoundationModelClient::complete(const std::vector<LLMMessage>& messages,
                                                 const CoachConfig& config,
                                                 const CancellationToken& cancellation) const {
    return respondWithRetry(*usableModel(config)->makeSession(),
                            detail::flattenTranscript(messages), config, cancellation, nullptr);
}

std::string AppleFoundationModelClient::stream(const std::vector<LLMMessage>& messages,
                                               const CoachConfig& config,
                                               const CancellationToken& cancellation,
                                               const DeltaHandler& onDelta) const {
    SnapshotDeltas deltas(onDelta);
    std::string reply =
        respondWithRetry(*usableModel(config)->makeSession(), detail::flattenTranscript(messages),
                         config, cancellation, &deltas);
    deltas(reply);  // what the last snapshot did not hand on yet
    return reply;
}

std::string AppleFoundationModelClient::respondWithRetry(OnDeviceSession& session,
                                                         const std::string& prompt,
                                                         const CoachConfig& config,
                                                         const CancellationToken& cancellation,
                                                         SnapshotDeltas* deltas) const {
    return askWithContextRetry<std::string>(
        AppleOnDevicePromptFit::fit(prompt, config.maxTokens, contextTokenLimit),
        deltas ? &deltas->shown() : nullptr, [&](const AppleOnDevicePromptFit& fit) {
            if (!deltas) return session.respond(fit.prompt, optionsFor(config, fit), cancellation);
            return session.streamResponse(
                fit.prompt, optionsFor(config, fit), cancellation,
                [deltas](const std::string& snapshot) { (*deltas)(snapshot); });
        });
}

AppleFoundationModelClient::ToolStep AppleFoundationModelClient::streamWithTools(
    const std::vector<LLMMessage>& messages, const std::vector<LLMTool>& tools,
    const CoachConfig& config, const CancellationToken& cancellation,
    const DeltaHandler& onDelta) const {
    std::unique_ptr<detail::OnDeviceToolRun> run;
    if (!messages.empty() && messages.back().role == "tool") {
        run = m_waiting->take(messages.back().toolResults);
        if (run) run->answer(messages.back().toolResults);
    }

    // The snapshots may hold the whole response, the parts before earlier calls included: this
    // request shows and returns only what follows them.
    SnapshotDeltas deltas(onDelta);
    std::string latest;
    const auto ownPart = [&run](const std::string& snapshot) {
        return snapshot.starts_with(run->shownBefore) ? snapshot.substr(run->shownBefore.size())
                                                      : snapshot;
    };
    const auto step = [&]() -> ToolStep {
        latest = run->shownBefore;
        std::string reply;
        std::vector<LLMToolCall> calls = run->next(
            cancellation,
            [&](const std::string& snapshot) {
                latest = snapshot;
                deltas(ownPart(snapshot));
            },
            reply);
        if (calls.empty()) {
            reply = ownPart(reply);
            deltas(reply);  // what the last snapshot did not hand on yet
            return {std::move(reply), {}};
        }
        ToolStep waiting{deltas.shown(), std::move(calls)};
        run->shownBefore = latest;
        m_waiting->keep(std::move(run));
        return waiting;
    };
    if (run) {
        try {
            return step();
        } catch (const OnDeviceGenerationError& error) {
            // The calls have run: the response cannot start over with a shorter prompt.
            if (!overflowed(error)) throw CoachLLMError::serverError(error.errorDescription());
            if (!deltas.shown().empty()) return {deltas.shown(), {}};
            throw CoachLLMError::serverError(contextWindowMessage());
        }
    }
    return askWithContextRetry<ToolStep>(
        AppleOnDevicePromptFit::fit(detail::flattenTranscript(messages), config.maxTokens,
                                    contextTokenLimit),
        &deltas.shown(), [&](const AppleOnDevicePromptFit& fit) {
            run = std::make_unique<detail::OnDeviceToolRun>(
                *usableModel(config), onDeviceTools(tools), fit.prompt, optionsFor(config, fit),
                static_cast<bool>(onDelta));
            return step();
        });
}

bool AppleFoundationModelSupport::isRuntimeAvailable() {
    return isRuntimeAvailable(*OnDeviceModel::system());
}

bool AppleFoundationModelSupport::isRuntimeAvailable(OnDeviceModel& model) {
    if (!isMacOSAtLeast(26)) return false;
    return model.defaultModel()->availability() == OnDeviceAvailability::available;
}

std::string AppleFoundationModelSupport::unavailableReason() {
    return unavailableReason(*OnDeviceModel::system());
}

std::string AppleFoundationModelSupport::unavailableReason(OnDeviceModel& model) {
    if (!isMacOSAtLeast(26))
        return "Apple on-device models require macOS 26 and Apple Intelligence.";
    return AppleFoundationModelClient::availabilityMessage(*model.defaultModel());
}

}  // namespace sagely
