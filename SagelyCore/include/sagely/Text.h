// Text — the string primitives every part of the kit counts and cuts with.
//
// Strings are UTF-8. A "character" is a user-perceived character (an extended grapheme
// cluster), so an emoji with modifiers or a letter with combining marks counts once and is never
// split by a cut. White space is the Unicode White_Space set. Invalid UTF-8 is treated as
// U+FFFD where a function has to decode it. All functions are pure and thread-safe.
#pragma once

#include <sagely/Export.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace sagely::text {

/// Removes White_Space characters (spaces incl. U+00A0 and U+3000, tab, LF, VT, FF, CR, U+0085,
/// U+2028, U+2029, …) from both ends.
SAGELY_EXPORT std::string trimmed(std::string_view s);

/// Removes the Unicode space separators (general category Zs) and tabs from both ends; line
/// breaks stay.
SAGELY_EXPORT std::string trimmedSpacesAndTabs(std::string_view s);

/// Whether the string holds only White_Space characters (or nothing).
SAGELY_EXPORT bool isBlank(std::string_view s);

/// Number of extended grapheme clusters.
SAGELY_EXPORT std::size_t characterCount(std::string_view s);

/// The first `count` grapheme clusters (the whole string when it has fewer).
SAGELY_EXPORT std::string prefixCharacters(std::string_view s, std::size_t count);

/// Whether the string has more than `count` grapheme clusters; stops counting early, so it is
/// cheap on long strings.
SAGELY_EXPORT bool hasMoreCharactersThan(std::string_view s, std::size_t count);

/// Full Unicode lower-casing with the root locale (so "İ" becomes "i̇", "ẞ" becomes "ß").
SAGELY_EXPORT std::string lowercased(std::string_view s);

/// UTF-8 to UTF-16 and back, for regular expressions whose positions are UTF-16 code units.
SAGELY_EXPORT std::u16string toUtf16(std::string_view s);
SAGELY_EXPORT std::string toUtf8(std::u16string_view s);

/// Whether the bytes are well-formed UTF-8.
SAGELY_EXPORT bool isValidUtf8(std::string_view s);

/// Percent-encodes every byte outside the URL-path-allowed set (unreserved characters,
/// sub-delimiters, ":", "@" and "/"), as RFC 3986 and the path component allow them.
SAGELY_EXPORT std::string percentEncodePath(std::string_view s);

/// Decodes %XX escapes; malformed escapes are kept as they stand.
SAGELY_EXPORT std::string percentDecode(std::string_view s);

/// Whether `s` starts or ends with the given bytes (plain byte comparisons).
inline bool startsWith(std::string_view s, std::string_view prefix) {
    return s.starts_with(prefix);
}
inline bool contains(std::string_view s, std::string_view part) {
    return s.find(part) != std::string_view::npos;
}

}  // namespace sagely::text
