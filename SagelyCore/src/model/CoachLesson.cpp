#include <sagely/CoachLesson.h>

#include "model/json/RawValueTable.h"

namespace sagely {
namespace {

using BlockType = CoachLesson::Block::BlockType;
using Kind = CoachLesson::Line::Kind;
using Tone = CoachLesson::Callout::Tone;

constexpr detail::RawValueTable<CoachLesson::Style, 3> kStyles{{"info", "success", "warning"}};
constexpr detail::RawValueTable<BlockType, 3> kBlockTypes{{"stepGroup", "callout", "text"}};
constexpr detail::RawValueTable<Kind, 2> kKinds{{"numbered", "bullet"}};
constexpr detail::RawValueTable<Tone, 3> kTones{{"tip", "warning", "verification"}};

}  // namespace

std::string_view rawValue(CoachLesson::Style style) {
    return kStyles.rawValue(style);
}
std::string_view rawValue(BlockType type) {
    return kBlockTypes.rawValue(type);
}
std::string_view rawValue(Kind kind) {
    return kKinds.rawValue(kind);
}
std::string_view rawValue(Tone tone) {
    return kTones.rawValue(tone);
}

std::optional<CoachLesson::Style> lessonStyleFromRawValue(std::string_view raw) {
    return kStyles.fromRawValue(raw);
}
std::optional<BlockType> blockTypeFromRawValue(std::string_view raw) {
    return kBlockTypes.fromRawValue(raw);
}
std::optional<Kind> lineKindFromRawValue(std::string_view raw) {
    return kKinds.fromRawValue(raw);
}
std::optional<Tone> calloutToneFromRawValue(std::string_view raw) {
    return kTones.fromRawValue(raw);
}

}  // namespace sagely
