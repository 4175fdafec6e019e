// A JSON Schema checker for the small subset host actions use: "type" (object, string, integer,
// number, boolean, array), "properties", "required", "enum", "items", "additionalProperties" (a
// boolean), and the annotations "description", "title", "default", "examples". Debian ships no
// C++ validator, and this subset is all the formats' tool schemas have in common.
//
// A schema is checked once (schemaProblem) and refused if it holds any other keyword, so a
// schema never promises a check that silently does not happen.
#pragma once

#include <nlohmann/json.hpp>

#include <optional>
#include <string>

namespace sagely::detail {

/// Why `schema` is not a schema of the subset ("properties.size: unknown keyword \"minimum\""),
/// or none. Nesting deeper than 32 levels is refused.
std::optional<std::string> schemaProblem(const nlohmann::json& schema);

/// Why `value` does not fit `schema` ("name: expected a string"), or none. `schema` must have
/// passed schemaProblem().
std::optional<std::string> validationProblem(const nlohmann::json& schema,
                                             const nlohmann::json& value);

}  // namespace sagely::detail
