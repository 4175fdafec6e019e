// CoachCard — a small structured panel attached to a message: a styled title, an optional
// subtitle, titled sections of short items and follow-up suggestions.
//
// Plain value, compared field by field; any thread may use it.
#pragma once

#include <sagely/Export.h>

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sagely {

struct SAGELY_EXPORT CoachCard {
    enum class Style { info, success, warning };

    struct Section {
        std::string title;
        std::vector<std::string> items;
        friend bool operator==(const Section&, const Section&) = default;
    };

    Style style = Style::info;
    std::string title;
    std::optional<std::string> subtitle;
    std::vector<Section> sections;
    std::vector<std::string> suggestions;

    friend bool operator==(const CoachCard&, const CoachCard&) = default;
};

/// "info", "success", "warning".
SAGELY_EXPORT std::string_view rawValue(CoachCard::Style style);
SAGELY_EXPORT std::optional<CoachCard::Style> cardStyleFromRawValue(std::string_view raw);

// JSON: "style", "title", "subtitle" (left out when none; may be null or missing on reading),
// "sections", "suggestions". Failures throw DecodingError naming the key path.
SAGELY_EXPORT void to_json(nlohmann::json& json, const CoachCard& card);
SAGELY_EXPORT void from_json(const nlohmann::json& json, CoachCard& card);

/// The same form as compact JSON text (keys in field order), and back.
SAGELY_EXPORT std::string encodeJson(const CoachCard& card);
SAGELY_EXPORT CoachCard decodeCard(std::string_view json);

}  // namespace sagely
