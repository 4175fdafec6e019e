// The C face of the Swift bridge to the system's on-device language model (FoundationModels,
// macOS 26 and later). Every handle is an opaque, retained pointer released with
// sagely_fm_release. On systems without the framework every model function returns NULL.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Availability codes of sagely_fm_model_availability.
enum {
    SAGELY_FM_AVAILABLE = 0,
    SAGELY_FM_DEVICE_NOT_ELIGIBLE = 1,
    SAGELY_FM_APPLE_INTELLIGENCE_NOT_ENABLED = 2,
    SAGELY_FM_MODEL_NOT_READY = 3,
    SAGELY_FM_UNAVAILABLE_OTHER = 4,
};

/// Outcome codes passed to a respond completion.
enum {
    SAGELY_FM_REPLY = 0,             ///< text: the response's content
    SAGELY_FM_EXCEEDED_CONTEXT = 1,  ///< text: the error's description
    SAGELY_FM_GENERATION_ERROR = 2,  ///< text: the error's localized description
    SAGELY_FM_CANCELLED = 3,         ///< text: NULL
    SAGELY_FM_OTHER_ERROR = 4,       ///< text: the error's localized description
};

/// Called exactly once per successful sagely_fm_session_respond or sagely_fm_session_stream, on
/// an arbitrary thread. `text` is valid only during the call.
typedef void (*sagely_fm_completion)(void* context, int32_t outcome, const char* text);

/// Called with the whole text generated so far, before the completion of the same stream and
/// never concurrently with it or with itself. `text` is valid only during the call.
typedef void (*sagely_fm_snapshot)(void* context, const char* text);

/// Called when the model calls a tool of a session made by sagely_fm_session_create_with_tools,
/// on an arbitrary thread, possibly concurrently with itself. The strings are valid only during
/// the call; `reply` must reach sagely_fm_tool_reply exactly once, from any thread.
typedef void (*sagely_fm_tool_call)(void* context, const char* tool, const char* arguments,
                                    void* reply);

void sagely_fm_release(void* handle);

void* sagely_fm_default_model(void);
void* sagely_fm_content_tagging_model(void);
/// NULL when the adapter cannot be loaded.
void* sagely_fm_adapter_model(const char* name);
void* sagely_fm_adapter_file_model(const char* path);
int32_t sagely_fm_model_availability(void* model);

/// A session with no tools and no instructions; NULL when the model is not usable.
void* sagely_fm_session_create(void* model);
/// A session with no instructions offering the tools of `tools`: JSON text, an array of
/// {"name", "description", "parameters"}, the parameters described as AppleOnDeviceToolSchema.h
/// says. The model's calls go to `onToolCall` with `context`. NULL when the model is not usable
/// or a schema cannot be built.
void* sagely_fm_session_create_with_tools(void* model, const char* tools, void* context,
                                          sagely_fm_tool_call onToolCall);
/// Answers a tool call: `output` is what the model reads; NULL makes the call fail as
/// cancelled (the response then ends).
void sagely_fm_tool_reply(void* reply, const char* output);
/// Starts a response and returns its task, or NULL (then `completion` is never called).
void* sagely_fm_session_respond(void* session, const char* prompt, double temperature,
                                int64_t maximumResponseTokens, void* context,
                                sagely_fm_completion completion);
/// As sagely_fm_session_respond, streaming: `snapshot` receives each snapshot of the response,
/// then `completion` its end (the whole text, or the error).
void* sagely_fm_session_stream(void* session, const char* prompt, double temperature,
                               int64_t maximumResponseTokens, void* context,
                               sagely_fm_snapshot snapshot, sagely_fm_completion completion);
void sagely_fm_task_cancel(void* task);

#ifdef __cplusplus
}
#endif
