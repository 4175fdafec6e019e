// Utf16 — conversions between the UTF-8 of the kit's strings and the UTF-16 buffer that reply
// formatting works in, for replies that run to a megabyte.
//
// Malformed UTF-8 becomes U+FFFD, one for each maximal part of a sequence that could start a
// well-formed one, exactly as ICU's u_strFromUTF8WithSub (and so UnicodeString::fromUTF8)
// replaces it; a lone surrogate becomes U+FFFD in UTF-8. ICU's own conversions take a slow
// path at every malformed byte and read UTF-16 twice to size their output. Pure functions.
#pragma once

#include <string>
#include <string_view>

namespace sagely::detail {

/// Replaces the contents of `out` with the UTF-16 form of `utf8`.
void assignUtf16(std::u16string& out, std::string_view utf8);

/// The UTF-8 form of `utf16`.
std::string utf8Of(std::u16string_view utf16);

}  // namespace sagely::detail
