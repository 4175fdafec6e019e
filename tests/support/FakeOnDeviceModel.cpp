#include "support/FakeOnDeviceModel.h"

#include <sagely/CoachLLMError.h>

#include <algorithm>
#include <condition_variable>
#include <stdexcept>

namespace sagely::testing {

class FakeOnDeviceModel::Session final : public OnDeviceSession {
public:
    Session(std::shared_ptr<FakeOnDeviceModel> owner, std::string model, std::size_t number,
            std::vector<OnDeviceTool> tools = {}, OnDeviceToolCallHandler onToolCall = {})
        : m_owner(std::move(owner)),
          m_model(std::move(model)),
          m_number(number),
          m_tools(std::move(tools)),
          m_onToolCall(std::move(onToolCall)) {}

    std::string respond(const std::string& prompt, const OnDeviceGenerationOptions& options,
                        const CancellationToken& cancellation) override {
        if (cancellation.stopRequested()) throw CancelledError();
        const Answer answer = m_owner->next({m_model, m_number, prompt, options, false, m_tools});
        m_owner->callTools(answer, m_onToolCall, cancellation);
        return outcome(answer);
    }

    std::string streamResponse(const std::string& prompt, const OnDeviceGenerationOptions& options,
                               const CancellationToken& cancellation,
                               const OnDeviceSnapshotHandler& onSnapshot) override {
        if (cancellation.stopRequested()) throw CancelledError();
        const Answer answer = m_owner->next({m_model, m_number, prompt, options, true, m_tools});
        for (const auto& snapshot : answer.leadIn) onSnapshot(snapshot);
        m_owner->callTools(answer, m_onToolCall, cancellation);
        for (const auto& snapshot : answer.snapshots) {
            if (cancellation.stopRequested()) throw CancelledError();
            onSnapshot(snapshot);
        }
        if (answer.stalls) waitForStop(cancellation);
        return outcome(answer);
    }

private:
    static std::string outcome(const Answer& answer) {
        if (answer.failure) std::rethrow_exception(answer.failure);
        return answer.text;
    }

    static void waitForStop(const CancellationToken& cancellation) {
        std::mutex mutex;
        std::condition_variable stopped;
        bool done = false;
        auto registration = cancellation.onStop([&] {
            std::lock_guard lock(mutex);
            done = true;
            stopped.notify_all();
        });
        std::unique_lock lock(mutex);
        stopped.wait(lock, [&] { return done; });
        throw CancelledError();
    }

    std::shared_ptr<FakeOnDeviceModel> m_owner;
    std::string m_model;
    std::size_t m_number;
    std::vector<OnDeviceTool> m_tools;
    OnDeviceToolCallHandler m_onToolCall;
};

class FakeOnDeviceModel::Model final : public OnDeviceLanguageModel {
public:
    Model(std::shared_ptr<FakeOnDeviceModel> owner, std::string label,
          OnDeviceAvailability availability)
        : m_owner(std::move(owner)), m_label(std::move(label)), m_availability(availability) {}

    OnDeviceAvailability availability() const override { return m_availability; }
    std::unique_ptr<OnDeviceSession> makeSession() override {
        return std::make_unique<Session>(m_owner, m_label, m_owner->openSession());
    }
    std::unique_ptr<OnDeviceSession> makeSessionWithTools(
        const std::vector<OnDeviceTool>& tools, OnDeviceToolCallHandler onToolCall) override {
        return std::make_unique<Session>(m_owner, m_label, m_owner->openSession(), tools,
                                         std::move(onToolCall));
    }

private:
    std::shared_ptr<FakeOnDeviceModel> m_owner;
    std::string m_label;
    OnDeviceAvailability m_availability;
};

FakeOnDeviceModel::Answer FakeOnDeviceModel::exceededContextWindow() {
    return failure(OnDeviceGenerationError(OnDeviceGenerationError::Kind::exceededContextWindowSize,
                                           "Exceeded model context window size"));
}

FakeOnDeviceModel::Answer FakeOnDeviceModel::generationError(std::string description) {
    return failure(OnDeviceGenerationError(OnDeviceGenerationError::Kind::other, description));
}

void FakeOnDeviceModel::setDefaultAvailability(OnDeviceAvailability availability) {
    std::lock_guard lock(m_mutex);
    m_defaultAvailability = availability;
}

void FakeOnDeviceModel::setContentTaggingAvailability(OnDeviceAvailability availability) {
    std::lock_guard lock(m_mutex);
    m_contentTaggingAvailability = availability;
}

void FakeOnDeviceModel::addAdapter(const std::string& name) {
    std::lock_guard lock(m_mutex);
    m_adapters.push_back(name);
}

void FakeOnDeviceModel::addAdapterFile(const std::string& path) {
    std::lock_guard lock(m_mutex);
    m_adapterFiles.push_back(path);
}

void FakeOnDeviceModel::enqueue(Answer answer) {
    std::lock_guard lock(m_mutex);
    m_answers.push_back(std::move(answer));
}

std::vector<std::string> FakeOnDeviceModel::selectedModels() const {
    std::lock_guard lock(m_mutex);
    return m_selected;
}

std::vector<std::string> FakeOnDeviceModel::failedLoads() const {
    std::lock_guard lock(m_mutex);
    return m_failedLoads;
}

std::size_t FakeOnDeviceModel::sessionsMade() const {
    std::lock_guard lock(m_mutex);
    return m_sessions;
}

std::vector<FakeOnDeviceModel::RespondCall> FakeOnDeviceModel::respondCalls() const {
    std::lock_guard lock(m_mutex);
    return m_calls;
}

std::shared_ptr<OnDeviceLanguageModel> FakeOnDeviceModel::select(
    const std::string& label, OnDeviceAvailability availability) {
    {
        std::lock_guard lock(m_mutex);
        m_selected.push_back(label);
    }
    return std::make_shared<Model>(shared_from_this(), label, availability);
}

std::shared_ptr<OnDeviceLanguageModel> FakeOnDeviceModel::defaultModel() {
    return select("default", [this] {
        std::lock_guard lock(m_mutex);
        return m_defaultAvailability;
    }());
}

std::shared_ptr<OnDeviceLanguageModel> FakeOnDeviceModel::contentTaggingModel() {
    return select("content-tagging", [this] {
        std::lock_guard lock(m_mutex);
        return m_contentTaggingAvailability;
    }());
}

std::shared_ptr<OnDeviceLanguageModel> FakeOnDeviceModel::adapterModel(const std::string& name) {
    {
        std::lock_guard lock(m_mutex);
        if (std::find(m_adapters.begin(), m_adapters.end(), name) == m_adapters.end()) {
            m_failedLoads.push_back("adapter:" + name);
            throw std::runtime_error("The adapter asset is missing.");
        }
    }
    return select("adapter:" + name, OnDeviceAvailability::available);
}

std::shared_ptr<OnDeviceLanguageModel> FakeOnDeviceModel::adapterFileModel(
    const std::string& path) {
    {
        std::lock_guard lock(m_mutex);
        if (std::find(m_adapterFiles.begin(), m_adapterFiles.end(), path) == m_adapterFiles.end()) {
            m_failedLoads.push_back("adapter-file:" + path);
            throw std::runtime_error("The file could not be opened.");
        }
    }
    return select("adapter-file:" + path, OnDeviceAvailability::available);
}

std::size_t FakeOnDeviceModel::openSession() {
    std::lock_guard lock(m_mutex);
    return ++m_sessions;
}

FakeOnDeviceModel::Answer FakeOnDeviceModel::next(RespondCall call) {
    std::lock_guard lock(m_mutex);
    m_calls.push_back(std::move(call));
    if (m_answers.empty()) return reply("fake reply");
    Answer answer = std::move(m_answers.front());
    m_answers.pop_front();
    return answer;
}

std::vector<FakeOnDeviceModel::ToolCallRecord> FakeOnDeviceModel::toolCalls() const {
    std::lock_guard lock(m_mutex);
    return m_toolCalls;
}

void FakeOnDeviceModel::callTools(const Answer& answer, const OnDeviceToolCallHandler& onToolCall,
                                  const CancellationToken& cancellation) {
    auto stopped = cancellation.onStop([this] {
        std::lock_guard lock(m_mutex);
        m_toolAnswered.notify_all();
    });
    for (const auto& round : answer.toolRounds) {
        if (!onToolCall) throw std::logic_error("The session offers no tools.");
        std::size_t first = 0;
        {
            std::lock_guard lock(m_mutex);
            first = m_toolCalls.size();
            for (const ToolCall& call : round) m_toolCalls.push_back({call.tool, call.arguments});
        }
        for (std::size_t i = 0; i < round.size(); ++i) {
            onToolCall(round[i].tool, round[i].arguments,
                       [this, index = first + i](std::optional<std::string> output) {
                           std::lock_guard lock(m_mutex);
                           m_toolCalls[index].answered = true;
                           m_toolCalls[index].output = std::move(output);
                           m_toolAnswered.notify_all();
                       });
        }
        std::unique_lock lock(m_mutex);
        m_toolAnswered.wait(lock, [&] {
            if (cancellation.stopRequested()) return true;
            for (std::size_t i = first; i < first + round.size(); ++i)
                if (!m_toolCalls[i].answered) return false;
            return true;
        });
        for (std::size_t i = first; i < first + round.size(); ++i)
            if (!m_toolCalls[i].output) throw CancelledError();  // a call the framework lost
    }
}

}  // namespace sagely::testing
