#include <sagely/CoachCard.h>

#include "model/json/RawValueTable.h"

namespace sagely {
namespace {

constexpr detail::RawValueTable<CoachCard::Style, 3> kStyles{{"info", "success", "warning"}};

}  // namespace

std::string_view rawValue(CoachCard::Style style) {
    return kStyles.rawValue(style);
}

std::optional<CoachCard::Style> cardStyleFromRawValue(std::string_view raw) {
    return kStyles.fromRawValue(raw);
}

}  // namespace sagely
