#include "llm/RetryPolicy.h"

#include <sagely/Text.h>

#include <curl/curl.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <random>
#include <string>

namespace sagely::detail {
namespace {

using std::chrono::milliseconds;

std::optional<std::string_view> header(const HeaderList& headers, std::string_view name) {
    for (const auto& [key, value] : headers) {
        if (text::lowercased(key) == name) return std::string_view(value);
    }
    return std::nullopt;
}

// A non-negative decimal number ("2", "1.5"); none for anything else.
std::optional<double> decimal(std::string_view text) {
    const std::string trimmed = text::trimmed(std::string(text));
    if (trimmed.empty()) return std::nullopt;
    double value = 0;
    const char* end = trimmed.data() + trimmed.size();
    auto [stop, error] = std::from_chars(trimmed.data(), end, value);
    if (error != std::errc() || stop != end || !std::isfinite(value) || value < 0)
        return std::nullopt;
    return value;
}

std::optional<milliseconds> fromSeconds(double seconds) {
    if (seconds <= 0) return std::nullopt;
    // Beyond any cap; kept finite before the conversion.
    return milliseconds(static_cast<long long>(std::ceil(std::min(seconds, 86400.0) * 1000)));
}

// Gemini's "retryDelay": a duration such as "20s" or "20.04s".
std::optional<milliseconds> retryInfoDelay(const nlohmann::json& details) {
    for (const auto& detail : details) {
        if (!detail.is_object()) continue;
        auto type = detail.find("@type");
        auto delay = detail.find("retryDelay");
        if (type == detail.end() || !type->is_string() || delay == detail.end() ||
            !delay->is_string())
            continue;
        if (!type->get<std::string>().ends_with("google.rpc.RetryInfo")) continue;
        std::string text = delay->get<std::string>();
        if (!text.ends_with('s')) continue;
        text.pop_back();
        if (auto seconds = decimal(text)) return fromSeconds(*seconds);
    }
    return std::nullopt;
}

const nlohmann::json* errorObject(const nlohmann::json& body) {
    if (!body.is_object()) return nullptr;
    auto error = body.find("error");
    return error != body.end() && error->is_object() ? &*error : nullptr;
}

bool hasString(const nlohmann::json& object, const char* key, std::string_view value) {
    auto found = object.find(key);
    return found != object.end() && found->is_string() && found->get<std::string>() == value;
}

// OpenAI: a used-up quota or spending limit, which no wait repairs.
bool openAIQuotaUsedUp(const nlohmann::json& error) {
    static constexpr std::array kCodes = {
        "insufficient_quota", "credit_balance_exhausted", "organization_spend_limit_exceeded",
        "project_spend_limit_exceeded", "organization_usage_limit_exceeded"};
    return std::any_of(kCodes.begin(), kCodes.end(), [&](const char* code) {
        return hasString(error, "type", code) || hasString(error, "code", code);
    });
}

// Gemini: a quota failure that a short wait does not end (a daily quota, a zero quota, or no
// delay given to wait for).
bool geminiQuotaUsedUp(const nlohmann::json& error, bool hasDelay) {
    if (!hasString(error, "status", "RESOURCE_EXHAUSTED")) return false;
    auto details = error.find("details");
    if (details == error.end() || !details->is_array()) return false;
    bool quotaFailure = false;
    for (const auto& detail : *details) {
        if (!detail.is_object() || !detail.contains("@type") || !detail["@type"].is_string() ||
            !detail["@type"].get<std::string>().ends_with("google.rpc.QuotaFailure"))
            continue;
        quotaFailure = true;
        auto violations = detail.find("violations");
        if (violations == detail.end() || !violations->is_array()) continue;
        for (const auto& violation : *violations) {
            auto id = violation.is_object() ? violation.find("quotaId") : violation.end();
            if (violation.is_object() && id != violation.end() && id->is_string() &&
                text::contains(id->get<std::string>(), "PerDay"))
                return true;
        }
    }
    auto message = error.find("message");
    if (message != error.end() && message->is_string() &&
        text::contains(message->get<std::string>(), "limit: 0"))
        return true;
    return quotaFailure && !hasDelay;
}

}  // namespace

RetryPolicy::RetryPolicy(std::function<double()> jitter, std::function<std::time_t()> now)
    : m_jitter(std::move(jitter)), m_now(std::move(now)) {
    if (!m_jitter) {
        m_jitter = [] {
            thread_local std::mt19937 engine{std::random_device{}()};
            return std::uniform_real_distribution<double>(0.0, 1.0)(engine);
        };
    }
    if (!m_now) m_now = [] { return std::time(nullptr); };
}

bool RetryPolicy::isRetriedStatus(long status) {
    return status == 429 || status == 503 || status == 529;
}

milliseconds RetryPolicy::backoff(int retry) const {
    const double base = static_cast<double>(kFirstWait.count()) * std::pow(2.0, retry - 1);
    const double jitter = std::clamp(m_jitter(), 0.0, 1.0);
    return milliseconds(static_cast<long long>(base * (1.0 - 0.25 * jitter)));
}

std::optional<milliseconds> RetryPolicy::askedWait(const HeaderList& headers,
                                                   std::string_view body) const {
    if (auto value = header(headers, "retry-after-ms")) {
        if (auto ms = decimal(*value)) return fromSeconds(*ms / 1000);
    }
    if (auto value = header(headers, "retry-after")) {
        if (auto seconds = decimal(*value)) return fromSeconds(*seconds);
        const std::string date(*value);
        const std::time_t at = curl_getdate(date.c_str(), nullptr);
        if (at != -1) return fromSeconds(static_cast<double>(at - m_now()));
    }
    const nlohmann::json parsed = nlohmann::json::parse(body, nullptr, false);
    if (const nlohmann::json* error = errorObject(parsed)) {
        auto details = error->find("details");
        if (details != error->end() && details->is_array()) return retryInfoDelay(*details);
    }
    return std::nullopt;
}

std::optional<milliseconds> RetryPolicy::waitAfterStatus(int retry, long status,
                                                         const HeaderList& headers,
                                                         std::string_view body) const {
    if (retry < 1 || retry > kMaxRetries || !isRetriedStatus(status)) return std::nullopt;
    if (auto should = header(headers, "x-should-retry");
        should && text::trimmed(std::string(*should)) == "false")
        return std::nullopt;
    const std::optional<milliseconds> asked = askedWait(headers, body);
    if (status == 429) {
        const nlohmann::json parsed = nlohmann::json::parse(body, nullptr, false);
        if (const nlohmann::json* error = errorObject(parsed)) {
            if (openAIQuotaUsedUp(*error) || geminiQuotaUsedUp(*error, asked.has_value()))
                return std::nullopt;
        }
    }
    return std::min(asked.value_or(backoff(retry)), kMaxWait);
}

std::optional<milliseconds> RetryPolicy::waitAfterBrokenConnection(int retry) const {
    if (retry < 1 || retry > kMaxRetries) return std::nullopt;
    return backoff(retry);
}

}  // namespace sagely::detail
