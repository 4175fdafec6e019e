#include <sagely/LLMClient.h>

#include <sagely/AppleFoundationModelClient.h>
#include <sagely/CoachLLMError.h>
#include <sagely/Error.h>
#include <sagely/OperatingSystem.h>
#include <sagely/Text.h>

#include "llm/AnthropicMessagesDialect.h"
#include "llm/GeminiGenerateContentDialect.h"
#include "llm/HttpTransport.h"
#include "llm/ModelListFormats.h"
#include "llm/OllamaChatDialect.h"
#include "llm/OpenAIChatDialect.h"
#include "llm/RetryPolicy.h"
#include "llm/StreamedReply.h"
#include "settings/ProviderEndpoints.h"

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>

namespace sagely {
namespace {

using detail::Dialect;

const Dialect& dialectFor(Provider provider) {
    static const detail::OpenAIChatDialect openAI;
    static const detail::AnthropicMessagesDialect anthropic;
    static const detail::GeminiGenerateContentDialect gemini;
    static const detail::OllamaChatDialect ollama;
    switch (provider) {
        case Provider::anthropic:
            return anthropic;
        case Provider::gemini:
            return gemini;
        case Provider::local:
            return ollama;
        case Provider::apple:
        case Provider::openai:
        case Provider::custom:
            break;
    }
    return openAI;
}

bool usesOnDeviceModel(const CoachConfig& config) {
    return config.provider == Provider::apple && text::trimmed(config.customEndpoint).empty();
}

void requireOnDeviceSystem() {
    if (!isMacOSAtLeast(26)) {
        throw CoachLLMError::serverError(
            "Apple on-device models require macOS 26 and Apple Intelligence.");
    }
}

bool isControlCharacter(char32_t c) {
    return c < 0x20 || (c >= 0x7F && c <= 0x9F);
}

// The key as it may travel in a header: trimmed, and never holding a character that could end
// the header line.
std::string sendableAPIKey(const std::string& apiKey) {
    const std::string key = text::trimmed(apiKey);
    for (char32_t c : text::toUtf16(key)) {
        if (isControlCharacter(c)) {
            throw CoachLLMError::serverError(
                "The API key contains characters that cannot be sent in a request header.");
        }
    }
    return key;
}

detail::HttpRequest requestFor(const Dialect& dialect, const std::vector<LLMMessage>& messages,
                               const std::vector<LLMTool>& tools, const CoachConfig& config,
                               const std::string& model, std::string url, bool streamed) {
    detail::HttpRequest request;
    request.url = streamed ? dialect.streamingURL(std::move(url)) : std::move(url);
    nlohmann::json body = streamed ? dialect.streamingBody(messages, config, model)
                                   : dialect.body(messages, config, model);
    if (!tools.empty()) dialect.addTools(body, tools);
    request.body = body.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    request.timeout = dialect.timeout();
    request.headers.emplace_back("Content-Type", "application/json");
    const std::string key = dialect.sendsAPIKey() ? sendableAPIKey(config.apiKey) : std::string();
    for (auto& header : dialect.headers(key)) request.headers.push_back(std::move(header));
    return request;
}

// The error body as UTF-8 text (empty when it is not); a body cut at the transport's limit may
// end inside a character, which is dropped.
std::string errorBodyText(const detail::HttpResponse& response) {
    const std::size_t partial = response.truncated ? 3 : 0;
    for (std::size_t drop = 0; drop <= partial && drop <= response.body.size(); ++drop) {
        std::string_view kept(response.body.data(), response.body.size() - drop);
        if (text::isValidUtf8(kept)) return std::string(kept);
    }
    return {};
}

// A status outside 2xx as the kit reports it: a rate limit, or the status and the start of the
// server's text.
void throwForErrorStatus(const detail::HttpResponse& response) {
    if (response.status >= 200 && response.status <= 299) return;
    if (response.status == 429) throw CoachLLMError::rateLimited();
    const std::string body = errorBodyText(response);
    throw CoachLLMError::serverError("HTTP " + std::to_string(response.status) + ": " +
                                     text::prefixCharacters(body, 300));
}

std::string readReply(const Dialect& dialect, const detail::HttpResponse& response) {
    throwForErrorStatus(response);
    return detail::wholeReplyText(dialect, response.body);
}

detail::HttpRequest httpRequest(const Dialect& dialect, const std::vector<LLMMessage>& messages,
                                const CoachConfig& config,
                                const std::optional<std::string>& modelOverride, bool streamed,
                                const std::vector<LLMTool>& tools = {}) {
    const std::string model = modelOverride.value_or(config.resolvedModel());
    std::optional<std::string> url = detail::providerEndpoint(config, model);
    if (!url) throw CoachLLMError::invalidURL();
    return requestFor(dialect, messages, tools, config, model, std::move(*url), streamed);
}

// Sleeps for `wait`, or throws CancelledError as soon as the token is stopped.
void waitUnlessStopped(std::chrono::milliseconds wait, const CancellationToken& cancellation) {
    std::mutex mutex;
    std::condition_variable woken;
    bool stopped = false;
    const auto registration = cancellation.onStop([&] {
        const std::lock_guard lock(mutex);
        stopped = true;
        woken.notify_all();
    });
    std::unique_lock lock(mutex);
    woken.wait_for(lock, wait, [&] { return stopped; });
    if (stopped) throw CancelledError();
}

// Posts `request` (its success body to `sink` when there is one) until a reply is not worth
// another try, waiting in between as the retry policy says. A connection lost once the body had
// started is never sent again: the reader may have shown part of it.
detail::HttpResponse postWithRetries(const detail::HttpRequest& request,
                                     const detail::BodySink& sink, const LLMRetrySleeper& sleep,
                                     const CancellationToken& cancellation,
                                     const LLMRetryHandler& onRetry) {
    const detail::RetryPolicy policy;
    for (int retry = 1;; ++retry) {
        std::optional<std::chrono::milliseconds> wait;
        try {
            detail::HttpResponse response = detail::post(request, cancellation, sink);
            wait = policy.waitAfterStatus(retry, response.status, response.headers, response.body);
            if (!wait) return response;
        } catch (const detail::ConnectionLost& lost) {
            if (lost.bodyArrived()) throw;
            wait = policy.waitAfterBrokenConnection(retry);
            if (!wait) throw;
        }
        if (onRetry) onRetry(*wait);
        sleep(*wait, cancellation);
        if (onRetry) onRetry(std::chrono::milliseconds(0));
    }
}

// One reply over HTTP, streamed unless the configuration says not, retried as the policy says;
// calls are read only when tools were offered.
LLMReply httpReply(const Dialect& dialect, const std::vector<LLMMessage>& messages,
                   const std::vector<LLMTool>& tools, const CoachConfig& config,
                   const std::optional<std::string>& modelOverride,
                   const CancellationToken& cancellation, const LLMDeltaHandler& onDelta,
                   const LLMRetrySleeper& sleep, const LLMRetryHandler& onRetry) {
    const bool withCalls = !tools.empty();
    if (!config.streamsReplies) {
        const detail::HttpResponse response = postWithRetries(
            httpRequest(dialect, messages, config, modelOverride, /*streamed=*/false, tools), {},
            sleep, cancellation, onRetry);
        throwForErrorStatus(response);
        LLMReply reply = detail::wholeReply(dialect, response.body, withCalls);
        if (onDelta && !reply.text.empty()) onDelta(reply.text);
        return reply;
    }
    const detail::HttpRequest request =
        httpRequest(dialect, messages, config, modelOverride, /*streamed=*/true, tools);
    detail::StreamedReplyReader reader(dialect, onDelta, withCalls, request.limits.maxReplyBytes);
    detail::HttpResponse response;
    try {
        const detail::BodySink sink = [&reader](std::string_view contentType,
                                                std::string_view bytes) {
            reader.feed(contentType, bytes);
        };
        response = postWithRetries(request, sink, sleep, cancellation, onRetry);
    } catch (const detail::ReplyTooLarge&) {
        throw;  // a reply cut at the size limit is no reply, however much of it was read
    } catch (const TransportError&) {
        // A stream lost (or gone silent) part-way ends there: the text so far is the reply, and
        // calls not seen whole are not made.
        if (!reader.started()) throw;
        if (reader.state().text.empty()) throw CoachLLMError::invalidResponse();
        return {reader.state().text, reader.state().usage};
    }
    throwForErrorStatus(response);
    std::string text = reader.finish();
    return {std::move(text), reader.state().usage, reader.toolTurn().calls,
            reader.toolTurn().providerTurn};
}

}  // namespace

LLMReply LLMService::stream(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                            const std::optional<std::string>& modelOverride,
                            const CancellationToken& cancellation, const LLMDeltaHandler& onDelta,
                            const LLMRetryHandler& /*onRetry*/) {
    LLMReply reply{complete(messages, config, modelOverride, cancellation)};
    if (onDelta && !reply.text.empty()) onDelta(reply.text);
    return reply;
}

LLMReply LLMService::streamWithTools(const std::vector<LLMMessage>& messages,
                                     const std::vector<LLMTool>& /*tools*/,
                                     const CoachConfig& config,
                                     const std::optional<std::string>& modelOverride,
                                     const CancellationToken& cancellation,
                                     const LLMDeltaHandler& onDelta,
                                     const LLMRetryHandler& onRetry) {
    return stream(messages, config, modelOverride, cancellation, onDelta, onRetry);
}

LLMClient::LLMClient(std::shared_ptr<OnDeviceModel> onDevice, LLMRetrySleeper sleep)
    : m_onDevice(std::make_unique<AppleFoundationModelClient>(std::move(onDevice))),
      m_sleep(sleep ? std::move(sleep) : waitUnlessStopped) {}

LLMClient::~LLMClient() = default;

std::string LLMClient::complete(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                                const std::optional<std::string>& modelOverride,
                                const CancellationToken& cancellation) {
    if (usesOnDeviceModel(config)) {
        requireOnDeviceSystem();
        return m_onDevice->complete(messages, config, cancellation);
    }
    const Dialect& dialect = dialectFor(config.provider);
    return readReply(dialect, postWithRetries(httpRequest(dialect, messages, config, modelOverride,
                                                          /*streamed=*/false),
                                              {}, m_sleep, cancellation, {}));
}

LLMReply LLMClient::stream(const std::vector<LLMMessage>& messages, const CoachConfig& config,
                           const std::optional<std::string>& modelOverride,
                           const CancellationToken& cancellation, const LLMDeltaHandler& onDelta,
                           const LLMRetryHandler& onRetry) {
    if (usesOnDeviceModel(config)) {
        if (!config.streamsReplies)
            return LLMService::stream(messages, config, modelOverride, cancellation, onDelta);
        requireOnDeviceSystem();
        return {m_onDevice->stream(messages, config, cancellation, onDelta), std::nullopt};
    }
    return httpReply(dialectFor(config.provider), messages, {}, config, modelOverride, cancellation,
                     onDelta, m_sleep, onRetry);
}

LLMReply LLMClient::streamWithTools(const std::vector<LLMMessage>& messages,
                                    const std::vector<LLMTool>& tools, const CoachConfig& config,
                                    const std::optional<std::string>& modelOverride,
                                    const CancellationToken& cancellation,
                                    const LLMDeltaHandler& onDelta,
                                    const LLMRetryHandler& onRetry) {
    if (tools.empty())
        return stream(messages, config, modelOverride, cancellation, onDelta, onRetry);
    if (usesOnDeviceModel(config)) {
        requireOnDeviceSystem();
        const LLMDeltaHandler none;
        auto step = m_onDevice->streamWithTools(messages, tools, config, cancellation,
                                                config.streamsReplies ? onDelta : none);
        return {std::move(step.text), std::nullopt, std::move(step.calls)};
    }
    return httpReply(dialectFor(config.provider), messages, tools, config, modelOverride,
                     cancellation, onDelta, m_sleep, onRetry);
}

std::optional<std::string> LLMClient::endpointURL(const CoachConfig& config) {
    return detail::providerEndpoint(config, config.resolvedModel());
}

std::optional<std::string> LLMClient::modelListURL(const CoachConfig& config) {
    if (usesOnDeviceModel(config)) return std::nullopt;
    auto chat = endpointURL(config);
    if (!chat) return std::nullopt;
    return detail::modelListURL(config.provider, *chat);
}

std::vector<ProviderModel> LLMClient::listModels(const CoachConfig& config,
                                                 const CancellationToken& cancellation) {
    if (!usesOnDeviceModel(config) && !endpointURL(config)) throw CoachLLMError::invalidURL();
    std::optional<std::string> url = modelListURL(config);
    if (!url) throw CoachLLMError::serverError(std::string(kNoModelList));
    const Dialect& dialect = dialectFor(config.provider);
    detail::HttpRequest request;
    request.timeout = dialect.timeout();
    const std::string key = dialect.sendsAPIKey() ? sendableAPIKey(config.apiKey) : std::string();
    request.headers = dialect.headers(key);

    std::vector<ProviderModel> models;
    std::set<std::string> seen;
    std::set<std::string> pages;
    // A server that keeps sending a next page (or the same one) ends the walk, not the kit.
    for (int page = 0; url && page < kMaxModelListPages && pages.insert(*url).second; ++page) {
        request.url = *url;
        const detail::HttpResponse response = detail::get(request, cancellation);
        throwForErrorStatus(response);
        auto read =
            detail::readModelPage(config.provider, detail::parseAnswer(response.body), *url);
        if (!read) throw CoachLLMError::invalidResponse();
        for (ProviderModel& model : read->models) {
            if (seen.insert(model.id).second) models.push_back(std::move(model));
        }
        url = std::move(read->nextURL);
    }
    return models;
}

namespace {

using Clock = std::chrono::steady_clock;

std::chrono::milliseconds since(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
}

std::string answeredIn(Provider provider, std::chrono::milliseconds elapsed) {
    return std::string(rawValue(provider)) + " answered in " + std::to_string(elapsed.count()) +
           " ms";
}

std::string modelCount(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " model" : " models");
}

ConnectionCheck listCheck(const CoachConfig& config, const std::vector<ProviderModel>& models,
                          std::chrono::milliseconds elapsed) {
    const std::string model = config.resolvedModel();
    const bool offered = std::any_of(models.begin(), models.end(),
                                     [&](const ProviderModel& m) { return m.id == model; });
    const bool local = config.provider == Provider::local;
    std::string summary = answeredIn(config.provider, elapsed);
    const std::string keyWorks = text::trimmed(config.apiKey).empty() ? "" : "the key works and ";
    if (offered) {
        summary += ": " + keyWorks + model + (local ? " is installed (" : " is available (") +
                   modelCount(models.size()) + " in all).";
    } else if (local) {
        summary += ", but the model " + model + " is not installed (" + modelCount(models.size()) +
                   " installed). Install it with \u201collama pull " + model + "\u201d.";
    } else {
        summary += keyWorks.empty() ? ", but" : " and the key works, but";
        summary += " it does not offer the model " + model + " (" + modelCount(models.size()) +
                   " offered).";
    }
    return {offered, std::move(summary), elapsed};
}

}  // namespace

ConnectionCheck LLMClient::checkConnection(const CoachConfig& config,
                                           const CancellationToken& cancellation) {
    const bool needsKey =
        !CoachConfig::isKeylessProvider(config.provider) && config.provider != Provider::custom;
    if (needsKey && text::isBlank(config.apiKey)) {
        return {false, "There is no API key for " + std::string(rawValue(config.provider)) + ".",
                std::chrono::milliseconds(0)};
    }
    const Clock::time_point start = Clock::now();
    try {
        if (modelListURL(config))
            return listCheck(config, listModels(config, cancellation), since(start));
        // No list to ask for: the smallest chat there is.
        CoachConfig probe = config;
        probe.maxTokens = kCheckMaxTokens;
        complete({{"user", "Hi"}}, probe, std::nullopt, cancellation);
        const auto elapsed = since(start);
        return {true,
                answeredIn(config.provider, elapsed) + ": the endpoint and the model " +
                    config.resolvedModel() + " work.",
                elapsed};
    } catch (const CancelledError&) {
        throw;
    } catch (const std::exception& failure) {
        const auto elapsed = since(start);
        return {
            false,
            "The check failed after " + std::to_string(elapsed.count()) + " ms: " + failure.what(),
            elapsed};
    }
}

}  // namespace sagely
