// The providers' model lists: where a list starts for a chat endpoint, and how one page of it
// reads. Four shapes: OpenAI's (also custom endpoints and OpenAI-compatible servers), Anthropic's
// (pages by `after_id`), Gemini's (pages by `pageToken`, only models that can chat) and Ollama's
// (the installed models, one page).
#pragma once

#include <sagely/CoachConfig.h>
#include <sagely/ProviderModel.h>

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <vector>

namespace sagely::detail {

struct ModelPage {
    std::vector<ProviderModel> models;
    /// The next page's URL; none on the last page.
    std::optional<std::string> nextURL;
};

/// Where the model list of the provider that answers at `chatURL` starts; none when the chat
/// endpoint does not say where its list is (a custom endpoint without "/chat/completions").
std::optional<std::string> modelListURL(Provider provider, const std::string& chatURL);

/// The models of one page read from `pageURL`; none when the answer is not such a list.
std::optional<ModelPage> readModelPage(Provider provider, const nlohmann::json& answer,
                                       const std::string& pageURL);

}  // namespace sagely::detail
