// ProviderModel — a model a provider offers now, as the provider's own model list reports it.
//
// The catalogue (CoachConfig::knownModels) is what the kit suggests; this is what the user's
// account or local server actually has: the models an Ollama user pulled, or what a cloud
// provider still serves.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace sagely {

struct ProviderModel {
    /// What CoachConfig::model takes for this model ("gpt-4o", "claude-x", "gemini-x",
    /// "llama3.2:latest").
    std::string id;
    /// The provider's label; the id when the provider gives none.
    std::string displayName;
    /// The size on disk (local models only).
    std::optional<std::uint64_t> sizeBytes;
    /// When the model was made or last pulled, as the provider writes it (RFC 3339).
    std::optional<std::string> modifiedAt;

    friend bool operator==(const ProviderModel&, const ProviderModel&) = default;
};

}  // namespace sagely
