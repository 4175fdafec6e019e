#include "ondevice/OnDeviceToolRun.h"

#include <sagely/Error.h>
#include <sagely/Uuid.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <optional>
#include <utility>

namespace sagely::detail {
namespace {

const char* const kNotAnswered = "Not run: no result came back for this call.";

}  // namespace

struct OnDeviceToolRun::State {
    struct Call {
        LLMToolCall call;
        OnDeviceToolAnswer answer;
        bool handedOut = false;
    };

    std::mutex mutex;
    std::condition_variable changed;
    CancellationToken stop;
    std::vector<Call> calls;  // asked by the model, not answered yet
    std::optional<std::string> snapshot;
    bool ended = false;
    std::string reply;
    std::exception_ptr failure;

    // Framework thread: the call waits in `calls` until its result comes.
    void asked(const std::string& tool, const std::string& arguments, OnDeviceToolAnswer answer) {
        {
            std::lock_guard lock(mutex);
            if (!stop.stopRequested()) {
                // The framework gives a tool no call id: the kit makes one up.
                calls.push_back({{"ondevice-" + Uuid::random().toString(), tool, arguments, true},
                                 std::move(answer)});
                changed.notify_all();
                return;
            }
        }
        answer(std::nullopt);
    }

    std::vector<Call> takeCalls() {
        std::lock_guard lock(mutex);
        return std::exchange(calls, {});
    }
};

OnDeviceToolRun::OnDeviceToolRun(OnDeviceLanguageModel& model,
                                 const std::vector<OnDeviceTool>& tools, std::string prompt,
                                 OnDeviceGenerationOptions options, bool streamed)
    : m_state(std::make_shared<State>()) {
    std::weak_ptr<State> weak = m_state;
    std::shared_ptr<OnDeviceSession> session = model.makeSessionWithTools(
        tools,
        [weak](const std::string& tool, const std::string& arguments, OnDeviceToolAnswer answer) {
            if (auto state = weak.lock()) return state->asked(tool, arguments, std::move(answer));
            answer(std::nullopt);
        });
    m_thread =
        std::thread([state = m_state, session, prompt = std::move(prompt), options, streamed] {
            std::string reply;
            std::exception_ptr failure;
            try {
                reply = streamed ? session->streamResponse(prompt, options, state->stop,
                                                           [&state](const std::string& text) {
                                                               std::lock_guard lock(state->mutex);
                                                               state->snapshot = text;
                                                               state->changed.notify_all();
                                                           })
                                 : session->respond(prompt, options, state->stop);
            } catch (...) {
                failure = std::current_exception();
            }
            // A call the response no longer waits for is let go.
            for (auto& call : state->takeCalls()) call.answer(std::nullopt);
            std::lock_guard lock(state->mutex);
            state->reply = std::move(reply);
            state->failure = failure;
            state->ended = true;
            state->changed.notify_all();
        });
}

OnDeviceToolRun::~OnDeviceToolRun() {
    m_requestStop = {};
    cancel();
    m_thread.join();
}

void OnDeviceToolRun::cancel() {
    m_state->stop.requestStop();
    for (auto& call : m_state->takeCalls()) call.answer(std::nullopt);
}

std::vector<LLMToolCall> OnDeviceToolRun::next(const CancellationToken& cancellation,
                                               const OnDeviceSnapshotHandler& onSnapshot,
                                               std::string& reply) {
    m_requestStop = cancellation.onStop([this] { cancel(); });
    std::unique_lock lock(m_state->mutex);
    while (true) {
        m_state->changed.wait(lock, [&] {
            return m_state->snapshot || m_state->ended ||
                   std::any_of(m_state->calls.begin(), m_state->calls.end(),
                               [](const State::Call& call) { return !call.handedOut; });
        });
        if (m_state->snapshot) {
            const std::string text = std::move(*m_state->snapshot);
            m_state->snapshot.reset();
            lock.unlock();
            if (onSnapshot) onSnapshot(text);
            lock.lock();
            continue;
        }
        if (m_state->ended) {
            if (m_state->failure) std::rethrow_exception(m_state->failure);
            reply = m_state->reply;
            return {};
        }
        // Calls the framework makes at once arrive one by one: all of them so far form a round.
        std::vector<LLMToolCall> asked;
        for (State::Call& call : m_state->calls) {
            if (call.handedOut) continue;
            call.handedOut = true;
            asked.push_back(call.call);
        }
        return asked;
    }
}

bool OnDeviceToolRun::awaits(const std::vector<LLMToolResult>& results) const {
    std::lock_guard lock(m_state->mutex);
    if (m_state->ended) return false;
    return std::any_of(results.begin(), results.end(), [&](const LLMToolResult& result) {
        return std::any_of(m_state->calls.begin(), m_state->calls.end(),
                           [&](const State::Call& call) {
                               return call.handedOut && call.call.id == result.callId;
                           });
    });
}

void OnDeviceToolRun::answer(const std::vector<LLMToolResult>& results) {
    std::vector<State::Call> answered;
    {
        std::lock_guard lock(m_state->mutex);
        auto waiting =
            std::stable_partition(m_state->calls.begin(), m_state->calls.end(),
                                  [](const State::Call& call) { return !call.handedOut; });
        std::move(waiting, m_state->calls.end(), std::back_inserter(answered));
        m_state->calls.erase(waiting, m_state->calls.end());
    }
    for (State::Call& call : answered) {
        auto result = std::find_if(results.begin(), results.end(), [&](const LLMToolResult& r) {
            return r.callId == call.call.id;
        });
        call.answer(result != results.end() ? result->content : std::string(kNotAnswered));
    }
}

bool OnDeviceToolRun::ended() const {
    std::lock_guard lock(m_state->mutex);
    return m_state->ended;
}

}  // namespace sagely::detail
