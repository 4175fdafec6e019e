// The text of the data files: nlohmann's parser and serializer with the few rules of our own
// that the files have always followed.
//
// Parsing keeps every field in document order, repeated keys included, so a decoder meets them
// as they stand in the file. Text that is not JSON fails with a DecodingError naming the key
// path where the parser stopped ("messages[3].content: invalid JSON: ..."). Writing is
// nlohmann's compact dump (strings escaped as JSON requires, ill-formed UTF-8 replaced by
// U+FFFD) except for floating-point numbers, which keep the plain shortest form the files have
// always had: 700000000, 0.000001, 1e-07.
#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

namespace sagely::detail {

/// Parses a whole document; nothing but white space may follow the value.
nlohmann::ordered_json parseJson(std::string_view text);

/// The compact text of `json`.
std::string dumpJson(const nlohmann::ordered_json& json);

/// Appends the shortest digits that read back as `value`, in plain notation across the range
/// times live in (so 700000000 rather than 7e+08), with an exponent only for very large or very
/// small magnitudes: the form of every floating-point number dumpJson writes.
void appendNumber(std::string& out, double value);

/// `text` with every ill-formed UTF-8 sequence replaced by U+FFFD, as dumpJson writes it.
std::string wellFormedUtf8(const std::string& text);

}  // namespace sagely::detail
