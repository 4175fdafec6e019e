#include "platform/OnDeviceModelSeam.h"

#include "platform/apple/FoundationModelsBridge.h"

#include <sagely/CoachLLMError.h>

#include <nlohmann/json.hpp>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace sagely::detail {
namespace {

using BridgeHandle = std::unique_ptr<void, decltype(&sagely_fm_release)>;

BridgeHandle adopt(void* handle) {
    return BridgeHandle(handle, &sagely_fm_release);
}

// Where a response lands; shared by the waiting thread and the bridge's completion.
struct PendingReply {
    std::mutex mutex;
    std::condition_variable changed;
    bool finished = false;
    bool stopped = false;
    bool hasSnapshot = false;  // a snapshot the waiting thread has not handed on yet
    std::string snapshot;      // only the latest matters: each holds the whole text so far
    int32_t outcome = SAGELY_FM_OTHER_ERROR;
    std::string text;
};

// Runs on a Swift task's thread; it owns one reference to the pending reply and never throws.
void deliverReply(void* context, int32_t outcome, const char* text) {
    std::unique_ptr<std::shared_ptr<PendingReply>> owner(
        static_cast<std::shared_ptr<PendingReply>*>(context));
    PendingReply& pending = **owner;
    std::lock_guard lock(pending.mutex);
    try {
        pending.text = text != nullptr ? text : "";
        pending.outcome = outcome;
    } catch (...) {
        pending.outcome = SAGELY_FM_OTHER_ERROR;
    }
    pending.finished = true;
    pending.changed.notify_all();
}

// Runs on a Swift task's thread, before that stream's completion; never throws.
void deliverSnapshot(void* context, const char* text) {
    PendingReply& pending = **static_cast<std::shared_ptr<PendingReply>*>(context);
    std::lock_guard lock(pending.mutex);
    try {
        pending.snapshot = text != nullptr ? text : "";
        pending.hasSnapshot = true;
    } catch (...) {
        // A snapshot lost for want of memory is made good by the next one, or by the reply.
    }
    pending.changed.notify_all();
}

std::string replyOrThrow(int32_t outcome, const std::string& text) {
    using Kind = OnDeviceGenerationError::Kind;
    switch (outcome) {
        case SAGELY_FM_REPLY:
            return text;
        case SAGELY_FM_EXCEEDED_CONTEXT:
            throw OnDeviceGenerationError(Kind::exceededContextWindowSize, text);
        case SAGELY_FM_GENERATION_ERROR:
            throw OnDeviceGenerationError(Kind::other, text);
        case SAGELY_FM_CANCELLED:
            throw CancelledError();
        default:
            throw Error(text);
    }
}

// The tool handlers of open sessions, by number. The bridge is handed the number, not a pointer:
// a stopped response's task may still call a tool after its session is gone, and then finds
// nothing here.
class ToolHandlers {
public:
    static std::uintptr_t add(OnDeviceToolCallHandler handler) {
        std::lock_guard lock(mutex());
        static std::uintptr_t last = 0;
        handlers().emplace(++last, std::make_shared<OnDeviceToolCallHandler>(std::move(handler)));
        return last;
    }
    static void remove(std::uintptr_t number) {
        std::lock_guard lock(mutex());
        handlers().erase(number);
    }
    static std::shared_ptr<OnDeviceToolCallHandler> find(std::uintptr_t number) {
        std::lock_guard lock(mutex());
        auto found = handlers().find(number);
        return found == handlers().end() ? nullptr : found->second;
    }

private:
    static std::mutex& mutex() {
        static std::mutex m;
        return m;
    }
    static std::map<std::uintptr_t, std::shared_ptr<OnDeviceToolCallHandler>>& handlers() {
        static std::map<std::uintptr_t, std::shared_ptr<OnDeviceToolCallHandler>> h;
        return h;
    }
};

// Sends a tool call's answer once; an answer dropped unsent cancels the call, so the framework
// never waits for nothing.
class ToolReplyOnce {
public:
    explicit ToolReplyOnce(void* reply) : m_reply(reply) {}
    ~ToolReplyOnce() { send(nullptr); }
    void send(const char* output) {
        if (!m_sent.exchange(true)) sagely_fm_tool_reply(m_reply, output);
    }

private:
    void* m_reply;
    std::atomic<bool> m_sent{false};
};

// Runs on a framework thread; never throws.
void deliverToolCall(void* context, const char* tool, const char* arguments, void* reply) {
    auto once = std::make_shared<ToolReplyOnce>(reply);
    try {
        auto handler = ToolHandlers::find(reinterpret_cast<std::uintptr_t>(context));
        if (!handler) return;
        (*handler)(tool != nullptr ? tool : "", arguments != nullptr ? arguments : "{}",
                   [once](std::optional<std::string> output) {
                       once->send(output ? output->c_str() : nullptr);
                   });
    } catch (...) {
        // The call fails as cancelled when the last copy of its answer goes.
    }
}

class SystemSession final : public OnDeviceSession {
public:
    explicit SystemSession(BridgeHandle session, std::uintptr_t tools = 0)
        : m_session(std::move(session)), m_tools(tools) {}
    ~SystemSession() override {
        if (m_tools != 0) ToolHandlers::remove(m_tools);
    }

    std::string respond(const std::string& prompt, const OnDeviceGenerationOptions& options,
                        const CancellationToken& cancellation) override {
        return await(cancellation, nullptr, [&](void* context) {
            return sagely_fm_session_respond(m_session.get(), prompt.c_str(), options.temperature,
                                             options.maximumResponseTokens, context, &deliverReply);
        });
    }

    std::string streamResponse(const std::string& prompt, const OnDeviceGenerationOptions& options,
                               const CancellationToken& cancellation,
                               const OnDeviceSnapshotHandler& onSnapshot) override {
        return await(cancellation, &onSnapshot, [&](void* context) {
            return sagely_fm_session_stream(m_session.get(), prompt.c_str(), options.temperature,
                                            options.maximumResponseTokens, context,
                                            &deliverSnapshot, &deliverReply);
        });
    }

private:
    // Starts a response with `start(context)` and waits for its end on this thread, handing
    // snapshots to `onSnapshot` here as they arrive.
    template <typename Start>
    static std::string await(const CancellationToken& cancellation,
                             const OnDeviceSnapshotHandler* onSnapshot, Start start) {
        if (cancellation.stopRequested()) throw CancelledError();
        auto pending = std::make_shared<PendingReply>();
        auto* context = new std::shared_ptr<PendingReply>(pending);
        BridgeHandle task = adopt(start(context));
        if (!task) {
            delete context;
            throw Error("The on-device model could not start a response.");
        }
        auto registration = cancellation.onStop([&pending, &task] {
            sagely_fm_task_cancel(task.get());
            std::lock_guard lock(pending->mutex);
            pending->stopped = true;
            pending->changed.notify_all();
        });
        std::unique_lock lock(pending->mutex);
        while (true) {
            pending->changed.wait(lock, [&] {
                return pending->finished || pending->stopped || pending->hasSnapshot;
            });
            if (pending->hasSnapshot && !pending->stopped) {
                pending->hasSnapshot = false;
                if (!onSnapshot) continue;
                const std::string text = std::move(pending->snapshot);
                lock.unlock();
                try {
                    (*onSnapshot)(text);
                } catch (...) {
                    sagely_fm_task_cancel(task.get());
                    throw;
                }
                lock.lock();
                continue;
            }
            if (!pending->finished) throw CancelledError();
            return replyOrThrow(pending->outcome, pending->text);
        }
    }

    BridgeHandle m_session;
    std::uintptr_t m_tools;
};

class SystemLanguageModel final : public OnDeviceLanguageModel {
public:
    explicit SystemLanguageModel(BridgeHandle model) : m_model(std::move(model)) {}

    OnDeviceAvailability availability() const override {
        if (!m_model) return OnDeviceAvailability::deviceNotEligible;
        switch (sagely_fm_model_availability(m_model.get())) {
            case SAGELY_FM_AVAILABLE:
                return OnDeviceAvailability::available;
            case SAGELY_FM_DEVICE_NOT_ELIGIBLE:
                return OnDeviceAvailability::deviceNotEligible;
            case SAGELY_FM_APPLE_INTELLIGENCE_NOT_ENABLED:
                return OnDeviceAvailability::appleIntelligenceNotEnabled;
            case SAGELY_FM_MODEL_NOT_READY:
                return OnDeviceAvailability::modelNotReady;
            default:
                return OnDeviceAvailability::unavailableForOtherReason;
        }
    }

    std::unique_ptr<OnDeviceSession> makeSession() override {
        BridgeHandle session = adopt(m_model ? sagely_fm_session_create(m_model.get()) : nullptr);
        if (!session) throw Error("The on-device model could not open a session.");
        return std::make_unique<SystemSession>(std::move(session));
    }

    std::unique_ptr<OnDeviceSession> makeSessionWithTools(
        const std::vector<OnDeviceTool>& tools, OnDeviceToolCallHandler onToolCall) override {
        nlohmann::json list = nlohmann::json::array();
        for (const OnDeviceTool& tool : tools)
            list.push_back({{"name", tool.name},
                            {"description", tool.description},
                            {"parameters", nlohmann::json::parse(tool.parameters)}});
        const std::uintptr_t number = ToolHandlers::add(std::move(onToolCall));
        BridgeHandle session =
            adopt(m_model ? sagely_fm_session_create_with_tools(m_model.get(), list.dump().c_str(),
                                                                reinterpret_cast<void*>(number),
                                                                &deliverToolCall)
                          : nullptr);
        if (!session) {
            ToolHandlers::remove(number);
            throw Error("The on-device model could not open a session with the host's actions.");
        }
        return std::make_unique<SystemSession>(std::move(session), number);
    }

private:
    BridgeHandle m_model;
};

class FoundationModelsOnDeviceModel final : public OnDeviceModel {
public:
    std::shared_ptr<OnDeviceLanguageModel> defaultModel() override {
        return std::make_shared<SystemLanguageModel>(adopt(sagely_fm_default_model()));
    }
    std::shared_ptr<OnDeviceLanguageModel> contentTaggingModel() override {
        return std::make_shared<SystemLanguageModel>(adopt(sagely_fm_content_tagging_model()));
    }
    std::shared_ptr<OnDeviceLanguageModel> adapterModel(const std::string& name) override {
        BridgeHandle model = adopt(sagely_fm_adapter_model(name.c_str()));
        if (!model) throw Error("The adapter could not be loaded.");
        return std::make_shared<SystemLanguageModel>(std::move(model));
    }
    std::shared_ptr<OnDeviceLanguageModel> adapterFileModel(const std::string& path) override {
        BridgeHandle model = adopt(sagely_fm_adapter_file_model(path.c_str()));
        if (!model) throw Error("The adapter file could not be loaded.");
        return std::make_shared<SystemLanguageModel>(std::move(model));
    }
};

}  // namespace

std::shared_ptr<OnDeviceModel> makeSystemOnDeviceModel() {
    return std::make_shared<FoundationModelsOnDeviceModel>();
}

}  // namespace sagely::detail
