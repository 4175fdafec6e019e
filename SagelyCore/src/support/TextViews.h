// TextViews — the trimming and character counting of Text.h without copies, for the hot paths
// of reply formatting and guide excerpts, where texts run to a megabyte.
//
// Results are identical to their Text.h counterparts: the same White_Space and space-separator
// sets, the same grapheme clusters. Pure functions, thread-safe.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace sagely::detail {

/// text::trimmed as a view into `s`.
std::string_view trimmedView(std::string_view s);

/// The end of the run of White_Space that starts at `i` (malformed bytes end it).
std::size_t blanksFrom(std::string_view s, std::size_t i);

/// The start of the run of White_Space that ends at `end` (malformed bytes end it).
std::size_t blanksBefore(std::string_view s, std::size_t end);

/// text::trimmedSpacesAndTabs as a view into `s`.
std::string_view trimmedSpacesAndTabsView(std::string_view s);

/// text::hasMoreCharactersThan, reading only as much of `s` as the answer needs.
bool hasMoreCharacters(std::string_view s, std::size_t count);

/// text::prefixCharacters, reading only as much of `s` as the answer needs.
std::string leadingCharacters(std::string_view s, std::size_t count);

}  // namespace sagely::detail
