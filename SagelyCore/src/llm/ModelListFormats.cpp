#include "llm/ModelListFormats.h"

#include "llm/Dialect.h"
#include "support/Url.h"

#include <algorithm>
#include <string_view>

namespace sagely::detail {
namespace {

// Anthropic's and Gemini's largest pages, so a long list takes few round trips.
constexpr const char* kAnthropicPageSize = "1000";
constexpr const char* kGeminiPageSize = "1000";

// The URL with `suffix` of its path replaced by `replacement`; none when the path does not end
// with `suffix`.
std::optional<std::string> replacingSuffix(const std::string& url, std::string_view suffix,
                                           std::string_view replacement) {
    std::string_view path = withoutQuery(url);
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    if (!path.ends_with(suffix)) return std::nullopt;
    path.remove_suffix(suffix.size());
    return std::string(path) + std::string(replacement);
}

std::optional<std::string> geminiListURL(const std::string& chatURL) {
    const std::string_view path = withoutQuery(chatURL);
    const std::size_t models = path.rfind("/models/");
    if (models == std::string_view::npos) return std::nullopt;
    const std::string_view method = path.substr(path.rfind(':') + 1);
    if (method != "generateContent" && method != "streamGenerateContent") return std::nullopt;
    return withQueryParameter(std::string(path.substr(0, models)) + "/models", "pageSize",
                              kGeminiPageSize);
}

// The next page asks for the same page size from where the last one ended.
std::string nextPageURL(const std::string& pageURL, std::string_view sizeName,
                        std::string_view size, std::string_view cursorName,
                        std::string_view cursor) {
    return withQueryParameter(withQueryParameter(withoutQuery(pageURL), sizeName, size), cursorName,
                              cursor);
}

std::string stringOr(const nlohmann::json* value, std::string fallback) {
    return stringValue(value).value_or(std::move(fallback));
}

const nlohmann::json* arrayMember(const nlohmann::json& answer, const char* key) {
    const nlohmann::json* list = member(&answer, key);
    return list != nullptr && list->is_array() ? list : nullptr;
}

std::optional<ModelPage> readOpenAIPage(const nlohmann::json& answer) {
    const nlohmann::json* data = arrayMember(answer, "data");
    if (data == nullptr) return std::nullopt;
    ModelPage page;
    for (const nlohmann::json& entry : *data) {
        auto id = stringValue(member(&entry, "id"));
        if (!id || id->empty()) continue;
        page.models.push_back({*id, *id, std::nullopt, std::nullopt});
    }
    // The list comes in no useful order; sorted, related models stand together.
    std::sort(page.models.begin(), page.models.end(),
              [](const ProviderModel& a, const ProviderModel& b) { return a.id < b.id; });
    return page;
}

std::optional<ModelPage> readAnthropicPage(const nlohmann::json& answer,
                                           const std::string& pageURL) {
    const nlohmann::json* data = arrayMember(answer, "data");
    if (data == nullptr) return std::nullopt;
    ModelPage page;
    for (const nlohmann::json& entry : *data) {
        auto id = stringValue(member(&entry, "id"));
        if (!id || id->empty()) continue;
        page.models.push_back({*id, stringOr(member(&entry, "display_name"), *id), std::nullopt,
                               stringValue(member(&entry, "created_at"))});
    }
    const nlohmann::json* more = member(&answer, "has_more");
    auto last = stringValue(member(&answer, "last_id"));
    if (more != nullptr && more->is_boolean() && more->get<bool>() && last && !last->empty()) {
        page.nextURL = nextPageURL(pageURL, "limit", kAnthropicPageSize, "after_id", *last);
    }
    return page;
}

bool canChat(const nlohmann::json& entry) {
    const nlohmann::json* methods = member(&entry, "supportedGenerationMethods");
    if (methods == nullptr || !methods->is_array()) return false;
    return std::find(methods->begin(), methods->end(), "generateContent") != methods->end();
}

std::optional<ModelPage> readGeminiPage(const nlohmann::json& answer, const std::string& pageURL) {
    const nlohmann::json* models = member(&answer, "models");
    // An account without models answers {} rather than an empty list.
    if (models == nullptr && answer.is_object() && answer.empty()) return ModelPage{};
    if (models == nullptr || !models->is_array()) return std::nullopt;
    ModelPage page;
    for (const nlohmann::json& entry : *models) {
        auto name = stringValue(member(&entry, "name"));
        if (!name || !canChat(entry)) continue;
        // "models/gemini-x": the model path segment CoachConfig::model stands for.
        std::string id = name->starts_with("models/") ? name->substr(7) : *name;
        if (id.empty()) continue;
        page.models.push_back(
            {id, stringOr(member(&entry, "displayName"), id), std::nullopt, std::nullopt});
    }
    if (auto token = stringValue(member(&answer, "nextPageToken")); token && !token->empty()) {
        page.nextURL = nextPageURL(pageURL, "pageSize", kGeminiPageSize, "pageToken", *token);
    }
    return page;
}

// A model whose capabilities are listed and do not include "completion" (an embedding model)
// cannot answer a chat; servers before capabilities were listed show every model.
bool canComplete(const nlohmann::json& entry) {
    const nlohmann::json* capabilities = member(&entry, "capabilities");
    if (capabilities == nullptr || !capabilities->is_array()) return true;
    return std::find(capabilities->begin(), capabilities->end(), "completion") !=
           capabilities->end();
}

std::optional<ModelPage> readOllamaPage(const nlohmann::json& answer) {
    const nlohmann::json* models = member(&answer, "models");
    if (models == nullptr || models->is_null()) return ModelPage{};  // a server with none
    if (!models->is_array()) return std::nullopt;
    ModelPage page;
    for (const nlohmann::json& entry : *models) {
        auto name = stringValue(member(&entry, "name"));
        if (!name) name = stringValue(member(&entry, "model"));
        if (!name || name->empty() || !canComplete(entry)) continue;
        std::optional<std::uint64_t> size;
        if (const nlohmann::json* bytes = member(&entry, "size");
            bytes != nullptr && bytes->is_number_unsigned()) {
            size = bytes->get<std::uint64_t>();
        }
        page.models.push_back({*name, *name, size, stringValue(member(&entry, "modified_at"))});
    }
    return page;
}

}  // namespace

std::optional<std::string> modelListURL(Provider provider, const std::string& chatURL) {
    switch (provider) {
        case Provider::anthropic:
            if (auto url = replacingSuffix(chatURL, "/messages", "/models"))
                return withQueryParameter(*url, "limit", kAnthropicPageSize);
            return std::nullopt;
        case Provider::gemini:
            return geminiListURL(chatURL);
        case Provider::local:
            return replacingSuffix(chatURL, "/api/chat", "/api/tags");
        case Provider::apple:
        case Provider::openai:
        case Provider::custom:
            break;
    }
    return replacingSuffix(chatURL, "/chat/completions", "/models");
}

std::optional<ModelPage> readModelPage(Provider provider, const nlohmann::json& answer,
                                       const std::string& pageURL) {
    if (!answer.is_object()) return std::nullopt;
    switch (provider) {
        case Provider::anthropic:
            return readAnthropicPage(answer, pageURL);
        case Provider::gemini:
            return readGeminiPage(answer, pageURL);
        case Provider::local:
            return readOllamaPage(answer);
        case Provider::apple:
        case Provider::openai:
        case Provider::custom:
            break;
    }
    return readOpenAIPage(answer);
}

}  // namespace sagely::detail
