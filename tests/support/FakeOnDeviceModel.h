// FakeOnDeviceModel — an on-device model framework for tests: models with chosen availability,
// adapters that load or fail by name or path, and sessions that answer from a script while
// recording every prompt, option and tool they were given. An answer may first call tools, as
// the framework does inside one response: round by round, each round's calls made at once, the
// response waiting for all their outputs (a cancelled call, or a stop, ends it with
// CancelledError). A streamed answer then hands its scripted snapshots on, and may then wait
// until it is stopped.
//
// Thread rules: respond() and streamResponse() may run on a worker thread while the test reads the
// records; every member is guarded by one mutex.
#pragma once

#include <sagely/OnDeviceModel.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace sagely::testing {

class FakeOnDeviceModel final : public OnDeviceModel,
                                public std::enable_shared_from_this<FakeOnDeviceModel> {
public:
    /// One respond() call, with the model its session was opened on: "default",
    /// "content-tagging", "adapter:<name>" or "adapter-file:<path>".
    struct RespondCall {
        std::string model;
        std::size_t session = 0;  ///< counting from 1, in the order sessions were made
        std::string prompt;
        OnDeviceGenerationOptions options;
        bool streamed = false;                 ///< asked through streamResponse()
        std::vector<OnDeviceTool> tools = {};  ///< offered by the session
    };
    /// A call an answer makes: the tool's name and the arguments as JSON text.
    struct ToolCall {
        std::string tool;
        std::string arguments;
    };
    /// A call made, and what it was answered (none: cancelled; unset while it waits).
    struct ToolCallRecord {
        std::string tool;
        std::string arguments;
        bool answered = false;
        std::optional<std::string> output;
    };
    /// One scripted answer: a reply text, or an exception to throw. When streamed, the
    /// snapshots come first, each the whole text so far; with `stalls`, the answer then waits
    /// until its token is stopped (and throws CancelledError).
    struct Answer {
        std::string text;
        std::exception_ptr failure;
        std::vector<std::string> snapshots = {};
        bool stalls = false;
        /// Calls made before the text, round by round.
        std::vector<std::vector<ToolCall>> toolRounds = {};
        /// When streamed, snapshots handed on before the calls.
        std::vector<std::string> leadIn = {};
    };

    static Answer reply(std::string text) { return {std::move(text), nullptr}; }
    static Answer exceededContextWindow();
    static Answer generationError(std::string description);
    template <typename E>
    static Answer failure(E error) {
        return {{}, std::make_exception_ptr(std::move(error))};
    }

    void setDefaultAvailability(OnDeviceAvailability availability);
    void setContentTaggingAvailability(OnDeviceAvailability availability);
    /// Adapters that load; any other name or path fails to load.
    void addAdapter(const std::string& name);
    void addAdapterFile(const std::string& path);

    /// Answers in order; once they run out, respond() replies "fake reply".
    void enqueue(Answer answer);

    /// Every model selected, labelled as in RespondCall.
    std::vector<std::string> selectedModels() const;
    /// Every adapter that failed to load, labelled as in RespondCall.
    std::vector<std::string> failedLoads() const;
    std::size_t sessionsMade() const;
    std::vector<RespondCall> respondCalls() const;
    std::vector<ToolCallRecord> toolCalls() const;

    std::shared_ptr<OnDeviceLanguageModel> defaultModel() override;
    std::shared_ptr<OnDeviceLanguageModel> contentTaggingModel() override;
    std::shared_ptr<OnDeviceLanguageModel> adapterModel(const std::string& name) override;
    std::shared_ptr<OnDeviceLanguageModel> adapterFileModel(const std::string& path) override;

private:
    class Model;
    class Session;
    friend class Model;
    friend class Session;

    std::shared_ptr<OnDeviceLanguageModel> select(const std::string& label,
                                                  OnDeviceAvailability availability);
    std::size_t openSession();
    /// Records the call and takes the next answer.
    Answer next(RespondCall call);
    /// Makes the answer's calls through `onToolCall` and waits for their outputs.
    void callTools(const Answer& answer, const OnDeviceToolCallHandler& onToolCall,
                   const CancellationToken& cancellation);

    mutable std::mutex m_mutex;
    OnDeviceAvailability m_defaultAvailability = OnDeviceAvailability::available;
    OnDeviceAvailability m_contentTaggingAvailability = OnDeviceAvailability::available;
    std::vector<std::string> m_adapters;
    std::vector<std::string> m_adapterFiles;
    std::deque<Answer> m_answers;
    std::vector<std::string> m_selected;
    std::vector<std::string> m_failedLoads;
    std::size_t m_sessions = 0;
    std::vector<RespondCall> m_calls;
    std::vector<ToolCallRecord> m_toolCalls;
    std::condition_variable m_toolAnswered;
};

}  // namespace sagely::testing
