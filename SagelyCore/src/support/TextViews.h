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

/// text::trimmedSpacesAndTabs as a view into `s`.
std::string_view trimmedSpacesAndTabsView(std::string_view s);

/// text::hasMoreCharactersThan, reading only as much of `s` as the answer needs.
bool hasMoreCharacters(std::string_view s, std::size_t count);

/// text::prefixCharacters, reading only as much of `s` as the answer needs.
std::string leadingCharacters(std::string_view s, std::size_t count);

/// The offset of the first occurrence of `needle` in `haystack` (std::string_view::npos when
/// there is none): std::string_view::find, but it tests 16 positions at a time on the needle's
/// first and last byte, which is several times faster on long texts.
std::size_t findBytes(std::string_view haystack, std::string_view needle);

/// Whether every byte is ASCII.
bool isAscii(std::string_view s);

/// Lower-cases ASCII text into `out` (replacing its content, reusing its capacity). For ASCII
/// text this equals text::lowercased and maps every byte to one byte, so a part of the text
/// lower-cases to the same stretch of the result.
void lowercaseAsciiInto(std::string_view s, std::string& out);

}  // namespace sagely::detail
