// One on-device response that offers tools. The framework runs the tool loop inside a single
// response, while the coach runs its loop across requests (the model calls, the coach decides,
// the results go back in the next request): the run joins the two. Its response goes on on a
// thread of its own; each call the model makes is handed out as an LLMToolCall, and the call
// waits until the next request brings its result.
//
// Thread rules: one thread at a time calls next() and answer(); the framework's threads call the
// tool handler and hand over snapshots. Destroying the run cancels it and waits for its thread.
#pragma once

#include <sagely/CancellationToken.h>
#include <sagely/LLMMessage.h>
#include <sagely/OnDeviceModel.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace sagely::detail {

class OnDeviceToolRun {
public:
    /// Opens a session on `model` offering `tools` and starts responding to `prompt`,
    /// streamed or in one piece.
    OnDeviceToolRun(OnDeviceLanguageModel& model, const std::vector<OnDeviceTool>& tools,
                    std::string prompt, OnDeviceGenerationOptions options, bool streamed);
    ~OnDeviceToolRun();
    OnDeviceToolRun(const OnDeviceToolRun&) = delete;
    OnDeviceToolRun& operator=(const OnDeviceToolRun&) = delete;

    /// Waits for the model's next calls (empty: the response is complete, its text in `reply`),
    /// handing each snapshot to `onSnapshot` on this thread. Stopping `cancellation`, now or
    /// while the calls wait for their results, cancels the run. Throws what the response threw
    /// (CancelledError once cancelled).
    std::vector<LLMToolCall> next(const CancellationToken& cancellation,
                                  const OnDeviceSnapshotHandler& onSnapshot, std::string& reply);

    /// Whether `results` answer calls this run handed out and still waits for.
    bool awaits(const std::vector<LLMToolResult>& results) const;
    /// Hands the results to the waiting calls; a waiting call without one is told it did not
    /// run.
    void answer(const std::vector<LLMToolResult>& results);
    /// Whether the response has ended (nothing waits any more).
    bool ended() const;

    /// The text shown to the user before this part of the response (the stream's snapshots
    /// hold the whole response so far).
    std::string shownBefore;

private:
    struct State;
    void cancel();

    std::shared_ptr<State> m_state;
    CancellationToken::Registration m_requestStop;
    std::thread m_thread;
};

}  // namespace sagely::detail
