// CoachLesson — a structured, multi-part how-to attached to a message: a title block, step
// groups, callouts and text, follow-up suggestions and an optional compact canvas poster.
//
// Plain values, compared field by field; any thread may use them. CoachLessonLibrary holds
// the built-in lessons.
#pragma once

#include <sagely/Export.h>

#include <nlohmann/json_fwd.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace sagely {

struct SAGELY_EXPORT CoachLesson {
    enum class Style { info, success, warning };

    struct Line {
        enum class Kind { numbered, bullet };

        Line() = default;
        Line(std::string text, Kind kind) : text(std::move(text)), kind(kind) {}

        std::string text;  // may hold inline Markdown such as **bold**
        Kind kind = Kind::numbered;
        friend bool operator==(const Line&, const Line&) = default;
    };

    struct StepGroup {
        std::string title;
        std::vector<Line> lines;
        friend bool operator==(const StepGroup&, const StepGroup&) = default;
    };

    struct Callout {
        enum class Tone { tip, warning, verification };

        std::string title;
        std::string body;  // inline Markdown
        Tone tone = Tone::tip;
        friend bool operator==(const Callout&, const Callout&) = default;
    };

    /// One content block: a step group, a callout or a Markdown paragraph (`text`).
    class Block {
    public:
        enum class BlockType { stepGroup, callout, text };

        static Block stepGroup(StepGroup group) { return Block(std::move(group)); }
        static Block callout(Callout callout) { return Block(std::move(callout)); }
        static Block text(std::string paragraph) { return Block(std::move(paragraph)); }

        BlockType type() const { return static_cast<BlockType>(m_value.index()); }
        /// The payload; each accessor returns null unless the block is of that type.
        const StepGroup* asStepGroup() const { return std::get_if<StepGroup>(&m_value); }
        const Callout* asCallout() const { return std::get_if<Callout>(&m_value); }
        const std::string* asText() const { return std::get_if<std::string>(&m_value); }

        friend bool operator==(const Block&, const Block&) = default;

    private:
        template <typename T>
        explicit Block(T payload) : m_value(std::move(payload)) {}
        std::variant<StepGroup, Callout, std::string> m_value;
    };

    struct CanvasPoster {
        std::string title;
        std::vector<std::string> steps;
        std::optional<std::string> verification;  // how the user confirms success
        friend bool operator==(const CanvasPoster&, const CanvasPoster&) = default;
    };

    Style style = Style::info;
    std::string title;
    std::optional<std::string> subtitle;
    std::optional<std::string> summary;
    std::vector<Block> blocks;
    std::vector<std::string> suggestions;
    std::optional<CanvasPoster> canvasPoster;

    friend bool operator==(const CoachLesson&, const CoachLesson&) = default;
};

/// The kit's built-in lessons.
struct SAGELY_EXPORT CoachLessonLibrary {
    /// "Set Up Speech": built from constant data on each call.
    static CoachLesson speechSetup();
};

SAGELY_EXPORT std::string_view rawValue(CoachLesson::Style style);
SAGELY_EXPORT std::string_view rawValue(CoachLesson::Block::BlockType type);
SAGELY_EXPORT std::string_view rawValue(CoachLesson::Line::Kind kind);
SAGELY_EXPORT std::string_view rawValue(CoachLesson::Callout::Tone tone);
SAGELY_EXPORT std::optional<CoachLesson::Style> lessonStyleFromRawValue(std::string_view raw);
SAGELY_EXPORT std::optional<CoachLesson::Block::BlockType> blockTypeFromRawValue(
    std::string_view raw);
SAGELY_EXPORT std::optional<CoachLesson::Line::Kind> lineKindFromRawValue(std::string_view raw);
SAGELY_EXPORT std::optional<CoachLesson::Callout::Tone> calloutToneFromRawValue(
    std::string_view raw);

// JSON: keys equal to the field names; optionals left out when none and read as none when
// missing or null; a block is {"type": <BlockType>, <type>: payload}. Failures throw
// DecodingError naming the key path.
SAGELY_EXPORT void to_json(nlohmann::json& json, const CoachLesson& lesson);
SAGELY_EXPORT void from_json(const nlohmann::json& json, CoachLesson& lesson);

/// The same form as compact JSON text (keys in field order), and back.
SAGELY_EXPORT std::string encodeJson(const CoachLesson& lesson);
SAGELY_EXPORT CoachLesson decodeLesson(std::string_view json);

}  // namespace sagely
