// The JSON keys of the data model: the field names, written once for the writer and the
// reader.
#pragma once

#include <string_view>

namespace sagely::detail {

namespace keys {
inline constexpr std::string_view blocks = "blocks";
inline constexpr std::string_view body = "body";
inline constexpr std::string_view canvasPoster = "canvasPoster";
inline constexpr std::string_view card = "card";
inline constexpr std::string_view content = "content";
inline constexpr std::string_view createdAt = "createdAt";
inline constexpr std::string_view id = "id";
inline constexpr std::string_view items = "items";
inline constexpr std::string_view kind = "kind";
inline constexpr std::string_view lesson = "lesson";
inline constexpr std::string_view lines = "lines";
inline constexpr std::string_view messages = "messages";
inline constexpr std::string_view role = "role";
inline constexpr std::string_view sections = "sections";
inline constexpr std::string_view steps = "steps";
inline constexpr std::string_view style = "style";
inline constexpr std::string_view subtitle = "subtitle";
inline constexpr std::string_view suggestions = "suggestions";
inline constexpr std::string_view summary = "summary";
inline constexpr std::string_view text = "text";
inline constexpr std::string_view timestamp = "timestamp";
inline constexpr std::string_view title = "title";
inline constexpr std::string_view tone = "tone";
inline constexpr std::string_view type = "type";
inline constexpr std::string_view updatedAt = "updatedAt";
inline constexpr std::string_view verification = "verification";
}  // namespace keys

}  // namespace sagely::detail
